/* A hash that is the same on every machine and in every run. */
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kestrel::host {

/** FNV-1a of 32 bits, its bits mixed in the end so that a remainder by any small number is even. */
class FnvHash {
 public:
  FnvHash &Add(std::uint8_t byte) {
    state_ = (state_ ^ byte) * 0x01000193U;
    return *this;
  }
  FnvHash &Add(std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) Add(byte);
    return *this;
  }
  FnvHash &Add(std::string_view text) {
    for (const char byte : text) Add(static_cast<std::uint8_t>(byte));
    return *this;
  }

  std::uint32_t value() const {
    std::uint32_t mixed = state_;
    mixed = (mixed ^ (mixed >> 16)) * 0x85ebca6bU;
    mixed = (mixed ^ (mixed >> 13)) * 0xc2b2ae35U;
    return mixed ^ (mixed >> 16);
  }

 private:
  std::uint32_t state_ = 0x811c9dc5U;
};

}  // namespace kestrel::host
