/* Records that a plain constructor cannot size: helpers that allocate and release them, and the constructors
   that take a count. All memory is from malloc and its kin. */
#pragma once

#include "export.h"
#include "kestrel/option_records.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An uninitialised VSInfo; null, with a line on standard output, when there is no memory. */
KESTREL_EXPORT VSInfo *alloc_vs_info(void);
/** Releases what alloc_vs_info made. */
KESTREL_EXPORT void free_vs_info(VSInfo *info);

#ifndef SWIG
/* Counted constructors. They set the count and leave every other byte as malloc gave it; null when there is
   no memory for it. */

/** 4 + 81 n bytes, `nUplinkPorts` = n. */
VSUplinkPorts *new_VSUplinkPorts(int n);
/** 4 + 48 n bytes, `nUplinkPorts` = n. */
VSUplinkPortIds *new_VSUplinkPortIds(int n);
/** 8 + 32 n bytes, `numEntries` = n. An entry takes 36 bytes, so callers count generously. */
VSUplinks *new_VSUplinks(int n);
/** `size` bytes, `totalLength` = size. */
VSRuntimeOptions *new_VSRuntimeOptions(int size);
#endif

#ifdef __cplusplus
}
#endif
