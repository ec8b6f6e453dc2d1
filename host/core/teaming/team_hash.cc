#include "host/core/teaming/team_hash.h"

#include "host/core/base/fnv_hash.h"
#include "host/core/frames/ip_packet.h"
#include "host/core/frames/mac_address.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

constexpr std::size_t kIpv4AddressesAt = 12;
constexpr std::size_t kIpv4AddressesSize = 8;
constexpr std::size_t kIpv6AddressesAt = 8;
constexpr std::size_t kIpv6AddressesSize = 32;
constexpr std::size_t kPortsSize = 4;

/** What a packet says of its ends; both empty when the frame carries no packet that is long enough. */
struct Ends {
  FrameBytes addresses;
  /** Of TCP or UDP; empty for another protocol and for a fragment. */
  FrameBytes ports;
};

FrameBytes PortsIn(FrameBytes packet, std::size_t offset, std::uint8_t protocol) {
  const bool has_ports = protocol == ZEL_IP_PROTO_TCP || protocol == ZEL_IP_PROTO_UDP;
  if (!has_ports || packet.size() < offset + kPortsSize) return {};
  return packet.subspan(offset, kPortsSize);
}

Ends EndsOf(const Frame &frame) {
  const FrameBytes packet = frame.payload();
  if (frame.type() == ZEL_ETH_TYPE_IPV4 && packet.size() >= kIpv4AddressesAt + kIpv4AddressesSize) {
    const std::size_t header_size = std::size_t{4} * (packet[0] & 0xf);
    // More fragments, or an offset: the ports are in the first one only, and all have to go the same way.
    const bool is_whole = (packet[6] & 0x3f) == 0 && packet[7] == 0;
    return {packet.subspan(kIpv4AddressesAt, kIpv4AddressesSize),
            is_whole ? PortsIn(packet, header_size, packet[9]) : FrameBytes{}};
  }
  if (frame.type() == ZEL_ETH_TYPE_IPV6 && packet.size() >= kIpv6HeaderSize) {
    return {packet.subspan(kIpv6AddressesAt, kIpv6AddressesSize), PortsIn(packet, kIpv6HeaderSize, packet[6])};
  }
  return {};
}

}  // namespace

std::uint32_t HashOfAddress(const MacAddress &address) { return FnvHash{}.Add(address).value(); }

std::uint32_t HashOfStations(const Frame &frame) {
  const Ends ends = EndsOf(frame);
  if (!ends.addresses.empty()) return FnvHash{}.Add(ends.addresses).value();
  return FnvHash{}.Add(frame.source()).Add(frame.destination()).value();
}

std::uint32_t HashOfConversation(const Frame &frame) {
  const Ends ends = EndsOf(frame);
  return FnvHash{}.Add(frame.source()).Add(frame.destination()).Add(ends.addresses).Add(ends.ports).value();
}

}  // namespace kestrel::host
