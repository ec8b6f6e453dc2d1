/* The exception channel: how the platform aborts a call that a script made.

   A wrapper arms `exception_buffer` right before it calls the platform. On a fatal condition the platform
   finds these four variables by name, stores a Python exception type and a message, and jumps with a value
   other than 0. There is one channel in a process and every call holds the interpreter lock, so it serves one
   call at a time. Nothing here clears or frees what the platform stored. */
#pragma once

#include <Python.h>
#include <setjmp.h>
#include <stdint.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The resume point of the wrapper that armed last; of no use once that wrapper has returned. */
extern KESTREL_EXPORT jmp_buf exception_buffer;
/** 0 after a normal call, the value of the jump after an aborted one. */
extern KESTREL_EXPORT int32_t exception_status;
/** Set by whoever jumps: the exception to raise. */
extern KESTREL_EXPORT PyObject *exceptionType;
/** Set by whoever jumps: its message, zero-terminated UTF-8, owned by the platform. */
extern KESTREL_EXPORT const char *exceptionMsg;

#ifdef __cplusplus
}
#endif
