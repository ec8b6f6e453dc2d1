/* Numbers in network order at the end of a growing row of bytes. */
#pragma once

#include <concepts>
#include <cstdint>
#include <vector>

namespace kestrel::host {

template <std::unsigned_integral Number>
void AppendNumber(std::vector<std::uint8_t> &bytes, Number number) {
  for (std::size_t i = sizeof number; i > 0; --i) bytes.push_back(static_cast<std::uint8_t>(number >> (8 * (i - 1))));
}

template <typename Range>
void AppendBytes(std::vector<std::uint8_t> &bytes, const Range &more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace kestrel::host
