#include "host/core/multicast/group_packet.h"
#include "host/core/frames/frame_writer.h"
#include "host/core/frames/network_bytes.h"

#include <optional>

#include "host/core/frames/internet_checksum.h"
#include "host/core/multicast/group_codes.h"
#include "host/core/multicast/igmp.h"
#include "host/core/multicast/mld.h"
#include "host/core/multicast/router_discovery.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

constexpr std::size_t kIpV4Header = 20;
constexpr std::size_t kIpV6Header = 40;
constexpr std::uint8_t kOfTheLink = 1;  // the TTL or hop limit of what routers do not pass on

constexpr std::uint8_t kPadOne = 0;
constexpr std::uint8_t kRouterAlert = 5;

/** All hosts, which queries for all groups are sent to. */
constexpr IpAddress kAllIpV4Hosts = IpV4(224, 0, 0, 1);
constexpr IpAddress kAllIpV6Hosts{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};

// ---- IPv4 ----

bool IsIpV4Packet(FrameBytes packet) { return packet.size() >= kIpV4Header && packet[0] >> 4 == 4; }

/** What is behind the header and its options; nothing when the packet is not whole. */
std::optional<FrameBytes> PayloadOfIpV4(FrameBytes packet) {
  const std::size_t header = std::size_t{packet[0] & 0xfU} * 4;
  const std::size_t total = WordAt(packet, 2);
  if (header < kIpV4Header || total < header || total > packet.size()) return std::nullopt;
  return packet.subspan(header, total - header);
}

bool IsIntactIpV4(FrameBytes packet) {
  constexpr std::uint16_t kMoreFragmentsOrOffset = 0x3fff;
  return (WordAt(packet, 6) & kMoreFragmentsOrOffset) == 0 &&
         ChecksumOf(packet.first(std::size_t{packet[0] & 0xfU} * 4)) == 0;
}

GroupMessage ReadIpV4(FrameBytes packet) {
  if (!IsIpV4Packet(packet)) return {};
  const std::uint8_t protocol = packet[9];
  if (protocol != ZEL_IP_PROTO_IGMP && protocol != ZEL_IP_PROTO_PIM) return {};
  const IpAddress source = IpV4At(packet.subspan(12));
  const IpAddress destination = IpV4At(packet.subspan(16));
  const auto payload = PayloadOfIpV4(packet);
  if (!payload || !IsIntactIpV4(packet) || packet[8] != kOfTheLink) return MalformedMessage{};
  if (!IsMulticast(destination) || IsMulticast(source)) return MalformedMessage{};
  return protocol == ZEL_IP_PROTO_IGMP ? ReadIgmp(*payload, source) : ReadPim(*payload, source, destination);
}

GroupTarget TargetOfIpV4(FrameBytes packet) {
  if (!IsIpV4Packet(packet)) return {};
  GroupTarget target{.group = IpV4At(packet.subspan(16)), .source = IpV4At(packet.subspan(12))};
  if (!IsMulticast(target.group)) return {};
  target.kind = IsLinkLocalGroup(target.group) ? GroupTarget::Kind::kLinkLocal : GroupTarget::Kind::kGroup;
  if (packet[9] == ZEL_IP_PROTO_IGMP) {
    const auto payload = PayloadOfIpV4(packet);
    if (payload && IsIgmpReport(*payload)) target.kind = GroupTarget::Kind::kReport;
  }
  return target;
}

// ---- IPv6 ----

bool IsIpV6Packet(FrameBytes packet) { return packet.size() >= kIpV6Header && packet[0] >> 4 == 6; }

/** Whether some hop-by-hop options ask routers to look, for MLD; nothing when one of them forbids to go on. */
std::optional<bool> AsksRouters(FrameBytes options) {
  bool asks = false;
  while (!options.empty()) {
    if (options[0] == kPadOne) {
      options = options.subspan(1);
      continue;
    }
    if (options.size() < 2 || options.size() - 2 < options[1]) return std::nullopt;
    const std::size_t size = options[1];
    if (options[0] == kRouterAlert) {
      asks = asks || (size == 2 && WordAt(options, 2) == 0);
    } else if (options[0] >> 6 != 0) {
      return std::nullopt;
    }
    options = options.subspan(2 + size);
  }
  return asks;
}

/** A packet up to its message. */
struct IpV6Payload {
  std::uint8_t protocol = ZEL_IP_PROTO_IPV6_NONXT;
  FrameBytes message{};
  bool asks_routers = false;
};

/** Follows the headers to the message; nothing when it is cut off, a fragment, or behind what must not be passed. */
std::optional<IpV6Payload> PayloadOfIpV6(FrameBytes packet) {
  const std::size_t size = WordAt(packet, 4);
  if (size > packet.size() - kIpV6Header) return std::nullopt;
  IpV6Payload payload{.protocol = packet[6], .message = packet.subspan(kIpV6Header, size)};
  for (bool is_first = true;; is_first = false) {
    const bool is_options = payload.protocol == ZEL_IP_PROTO_IPV6_HOPOPT && is_first;
    if (!is_options && payload.protocol != ZEL_IP_PROTO_IPV6_ROUTE && payload.protocol != ZEL_IP_PROTO_IPV6_DSTOPTS) {
      return payload.protocol == ZEL_IP_PROTO_IPV6_HOPOPT ? std::nullopt : std::optional(payload);
    }
    if (payload.message.size() < 2) return std::nullopt;
    const std::size_t header = (std::size_t{payload.message[1]} + 1) * 8;
    if (payload.message.size() < header) return std::nullopt;
    if (is_options) {
      const auto asks = AsksRouters(payload.message.subspan(2, header - 2));
      if (!asks) return std::nullopt;
      payload.asks_routers = *asks;
    }
    payload.protocol = payload.message[0];
    payload.message = payload.message.subspan(header);
  }
}

