/* How a fuzzer learns that something is wrong. */
#pragma once

#include <cstdlib>

namespace kestrel::host {

/** Ends the process where something does not hold. */
inline void Ensure(bool holds) {
  if (!holds) std::abort();
}

}  // namespace kestrel::host
