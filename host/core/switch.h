/* A running switch. */
#pragma once

#include <cstdint>

#include "host/core/mac_table.h"
#include "host/core/mirroring/mirror_plan.h"
#include "host/core/mirroring/mirror_runtime.h"
#include "host/core/multicast/multicast_table.h"
#include "host/core/switch_config.h"
#include "host/core/teaming/team_runtime.h"
#include "host/core/traffic/port_runtime.h"
#include "host/core/traffic/switch_plan.h"

namespace kestrel::host {

/** What traffic has made of a switch. */
struct SwitchRuntime {
  MacTable macs{};
  PortRuntimeTable ports{};
  TeamRuntime team{};
  MulticastTable multicast{};
  MirrorRuntime mirrors{};
};

/** A switch at work. */
struct Switch {
  SwitchConfig config;
  SwitchRuntime runtime{};
  /** Never used twice in the life of a host, so that a switch is told from a later one of the same id. */
  std::uint64_t number = 0;
  /** Made of the configuration. */
  MirrorPlanCache mirror_plan{};
  /** Made from the configuration, by whoever reads it; see PlanOf. */
  mutable PlanCache plan{};
};

}  // namespace kestrel::host
