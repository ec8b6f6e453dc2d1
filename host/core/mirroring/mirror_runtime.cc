#include "host/core/mirroring/mirror_runtime.h"

#include <utility>

#include "host/core/base/bytes.h"

namespace kestrel::host {
namespace {

/** The one place that knows what is saved of a session, and in which order: `each(number)` for every number. */
template <typename Progress, typename Each>
void ForEachNumber(Progress &progress, Each each) {
  each(progress.counters.copies);
  each(progress.counters.failed_copies);
  each(progress.counters.mirrored);
  each(progress.counters.discarded);
  each(progress.counters.failed);
  each(progress.passed);
  each(progress.sequence);
}

}  // namespace

MirrorCounters &MirrorCounters::operator+=(const MirrorCounters &more) {
  copies += more.copies;
  failed_copies += more.failed_copies;
  mirrored += more.mirrored;
  discarded += more.discarded;
  failed += more.failed;
  return *this;
}

MirrorProgress &MirrorRuntime::At(std::string_view session) {
  ++revision_;
  const auto found = sessions_.find(session);
  return found != sessions_.end() ? found->second : sessions_[std::string(session)];
}

std::string MirrorRuntime::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint32_t>(sessions_.size()));
  for (const auto &[session, progress] : sessions_) {
    writer.PutText(session);
    ForEachNumber(progress, [&writer](auto number) { writer.Put(number); });
  }
  return writer.Take();
}

MirrorRuntime MirrorRuntime::Load(std::string_view saved) {
  ByteReader reader(saved);
  MirrorRuntime loaded;
  for (auto count = reader.Get<std::uint32_t>(); count > 0; --count) {
    const auto [place, is_new] = loaded.sessions_.try_emplace(std::string(reader.GetText()));
    if (!is_new) throw StatusError(ZEL_INVALID_METADATA);
    ForEachNumber(place->second, [&reader](auto &number) { number = reader.Get<std::decay_t<decltype(number)>>(); });
  }
  reader.RequireEnd();
  return loaded;
}

}  // namespace kestrel::host
