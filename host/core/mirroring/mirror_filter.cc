#include "host/core/mirroring/mirror_filter.h"

#include <algorithm>

#include "host/core/mirroring/mirror_address.h"

namespace kestrel::host {
namespace {

constexpr std::uint16_t kMaxIpProtocol = 255;

/** Destination ports that tunnels are known by. */
constexpr std::uint16_t kSttPort = 7471;
constexpr std::uint16_t kVxlanPort = 4789;
constexpr std::uint16_t kGenevePort = 6081;

bool IsIn(const DVMirrorIpPrefix &prefix, const IpAddress &address) {
  const IpAddress start = AddressOf(prefix);
  if (IsIpV4(start) != IsIpV4(address) || prefix.prefix_length > 8 * WireBytes(start).size()) return false;
  const auto wanted = WireBytes(start);
  const auto found = WireBytes(address);
  const std::size_t whole = prefix.prefix_length / 8;
  const unsigned rest = prefix.prefix_length % 8;
  if (!std::ranges::equal(wanted.first(whole), found.first(whole))) return false;
  return rest == 0 || (wanted[whole] ^ found[whole]) >> (8 - rest) == 0;
}

bool IsInOne(std::span<const DVMirrorIpPrefix> prefixes, const IpAddress &address) {
  return std::ranges::any_of(prefixes, [&](const DVMirrorIpPrefix &prefix) { return IsIn(prefix, address); });
}

bool IsIn(const DVMirrorPortRanage &range, std::uint16_t port) { return range.begin <= port && port <= range.end; }

bool MeetsProtocol(std::uint16_t protocol, const Frame &frame, const std::optional<IpPacket> &packet) {
  return protocol > kMaxIpProtocol ? frame.type() == protocol : packet && packet->protocol == protocol;
}

bool Meets(const MirrorRule &rule, const Frame &frame, const std::optional<IpPacket> &packet) {
  const DVMirrorFilterRule &head = rule.head;
  const std::span<const DVMirrorIpPrefix> prefixes(rule.prefixes);
  if (head.numSrcIPs > 0 && !(packet && IsInOne(prefixes.first(head.numSrcIPs), packet->source))) return false;
  if (head.numDstIPs > 0 && !(packet && IsInOne(prefixes.subspan(head.numSrcIPs), packet->destination))) return false;
  if (head.has_protocol != 0 && !MeetsProtocol(head.protocol, frame, packet)) return false;
  const bool has_ports = packet && packet->ports;
  if (head.has_srcports != 0 && !(has_ports && IsIn(head.srcPorts, packet->ports->source))) return false;
  return head.has_dstports == 0 || (has_ports && IsIn(head.dstPorts, packet->ports->destination));
}

/** The kind of tunnel that a packet is in, MIRROR_UPLINK_FILTER_NORMAL for none. */
DVMirrorFilterType TunnelOf(const std::optional<IpPacket> &packet) {
  if (!packet || !packet->ports) return MIRROR_UPLINK_FILTER_NORMAL;
  const std::uint16_t port = packet->ports->destination;
  if (packet->protocol == kProtocolTcp && port == kSttPort) return MIRROR_UPLINK_FILTER_STT;
  if (packet->protocol == kProtocolUdp && port == kVxlanPort) return MIRROR_UPLINK_FILTER_VXLAN;
  if (packet->protocol == kProtocolUdp && port == kGenevePort) return MIRROR_UPLINK_FILTER_GENEVE;
  return MIRROR_UPLINK_FILTER_NORMAL;
}

}  // namespace

bool RulesPass(std::span<const MirrorRule> rules, const Frame &frame, const std::optional<IpPacket> &packet) {
  bool is_list_of_exceptions = true;
  for (const MirrorRule &rule : rules) {
    const bool copies = rule.head.action == ACTION_MIRROR;
    if (Meets(rule, frame, packet)) return copies;
    if (copies) is_list_of_exceptions = false;
  }
  return is_list_of_exceptions;
}

bool UplinkFilterPasses(DVMirrorFilterType filter, const std::optional<IpPacket> &packet) {
  if (filter == MIRROR_UPLINK_FILTER_NONE) return true;
  const DVMirrorFilterType tunnel = TunnelOf(packet);
  return filter == MIRROR_UPLINK_FILTER_ALL_ENCAP ? tunnel != MIRROR_UPLINK_FILTER_NORMAL : filter == tunnel;
}

}  // namespace kestrel::host
