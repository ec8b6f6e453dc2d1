/* The checksum of the Internet protocols. */
#pragma once

#include <cstdint>

#include "host/core/frames/frame.h"
#include "host/core/frames/ip_address.h"

namespace kestrel::host {

/** Adds up what a checksum covers: pieces of an even size, but for the last one. */
class InternetChecksum {
 public:
  void Add(FrameBytes bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) sum_ += std::uint64_t{bytes[i]} << (i % 2 == 0 ? 8 : 0);
  }
  /** What IPv6 puts before the message of a protocol. */
  void AddPseudoHeader(const IpAddress &source, const IpAddress &destination, std::uint8_t protocol, std::size_t size) {
    Add(source.bytes);
    Add(destination.bytes);
    sum_ += static_cast<std::uint32_t>(size) + protocol;
  }

  /** What belongs into the field, which counts as 0 before; 0 over bytes that hold the right checksum. */
  std::uint16_t Value() const {
    std::uint64_t folded = sum_;
    while (folded > 0xffff) folded = (folded & 0xffff) + (folded >> 16);
    return static_cast<std::uint16_t>(~folded);
  }

 private:
  std::uint64_t sum_ = 0;
};

/** Over one piece alone. */
inline std::uint16_t ChecksumOf(FrameBytes bytes) {
  InternetChecksum sum;
  sum.Add(bytes);
  return sum.Value();
}

}  // namespace kestrel::host
