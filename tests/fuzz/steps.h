/* An input as a row of choices, numbers and bytes. What is not there any more reads as zeros and nothing. */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kestrel::host {

class Steps {
 public:
  Steps(const std::uint8_t *data, std::size_t size) : rest_(data, size) {}

  bool AtEnd() const { return rest_.empty(); }

  std::uint8_t Byte() {
    if (rest_.empty()) return 0;
    const std::uint8_t byte = rest_.front();
    rest_ = rest_.subspan(1);
    return byte;
  }

  /** Below `count`, which is at most 256 and not 0. */
  std::size_t Choice(std::size_t count) { return Byte() % count; }

  std::uint64_t Number(int bytes) {
    std::uint64_t number = 0;
    for (int i = 0; i < bytes; ++i) number = number << 8 | Byte();
    return number;
  }

  /** A length in two bytes, and at most so many bytes. */
  std::string Bytes() {
    const std::size_t wanted = Number(2);  // which shortens the rest
    return Take(std::min(wanted, rest_.size()));
  }

  /** Everything that is left. */
  std::string Rest() { return Take(rest_.size()); }

 private:
  std::string Take(std::size_t size) {
    const std::string taken(reinterpret_cast<const char *>(rest_.data()), size);
    rest_ = rest_.subspan(size);
    return taken;
  }

  std::span<const std::uint8_t> rest_;
};

}  // namespace kestrel::host
