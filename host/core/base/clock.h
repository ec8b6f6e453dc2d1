/* The time of the model. */
#pragma once

#include <chrono>

namespace kestrel::host {

using Duration = std::chrono::nanoseconds;
/** Time since the host was made. */
using TimePoint = Duration;

/** A clock that stands still until it is told to advance, so that a run repeats exactly. */
class VirtualClock {
 public:
  TimePoint Now() const { return now_; }
  /** Throws StatusError ZEL_BAD_PARAM for a step back, ZEL_LIMIT_EXCEEDED for one beyond the last time. */
  void Advance(Duration by);

 private:
  TimePoint now_{0};
};

}  // namespace kestrel::host
