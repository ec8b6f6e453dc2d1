/* What the uplink teams of a switch have done, and what they wait for. */
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/base/revision.h"
#include "host/core/mac_table.h"
#include "host/core/port_id.h"
#include "host/core/teaming/lacp_frame.h"
#include "host/export.h"

namespace kestrel::host {

class TeamPlan;

/** What has become of one uplink. Uplinks that nothing has happened to yet have none. */
struct UplinkRuntime {
  /** After its link came up it is used from this time on, sooner only when its team has no other. */
  TimePoint used_from{0};
  /** What the far end said last in an LACPDU, and until when that counts. */
  std::optional<LacpEnd> lacp_partner{};
  TimePoint lacp_heard_until{0};
  /** When the next LACPDU goes out. */
  TimePoint lacp_due{0};
  /** When a beacon of another uplink last came in, and whether that is too long ago. */
  TimePoint beacon_heard{0};
  bool is_beacon_lost = false;

  bool operator==(const UplinkRuntime &) const = default;
};

/** An address that has moved to another uplink, which the network is told of. */
struct Announcement {
  /** Of the client. */
  PortId port = 0;
  /** Under which the address is known. */
  VlanId table_vlan = 0;
  TimePoint due{0};
  /** From the next announcement to the one behind it. */
  Duration gap{0};
  /** The last time that it may be announced. */
  TimePoint until{0};
  bool was_sent = false;

  bool operator==(const Announcement &) const = default;
};

/** Addresses on their way to be announced, and how many have been. */
struct AnnouncementState {
  /** By the address and the VLAN in which the network sees it. */
  std::map<MacKey, Announcement> waiting{};
  /** The interval that announcements are counted in, to send no more than allowed. */
  TimePoint interval_start{0};
  std::uint32_t sent_in_interval = 0;
  /** When the oldest address that was not announced yet has moved. */
  std::optional<TimePoint> round_start{};
  /** Frames. */
  std::uint32_t sent = 0;
  /** From the move of addresses until all of them have been announced once, in milliseconds. */
  std::uint32_t longest_round = 0;
  std::uint64_t all_rounds = 0;

  bool operator==(const AnnouncementState &) const = default;
};

/** How much the teams that are balanced by load have sent since their window began. */
struct LoadState {
  TimePoint window_start{0};
  /** In bytes. */
  std::map<PortId, std::uint64_t> of_ports{};
  std::map<PortId, std::uint64_t> of_uplinks{};
  /** The team member, an uplink or a group, that a port was moved to. */
  std::map<PortId, std::string> placements{};

  bool operator==(const LoadState &) const = default;
};

/** Frames between the services of the host and the network. */
struct ServiceTraffic {
  /** Sent by services. */
  std::uint64_t sent = 0;
  /** Of these, by the policy of the service's own port. */
  std::uint64_t by_service_policy = 0;
  /** Of these, by the policy of the port that their source address is behind. */
  std::uint64_t by_source_policy = 0;
  /** Of these, lost for want of an uplink. */
  std::uint64_t errors = 0;
  /** That services have accepted from uplinks. */
  std::uint64_t received = 0;
  /** Of these, those that came in through another uplink than their team sends through. */
  std::uint64_t overrides = 0;

  bool operator==(const ServiceTraffic &) const = default;
};

struct TeamState {
  std::map<PortId, UplinkRuntime> uplinks{};
  /** Of teams that do not fall back, by the key of their policy: for each share of the traffic the member that carries
      it. */
  std::map<std::string, std::vector<std::uint8_t>> held{};
  AnnouncementState announcements{};
  LoadState load{};
  ServiceTraffic services{};
  TimePoint beacon_due{0};
  std::uint32_t beacon_number = 0;
  /** The NUMA nodes that clients run on, where they are known. */
  std::map<PortId, std::uint32_t> client_nodes{};
  /** The NUMA nodes of uplinks, as they were read last. */
  std::map<PortId, std::uint32_t> uplink_nodes{};

  bool operator==(const TeamState &) const = default;
};

class KESTREL_HOST_EXPORT TeamRuntime {
 public:
  /** Goes up with every change, so that a change is seen from outside. */
  std::uint64_t revision = 0;

  const TeamState &state() const { return state_; }
  /** To change what no choice of an uplink depends on. */
  TeamState &Change() {
    ++revision;
    return state_;
  }
  /** To change the rest. */
  TeamState &ChangeChoices() {
    choices_.Renew();
    return Change();
  }
  /** Another one with every call of ChangeChoices. */
  std::uint64_t choices() const { return choices_.number(); }

  /** Drops what belongs to a port that is gone. */
  void ForgetPort(PortId port) noexcept;

  std::string Save() const;
  /** Throws StatusError ZEL_INVALID_METADATA for bytes that Save did not write. */
  static TeamRuntime Load(std::string_view bytes);

  /** The plan that the teams went by last, which may have become outdated; null at first. */
  mutable std::shared_ptr<const TeamPlan> plan{};

 private:
  TeamState state_;
  Revision choices_;
};

}  // namespace kestrel::host
