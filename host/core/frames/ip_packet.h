/* The IP packet in a frame and what its headers say. */
#pragma once

#include <cstdint>
#include <optional>

#include "host/core/frames/frame.h"
#include "host/core/frames/ip_address.h"
#include "host/export.h"

namespace kestrel::host {

inline constexpr std::uint16_t kTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kTypeIpv6 = 0x86dd;

/** Of a header without options or extensions. */
inline constexpr std::size_t kIpv4HeaderSize = 20;
inline constexpr std::size_t kIpv6HeaderSize = 40;

inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint8_t kProtocolGre = 47;

struct TransportPorts {
  std::uint16_t source;
  std::uint16_t destination;
};

struct IpPacket {
  IpAddress source;
  IpAddress destination;
  /** Of what is behind the IP headers, those that extend IPv6 included. */
  std::uint8_t protocol;
  /** Of TCP, UDP and their like; those of a later fragment are not known. */
  std::optional<TransportPorts> ports;
};

/** Nothing for a frame of another type and for a header that is cut short or contradicts itself. */
KESTREL_HOST_EXPORT std::optional<IpPacket> IpPacketIn(const Frame &frame);

}  // namespace kestrel::host
