/* How much a MAC table learns and for how long. */
#pragma once

#include "host/core/mac_table.h"
#include "host/core/switch_config.h"
#include "host/export.h"
#include "kestrel/runtime_records.h"

namespace kestrel::host {

/** What a switch says of it, or else the host. */
KESTREL_HOST_EXPORT MacLimits MacLimitsOf(const SwitchConfig &config, const VSMACLearningGlobalProps &defaults);

}  // namespace kestrel::host
