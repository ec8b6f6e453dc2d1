/* The teaming policies of a switch, compiled for the links as they are. */
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/teaming/lacp.h"
#include "host/core/teaming/team_policy.h"
#include "host/export.h"

namespace kestrel::host {

/** An uplink as teams see it. The pointers live as long as the switch's configuration stays the same. */
struct PlannedUplink {
  PortId id = 0;
  const Uplink *uplink = nullptr;
  const Port *port = nullptr;
  /** Empty when there is none. */
  std::string nic;
  LinkStatus link = kNoLink;
  std::uint8_t error_percent = 0;
  bool has_driver = false;
  /** At either end of the link. */
  bool is_blocked = false;
  bool is_beacon_lost = false;
  /** Its link came up a moment ago. */
  bool is_new = false;
  std::uint32_t numa_node = 0;
  /** Of an uplink that belongs to a group. */
  std::optional<LacpMember> lacp{};

  bool HasLink() const { return link.state == ZEL_LINK_STATE_UP; }
  /** Whether frames that are sent into it go anywhere. */
  bool Carries() const { return HasLink() && has_driver && !is_blocked; }
};

/** An uplink or a group in a team. */
struct TeamMember {
  std::string name;
  bool is_group = false;
  /** The uplink, or those of the group's that are in service, that the policy lets carry frames now. */
  std::vector<const PlannedUplink *> carriers;

  bool IsUsable() const { return !carriers.empty(); }
};

/** A policy and what it makes of the links. */
struct PlannedTeam {
  static constexpr std::uint8_t kNobody = 0xff;

  TeamPolicy policy;
  /** The active ones, then the others. */
  std::vector<TeamMember> members;
  std::size_t active = 0;
  /** For each share of the traffic the member that carries it, or kNobody. */
  std::vector<std::uint8_t> shares;
  /** The uplinks that all frames go out through, while nobody knows which are good. */
  std::vector<const PlannedUplink *> shotgun;

  /** Null when no member can. */
  const TeamMember *MemberFor(std::uint32_t number) const {
    const std::uint8_t share = shares.empty() ? kNobody : shares[number % shares.size()];
    return share == kNobody ? nullptr : &members[share];
  }
  /** Whether any member can carry frames. */
  bool IsUsable() const;
};

/** A port as its team sees it. */
struct PlannedPort {
  const PlannedTeam *team = nullptr;
  /** The member for all frames of the port; null when it depends on the frame, or there is none. */
  const TeamMember *member = nullptr;
  /** The uplink for all frames of the port; null when it depends on the frame, or there is none. */
  const PlannedUplink *uplink = nullptr;
  bool depends_on_frame = false;
  bool is_service = false;
  bool is_promiscuous = false;
  /** Of an access port and a port of a private VLAN. */
  std::optional<VlanId> vlan{};
};

/** Good for one state of a host: see IsCurrent. Teams are compiled as ports ask for them. */
class KESTREL_HOST_EXPORT TeamPlan {
 public:
  TeamPlan(const Host &host, const Switch &owner);
  TeamPlan(const TeamPlan &) = delete;
  TeamPlan &operator=(const TeamPlan &) = delete;

  /** Whether everything that the plan is made from is still the same. */
  bool IsCurrent(const Host &host, const Switch &owner) const;

  const PlannedPort &PortOf(const Switch &owner, const Port &port) const {
    const auto found = ports_.find(port.id);
    return found != ports_.end() ? found->second : AddPort(owner, port);
  }
  /** Null when the port was not asked for while the plan was current. */
  const PlannedPort *FindPort(PortId port) const {
    const auto found = ports_.find(port);
    return found == ports_.end() ? nullptr : &found->second;
  }

  /** Compiles every team that does not fall back. */
  void CompileRollingTeams(const Switch &owner) const;

  /** Null when it is no uplink. */
  const PlannedUplink *UplinkOf(PortId uplink) const;
  const std::map<PortId, PlannedUplink> &uplinks() const { return uplinks_; }
  /** Those that have been compiled, by the key of their policy. */
  const std::map<std::string, std::unique_ptr<PlannedTeam>> &teams() const { return teams_; }
  /** Whether a policy of the switch or of one of its ports has the criterion TEAM_FRP_CRIT_BEACON_STATE. */
  bool UsesBeacons(const Switch &owner) const;
  /** Whether frames have to be counted for teams that are balanced by load. */
  bool uses_load() const { return uses_load_; }

 private:
  const PlannedPort &AddPort(const Switch &owner, const Port &port) const;
  const PlannedTeam &TeamFor(const Switch &owner, const TeamPolicy &policy) const;
  TeamPolicy PolicyOf(const Port &port) const;
  const TeamMember *MemberOf(const Switch &owner, const PlannedTeam &team, const Port &port) const;

  std::uint64_t config_;
  std::uint64_t nics_;
  std::uint64_t choices_;
  bool is_numa_aware_;
  std::map<PortId, PlannedUplink> uplinks_;
  TeamPolicy switch_policy_;
  std::map<std::string, TeamPolicy, std::less<>> named_policies_;
  mutable bool uses_load_ = false;
  mutable std::optional<bool> uses_beacons_;
  mutable std::map<std::string, std::unique_ptr<PlannedTeam>> teams_;
  mutable std::unordered_map<PortId, PlannedPort> ports_;
};

/** The plan for a switch as it is now, made anew when it has to be. Good until the next change. */
KESTREL_HOST_EXPORT const TeamPlan &TeamPlanOf(const Host &host, const Switch &owner);

/** The member that carries what comes from an address behind a port, apart from teams that look at more of a frame than
    that. Null when there is none. */
const TeamMember *MemberForAddress(const PlannedPort &port, const MacAddress &address);

}  // namespace kestrel::host
