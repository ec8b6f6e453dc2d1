#include "host/core/mac_limits.h"

#include "host/core/base/record_bytes.h"

namespace kestrel::host {

MacLimits MacLimitsOf(const SwitchConfig &config, const VSMACLearningGlobalProps &defaults) {
  const Property *own = config.properties().Find(VSPROP_SWITCH_MAC_LEARNING);
  if (own == nullptr) return {.entries = defaults.macLimit, .ageing = std::chrono::seconds(defaults.agingTime)};
  const auto policy = RecordOf<VSPropMACLearning>(own->value);
  return {.entries = policy.macLimit, .ageing = std::chrono::seconds(policy.agingTime)};
}

}  // namespace kestrel::host
