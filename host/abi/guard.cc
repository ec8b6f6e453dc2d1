#include "host/abi/guard.h"

#include <exception>
#include <new>

#include "host/abi/channel.h"
#include "host/core/base/errors.h"
#include "host/core/faults.h"

namespace kestrel::host::abi {
namespace {

struct Outcome {
  ZEL_ReturnStatus status;
  bool is_fatal;
};

/** When this returns, nothing of what `body` threw is left but the message kept in the channel. */
Outcome Run(const char *function, std::optional<Access> access, void (*body)(void *), void *context) noexcept {
  try {
    const FaultScope faults(function);
    std::optional<HostCall> call;
    if (access) call.emplace(*access);
    body(context);
    if (call) call->Commit();
    return {ZEL_OK, false};
  } catch (const StatusError &refusal) {
    return {refusal.status(), false};
  } catch (const std::bad_alloc &) {
    return {ZEL_NO_MEMORY, false};
  } catch (const FatalError &error) {
    KeepFatalMessage(error.what(), error.exception().c_str());
  } catch (const std::exception &error) {
    KeepFatalMessage(error.what());
  } catch (...) {
    KeepFatalMessage("the host failed in a way it cannot name");
  }
  return {ZEL_FAILURE, true};
}

}  // namespace

ZEL_ReturnStatus RunGuarded(const char *function, std::optional<Access> access, void (*body)(void *), void *context) {
  const Outcome outcome = Run(function, access, body, context);
  return outcome.is_fatal ? EndCall() : outcome.status;
}

ZEL_ReturnStatus RunUnarmed(const char *function, std::optional<Access> access, void (*body)(void *), void *context) {
  const Outcome outcome = Run(function, access, body, context);
  return outcome.is_fatal ? ReportFatal() : outcome.status;
}

}  // namespace kestrel::host::abi
