/* Runtime options by name, and the packed lists they travel in.

   A list is a VSRuntimeOptions of `totalLength` bytes, that head included, with the entries one behind the other. An
   entry is a VSRuntimeOptionHeader, its `length` counting the head too, and the value: a 32-bit number, or for type
   codes from NUM_RUNTIME_INT_OPTIONS on a zero-terminated text of less than
   VS_CHARDEV_MAX_RUNTIME_STRING_OPTION_LENGTH bytes. Little-endian, nothing aligned. */
#pragma once

#include "export.h"
#include "kestrel/option_records.h"
#include "results.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SWIG
/** The names of the VS_NUM_RT_OPT runtime options; the index is the option's type code (VS_RT_OPT_*). The first
    NUM_RUNTIME_INT_OPTIONS are integers, the others texts. */
extern const char *runtimeOptionNames[];
#endif

/** The type code of an option's name, told by bytes and case; -1 for an unknown one. */
KESTREL_EXPORT int get_runtime_option_type_from_name(char *name);

#ifndef SWIG
/** Sets `totalLength` for entries of `length` bytes in all. */
void VSRuntimeOptions_set_options_length(VSRuntimeOptions *options, int length);

/** The first entry's place, whether there is one or not. */
VSRuntimeOptionHeader *VSRuntimeOptions_get_first_option(VSRuntimeOptions *options);

/** The entry behind `entry`, or null where that is not below the list's end, and for a null `entry`. */
VSRuntimeOptionHeader *VSRuntimeOptions_get_next_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry);

/** Write an entry at `entry` and give the place behind it. Null, and nothing written, where the entry would not end
    strictly below the list's end, or a text is too long or null. The name is not used. */
VSRuntimeOptionHeader *VSRuntimeOptions_add_int_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry,
                                                       char *name, int type, int value);
VSRuntimeOptionHeader *VSRuntimeOptions_add_str_option(VSRuntimeOptions *options, VSRuntimeOptionHeader *entry,
                                                       char *name, int type, char *value);

/** The name of an entry's option; null for a type code without one. */
const char *VSRuntimeOptionHeader_get_option_name(VSRuntimeOptionHeader *entry);

/** An entry's value, by its type code. */
kestrel_OptionValue VSRuntimeOptionHeader_get_option_value(VSRuntimeOptionHeader *entry);
#endif

#ifdef __cplusplus
}
#endif
