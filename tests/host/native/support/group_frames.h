/* Frames of IGMP, MLD and multicast routers, byte by byte, for tests and fuzzing. */
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "host/core/frames/ip_address.h"
#include "host/core/frames/mac_address.h"
#include "host/core/multicast/group_message.h"

namespace kestrel::host {

using Octets = std::vector<std::uint8_t>;

// ---- Addresses ----

/** The address of that text, which must be one. */
inline IpAddress Ip(std::string_view text) { return IpAddressOf(text).value(); }

/** Both versions of IP, so that one test goes for both. */
enum class IpVersion { kIpV4, kIpV6 };
inline constexpr IpVersion kIpVersions[] = {IpVersion::kIpV4, IpVersion::kIpV6};

/** A group beyond the link, by number: 239.1.x.y or ff0e::x:y. */
inline IpAddress GroupOf(IpVersion version, std::uint16_t number) {
  const auto high = static_cast<std::uint8_t>(number >> 8);
  const auto low = static_cast<std::uint8_t>(number);
  if (version == IpVersion::kIpV4) return IpV4(239, 1, high, low);
  return {{0xff, 0x0e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, high, low}};
}
/** A station that sends to groups. */
inline IpAddress SourceOf(IpVersion version, std::uint16_t number) {
  const auto high = static_cast<std::uint8_t>(number >> 8);
  const auto low = static_cast<std::uint8_t>(number);
  if (version == IpVersion::kIpV4) return IpV4(10, 7, high, low);
  return {{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, high, low}};
}
/** A station of the link, as hosts and routers are. */
inline IpAddress NeighbourOf(IpVersion version, std::uint8_t number) {
  if (version == IpVersion::kIpV4) return IpV4(192, 168, 0, number);
  return {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, number}};
}
inline IpAddress NobodyOf(IpVersion version) { return version == IpVersion::kIpV4 ? kNoIpV4 : kNoIpV6; }

// ---- Bytes ----

inline void Append(Octets &bytes, std::initializer_list<int> more) {
  for (const int byte : more) bytes.push_back(static_cast<std::uint8_t>(byte));
}
inline void Append16(Octets &bytes, std::size_t number) {
  Append(bytes, {static_cast<int>(number >> 8 & 0xff), static_cast<int>(number & 0xff)});
}
inline void AppendIp(Octets &bytes, const IpAddress &address) {
  for (const std::uint8_t byte : WireBytes(address)) bytes.push_back(byte);
}

/** The one's complement sum of 16-bit words, complemented. */
inline std::uint16_t SumOf(Octets bytes) {
  if (bytes.size() % 2 != 0) bytes.push_back(0);
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    sum += static_cast<std::uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    sum = (sum & 0xffff) + (sum >> 16);
  }
  return static_cast<std::uint16_t>(sum ^ 0xffff);
}
/** Puts the checksum of `covered`, in which the field is 0, into the field. */
inline void PutSum(Octets &bytes, std::size_t offset, const Octets &covered) {
  const std::uint16_t sum = SumOf(covered);
  bytes[offset] = static_cast<std::uint8_t>(sum >> 8);
  bytes[offset + 1] = static_cast<std::uint8_t>(sum);
}

// ---- Packets and frames ----

/** What is told apart from what messages usually travel in. */
struct Travel {
  IpAddress source;
  IpAddress destination;
  int protocol;
  int hops = 1;
  /** Bytes 6 and 7 of an IPv4 header. */
  int fragment = 0;
  /** Of IPv4, a multiple of 4. */
  Octets options{0x94, 4, 0, 0};
  /** Of IPv6, whole headers before the message; their last one names `protocol`. */
  Octets extensions{};
  int first_header = -1;
};

/** An IPv6 header with the router alert, before a message of that protocol. */
inline Octets RouterAlertHeader(int next) {
  Octets header;
  Append(header, {next, 0, 5, 2, 0, 0, 1, 0});
  return header;
}

