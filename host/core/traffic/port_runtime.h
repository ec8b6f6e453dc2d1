/* What traffic has made of the ports of a switch. */
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/core/base/bytes.h"
#include "host/core/base/change_list.h"
#include "host/core/base/clock.h"
#include "host/core/port_id.h"
#include "host/export.h"

namespace kestrel::host {

/** How many stations a frame is meant for. */
enum class CastKind : std::uint8_t { kUnicast, kMulticast, kBroadcast };

inline constexpr std::size_t kCastKinds = 3;

/** Frames and bytes one way, by CastKind. */
struct FrameCounters {
  std::array<std::uint64_t, kCastKinds> frames{};
  std::array<std::uint64_t, kCastKinds> bytes{};

  void Count(CastKind kind, std::size_t size) {
    ++frames[static_cast<std::size_t>(kind)];
    bytes[static_cast<std::size_t>(kind)] += size;
  }

  bool operator==(const FrameCounters &) const = default;
};

/** Counted from when the port was connected. `in` is from the port into the switch, `out` from the switch to the
    port. */
struct PortRuntime {
  TimePoint connected_at{};

  FrameCounters in{};
  FrameCounters out{};
  /** Frames that came in and went nowhere. */
  std::uint64_t dropped_in = 0;
  /** Frames that were meant to leave through the port and did not. */
  std::uint64_t dropped_out = 0;
  /** Frames that came in for the switch itself. */
  std::uint64_t exceptions_in = 0;
  /** Frames that left and that the switch had made itself. */
  std::uint64_t exceptions_out = 0;

  /** Frames from an address that was not learned because a limit was reached: those that were let through, the ones
      among them for which it was the limit of the port or team itself, and those that were dropped. */
  std::uint64_t unlearned = 0;
  std::uint64_t unlearned_by_own_limit = 0;
  std::uint64_t unlearned_dropped = 0;
  /** Addresses that were learned here and had been learned behind another port. */
  std::uint64_t moved_here = 0;

  /** The record as bytes, and back. Load throws StatusError ZEL_INVALID_METADATA for bytes that are none. */
  KESTREL_HOST_EXPORT std::string Save() const;
  KESTREL_HOST_EXPORT static PortRuntime Load(std::string_view bytes);

  bool operator==(const PortRuntime &) const = default;
};

/** Ports that nothing has happened to yet are not in it. */
class PortRuntimeTable {
 public:
  /** Null when nothing has happened to the port. */
  const PortRuntime *Find(PortId port) const {
    const auto found = ports_.find(port);
    return found == ports_.end() ? nullptr : &found->second;
  }
  /** To change it; good until the port is removed. */
  PortRuntime &At(PortId port) {
    changes_.Note(port);
    return ports_[port];
  }
  void Remove(PortId port) noexcept {
    changes_.Note(port);
    ports_.erase(port);
  }

  const std::unordered_map<PortId, PortRuntime> &Items() const { return ports_; }
  ChangeList<PortId> &changes() { return changes_; }
  const ChangeList<PortId> &changes() const { return changes_; }

 private:
  std::unordered_map<PortId, PortRuntime> ports_;
  ChangeList<PortId> changes_;
};

}  // namespace kestrel::host
