#include "host/core/teaming/teaming.h"

#include <algorithm>

#include "host/core/base/errors.h"
#include "host/core/teaming/beacons.h"
#include "host/core/teaming/lacp.h"
#include "host/core/teaming/lacp_frame.h"
#include "host/core/teaming/team_hash.h"
#include "host/core/teaming/team_watch.h"

namespace kestrel::host {
namespace {

using Uplinks = std::span<const PlannedUplink *const>;

bool IsForMany(const MacAddress &destination) { return (destination[0] & 1) != 0; }

/** Addresses that bridges never forward (IEEE 802.1Q): 01:80:c2:00:00:00 to :0f. */
bool IsForNearestBridge(const MacAddress &destination) {
  return destination[0] == 0x01 && destination[1] == 0x80 && destination[2] == 0xc2 && destination[3] == 0 &&
         destination[4] == 0 && destination[5] <= 0x0f;
}

/** The member that carries a frame of a port. */
const TeamMember *MemberFor(const PlannedPort &port, const Frame &frame) {
  if (!port.depends_on_frame) return port.member;
  const bool by_packet = port.team->policy.balance == TEAM_FRP_TYPE_LB_IP;
  return port.team->MemberFor(by_packet ? HashOfStations(frame) : HashOfAddress(frame.source()));
}

/** The uplinks of a port's team for a frame, whether they lead anywhere or not. */
Uplinks UplinksFor(const PlannedPort &port, const Frame &frame) {
  const PlannedTeam &team = *port.team;
  if (team.policy.HasFlag(TEAM_FRP_FLAG_BLOCK_OUTPUT)) return {};
  if (!team.shotgun.empty()) return team.shotgun;
  const TeamMember *member = MemberFor(port, frame);
  if (member == nullptr) return {};
  const std::vector<const PlannedUplink *> &carriers = member->carriers;
  return Uplinks(carriers).subspan(carriers.size() == 1 ? 0 : HashOfConversation(frame) % carriers.size(), 1);
}

/** The port whose policy a frame of a service follows: the one that its source address is behind, which a service may
    send for, else the service's own. */
const Port *PortOfSource(const Switch &owner, const PlannedPort &planned, const Port &service, const Frame &frame) {
  const auto &tag = frame.tag();
  const VlanId tagged = tag ? tag->vlan : VlanId{0};
  const MacEntry *entry = owner.runtime.macs.Find({planned.vlan.value_or(tagged), frame.source()});
  if (entry == nullptr || entry->port == service.id) return &service;
  const Port *port = owner.config.ports().Find(entry->port);
  const bool is_client = port != nullptr && owner.config.uplinks().Find(port->id) == nullptr;
  return is_client ? port : &service;
}

void CountSent(const Host &host, Switch &owner, const Port &source, Uplinks uplinks, const Frame &frame) {
  LoadState &load = owner.runtime.team.Change().load;
  if (load.of_ports.empty()) load.window_start = host.clock().Now();
  load.of_ports[source.id] += frame.bytes().size();
  for (const PlannedUplink *uplink : uplinks) load.of_uplinks[uplink->id] += frame.bytes().size();
}

}  // namespace

Uplinks ChooseUplinks(const Host &host, Switch &owner, const Port &source, const Frame &frame) {
  const TeamPlan &plan = TeamPlanOf(host, owner);
  const PlannedPort &planned = plan.PortOf(owner, source);
  const Port &ruling = *(planned.is_service ? PortOfSource(owner, planned, source, frame) : &source);
  Uplinks uplinks = UplinksFor(&ruling == &source ? planned : plan.PortOf(owner, ruling), frame);
  if (uplinks.size() == 1 && !uplinks[0]->Carries()) uplinks = {};
  if (planned.is_service) {
    ServiceTraffic &services = owner.runtime.team.Change().services;
    ++services.sent;
    ++(&ruling == &source ? services.by_service_policy : services.by_source_policy);
    if (uplinks.empty()) ++services.errors;
  }
  if (plan.uses_load()) CountSent(host, owner, source, uplinks, frame);
  return uplinks;
}

const Uplink *ChooseUplink(const Host &host, Switch &owner, const Port &source, const Frame &frame) {
  const Uplinks uplinks = ChooseUplinks(host, owner, source, frame);
  return uplinks.empty() ? nullptr : uplinks[0]->uplink;
}

bool AcceptsFromUplink(const Host &host, Switch &owner, const Port &destination, PortId uplink, const Frame &frame,
                       bool is_flooded) {
  const PlannedPort &planned = TeamPlanOf(host, owner).PortOf(owner, destination);
  const PlannedTeam &team = *planned.team;
  bool is_expected = true;
  // An aggregate, at the far end too, brings each frame once, by the link that it chooses there.
  if ((is_flooded || IsForMany(frame.destination())) && team.policy.balance != TEAM_FRP_TYPE_LB_IP) {
    // By source address the choice is that for the sender, so that all ports agree on the uplink for each frame.
    const TeamMember *member = MemberFor(planned, frame);
    const auto is_it = [uplink](const PlannedUplink *carrier) { return carrier->id == uplink; };
    is_expected = member != nullptr && std::ranges::any_of(member->carriers, is_it);
  }
  bool is_accepted = is_expected;
  if (!is_expected) {
    const RuntimeOptions &options = host.options();
    const bool is_checked =
        team.policy.HasFlag(TEAM_FRP_FLAG_REVERSE) && options.NumberOf(VS_RT_OPT_REVERSE_PATH_FWD_CHECK) != 0 &&
        (!planned.is_promiscuous || options.NumberOf(VS_RT_OPT_REVERSE_PATH_FWD_CHECK_PROMISC) != 0);
    is_accepted = !is_checked;
  }
  if (planned.is_service && is_accepted) {
    ServiceTraffic &services = owner.runtime.team.Change().services;
    ++services.received;
    if (!is_expected) ++services.overrides;
  }
  return is_accepted;
}

bool HandleUplinkControlFrame(Host &host, Switch &owner, const Port &port, const Frame &frame) {
  const bool is_for_bridge = IsForNearestBridge(frame.destination());
  if (!is_for_bridge && frame.type() != kBeaconType) return false;
  if (owner.config.uplinks().Find(port.id) == nullptr) return is_for_bridge;
  if (is_for_bridge) {
    if (const auto pdu = LacpduIn(frame)) {
      TeamWatch watch(host, owner, TeamChange::kLinks);
      HearLacpdu(host, owner, port.id, *pdu);
      watch.Settle();
    }
    return true;
  }
  const auto beacon = BeaconIn(frame);
  if (!beacon) return false;
  TeamWatch watch(host, owner, TeamChange::kLinks);
  HearBeacon(host, owner, port.id, *beacon);
  watch.Settle();
  return true;
}

bool HasLink(const Host &host, const Switch &owner, const Port &port) {
  const PlannedTeam &team = *TeamPlanOf(host, owner).PortOf(owner, port).team;
  return !team.policy.HasFlag(TEAM_FRP_FLAG_LST) || team.IsUsable();
}

std::string_view TeamUplinkOf(const Host &host, const Switch &owner, const Port &port) {
  const PlannedPort &planned = TeamPlanOf(host, owner).PortOf(owner, port);
  const TeamMember *member = planned.depends_on_frame ? planned.team->MemberFor(port.id) : planned.member;
  if (member == nullptr || planned.team->policy.HasFlag(TEAM_FRP_FLAG_BLOCK_OUTPUT)) throw StatusError(ZEL_NOT_FOUND);
  return member->carriers[port.id % member->carriers.size()]->nic;
}

}  // namespace kestrel::host
