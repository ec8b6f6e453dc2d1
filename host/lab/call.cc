#include "host/lab/call.h"

#include <algorithm>
#include <exception>
#include <new>
#include <string_view>

#include "host/lab/refusal.h"
#include "kestrel/constants.h"

namespace kestrel::host::lab {
namespace {

char last_message[512];

/** Room that cannot run out, since the failure may be that of memory. */
void Keep(std::string_view message) noexcept {
  const std::size_t length = std::min(message.size(), sizeof last_message - 1);
  message.copy(last_message, length);
  last_message[length] = '\0';
}

}  // namespace

ZEL_ReturnStatus RunInLab(std::optional<Access> access, void (*body)(void *), void *context) noexcept {
  Keep("");
  try {
    std::optional<HostCall> call;
    if (access) call.emplace(*access);
    body(context);
    if (call) call->Commit();
    return ZEL_OK;
  } catch (const Refusal &refusal) {
    Keep(refusal.what());
    return refusal.status();
  } catch (const StatusError &refusal) {
    return refusal.status();
  } catch (const std::bad_alloc &) {
    return ZEL_NO_MEMORY;
  } catch (const std::exception &error) {
    Keep(error.what());
  }
  return ZEL_FAILURE;
}

const char *LastMessage() noexcept { return last_message; }

}  // namespace kestrel::host::lab
