#include "host/core/traffic/port_runtime.h"

#include "host/core/base/bytes.h"

namespace kestrel::host {
namespace {

/** Calls `visit(number)` for each counter, in the order in which they are saved. */
template <typename Runtime, typename Visit>
void ForEachCounter(Runtime &runtime, Visit visit) {
  for (auto *direction : {&runtime.in, &runtime.out}) {
    for (auto &number : direction->frames) visit(number);
    for (auto &number : direction->bytes) visit(number);
  }
  for (auto *number :
       {&runtime.dropped_in, &runtime.dropped_out, &runtime.exceptions_in, &runtime.exceptions_out, &runtime.unlearned,
        &runtime.unlearned_by_own_limit, &runtime.unlearned_dropped, &runtime.moved_here}) {
    visit(*number);
  }
}

}  // namespace

std::string PortRuntime::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint64_t>(connected_at.count()));
  ForEachCounter(*this, [&writer](std::uint64_t number) { writer.Put(number); });
  return writer.Take();
}

PortRuntime PortRuntime::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  PortRuntime runtime;
  runtime.connected_at = TimePoint(static_cast<TimePoint::rep>(reader.Get<std::uint64_t>()));
  ForEachCounter(runtime, [&reader](std::uint64_t &number) { number = reader.Get<std::uint64_t>(); });
  reader.RequireEnd();
  return runtime;
}

}  // namespace kestrel::host
