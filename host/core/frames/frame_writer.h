/* Building frames that the host sends by itself. */
#pragma once

#include <concepts>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/core/frames/mac_address.h"
#include "host/core/frames/network_bytes.h"

namespace kestrel::host {

/** What a frame has at least, its check sequence apart. */
inline constexpr std::size_t kMinFrameSize = 60;

/** Numbers go in network order. */
class FrameWriter {
 public:
  template <std::unsigned_integral Number>
  FrameWriter &Put(Number number) {
    AppendNumber(bytes_, number);
    return *this;
  }
  FrameWriter &Put(const MacAddress &address) {
    AppendBytes(bytes_, address);
    return *this;
  }
  FrameWriter &PutZeros(std::size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }
  /** Zeros up to a size; no effect on a frame that has it. */
  FrameWriter &PadTo(std::size_t size) {
    if (bytes_.size() < size) bytes_.resize(size);
    return *this;
  }

  std::vector<std::uint8_t> Take() { return std::move(bytes_); }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace kestrel::host
