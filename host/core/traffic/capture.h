/* Frames as they were seen at ports, for whoever asked for them. */
#pragma once

#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/frames/frame.h"
#include "host/core/port_id.h"
#include "host/export.h"

namespace kestrel::host {

struct CaptureOptions {
  /** The frames that come in too, beside those that leave. */
  bool incoming = false;
  /** How much is kept. Where it gets more, the oldest frames go. */
  std::size_t max_frames = 65536;
  std::size_t max_bytes = std::size_t{64} << 20;
};

struct CapturedFrame {
  TimePoint time;
  /** From the port into the switch. */
  bool is_incoming;
  std::vector<std::uint8_t> bytes;

  bool operator==(const CapturedFrame &) const = default;
};

struct Captured {
  /** In the order in which they passed. */
  std::vector<CapturedFrame> frames;
  /** How many more there were. */
  std::uint64_t dropped = 0;
};

/** The captures of a host, by port. They belong to the process that asked for them and are kept nowhere else. */
class KESTREL_HOST_EXPORT CaptureTable {
 public:
  /** Throws StatusError ZEL_IS_ENABLED when the port is being captured, ZEL_BAD_PARAM for room for nothing. */
  void Start(PortId port, const CaptureOptions &options);
  /** Ends a capture and drops what it holds. Throws StatusError ZEL_IS_DISABLED when there is none. */
  void Stop(PortId port);
  /** Hands out what has been captured since the last time. Throws StatusError ZEL_IS_DISABLED when there is none. */
  Captured Take(PortId port);
  /** No effect when there is none. */
  void Forget(PortId port) noexcept { captures_.erase(port); }

  bool IsEmpty() const { return captures_.empty(); }
  /** Whether frames of that direction are wanted. */
  bool IsWanted(PortId port, bool is_incoming) const;
  void Note(PortId port, bool is_incoming, TimePoint time, std::vector<std::uint8_t> bytes);

 private:
  struct Capture {
    CaptureOptions options;
    std::deque<CapturedFrame> frames{};
    std::size_t bytes = 0;
    std::uint64_t dropped = 0;
  };

  Capture &Get(PortId port);

  std::unordered_map<PortId, Capture> captures_;
};

}  // namespace kestrel::host
