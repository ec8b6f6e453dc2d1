#include "host/core/beacons.h"

#include <algorithm>

#include "host/core/fnv_hash.h"
#include "host/core/frame_writer.h"
#include "host/core/team_plan.h"
#include "host/core/traffic.h"

namespace kestrel::host {
namespace {

/** "KBCN", by which a beacon is told from other frames of its type. */
constexpr std::uint32_t kMagic = 0x4b42434e;
constexpr std::uint16_t kVersion = 1;
constexpr std::size_t kBodySize = 4 + 2 + 8 + 4 + 4;

std::uint64_t NumberAt(FrameBytes bytes, std::size_t offset, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) number = number << 8 | bytes[offset + i];
  return number;
}

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
  writer.Put(kMagic).Put(kVersion).Put(beacon.source_switch).Put(beacon.uplink).Put(beacon.number);
  writer.PadTo(kMinFrameSize);
  return writer.Take();
}

std::optional<Beacon> BeaconIn(const Frame &frame) {
  const FrameBytes body = frame.payload();
  if (frame.type() != kBeaconType || body.size() < kBodySize) return std::nullopt;
  if (NumberAt(body, 0, 4) != kMagic || NumberAt(body, 4, 2) != kVersion) return std::nullopt;
  return Beacon{.source_switch = NumberAt(body, 6, 8),
                .uplink = static_cast<PortId>(NumberAt(body, 14, 4)),
                .number = static_cast<std::uint32_t>(NumberAt(body, 18, 4))};
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
      const auto bytes = BytesOfBeacon(beacon, uplink.port->client->address);
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
