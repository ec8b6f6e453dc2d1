#include "host/core/frames/ip_packet.h"

#include <algorithm>

#include "host/core/frames/network_bytes.h"

namespace kestrel::host {
namespace {

/** Of each header that extends IPv6, at the least. */
constexpr std::size_t kExtensionSize = 8;

/** Headers that extend IPv6. */
constexpr std::uint8_t kHopByHop = 0;
constexpr std::uint8_t kRouting = 43;
constexpr std::uint8_t kFragment = 44;
constexpr std::uint8_t kAuthentication = 51;
constexpr std::uint8_t kDestinationOptions = 60;

constexpr std::uint8_t kProtocolDccp = 33;
constexpr std::uint8_t kProtocolSctp = 132;
constexpr std::uint8_t kProtocolUdpLite = 136;

std::optional<TransportPorts> PortsIn(std::uint8_t protocol, FrameBytes segment) {
  constexpr std::uint8_t kWithPorts[] = {kProtocolTcp, kProtocolUdp, kProtocolDccp, kProtocolSctp, kProtocolUdpLite};
  if (std::ranges::find(kWithPorts, protocol) == std::end(kWithPorts) || segment.size() < 4) return std::nullopt;
  return TransportPorts{WordAt(segment, 0), WordAt(segment, 2)};
}

std::optional<IpPacket> Ipv4PacketIn(FrameBytes bytes) {
  if (bytes.size() < kIpv4HeaderSize || bytes[0] >> 4 != 4) return std::nullopt;
  const std::size_t header_size = std::size_t{4} * (bytes[0] & 0xf);
  const std::size_t total_size = WordAt(bytes, 2);
  if (header_size < kIpv4HeaderSize || header_size > bytes.size() || total_size < header_size) return std::nullopt;
  IpPacket packet{.source = IpV4At(bytes.subspan(12)),
                  .destination = IpV4At(bytes.subspan(16)),
                  .protocol = bytes[9],
                  .ports = std::nullopt};
  const bool is_first_fragment = (WordAt(bytes, 6) & 0x1fff) == 0;
  const FrameBytes segment = bytes.first(std::min(total_size, bytes.size())).subspan(header_size);
  if (is_first_fragment) packet.ports = PortsIn(packet.protocol, segment);
  return packet;
}

std::optional<IpPacket> Ipv6PacketIn(FrameBytes bytes) {
  if (bytes.size() < kIpv6HeaderSize || bytes[0] >> 4 != 6) return std::nullopt;
  IpPacket packet{.source = IpV6At(bytes.subspan(8)),
                  .destination = IpV6At(bytes.subspan(24)),
                  .protocol = bytes[6],
                  .ports = std::nullopt};
  const std::size_t payload_size = WordAt(bytes, 4);
  FrameBytes rest = bytes.subspan(kIpv6HeaderSize);
  rest = rest.first(std::min(payload_size, rest.size()));
  while (true) {
    std::size_t size = 0;
    switch (packet.protocol) {
      case kHopByHop:
      case kRouting:
      case kDestinationOptions:
        if (rest.size() >= kExtensionSize) size = kExtensionSize * (std::size_t{rest[1]} + 1);
        break;
      case kAuthentication:
        if (rest.size() >= kExtensionSize) size = std::size_t{4} * (std::size_t{rest[1]} + 2);
        break;
      case kFragment:
        size = kExtensionSize;
        break;
      default:
        packet.ports = PortsIn(packet.protocol, rest);
        return packet;
    }
    if (size == 0 || size > rest.size()) return std::nullopt;
    const bool is_later_fragment = packet.protocol == kFragment && WordAt(rest, 2) >> 3 != 0;
    packet.protocol = rest[0];
    if (is_later_fragment) return packet;
    rest = rest.subspan(size);
  }
}

}  // namespace

std::optional<IpPacket> IpPacketIn(const Frame &frame) {
  if (frame.type() == kTypeIpv4) return Ipv4PacketIn(frame.payload());
  if (frame.type() == kTypeIpv6) return Ipv6PacketIn(frame.payload());
  return std::nullopt;
}

}  // namespace kestrel::host