GroupMessage ReadIpV6(FrameBytes packet) {
  // MLD always has options before it, so that other packets are told at a glance.
  if (!IsIpV6Packet(packet)) return {};
  if (packet[6] != ZEL_IP_PROTO_IPV6_HOPOPT && packet[6] != ZEL_IP_PROTO_PIM) return {};
  const auto payload = PayloadOfIpV6(packet);
  if (!payload) return MalformedMessage{};
  const bool is_pim = payload->protocol == ZEL_IP_PROTO_PIM;
  if (!is_pim && (payload->protocol != ZEL_IP_PROTO_ICMPV6 || !IsMld(payload->message))) return {};
  const IpAddress source = IpV6At(packet.subspan(8));
  const IpAddress destination = IpV6At(packet.subspan(24));
  if (packet[7] != kOfTheLink || !IsMulticast(destination) || IsMulticast(source)) return MalformedMessage{};
  if (is_pim) return ReadPim(payload->message, source, destination);
  return payload->asks_routers ? ReadMld(payload->message, source, destination) : MalformedMessage{};
}

GroupTarget TargetOfIpV6(FrameBytes packet) {
  if (!IsIpV6Packet(packet)) return {};
  GroupTarget target{.group = IpV6At(packet.subspan(24)), .source = IpV6At(packet.subspan(8))};
  if (!IsMulticast(target.group)) return {};
  target.kind = IsLinkLocalGroup(target.group) ? GroupTarget::Kind::kLinkLocal : GroupTarget::Kind::kGroup;
  if (packet[6] == ZEL_IP_PROTO_IPV6_HOPOPT) {
    const auto payload = PayloadOfIpV6(packet);
    const bool is_report = payload && payload->protocol == ZEL_IP_PROTO_ICMPV6 && IsMldReport(payload->message);
    if (is_report) target.kind = GroupTarget::Kind::kReport;
  }
  return target;
}

// ---- Writing ----

void AppendIpV4Header(std::vector<std::uint8_t> &bytes, const IpAddress &source, const IpAddress &destination,
                      std::size_t payload) {
  constexpr std::size_t kHeader = kIpV4Header + 4;
  const std::size_t start = bytes.size();
  bytes.insert(bytes.end(), {0x40 | kHeader / 4, 0xc0});  // control traffic between networks
  AppendNumber(bytes, static_cast<std::uint16_t>(kHeader + payload));
  bytes.insert(bytes.end(), {0, 0, 0x40, 0, kOfTheLink, ZEL_IP_PROTO_IGMP, 0, 0});  // must not be fragmented
  AppendBytes(bytes, WireBytes(source));
  AppendBytes(bytes, WireBytes(destination));
  bytes.insert(bytes.end(), {0x94, 4, 0, 0});  // router alert
  PutWord(bytes, start + 10, ChecksumOf(FrameBytes(bytes).subspan(start)));
}

void AppendIpV6Header(std::vector<std::uint8_t> &bytes, const IpAddress &source, const IpAddress &destination,
                      std::size_t payload) {
  constexpr std::size_t kOptions = 8;
  bytes.insert(bytes.end(), {0x60, 0, 0, 0});
  AppendNumber(bytes, static_cast<std::uint16_t>(kOptions + payload));
  bytes.insert(bytes.end(), {ZEL_IP_PROTO_IPV6_HOPOPT, kOfTheLink});
  AppendBytes(bytes, WireBytes(source));
  AppendBytes(bytes, WireBytes(destination));
  bytes.insert(bytes.end(), {ZEL_IP_PROTO_ICMPV6, 0, kRouterAlert, 2, 0, 0, 1, 0});  // and two bytes of padding
}

}  // namespace

GroupTarget TargetOf(const Frame &frame) {
  switch (frame.type()) {
    case ZEL_ETH_TYPE_IPV4:
      return TargetOfIpV4(frame.payload());
    case ZEL_ETH_TYPE_IPV6:
      return TargetOfIpV6(frame.payload());
    default:
      return {};
  }
}

GroupMessage ReadGroupMessage(const Frame &frame) {
  if (!IsGroup(frame.destination())) return {};
  switch (frame.type()) {
    case ZEL_ETH_TYPE_IPV4:
      return ReadIpV4(frame.payload());
    case ZEL_ETH_TYPE_IPV6:
      return ReadIpV6(frame.payload());
    default:
      return {};
  }
}

std::vector<std::uint8_t> WriteQueryFrame(const GroupQuery &query, const MacAddress &source) {
  const bool is_v4 = IsIpV4(query.router);
  IpAddress destination = query.group;
  if (IsUnspecified(query.group)) destination = is_v4 ? kAllIpV4Hosts : kAllIpV6Hosts;
  const auto message = is_v4 ? WriteIgmpQuery(query) : WriteMldQuery(query, destination);

  std::vector<std::uint8_t> bytes = FrameWriter{}
                                        .Put(MacOfGroup(destination))
                                        .Put(source)
                                        .Put(static_cast<std::uint16_t>(is_v4 ? ZEL_ETH_TYPE_IPV4 : ZEL_ETH_TYPE_IPV6))
                                        .Take();
  (is_v4 ? AppendIpV4Header : AppendIpV6Header)(bytes, query.router, destination, message.size());
  AppendBytes(bytes, message);
  return bytes;
}

}  // namespace kestrel::host
