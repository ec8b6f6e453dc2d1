/* Turns the outcome of what the laboratory does into a status. Every function of lab.h that can fail is one call of
   these. */
#pragma once

#include <optional>

#include "host/core/process_host.h"
#include "kestrel/types.h"

namespace kestrel::host::lab {

/** Calls `body(context)` with access to the host of the process, if any. Gives ZEL_OK, the status of a StatusError,
    ZEL_NO_MEMORY for std::bad_alloc, else ZEL_FAILURE, and keeps the message. It neither meets faults nor ends a call
    through the exception channel, which is armed for calls of the module alone. */
ZEL_ReturnStatus RunInLab(std::optional<Access> access, void (*body)(void *), void *context) noexcept;

/** What the last call that failed had to say beyond its status. */
const char *LastMessage() noexcept;

template <typename Body>
ZEL_ReturnStatus InLab(std::optional<Access> access, Body body) {
  return RunInLab(access, [](void *context) { (*static_cast<Body *>(context))(); }, &body);
}

/** RunInLab for a lambda that reads the host. */
template <typename Body>
ZEL_ReturnStatus ReadInLab(Body body) {
  return InLab(Access::kRead, body);
}

/** The same for one that changes the host: one transaction. */
template <typename Body>
ZEL_ReturnStatus ChangeInLab(Body body) {
  return InLab(Access::kChange, body);
}

/** The same for one that has nothing to do with the host. */
template <typename Body>
ZEL_ReturnStatus WithoutHost(Body body) {
  return InLab(std::nullopt, body);
}

}  // namespace kestrel::host::lab
