/* The list of switches. */
#pragma once

#include "export.h"
#include "kestrel/runtime_records.h"
#include "results.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The host's switches; the caller owns the list and releases it with free_switches. On failure prints the
   status to standard output and gives null. */
KESTREL_EXPORT VSList *VSZEL_GetSwitchesPy(VSListType listType);
/** Releases a list of switches. */
KESTREL_EXPORT void free_switches(VSList *list);

#ifndef SWIG
/** Name number `index`. An index at or above the count prints a line and gives no text. A negative index has
   no element either and is refused alike, but in silence. */
kestrel_Text VSList___getitem__(VSList *list, int index);
#endif

#ifdef __cplusplus
}
#endif
