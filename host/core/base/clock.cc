#include "host/core/base/clock.h"

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void VirtualClock::Advance(Duration by) {
  if (by < Duration::zero()) throw StatusError(ZEL_BAD_PARAM);
  if (by > TimePoint::max() - now_) throw StatusError(ZEL_LIMIT_EXCEEDED);
  now_ += by;
}

}  // namespace kestrel::host
