#include "host/core/teaming/announcements.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "host/core/frames/frame_writer.h"
#include "host/core/teaming/team_hash.h"
#include "host/core/teaming/team_plan.h"
#include "host/core/traffic/traffic.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/** That VS_RT_OPT_MAX_RARPS_PER_INTERVAL speaks of. */
constexpr Duration kInterval = seconds(1);
/** From the first announcement of an address to the second; each further gap is twice as long. */
constexpr Duration kFirstGap = seconds(1);

constexpr std::uint16_t kEthernetHardware = 1;
constexpr std::uint16_t kReverseRequest = 3;
constexpr std::uint8_t kIpv4AddressSize = 4;

/** The uplink that what comes from an address goes out through; null when there is none. */
const PlannedUplink *UplinkFor(const Host &host, const Switch &owner, const Port &port, const MacAddress &address,
                               const Frame &frame) {
  const TeamMember *member = MemberForAddress(TeamPlanOf(host, owner).PortOf(owner, port), address);
  if (member == nullptr || member->carriers.empty()) return nullptr;
  const PlannedUplink *uplink = member->carriers[HashOfConversation(frame) % member->carriers.size()];
  return uplink->Carries() ? uplink : nullptr;
}

/** Whether the address is still behind the port where it was when it moved. */
bool IsThere(const Switch &owner, const MacKey &address, VlanId table_vlan, const Port &port) {
  if (!port.client) return false;
  if (port.client->used_address() == address.address) return true;
  const MacEntry *entry = owner.runtime.macs.Find({table_vlan, address.address});
  return entry != nullptr && entry->port == port.id;
}

/** Sends one announcement, if the address has still a way to go. Returns whether it has. */
bool Send(Host &host, Switch &owner, const MacKey &address, const Announcement &waiting) {
  const Port *port = owner.config.ports().Find(waiting.port);
  if (port == nullptr || !IsThere(owner, address, waiting.table_vlan, *port)) return false;
  const auto bytes = BytesOfAnnouncement(address.address);
  const Frame frame(bytes);
  const PlannedUplink *uplink = UplinkFor(host, owner, *port, address.address, frame);
  if (uplink == nullptr) return false;
  const auto tag = address.vlan == 0 ? std::nullopt : std::optional(VlanTag{.vlan = address.vlan});
  SendOut(host, owner, *uplink->port, frame, tag);
  return true;
}

/** A round is over when each address that has moved has been announced once. */
void EndRound(AnnouncementState &state, TimePoint now) {
  const auto was_sent = [](const auto &waiting) { return waiting.second.was_sent; };
  if (!state.round_start || !std::ranges::all_of(state.waiting, was_sent)) return;
  const auto took = std::chrono::duration_cast<milliseconds>(now - *state.round_start).count();
  state.longest_round = std::max(state.longest_round, static_cast<std::uint32_t>(took));
  state.all_rounds += static_cast<std::uint64_t>(took);
  state.round_start.reset();
}

}  // namespace

void Announce(const Host &host, Switch &owner, const ClientAddress &address) {
  AnnouncementState &state = owner.runtime.team.Change().announcements;
  const TimePoint now = host.clock().Now();
  const seconds duration(host.options().NumberOf(VS_RT_OPT_RARP_ADVERTISEMENT_DURATION));
  state.waiting[{address.vlan, address.address}] = {
      .port = address.port.id, .table_vlan = address.table_vlan, .due = now, .gap = kFirstGap, .until = now + duration};
  if (!state.round_start) state.round_start = now;
}

void SendAnnouncements(Host &host, Switch &owner) {
  const TimePoint now = host.clock().Now();
  if (const auto next = NextAnnouncement(owner); !next || *next > now) return;
  AnnouncementState &state = owner.runtime.team.Change().announcements;
  if (now - state.interval_start >= kInterval) {
    state.interval_start = now;
    state.sent_in_interval = 0;
  }
  const std::uint32_t most = host.options().NumberOf(VS_RT_OPT_MAX_RARPS_PER_INTERVAL);

  // Who has waited longest goes first, and who was never announced before who is repeated.
  std::vector<std::tuple<bool, TimePoint, MacKey>> due;
  for (const auto &[address, waiting] : state.waiting) {
    if (waiting.due <= now) due.emplace_back(waiting.was_sent, waiting.due, address);
  }
  std::ranges::sort(due);
  for (const auto &[was_sent, since, address] : due) {
    Announcement &waiting = state.waiting.at(address);
    if (state.sent_in_interval >= most) {
      waiting.due = state.interval_start + kInterval;
      continue;
    }
    const bool has_way = Send(host, owner, address, waiting);
    if (has_way) {
      ++state.sent_in_interval;
      ++state.sent;
      waiting.was_sent = true;
      waiting.due = now + waiting.gap;
      waiting.gap *= 2;
    }
    if (!has_way || waiting.due > waiting.until) state.waiting.erase(address);
  }
  EndRound(state, now);
}

std::optional<TimePoint> NextAnnouncement(const Switch &owner) {
  std::optional<TimePoint> next;
  for (const auto &[address, waiting] : owner.runtime.team.state().announcements.waiting) {
    if (!next || waiting.due < *next) next = waiting.due;
  }
  return next;
}

std::vector<std::uint8_t> BytesOfAnnouncement(const MacAddress &address) {
  FrameWriter writer;
  writer.Put(kBroadcast).Put(address).Put(static_cast<std::uint16_t>(ZEL_ETH_TYPE_RARP));
  writer.Put(kEthernetHardware).Put(static_cast<std::uint16_t>(ZEL_ETH_TYPE_IPV4));
  writer.Put(static_cast<std::uint8_t>(address.size())).Put(kIpv4AddressSize).Put(kReverseRequest);
  writer.Put(address).PutZeros(kIpv4AddressSize);
  writer.Put(address).PutZeros(kIpv4AddressSize);
  writer.PadTo(kMinFrameSize);
  return writer.Take();
}

}  // namespace kestrel::host