inline Octets Packet(const Travel &travel, const Octets &message) {
  Octets packet;
  if (IsIpV4(travel.destination)) {
    const std::size_t header = 20 + travel.options.size();
    Append(packet, {static_cast<int>(0x40 | header / 4), 0xc0});
    Append16(packet, header + message.size());
    Append16(packet, 0x1234);
    Append16(packet, static_cast<std::size_t>(travel.fragment));
    Append(packet, {travel.hops, travel.protocol, 0, 0});
    AppendIp(packet, travel.source);
    AppendIp(packet, travel.destination);
    packet.insert(packet.end(), travel.options.begin(), travel.options.end());
    PutSum(packet, 10, packet);
  } else {
    Append(packet, {0x60, 0, 0, 0});
    Append16(packet, travel.extensions.size() + message.size());
    Append(packet, {travel.first_header < 0 ? travel.protocol : travel.first_header, travel.hops});
    AppendIp(packet, travel.source);
    AppendIp(packet, travel.destination);
    packet.insert(packet.end(), travel.extensions.begin(), travel.extensions.end());
  }
  packet.insert(packet.end(), message.begin(), message.end());
  return packet;
}

inline Octets Framed(const IpAddress &destination, const Octets &packet) {
  Octets frame;
  for (const std::uint8_t byte : MacOfGroup(destination)) frame.push_back(byte);
  Append(frame, {0x02, 0, 0, 0, 0, 0x77});
  Append16(frame, IsIpV4(destination) ? 0x0800 : 0x86dd);
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

/** With the checksum that ICMPv6 and PIM over IPv6 have, in bytes 2 and 3. */
inline Octets SummedForIpV6(Octets message, const Travel &travel) {
  Octets covered;
  AppendIp(covered, travel.source);
  AppendIp(covered, travel.destination);
  Append16(covered, 0);
  Append16(covered, message.size());
  Append(covered, {0, 0, 0, travel.protocol});
  covered.insert(covered.end(), message.begin(), message.end());
  PutSum(message, 2, covered);
  return message;
}

// ---- Messages ----

/** A message as it travels: IGMP in IPv4, ICMPv6 behind a router alert in IPv6. Bytes 2 and 3, the checksum, are
    filled in. */
inline Travel UsualTravel(const IpAddress &source, const IpAddress &destination) {
  Travel travel{.source = source, .destination = destination, .protocol = IsIpV4(destination) ? 2 : 58};
  if (!IsIpV4(destination)) {
    travel.first_header = 0;
    travel.extensions = RouterAlertHeader(58);
  }
  return travel;
}
inline Octets Sent(const Travel &travel, Octets message) {
  if (IsIpV4(travel.destination)) {
    PutSum(message, 2, message);
  } else {
    message = SummedForIpV6(std::move(message), travel);
  }
  return Framed(travel.destination, Packet(travel, message));
}

/** A message of 8 bytes in IGMP and 24 in MLD: a query of versions without sources, a report, a leave. */
inline Octets ShortMessage(int type, int response, const IpAddress &group) {
  Octets message;
  if (IsIpV4(group)) {
    Append(message, {type, response, 0, 0});
  } else {
    Append(message, {type, 0, 0, 0});
    Append16(message, static_cast<std::size_t>(response));
    Append16(message, 0);
  }
  AppendIp(message, group);
  return message;
}

inline Octets RecordsMessage(IpVersion version, const std::vector<GroupRecord> &records, int auxiliary = 0) {
  Octets message;
  Append(message, {version == IpVersion::kIpV4 ? 0x22 : 143, 0, 0, 0, 0, 0});
  Append16(message, records.size());
  for (const GroupRecord &record : records) {
    Append(message, {static_cast<int>(record.type), auxiliary});
    Append16(message, record.sources.size());
    AppendIp(message, record.group);
    for (const IpAddress &source : record.sources) AppendIp(message, source);
    for (int i = 0; i < auxiliary * 4; ++i) message.push_back(0xaa);
  }
  return message;
}

/** A query of the version with sources. `code`, flags with robustness and `interval` as they stand in the message. */
inline Octets SourcesQueryMessage(const IpAddress &group, const std::vector<IpAddress> &sources, int code = 100,
                                  int flags = 2, int interval = 125) {
  Octets message = ShortMessage(IsIpV4(group) ? 0x11 : 130, code, group);
  Append(message, {flags, interval});
  Append16(message, sources.size());
  for (const IpAddress &source : sources) AppendIp(message, source);
  return message;
}

// ---- Whole frames ----

/** What a host sends to join, in a version of that generation. */
inline Octets JoinFrame(Generation generation, const IpAddress &group, std::uint8_t host = 1) {
  const IpVersion version = IsIpV4(group) ? IpVersion::kIpV4 : IpVersion::kIpV6;
  const IpAddress source = NeighbourOf(version, host);
  if (generation == Generation::kSources) {
    const IpAddress routers = version == IpVersion::kIpV4 ? Ip("224.0.0.22") : Ip("ff02::16");
    return Sent(UsualTravel(source, routers), RecordsMessage(version, {{RecordType::kToExclude, group}}));
  }
  const int v4_type = generation == Generation::kJoin ? 0x12 : 0x16;
  return Sent(UsualTravel(source, group), ShortMessage(version == IpVersion::kIpV4 ? v4_type : 131, 0, group));
}

/** And to leave; the first generation cannot. */
inline Octets LeaveFrame(Generation generation, const IpAddress &group, std::uint8_t host = 1) {
  const IpVersion version = IsIpV4(group) ? IpVersion::kIpV4 : IpVersion::kIpV6;
  const bool is_v4 = version == IpVersion::kIpV4;
  const IpAddress source = NeighbourOf(version, host);
  if (generation == Generation::kSources) {
    return Sent(UsualTravel(source, is_v4 ? Ip("224.0.0.22") : Ip("ff02::16")),
                RecordsMessage(version, {{RecordType::kToInclude, group}}));
  }
  return Sent(UsualTravel(source, is_v4 ? Ip("224.0.0.2") : Ip("ff02::2")), ShortMessage(is_v4 ? 0x17 : 132, 0, group));
}

inline Octets RecordsFrame(IpVersion version, const std::vector<GroupRecord> &records, std::uint8_t host = 1) {
  const IpAddress routers = version == IpVersion::kIpV4 ? Ip("224.0.0.22") : Ip("ff02::16");
  return Sent(UsualTravel(NeighbourOf(version, host), routers), RecordsMessage(version, records));
}

/** Where a query about a group, or about all, goes. */
inline IpAddress QueryDestination(const IpAddress &group) {
  if (!IsUnspecified(group)) return group;
  return IsIpV4(group) ? Ip("224.0.0.1") : Ip("ff02::1");
}

/** A query for all groups or one, of a version without sources. The response is in tenths of a second in IGMP and in
    milliseconds in MLD. */
inline Octets ShortQueryFrame(const IpAddress &router, const IpAddress &group, int response) {
  return Sent(UsualTravel(router, QueryDestination(group)), ShortMessage(IsIpV4(group) ? 0x11 : 130, response, group));
}
inline Octets SourcesQueryFrame(const IpAddress &router, const IpAddress &group, const std::vector<IpAddress> &sources,
                                int code, int flags = 2, int interval = 125) {
  return Sent(UsualTravel(router, QueryDestination(group)), SourcesQueryMessage(group, sources, code, flags, interval));
}

/** A router's advertisement, every so many seconds. */
inline Octets RouterAdvertisementFrame(IpVersion version, const IpAddress &router, int interval) {
  const bool is_v4 = version == IpVersion::kIpV4;
  Octets message;
  Append(message, {is_v4 ? 0x30 : 151, interval, 0, 0, 0, 125, 0, 2});
  return Sent(UsualTravel(router, is_v4 ? Ip("224.0.0.106") : Ip("ff02::6a")), message);
}
inline Octets RouterTerminationFrame(IpVersion version, const IpAddress &router) {
  const bool is_v4 = version == IpVersion::kIpV4;
  Octets message;
  Append(message, {is_v4 ? 0x32 : 153, 0, 0, 0});
  return Sent(UsualTravel(router, is_v4 ? Ip("224.0.0.106") : Ip("ff02::6a")), message);
}
/** `hold` in seconds; none is told when it is negative. */
inline Octets PimHelloFrame(IpVersion version, const IpAddress &router, int hold) {
  const bool is_v4 = version == IpVersion::kIpV4;
  Travel travel{.source = router, .destination = is_v4 ? Ip("224.0.0.13") : Ip("ff02::d"), .protocol = 103};
  travel.options.clear();
  Octets message;
  Append(message, {0x20, 0, 0, 0, 0, 20, 0, 4, 1, 2, 3, 4});
  if (hold >= 0) {
    Append(message, {0, 1, 0, 2});
    Append16(message, static_cast<std::size_t>(hold));
  }
  return Sent(travel, message);
}

/** Data from a source to a group. */
inline Octets DataFrame(const IpAddress &source, const IpAddress &group) {
  const Travel travel{.source = source, .destination = group, .protocol = 17, .hops = 8, .options = {}};
  return Framed(group, Packet(travel, Octets(26, 0x55)));
}

}  // namespace kestrel::host
