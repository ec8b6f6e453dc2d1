/* A running switch. */
#pragma once

#include <cstdint>
#include <map>

#include "host/core/mac_table.h"
#include "host/core/switch_config.h"

namespace kestrel::host {

/** A switch at work: the configuration in use, and what traffic has made of it. */
struct Switch {
  SwitchConfig config;
  MacTable macs{};
  /** Frames whose source the table had no room for, by the port that they came in through. */
  std::map<PortId, std::uint64_t> unlearned{};
};

}  // namespace kestrel::host
