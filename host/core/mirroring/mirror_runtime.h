/* What the mirror sessions of a switch have done. */
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/export.h"

namespace kestrel::host {

/** Every frame that passes a source of a session is mirrored, discarded or failed. */
struct KESTREL_HOST_EXPORT MirrorCounters {
  /** Copies, one for each destination of each frame. */
  std::uint64_t copies = 0;
  std::uint64_t failed_copies = 0;
  /** Frames of which at least one copy was sent. */
  std::uint64_t mirrored = 0;
  /** Frames that the session's filter, its sampling or its destinations left out. */
  std::uint64_t discarded = 0;
  /** Frames of which no copy could be sent. */
  std::uint64_t failed = 0;

  MirrorCounters &operator+=(const MirrorCounters &more);
  bool operator==(const MirrorCounters &) const = default;
};

struct MirrorProgress {
  MirrorCounters counters{};
  /** Frames that the filter let pass, of which sampling takes one in so many. */
  std::uint64_t passed = 0;
  /** The number that the next frame sent to collectors gets. */
  std::uint32_t sequence = 0;

  bool operator==(const MirrorProgress &) const = default;
};

class KESTREL_HOST_EXPORT MirrorRuntime {
 public:
  /** Null while the session has seen nothing. */
  const MirrorProgress *Find(std::string_view session) const {
    const auto found = sessions_.find(session);
    return found == sessions_.end() ? nullptr : &found->second;
  }
  /** To change it. */
  MirrorProgress &At(std::string_view session);

  /** Drops the sessions for which `drop(identifier)` is true; it must not throw. */
  template <typename Drop>
  void RemoveIf(Drop drop) noexcept {
    if (std::erase_if(sessions_, [&](const auto &each) { return drop(std::string_view(each.first)); }) > 0) {
      ++revision_;
    }
  }

  /** Goes up with every change, so that a change is seen from outside. */
  std::uint64_t revision() const { return revision_; }

  std::string Save() const;
  /** What was saved. Throws StatusError ZEL_INVALID_METADATA for other bytes. */
  static MirrorRuntime Load(std::string_view saved);

  /** Of what is saved. */
  bool operator==(const MirrorRuntime &other) const { return sessions_ == other.sessions_; }

 private:
  std::map<std::string, MirrorProgress, std::less<>> sessions_;
  std::uint64_t revision_ = 0;
};

}  // namespace kestrel::host
