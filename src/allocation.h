/* Records that a plain constructor cannot size: helpers that allocate and release them, and the constructors
   that take a count. All memory is from malloc and its kin. */
#pragma once

#include "export.h"
#include "kestrel/mirror_records.h"
#include "kestrel/option_records.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Allocators set the counts in the record's head. Sizes are computed in 32-bit arithmetic; a count whose size is
   negative or too small for the head counts as a failed allocation, and so does one that cannot be had. */

/** An uninitialised VSInfo; null, with a text on standard output, when there is no memory. */
KESTREL_EXPORT VSInfo *alloc_vs_info(void);
/** A zeroed query over `count` portsets; null, with a text on standard output, when there is no memory. */
KESTREL_EXPORT RTMIOCtlQuery *alloc_rtm_query(int count);
/** A zeroed query over `count` modules; null, with a text on standard output, when there is no memory. */
KESTREL_EXPORT RTMModIOCtlQuery *alloc_rtm_mod_query(int count);
/** A query for a property value of up to `size` bytes, with a zeroed buffer for it; null, with a text on standard
    output, when there is no memory. A negative size has no buffer. */
KESTREL_EXPORT VDSQuery *alloc_vds_query(int size);
/** A zeroed table for `count` named teaming policies; null when there is no memory. */
KESTREL_EXPORT LSTeamTable *alloc_ls_team_table(int count);
/** A zeroed table for mirror sessions and their entities, with its magic number; null when there is no memory. */
KESTREL_EXPORT DVMirrorSessionTable *alloc_dvmirror_session_table(int numSessions, int numEntities);

/** Release what the allocator of the same name made. */
KESTREL_EXPORT void free_vs_info(VSInfo *info);
KESTREL_EXPORT void free_rtm_query(RTMIOCtlQuery *query);
KESTREL_EXPORT void free_rtm_mod_query(RTMModIOCtlQuery *query);
/** Releases the value's buffer too. */
KESTREL_EXPORT void free_vds_query(VDSQuery *query);
KESTREL_EXPORT void free_ls_team_table(LSTeamTable *table);
KESTREL_EXPORT void free_dvmirror_session_table(DVMirrorSessionTable *table);

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
