/* What teams do as time passes. */
#pragma once

#include <map>
#include <optional>

#include "host/core/host.h"

namespace kestrel::host {

/** The timers of all teams during one advance of the clock. */
class TeamTimers {
 public:
  /** An advance sends at most so many LACPDUs through an uplink and as many beacons, and announces addresses at most so
      often; what would come later is skipped. It is what it was before the last ones, since nobody has answered. */
  static constexpr std::uint32_t kMostInAdvance = 120;

  /** When the teams of a switch have something to do next; nothing when they have not. */
  std::optional<TimePoint> Next(const Host &host, const Switch &owner) const;
  /** Does what is due. `end` is the time at the end of the advance. */
  void Run(Host &host, Switch &owner, TimePoint end);

 private:
  void RunLacp(Host &host, Switch &owner, TimePoint end);

  /** LACPDUs through each uplink; rounds of beacons and of announcements for each switch. */
  std::map<PortId, std::uint32_t> lacpdus_;
  std::map<const Switch *, std::uint32_t> beacons_;
  std::map<const Switch *, std::uint32_t> announcements_;
};

}  // namespace kestrel::host
