/* Beacons: frames by which the uplinks of a switch find out whether the network carries frames between them. */
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

/** The EtherType of the platform's own protocols. */
inline constexpr std::uint16_t kBeaconType = ZEL_ETH_TYPE_TALVEX;
inline constexpr Duration kBeaconPeriod = std::chrono::seconds(1);
/** An uplink that has heard no other for longer is cut off. */
inline constexpr Duration kBeaconTimeout = 3 * kBeaconPeriod;

struct Beacon {
  /** Stands for the switch; others have other numbers. */
  std::uint64_t source_switch = 0;
  PortId uplink = 0;
  /** Goes up by one with each round of beacons. */
  std::uint32_t number = 0;

  bool operator==(const Beacon &) const = default;
};

KESTREL_HOST_EXPORT std::vector<std::uint8_t> BytesOfBeacon(const Beacon &beacon, const MacAddress &source);
/** Nothing for a frame that is none. */
KESTREL_HOST_EXPORT std::optional<Beacon> BeaconIn(const Frame &frame);
/** The number that stands for a switch in its beacons. */
KESTREL_HOST_EXPORT std::uint64_t BeaconSourceOf(const SwitchConfig &config);

/** A beacon has come in through an uplink; it counts when another uplink of the same switch has sent it. */
void HearBeacon(const Host &host, Switch &owner, PortId uplink, const Beacon &beacon);

/** When the next round of beacons is due; nothing when no team asks for them. */
std::optional<TimePoint> NextBeacons(const Host &host, const Switch &owner);

/** Lets every uplink that has a link send a beacon, unless `is_silent`, and finds out who has heard none. */
void RunBeacons(Host &host, Switch &owner, bool is_silent);

}  // namespace kestrel::host
