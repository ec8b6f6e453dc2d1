/* How switches and ports filter multicast frames. */
#include <set>
#include <string>
#include <string_view>

#include "host/abi/property_access.h"
#include "host/core/multicast/multicast.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

template <typename Where>
ZEL_ReturnStatus SetEntries(const Where &where, int count, const VSMACEntries *entries,
                            const char *function = __builtin_FUNCTION()) {
  return ChangeCall(
      [&] {
        if (count > VS_MULTICAST_USER_ENTRIES_MAX) throw StatusError(ZEL_LIMIT_EXCEEDED);
        const auto addresses = BytesArgument(entries, static_cast<long long>(count) * ZEL_ETH_ADDR_LENGTH);
        SetValue(where,
                 BytesOf(VSUserMcastLegacyKeys{.numEntries = static_cast<zel_uint8>(count), .multicastAddrs = {}})
                     .append(addresses));
      },
      function);
}

/** A table of `Table` with its counts set, and its entries, which are laid out as the table's are. */
template <typename Table>
Table *TableOf(Table head, std::size_t count, std::string_view entries) {
  head.totalEntries = static_cast<zel_uint32>(count);
  head.numEntries = static_cast<zel_uint32>(count);
  RecordBlock block(sizeof head + entries.size());
  block.Append(head);
  block.AppendBytes(entries);
  return block.Release<Table>();
}

template <typename Bytes>
void AppendTo(std::string &entries, const Bytes &bytes) {
  entries.append(bytes.begin(), bytes.end());
}

/** Whether a mode means the groups of IPv4; of IPv6 otherwise. Throws StatusError ZEL_BAD_PARAM for any other mode. */
bool MeansIpV4(VSMcastFilterMode mode) {
  if (mode != VS_MCAST_FILTER_MODE_IGMP && mode != VS_MCAST_FILTER_MODE_MLD) throw StatusError(ZEL_BAD_PARAM);
  return mode == VS_MCAST_FILTER_MODE_IGMP;
}

const Port &PortOf(const Switch &owner, PortId id) {
  const Port *port = owner.config.ports().Find(id);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *port;
}

VSMcastFilters *Filters(const Switch &owner, const Port &port, VSMcastFilterMode mode) {
  std::string entries;
  std::size_t count = 0;
  if (mode == VS_MCAST_FILTER_MODE_LEGACY) {
    for (const MacAddress &address : AcceptedGroupAddresses(owner, port)) {
      AppendTo(entries, address);
      ++count;
    }
    return TableOf(VSMcastFilters{}, count, entries);
  }
  // A group that is joined in several VLANs is one.
  std::set<IpAddress> groups;
  const bool means_v4 = MeansIpV4(mode);
  for (const GroupKey &key : owner.runtime.multicast.GroupsOf(port.id)) {
    if (IsIpV4(key.group) == means_v4) groups.insert(key.group);
  }
  for (const IpAddress &group : groups) AppendTo(entries, WireBytes(group));
  return TableOf(VSMcastFilters{}, groups.size(), entries);
}

/** Of a group that is joined in several VLANs, the membership that a report came for last. Throws StatusError
    ZEL_NOT_FOUND when the port is not in the group. */
const Membership &LatestMembership(const MulticastTable &table, PortId port, const IpAddress &group) {
  const Membership *latest = nullptr;
  for (const GroupKey &key : table.GroupsOf(port)) {
    if (key.group != group) continue;
    const Membership *membership = table.Find(port, key);
    if (latest == nullptr || membership->updated() > latest->updated()) latest = membership;
  }
  if (latest == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *latest;
}

VSMcastFilterStats *Stats(const Membership &membership, bool is_v4, TimePoint now) {
  const Generation generation = membership.GenerationAt(now);
  VSMcastFilterStats head{};
  // The protocol of IPv6 has one version less.
  head.version = static_cast<zel_uint32>(generation) - (is_v4 ? 0 : 1);
  head.updateTime =
      static_cast<zel_uint64>(std::chrono::duration_cast<std::chrono::seconds>(membership.updated()).count());
  std::string entries;
  std::size_t count = 0;
  if (generation != Generation::kSources) {
    head.srcIPFilterMode = VS_MCAST_SRC_IP_FILTER_MODE_NONE;
    return TableOf(head, count, entries);
  }
  const bool includes = membership.mode() == SourceMode::kInclude;
  head.srcIPFilterMode = includes ? VS_MCAST_SRC_IP_FILTER_MODE_INCLUDE : VS_MCAST_SRC_IP_FILTER_MODE_EXCLUDE;
  for (const GroupSource &source : membership.sources()) {
    if (source.until.has_value() != includes) continue;
    AppendTo(entries, WireBytes(source.address));
    ++count;
  }
  return TableOf(head, count, entries);
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMcastFilterMode(const char *switchName, VSMcastFilterMode mode) {
  return SetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, mode);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut) {
  return GetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, valueOut);
}

/* The mode in force is the one that is configured. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut) {
  return GetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, valueOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMcastUserLegacyEntries(const char *switchName, int count,
                                                                     VSMACEntries *entries) {
  return SetEntries(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES}, count, entries);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMcastUserLegacyEntries(const char *switchName,
                                                                     VSUserMcastLegacyKeys **tableOut) {
  return GetBlock(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearMcastUserLegacyEntries(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortMcastUserLegacyEntries(const char *switchName, const char *portName,
                                                                         int count, VSMACEntries *entries) {
  return SetEntries(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES}, count, entries);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortMcastUserLegacyEntries(const char *switchName, const char *portName,
                                                                         VSUserMcastLegacyKeys **tableOut) {
  return GetBlock(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortMcastUserLegacyEntries(const char *switchName,
                                                                           const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMcastFilters(const char *switchName, zel_SwitchPortID portID,
                                                           VSMcastFilterMode mode, VSMcastFilters **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Switch &owner = ReadHost().FindSwitch(SwitchName(switchName));
    SetOutput(tableOut, Filters(owner, PortOf(owner, portID), mode));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMcastFilterStats(const char *switchName, zel_SwitchPortID portID,
                                                               VSMcastFilterMode mode, const void *bytesIn,
                                                               VSMcastFilterStats **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    const Switch &owner = host.FindSwitch(SwitchName(switchName));
    const bool is_v4 = MeansIpV4(mode);
    const std::string_view wire = BytesArgument(bytesIn, is_v4 ? 4 : 16);
    const FrameBytes bytes(reinterpret_cast<const std::uint8_t *>(wire.data()), wire.size());
    const IpAddress group = is_v4 ? IpV4At(bytes) : IpV6At(bytes);
    if (!IsMulticast(group)) throw StatusError(ZEL_BAD_PARAM);
    const Port &port = PortOf(owner, portID);
    const Membership &membership = LatestMembership(owner.runtime.multicast, port.id, group);
    SetOutput(tableOut, Stats(membership, is_v4, host.clock().Now()));
  });
}
