/* What holds on the whole host where a switch says nothing else. */
#pragma once

#include "kestrel/runtime_records.h"

namespace kestrel::host {

/** MAC learning of switches without a policy of their own. */
inline constexpr VSMACLearningGlobalProps kDefaultMacLearning{
    .agingTime = VS_MAC_LEARNING_AGING_TIME_DEFAULT,
    .macLimit = VS_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT,
    .learnStatic = VS_MAC_LEARNING_LEARN_STATIC_DEFAULT,
    .staticMACAllow = VS_MAC_LEARNING_ALLOW_STATIC_DEFAULT,
};

}  // namespace kestrel::host
