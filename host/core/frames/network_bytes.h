/* Numbers in network order: read from a row of bytes, written at the end of a growing one. */
#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <vector>

namespace kestrel::host {

/** The number at an offset; its bytes must be there. */
template <std::unsigned_integral Number>
Number NumberAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : bytes.subspan(offset, sizeof(Number))) number = number << 8 | byte;
  return static_cast<Number>(number);
}

inline std::uint16_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  return NumberAt<std::uint16_t>(bytes, offset);
}

template <std::unsigned_integral Number>
void AppendNumber(std::vector<std::uint8_t> &bytes, Number number) {
  for (std::size_t i = sizeof number; i > 0; --i) bytes.push_back(static_cast<std::uint8_t>(number >> (8 * (i - 1))));
}

template <typename Range>
void AppendBytes(std::vector<std::uint8_t> &bytes, const Range &more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace kestrel::host
