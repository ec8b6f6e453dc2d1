#include "host/abi/channel.h"

#include <dlfcn.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "kestrel/core.h"

// The channel belongs to the module. It is not there in a native process, nor where this library was loaded before the
// module and on its own.
extern "C" {
extern jmp_buf exception_buffer __attribute__((weak));
extern int32_t exception_status __attribute__((weak));
extern void *exceptionType __attribute__((weak));
extern const char *exceptionMsg __attribute__((weak));
}

namespace kestrel::host::abi {
namespace {

char kept_message[kFatalMessageRoom];
char kept_exception[64];

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

/** Whether there is a channel and a call in progress to leave: the status is other than 0 once a call was aborted,
    until the next one arms the channel. */
bool IsArmed() {
  return exception_buffer != nullptr && &exceptionType != nullptr && &exceptionMsg != nullptr &&
         &exception_status != nullptr && exception_status == 0;
}

/** The interpreter's exception class of that name; null where there is none, or no interpreter. Each is a variable of
    its own, and looked up by name: there are some seventy. */
void *ExceptionNamed(const char *name) {
  char symbol[sizeof kept_exception + 8];
  std::snprintf(symbol, sizeof symbol, "PyExc_%s", name);
  auto *variable = static_cast<void **>(dlsym(RTLD_DEFAULT, symbol));
  return variable == nullptr ? nullptr : *variable;
}

}  // namespace

void KeepFatalMessage(const char *message, const char *exception) noexcept {
  std::snprintf(kept_exception, sizeof kept_exception, "%s", exception);
  std::size_t length = strnlen(message, sizeof kept_message);
  if (length == sizeof kept_message) {
    // Not in the middle of a character: the interpreter would refuse the whole message.
    do --length;
    while (length > 0 && IsContinuation(message[length]));
  }
  std::memcpy(kept_message, message, length);
  kept_message[length] = '\0';
}

bool CanRaise(const char *exception) noexcept {
  return ExceptionNamed("RuntimeError") == nullptr || ExceptionNamed(exception) != nullptr;
}

ZEL_ReturnStatus ReportFatal() {
  Panic(kept_message);
  return ZEL_FAILURE;
}

ZEL_ReturnStatus EndCall() {
  if (!IsArmed()) return ReportFatal();
  exceptionType = ExceptionNamed(kept_exception);
  if (exceptionType == nullptr) exceptionType = ExceptionNamed("RuntimeError");
  exceptionMsg = kept_message;
  std::longjmp(exception_buffer, 1);
}

}  // namespace kestrel::host::abi
