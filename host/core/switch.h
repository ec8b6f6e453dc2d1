/* A running switch. */
#pragma once

#include "host/core/mac_table.h"
#include "host/core/switch_config.h"

namespace kestrel::host {

/** A switch at work: the configuration in use, and what traffic has made of it. */
struct Switch {
  SwitchConfig config;
  MacTable macs{};
};

}  // namespace kestrel::host
