/* libmorrow.so: the base library that the other two stand on. */
#pragma once

#include "kestrel/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Reports a fatal condition in the words of `format`. Returns: the caller decides how to go on. */
void Panic(const char *format, ...);

/** The sentence that explains a status, zero-terminated and owned by the library. A value that is no status
    code gets a sentence too; the result is never null. */
const char *ZEL_ReturnStatusToString(ZEL_ReturnStatus status);

#ifdef __cplusplus
}
#endif
