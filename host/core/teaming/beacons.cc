#include "host/core/teaming/beacons.h"

#include <algorithm>

#include "host/core/base/fnv_hash.h"
#include "host/core/frames/frame_writer.h"
#include "host/core/frames/network_bytes.h"
#include "host/core/teaming/team_plan.h"
#include "host/core/traffic/traffic.h"

namespace kestrel::host {
namespace {

/** "KBCN", by which a beacon is told from other frames of its type. */
constexpr std::uint32_t kBeaconMagic = 0x4b42434e;
constexpr std::uint16_t kBeaconVersion = 1;
constexpr std::size_t kBodySize = 4 + 2 + 8 + 4 + 4;

/** Whether the network that the laboratory plays brings the beacons of some other uplink to this one. */
bool IsReached(const Host &host, const TeamPlan &plan, const PlannedUplink &uplink) {
  const auto takes_part = [&host](const PlannedUplink &other) {
    return other.Carries() && host.nics().Get(other.nic).hears_beacons;
  };
  return takes_part(uplink) && std::ranges::any_of(plan.uplinks(), [&](const auto &other) {
           return other.first != uplink.id && takes_part(other.second);
         });
}

}  // namespace

std::vector<std::uint8_t> BytesOfBeacon(const Beacon &beacon, const MacAddress &source) {
  FrameWriter writer;
  writer.Put(kBroadcast).Put(source).Put(kBeaconType);
  writer.Put(kBeaconMagic).Put(kBeaconVersion).Put(beacon.source_switch).Put(beacon.uplink).Put(beacon.number);
  writer.PadTo(kMinFrameSize);
  return writer.Take();
}

std::optional<Beacon> BeaconIn(const Frame &frame) {
  const FrameBytes body = frame.payload();
  if (frame.type() != kBeaconType || body.size() < kBodySize) return std::nullopt;
  if (NumberAt<std::uint32_t>(body, 0) != kBeaconMagic || WordAt(body, 4) != kBeaconVersion) return std::nullopt;
  return Beacon{.source_switch = NumberAt<std::uint64_t>(body, 6),
                .uplink = NumberAt<std::uint32_t>(body, 14),
                .number = NumberAt<std::uint32_t>(body, 18)};
}

std::uint64_t BeaconSourceOf(const SwitchConfig &config) {
  const std::string &id = config.spec().id;
  return std::uint64_t{FnvHash{}.Add(id).value()} << 32 | FnvHash{}.Add(id).Add(std::string_view("beacon")).value();
}

void HearBeacon(const Host &host, Switch &owner, PortId uplink, const Beacon &beacon) {
  if (beacon.source_switch != BeaconSourceOf(owner.config) || beacon.uplink == uplink) return;
  const auto &known = owner.runtime.team.state().uplinks;
  const auto former = known.find(uplink);
  const bool was_lost = former != known.end() && former->second.is_beacon_lost;
  TeamState &state = was_lost ? owner.runtime.team.ChangeChoices() : owner.runtime.team.Change();
  UplinkRuntime &runtime = state.uplinks[uplink];
  runtime.beacon_heard = host.clock().Now();
  runtime.is_beacon_lost = false;
}

std::optional<TimePoint> NextBeacons(const Host &host, const Switch &owner) {
  if (owner.config.uplinks().size() == 0 || !TeamPlanOf(host, owner).UsesBeacons(owner)) return std::nullopt;
  return owner.runtime.team.state().beacon_due;
}

void RunBeacons(Host &host, Switch &owner, bool is_silent) {
  const TimePoint now = host.clock().Now();
  TeamState &state = owner.runtime.team.Change();
  // From a standstill everybody begins with the benefit of the doubt.
  const bool is_first = now - state.beacon_due > kBeaconPeriod || state.beacon_number == 0;
  state.beacon_due = now + kBeaconPeriod;
  ++state.beacon_number;

  const TeamPlan &plan = TeamPlanOf(host, owner);
  if (!is_silent) {
    for (const auto &[id, uplink] : plan.uplinks()) {
      if (!uplink.Carries()) continue;
      const Beacon beacon{.source_switch = BeaconSourceOf(owner.config), .uplink = id, .number = state.beacon_number};
      const auto bytes = BytesOfBeacon(beacon, uplink.port->plugged().address);
      SendOut(host, owner, *uplink.port, Frame(bytes), std::nullopt);
    }
  }

  bool has_changed = false;
  for (const auto &[id, uplink] : plan.uplinks()) {
    if (!uplink.HasLink()) continue;
    const bool is_known = state.uplinks.contains(id);
    UplinkRuntime &runtime = state.uplinks[id];
    if (is_first || !is_known || IsReached(host, plan, uplink)) runtime.beacon_heard = now;
    const bool is_lost = now - runtime.beacon_heard > kBeaconTimeout;
    has_changed = has_changed || is_lost != runtime.is_beacon_lost;
    runtime.is_beacon_lost = is_lost;
  }
  if (has_changed) owner.runtime.team.ChangeChoices();
}

}  // namespace kestrel::host
