/* Reading the packets that collectors of mirrored frames get, in the way of a collector. */
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tests/host/native/support/ip_frames.h"

namespace kestrel::host {

/** Takes bytes from the front; running out of them fails the test. */
class Cursor {
 public:
  explicit Cursor(Octets bytes) : bytes_(std::move(bytes)) {}

  std::uint64_t Number(std::size_t size) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : Take(size)) number = number * 256 + byte;
    return number;
  }
  Octets Take(std::size_t size) {
    if (bytes_.size() - at_ < size) throw std::runtime_error("the packet ends too early");
    const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(at_);
    at_ += size;
    return {from, from + static_cast<std::ptrdiff_t>(size)};
  }
  Octets Rest() { return Take(bytes_.size() - at_); }
  std::size_t left() const { return bytes_.size() - at_; }

 private:
  Octets bytes_;
  std::size_t at_ = 0;
};

/** One frame of a tunnel, with the IP header taken apart. */
struct OuterFrame {
  Octets destination_station, source_station;
  /** The control field of its tag. */
  std::optional<unsigned> tag;
  bool is_v6 = false;
  Octets source, destination;
  unsigned protocol = 0;
  unsigned hops = 0;
  std::uint64_t identification = 0;
  /** In bytes. */
  std::size_t offset = 0;
  bool has_more = false;
  /** Of the packet, its header included. */
  std::size_t size = 0;
  Octets payload;
};

inline OuterFrame ReadOuter(const Octets &frame) {
  Cursor cursor(frame);
  OuterFrame outer;
  outer.destination_station = cursor.Take(6);
  outer.source_station = cursor.Take(6);
  auto type = cursor.Number(2);
  if (type == 0x8100) {
    outer.tag = static_cast<unsigned>(cursor.Number(2));
    type = cursor.Number(2);
  }
  outer.size = cursor.left();
  if (type == 0x0800) {
    Cursor header(cursor.Take(20));
    std::uint32_t sum = 0;
    for (Cursor words = header; words.left() > 0;) sum += static_cast<std::uint32_t>(words.Number(2));
    if (sum % 0xffff != 0) throw std::runtime_error("a wrong checksum");
    if (header.Number(1) != 0x45) throw std::runtime_error("no plain IPv4 header");
    header.Take(1);
    if (header.Number(2) != outer.size) throw std::runtime_error("a wrong length");
    outer.identification = header.Number(2);
    const auto fragment = header.Number(2);
    outer.has_more = (fragment & 0x2000) != 0;
    outer.offset = (fragment & 0x1fff) * 8;
    outer.hops = static_cast<unsigned>(header.Number(1));
    outer.protocol = static_cast<unsigned>(header.Number(1));
    header.Take(2);
    outer.source = header.Take(4);
    outer.destination = header.Take(4);
  } else if (type == 0x86dd) {
    outer.is_v6 = true;
    if (cursor.Number(4) != 0x60000000) throw std::runtime_error("no plain IPv6 header");
    if (cursor.Number(2) != outer.size - 40) throw std::runtime_error("a wrong length");
    outer.protocol = static_cast<unsigned>(cursor.Number(1));
    outer.hops = static_cast<unsigned>(cursor.Number(1));
    outer.source = cursor.Take(16);
    outer.destination = cursor.Take(16);
    if (outer.protocol == 44) {
      outer.protocol = static_cast<unsigned>(cursor.Number(2)) >> 8;
      const auto fragment = cursor.Number(2);
      outer.has_more = (fragment & 1) != 0;
      outer.offset = fragment & 0xfff8;
      outer.identification = cursor.Number(4);
    }
  } else {
    throw std::runtime_error("no IP packet");
  }
  outer.payload = cursor.Rest();
  return outer;
}

/** The payload of the packet that some frames carry, in any order. */
inline Octets Reassembled(const std::vector<Octets> &frames) {
  std::map<std::size_t, OuterFrame> pieces;
  for (const Octets &frame : frames) {
    OuterFrame outer = ReadOuter(frame);
    pieces.emplace(outer.offset, std::move(outer));
  }
  Octets payload;
  for (const auto &[offset, piece] : pieces) {
    if (offset != payload.size()) throw std::runtime_error("a fragment is missing");
    if (piece.identification != pieces.begin()->second.identification) throw std::runtime_error("foreign fragments");
    payload.insert(payload.end(), piece.payload.begin(), piece.payload.end());
    if (piece.has_more == (offset == pieces.rbegin()->first)) throw std::runtime_error("no right last fragment");
  }
  return payload;
}

/** What a GRE packet says, with the header of ERSPAN that may follow. */
struct Tunnel {
  std::optional<std::uint32_t> key, sequence;
  unsigned type = 0;
  /** Of ERSPAN. */
  unsigned version = 0, vlan = 0, class_of_service = 0, own_bits = 0, session = 0;
  bool is_truncated = false;
  /** Of ERSPAN II. */
  unsigned index = 0;
  /** Of ERSPAN III. */
  std::uint32_t timestamp = 0;
  unsigned group_tag = 0, last_bits = 0;
  Octets frame;
};

inline Tunnel ReadTunnel(const Octets &packet) {
  Cursor cursor(packet);
  Tunnel tunnel;
  const auto flags = cursor.Number(2);
  if ((flags & ~0x3000U) != 0) throw std::runtime_error("unknown flags of GRE");
  tunnel.type = static_cast<unsigned>(cursor.Number(2));
  if ((flags & 0x2000) != 0) tunnel.key = static_cast<std::uint32_t>(cursor.Number(4));
  if ((flags & 0x1000) != 0) tunnel.sequence = static_cast<std::uint32_t>(cursor.Number(4));
  if (tunnel.type != 0x6558) {
    const auto first = cursor.Number(2);
    tunnel.version = static_cast<unsigned>(first >> 12);
    tunnel.vlan = static_cast<unsigned>(first & 0xfff);
    const auto second = cursor.Number(2);
    tunnel.class_of_service = static_cast<unsigned>(second >> 13);
    tunnel.own_bits = static_cast<unsigned>(second >> 11 & 3);
    tunnel.is_truncated = (second >> 10 & 1) != 0;
    tunnel.session = static_cast<unsigned>(second & 0x3ff);
  }
  if (tunnel.type == 0x88be) tunnel.index = static_cast<unsigned>(cursor.Number(4));
  if (tunnel.type == 0x22eb) {
    tunnel.timestamp = static_cast<std::uint32_t>(cursor.Number(4));
    tunnel.group_tag = static_cast<unsigned>(cursor.Number(2));
    tunnel.last_bits = static_cast<unsigned>(cursor.Number(2));
  }
  tunnel.frame = cursor.Rest();
  return tunnel;
}

}  // namespace kestrel::host
