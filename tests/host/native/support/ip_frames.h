/* Frames with IP packets in them, as stations send them. */
#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/frames/mac_address.h"

namespace kestrel::host {

using Octets = std::vector<std::uint8_t>;

inline void Append16(Octets &bytes, unsigned number) {
  bytes.push_back(static_cast<std::uint8_t>(number >> 8));
  bytes.push_back(static_cast<std::uint8_t>(number));
}

inline void PutAt(Octets &bytes, std::size_t place, unsigned number) {
  bytes.at(place) = static_cast<std::uint8_t>(number >> 8);
  bytes.at(place + 1) = static_cast<std::uint8_t>(number);
}

/** What the Internet checksum of some bytes is, whose own field is 0. */
inline unsigned ChecksumLeftBy(const Octets &bytes) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
  return 0xffff - static_cast<unsigned>(sum % 0xffff);
}

/** An Ethernet frame of a type, within some tags. */
inline Octets EthernetFrame(const MacAddress &destination, const MacAddress &source, const std::vector<VlanTag> &tags,
                            unsigned type, const Octets &payload) {
  Octets bytes(destination.begin(), destination.end());
  bytes.insert(bytes.end(), source.begin(), source.end());
  for (const VlanTag &tag : tags) {
    Append16(bytes, tag.type);
    Append16(bytes, static_cast<unsigned>(tag.priority << 13 | (tag.drop_eligible ? 0x1000 : 0) | tag.vlan));
  }
  Append16(bytes, type);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  return bytes;
}

/** A packet between two addresses of one version: a datagram of UDP, or for another protocol ports and zeros. */
struct TestPacket {
  std::string source = "10.1.0.1";
  std::string destination = "10.2.0.2";
  std::uint8_t protocol = 17;
  unsigned source_port = 1000;
  unsigned destination_port = 2000;
  /** Of what follows the IP header, ports included. */
  std::size_t size = 26;
  /** Of a fragment, in units of 8 bytes. */
  unsigned fragment_offset = 0;
  /** What stands between the IPv6 header and the protocol: pairs of a header's number and its bytes behind the first,
      which says the next one. */
  std::vector<std::pair<std::uint8_t, Octets>> extensions{};
  std::vector<VlanTag> tags{};
  MacAddress to{0x02, 0, 0, 0, 0, 2};
  MacAddress from{0x02, 0, 0, 0, 0, 1};

  bool IsV6() const { return source.find(':') != std::string::npos; }
};

inline Octets FrameOf(const TestPacket &packet) {
  Octets segment(packet.size, 0);
  if (packet.size >= 4) {
    PutAt(segment, 0, packet.source_port);
    PutAt(segment, 2, packet.destination_port);
  }
  std::array<std::uint8_t, 16> from{}, to{};
  inet_pton(packet.IsV6() ? AF_INET6 : AF_INET, packet.source.c_str(), from.data());
  inet_pton(packet.IsV6() ? AF_INET6 : AF_INET, packet.destination.c_str(), to.data());
  if (packet.protocol == 17 && packet.size >= 8) {
    PutAt(segment, 4, static_cast<unsigned>(packet.size));
    // The pseudo header: addresses, protocol, size.
    Octets covered(from.begin(), from.end());
    covered.insert(covered.end(), to.begin(), to.end());
    Append16(covered, 17);
    Append16(covered, static_cast<unsigned>(packet.size));
    covered.insert(covered.end(), segment.begin(), segment.end());
    const unsigned checksum = ChecksumLeftBy(covered);
    PutAt(segment, 6, checksum == 0 ? 0xffff : checksum);
  }
  Octets bytes;
  if (!packet.IsV6()) {
    bytes = {0x45, 0};
    Append16(bytes, static_cast<unsigned>(20 + segment.size()));
    Append16(bytes, 0);
    Append16(bytes, packet.fragment_offset);
    bytes.push_back(64);
    bytes.push_back(packet.protocol);
    Append16(bytes, 0);
    bytes.insert(bytes.end(), from.begin(), from.begin() + 4);
    bytes.insert(bytes.end(), to.begin(), to.begin() + 4);
    PutAt(bytes, 10, ChecksumLeftBy(bytes));
    bytes.insert(bytes.end(), segment.begin(), segment.end());
    return EthernetFrame(packet.to, packet.from, packet.tags, 0x0800, bytes);
  }
  Octets extensions;
  for (std::size_t i = 0; i < packet.extensions.size(); ++i) {
    extensions.push_back(i + 1 < packet.extensions.size() ? packet.extensions[i + 1].first : packet.protocol);
    extensions.insert(extensions.end(), packet.extensions[i].second.begin(), packet.extensions[i].second.end());
  }
  bytes = {0x60, 0, 0, 0};
  Append16(bytes, static_cast<unsigned>(extensions.size() + segment.size()));
  bytes.push_back(packet.extensions.empty() ? packet.protocol : packet.extensions.front().first);
  bytes.push_back(64);
  bytes.insert(bytes.end(), from.begin(), from.end());
  bytes.insert(bytes.end(), to.begin(), to.end());
  bytes.insert(bytes.end(), extensions.begin(), extensions.end());
  bytes.insert(bytes.end(), segment.begin(), segment.end());
  return EthernetFrame(packet.to, packet.from, packet.tags, 0x86dd, bytes);
}

}  // namespace kestrel::host
