/* Looking at how an operation of the model ends. */
#pragma once

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** The status with which `operation()` is refused, ZEL_OK when it is not. */
template <typename Operation>
int StatusOf(Operation operation) {
  try {
    operation();
    return ZEL_OK;
  } catch (const StatusError &refusal) {
    return refusal.status();
  }
}

}  // namespace kestrel::host
