#include "host/abi/guard.h"

#include <exception>
#include <new>

#include "host/abi/channel.h"
#include "host/core/errors.h"

namespace kestrel::host::abi {
namespace {

struct Outcome {
  ZEL_ReturnStatus status;
  bool is_fatal;
};

/** When this returns, nothing of what `body` threw is left but the message kept in the channel. */
Outcome Run(void (*body)(void *), void *context) noexcept {
  try {
    body(context);
    return {ZEL_OK, false};
  } catch (const StatusError &refusal) {
    return {refusal.status(), false};
  } catch (const std::bad_alloc &) {
    return {ZEL_NO_MEMORY, false};
  } catch (const std::exception &error) {
    KeepFatalMessage(error.what());
  } catch (...) {
    KeepFatalMessage("the host failed in a way it cannot name");
  }
  return {ZEL_FAILURE, true};
}

}  // namespace

ZEL_ReturnStatus RunGuarded(void (*body)(void *), void *context) {
  const Outcome outcome = Run(body, context);
  return outcome.is_fatal ? EndCall() : outcome.status;
}

}  // namespace kestrel::host::abi
