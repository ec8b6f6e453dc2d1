/* The way out of a call that must not return: the exception channel of a script's process. */
#pragma once

#include <cstddef>

#include "host/export.h"
#include "kestrel/types.h"

namespace kestrel::host::abi {

/** In bytes, with the zero at the end; what is longer is cut. */
inline constexpr std::size_t kFatalMessageRoom = 512;

/** Keeps the message of a fatal error, up to a limit, beyond the life of the error itself, and the name of the
    interpreter's class that scripts are to see. */
void KeepFatalMessage(const char *message, const char *exception = "RuntimeError") noexcept;

/** Whether scripts can be shown an exception of that class; where there is no interpreter, every name will do. */
KESTREL_HOST_EXPORT bool CanRaise(const char *exception) noexcept;

/** Reports the message kept last by Panic. Gives ZEL_FAILURE. */
ZEL_ReturnStatus ReportFatal();

/** Ends the call in progress with the message kept last. Where the process has an exception channel, jumps through it,
    so that the script sees the exception, a RuntimeError where the interpreter lacks its class; that is for calls made
    through the module only, which arm it. Where it has none, does as ReportFatal. No
    frame between this and the caller of the library may own anything that a destructor would release. */
ZEL_ReturnStatus EndCall();

}  // namespace kestrel::host::abi
