/* Turns the outcome of the model into a status. Every declared function that can fail is one call of these. */
#pragma once

#include <optional>
#include <type_traits>

#include "host/core/process_host.h"
#include "host/export.h"
#include "kestrel/types.h"

namespace kestrel::host::abi {

/** Calls `body(context)` with access to the host of the process, if any, for the declared function of that name. Gives
   ZEL_OK, the status of a StatusError, or ZEL_NO_MEMORY for std::bad_alloc. Any other exception is fatal and ends the
   call (see channel.h), after it has been unwound and destroyed. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus RunGuarded(const char *function, std::optional<Access> access,
                                                void (*body)(void *), void *context);

/** The same for a function that scripts also reach without arming the channel: what is fatal is reported by Panic and
    gives ZEL_FAILURE. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus RunUnarmed(const char *function, std::optional<Access> access,
                                                void (*body)(void *), void *context);

template <typename Body>
ZEL_ReturnStatus Guarded(std::optional<Access> access, Body body, const char *function) {
  static_assert(std::is_trivially_destructible_v<Body>, "a jump would skip the destructor");
  return RunGuarded(function, access, [](void *context) { (*static_cast<Body *>(context))(); }, &body);
}

/** RunGuarded for a lambda that reads the host. It captures by reference, since a jump leaves it without calling its
    destructor. */
template <typename Body>
ZEL_ReturnStatus ReadCall(Body body, const char *function = __builtin_FUNCTION()) {
  return Guarded(Access::kRead, body, function);
}

/** The same for one that changes the host: one transaction, which lasts when this gives ZEL_OK and else never was. */
template <typename Body>
ZEL_ReturnStatus ChangeCall(Body body, const char *function = __builtin_FUNCTION()) {
  return Guarded(Access::kChange, body, function);
}

/** RunUnarmed for a lambda that reads the host. */
template <typename Body>
ZEL_ReturnStatus UnarmedReadCall(Body body, const char *function = __builtin_FUNCTION()) {
  return RunUnarmed(function, Access::kRead, [](void *context) { (*static_cast<Body *>(context))(); }, &body);
}

/** The same for one that has nothing to do with the host. */
template <typename Body>
ZEL_ReturnStatus PlainCall(Body body, const char *function = __builtin_FUNCTION()) {
  return Guarded(std::nullopt, body, function);
}

}  // namespace kestrel::host::abi
