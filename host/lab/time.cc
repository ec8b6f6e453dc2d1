/* The time of the host. */
#include <limits>

#include "host/abi/arguments.h"
#include "host/lab/call.h"
#include "kestrel/lab.h"

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_now(zel_uint64 *timeOut) {
  return ReadInLab([&] {
    abi::ClearOutputs(timeOut);
    abi::SetOutput(timeOut, static_cast<zel_uint64>(ReadHost().clock().Now().count()));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_advance(zel_uint64 nanoseconds) {
  return ChangeInLab([&] {
    if (nanoseconds > std::numeric_limits<Duration::rep>::max()) throw StatusError(ZEL_LIMIT_EXCEEDED);
    ChangeHost().AdvanceClock(Duration(nanoseconds));
  });
}
