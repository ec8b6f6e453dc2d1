/* Indexed access to variable-length members and to runs of records. */
#pragma once

#include "bounded_text.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Members with a count. The index is compared as an unsigned number, so a negative one is always outside.
   Outside, "Invalid array index." goes to standard output, without a newline, and nothing is read. */

/** The count, as a signed number. */
int VSUplinks___len__(VSUplinks *uplinks);
/** The name of entry number `index`. */
kestrel_Text VSUplinks___getitem__(VSUplinks *uplinks, int index);

/* Runs of records, as the platform returns them: record number `index` counted from the one given, without a
   bound, copied into a block of its own that the caller owns. Null when there is no memory. */

VSMACEntry *VSMACEntry___getitem__(VSMACEntry *entry, int index);

/* Arrays of records without a bound. */

typedef zel_VDSPortVIDRange vidrangeArray;
typedef VSPvlanMapEntry pvlanmapentryArray;

/** `n` uninitialised elements from malloc; null when there is no memory. */
vidrangeArray *new_vidrangeArray(size_t n);
zel_VDSPortVIDRange vidrangeArray_getitem(vidrangeArray *array, size_t index);
void vidrangeArray_setitem(vidrangeArray *array, size_t index, zel_VDSPortVIDRange value);

/** `n` uninitialised elements from malloc; null when there is no memory. */
pvlanmapentryArray *new_pvlanmapentryArray(size_t n);
VSPvlanMapEntry pvlanmapentryArray_getitem(pvlanmapentryArray *array, size_t index);
void pvlanmapentryArray_setitem(pvlanmapentryArray *array, size_t index, VSPvlanMapEntry value);

#ifdef __cplusplus
}
#endif
