/* A count that is taken when somebody asks, and kept. */
#pragma once

#include <cstdint>
#include <optional>

namespace kestrel::host {

/** Knows a count until it is forgotten, which is due when what it counts may have changed. */
class KeptCount {
 public:
  /** `count()` counts, when the count is not known. */
  template <typename Count>
  std::uint32_t Get(Count count) {
    if (!known_) known_ = count();
    return *known_;
  }
  void Forget() noexcept { known_.reset(); }

  /** What is known of a value is no part of it. */
  bool operator==(const KeptCount & /*other*/) const { return true; }

 private:
  std::optional<std::uint32_t> known_;
};

}  // namespace kestrel::host
