#include "host/core/traffic/capture.h"

#include <iterator>
#include <utility>

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void CaptureTable::Start(PortId port, const CaptureOptions &options) {
  if (options.max_frames == 0 || options.max_bytes == 0) throw StatusError(ZEL_BAD_PARAM);
  if (!captures_.try_emplace(port, Capture{options}).second) throw StatusError(ZEL_IS_ENABLED);
}

void CaptureTable::Stop(PortId port) {
  if (captures_.erase(port) == 0) throw StatusError(ZEL_IS_DISABLED);
}

Captured CaptureTable::Take(PortId port) {
  Capture &capture = Get(port);
  Captured taken;
  taken.frames.assign(std::make_move_iterator(capture.frames.begin()), std::make_move_iterator(capture.frames.end()));
  capture.frames.clear();
  capture.bytes = 0;
  taken.dropped = std::exchange(capture.dropped, 0);
  return taken;
}

bool CaptureTable::IsWanted(PortId port, bool is_incoming) const {
  const auto found = captures_.find(port);
  return found != captures_.end() && (!is_incoming || found->second.options.incoming);
}

void CaptureTable::Note(PortId port, bool is_incoming, TimePoint time, std::vector<std::uint8_t> bytes) {
  Capture &capture = Get(port);
  const std::size_t size = bytes.size();
  if (size > capture.options.max_bytes) {
    ++capture.dropped;
    return;
  }
  capture.frames.push_back({time, is_incoming, std::move(bytes)});
  capture.bytes += size;
  while (capture.frames.size() > capture.options.max_frames || capture.bytes > capture.options.max_bytes) {
    capture.bytes -= capture.frames.front().bytes.size();
    capture.frames.pop_front();
    ++capture.dropped;
  }
}

CaptureTable::Capture &CaptureTable::Get(PortId port) {
  const auto found = captures_.find(port);
  if (found == captures_.end()) throw StatusError(ZEL_IS_DISABLED);
  return found->second;
}

}  // namespace kestrel::host
