/* Runtime options by name. */
#pragma once

#include "kestrel/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The names of the VS_NUM_RT_OPT runtime options; the index is the option's type code (VS_RT_OPT_*). The
   first NUM_RUNTIME_INT_OPTIONS are integers, the others texts. */
extern const char *runtimeOptionNames[];

#ifdef __cplusplus
}
#endif
