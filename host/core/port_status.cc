#include "host/core/port_status.h"

#include "host/core/base/record_bytes.h"
#include "host/core/teaming/teaming.h"

namespace kestrel::host {
namespace {

constexpr PortRuntime kNothingYet{};

const PortRuntime &RuntimeOf(const Switch &owner, PortId port) {
  const PortRuntime *runtime = owner.runtime.ports.Find(port);
  return runtime == nullptr ? kNothingYet : *runtime;
}

constexpr auto kUnicast = static_cast<std::size_t>(CastKind::kUnicast);
constexpr auto kMulticast = static_cast<std::size_t>(CastKind::kMulticast);
constexpr auto kBroadcastKind = static_cast<std::size_t>(CastKind::kBroadcast);

std::uint64_t Sum(const std::array<std::uint64_t, kCastKinds> &numbers) {
  return numbers[kUnicast] + numbers[kMulticast] + numbers[kBroadcastKind];
}

/** The totals count frames of every kind. */
void Add(VSStats &stats, const PortRuntime &runtime) {
  stats.pktsTx += Sum(runtime.in.frames);
  stats.pktsTxMulticast += runtime.in.frames[kMulticast];
  stats.pktsTxBroadcast += runtime.in.frames[kBroadcastKind];
  stats.pktsRx += Sum(runtime.out.frames);
  stats.pktsRxMulticast += runtime.out.frames[kMulticast];
  stats.pktsRxBroadcast += runtime.out.frames[kBroadcastKind];
  stats.bytesTx += Sum(runtime.in.bytes);
  stats.bytesTxMulticast += runtime.in.bytes[kMulticast];
  stats.bytesTxBroadcast += runtime.in.bytes[kBroadcastKind];
  stats.bytesRx += Sum(runtime.out.bytes);
  stats.bytesRxMulticast += runtime.out.bytes[kMulticast];
  stats.bytesRxBroadcast += runtime.out.bytes[kBroadcastKind];
  stats.droppedTx += runtime.dropped_in;
  stats.droppedRx += runtime.dropped_out;
}

template <typename Byte, std::size_t width>
void SetText(Byte (&field)[width], std::string_view text) {
  text.copy(reinterpret_cast<char *>(field), width - 1);
}

zel_LinkStatus LinkOf(const Host &host, const Switch &owner, const Port &port) {
  LinkStatus link = kNoLink;
  if (port.client && port.client->type == VS_PORT_CLIENT_UPLINK) {
    link = host.LinkOfPluggedNic(port.client->name);
  } else if (port.client && HasLink(host, owner, port)) {
    // Between a client and the switch there is no wire that could be slow.
    link = {ZEL_LINK_STATE_UP, ZEL_LINK_SPEED_AUTO, ZEL_LINK_DUPLEX_FULL};
  }
  zel_LinkStatus status{};
  status.state = link.state;
  status.speed = link.speed;
  status.duplex = link.duplex;
  return status;
}

/** A zel_VDSPortVlanInfo with its ranges. */
std::string VlansOf(const Port &port) {
  const VlanPolicy policy = VlanOf(port).value_or(VlanPolicy{});
  std::string bytes = BytesOf(zel_VDSPortVlanInfo{
      .vlanID = policy.vlan, .numRanges = static_cast<zel_uint16>(policy.ranges.size()), .vidRanges = {}});
  for (const VlanRange range : policy.ranges) bytes += BytesOf(zel_VDSPortVIDRange{range.first, range.last});
  return bytes;
}

}  // namespace

VSStats StatsOf(const Switch &owner, PortId port) {
  VSStats stats{};
  Add(stats, RuntimeOf(owner, port));
  return stats;
}

VSStats StatsOf(const Switch &owner) {
  VSStats stats{};
  for (const Port &port : owner.config.ports().Items()) Add(stats, RuntimeOf(owner, port.id));
  return stats;
}

zel_VDSPortStatistics StatisticsOf(const Switch &owner, PortId port) {
  const PortRuntime &runtime = RuntimeOf(owner, port);
  return {.pktsInUnicast = runtime.in.frames[kUnicast],
          .bytesInUnicast = runtime.in.bytes[kUnicast],
          .pktsInMulticast = runtime.in.frames[kMulticast],
          .bytesInMulticast = runtime.in.bytes[kMulticast],
          .pktsInBroadcast = runtime.in.frames[kBroadcastKind],
          .bytesInBroadcast = runtime.in.bytes[kBroadcastKind],
          .pktsOutUnicast = runtime.out.frames[kUnicast],
          .bytesOutUnicast = runtime.out.bytes[kUnicast],
          .pktsOutMulticast = runtime.out.frames[kMulticast],
          .bytesOutMulticast = runtime.out.bytes[kMulticast],
          .pktsOutBroadcast = runtime.out.frames[kBroadcastKind],
          .bytesOutBroadcast = runtime.out.bytes[kBroadcastKind],
          .pktsInDropped = runtime.dropped_in,
          .pktsOutDropped = runtime.dropped_out,
          .pktsInException = runtime.exceptions_in,
          .pktsOutException = runtime.exceptions_out};
}

zel_VDSPortStatus StatusOf(const Host &host, const Switch &owner, const Port &port) {
  const PortPlan &planned = *PlanOf(host, owner).Find(port.id);
  zel_VDSPortStatus status{};
  status.portID = port.id;
  if (planned.has_client) status.flags |= ZEL_VDSPORT_STATUS_INUSE;
  if (LinkOf(host, owner, port).state == ZEL_LINK_STATE_UP) status.flags |= ZEL_VDSPORT_STATUS_LINKUP;
  if (planned.is_blocked) status.flags |= ZEL_VDSPORT_STATUS_BLOCKED;
  if (port.client) SetText(status.displayStr, port.client->name);
  return status;
}

VSPMACLearningStats LearningStatsOf(const Switch &owner, PortId port) {
  const PortRuntime &runtime = RuntimeOf(owner, port);
  return {.numMACsLearned = static_cast<zel_uint32>(owner.runtime.macs.LearnedBehind(port)),
          .noLearningAllowedPkts = runtime.unlearned,
          .noLearningDroppedPkts = runtime.unlearned_dropped,
          .numMACsMoved = runtime.moved_here};
}

std::optional<std::string> ReadPortStatus(const Host &host, const Switch &owner, PortId port, std::string_view key) {
  const Port &meant = *owner.config.ports().Find(port);
  if (key == ZEL_VDSPROP_PORT_STATISTICS) return BytesOf(StatisticsOf(owner, port));
  if (key == ZEL_VDSPROP_PORT_STATUS) return BytesOf(StatusOf(host, owner, meant));
  if (key == ZEL_VDSPROP_PORT_LINK_STATUS) return BytesOf(LinkOf(host, owner, meant));
  if (key == ZEL_VDSPROP_PORT_VLAN) return VlansOf(meant);
  if (key == ZEL_VDSPROP_PORT_TYPE) {
    return BytesOf(PlanOf(host, owner).is_disabled ? DVSPORT_TYPE_SHADOW : DVSPORT_TYPE_ACTIVE);
  }
  if (key == VSPROP_PORT_MAC_LEARNING_STATS) return BytesOf(LearningStatsOf(owner, port));
  return std::nullopt;
}

}  // namespace kestrel::host
