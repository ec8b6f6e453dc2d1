#include "host/abi/channel.h"

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kestrel/core.h"

// The channel belongs to the module and PyExc_RuntimeError to the interpreter. Neither is there in a native
// process, nor where this library was loaded before the module and on its own.
extern "C" {
extern jmp_buf exception_buffer __attribute__((weak));
extern int32_t exception_status __attribute__((weak));
extern void *exceptionType __attribute__((weak));
extern const char *exceptionMsg __attribute__((weak));
extern void *PyExc_RuntimeError __attribute__((weak));
}

namespace kestrel::host::abi {
namespace {

char kept_message[512];

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

/** Whether there is a channel and a call in progress to leave: the status is other than 0 once a call was aborted,
    until the next one arms the channel. */
bool IsArmed() {
  return exception_buffer != nullptr && &exceptionType != nullptr && &exceptionMsg != nullptr &&
         &exception_status != nullptr && exception_status == 0;
}

}  // namespace

void KeepFatalMessage(const char *message) noexcept {
  std::size_t length = strnlen(message, sizeof kept_message);
  if (length == sizeof kept_message) {
    // Not in the middle of a character: the interpreter would refuse the whole message.
    do --length;
    while (length > 0 && IsContinuation(message[length]));
  }
  std::memcpy(kept_message, message, length);
  kept_message[length] = '\0';
}

ZEL_ReturnStatus EndCall() {
  if (!IsArmed()) {
    Panic(kept_message);
    return ZEL_FAILURE;
  }
  exceptionType = &PyExc_RuntimeError == nullptr ? nullptr : PyExc_RuntimeError;
  exceptionMsg = kept_message;
  std::longjmp(exception_buffer, 1);
}

}  // namespace kestrel::host::abi
