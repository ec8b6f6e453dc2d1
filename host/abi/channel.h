/* The way out of a call that must not return: the exception channel of a script's process. */
#pragma once

#include "kestrel/types.h"

namespace kestrel::host::abi {

/** Keeps the message of a fatal error, up to a limit, beyond the life of the error itself. */
void KeepFatalMessage(const char *message) noexcept;

/** Ends the call in progress with the message kept last. Where the process has an exception channel, jumps through it,
    so that the script sees a RuntimeError; that is for calls made through the module only, which arm it. Where it has
    none, reports the message by Panic and returns ZEL_FAILURE. No frame between this and the caller of the library may
    own anything that a destructor would release. */
ZEL_ReturnStatus EndCall();

}  // namespace kestrel::host::abi
