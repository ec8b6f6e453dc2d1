/* Turns the outcome of the model into a status. Every declared function that can fail is one guarded call. */
#pragma once

#include <type_traits>

#include "host/export.h"
#include "kestrel/types.h"

namespace kestrel::host::abi {

/** Calls `body(context)`. Gives ZEL_OK, the status of a StatusError, or ZEL_NO_MEMORY for std::bad_alloc. Any other
    exception is fatal and ends the call (see channel.h), after it has been unwound and destroyed. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus RunGuarded(void (*body)(void *), void *context);

/** RunGuarded for a lambda. It captures by reference, since a jump leaves it without calling its destructor. */
template <typename Body>
ZEL_ReturnStatus Guarded(Body body) {
  static_assert(std::is_trivially_destructible_v<Body>, "a jump would skip the destructor");
  return RunGuarded([](void *context) { (*static_cast<Body *>(context))(); }, &body);
}

}  // namespace kestrel::host::abi
