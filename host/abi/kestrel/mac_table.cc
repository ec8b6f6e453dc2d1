/* The MAC table of a switch. */
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <vector>

#include "host/abi/property_access.h"
#include "host/core/traffic/static_entries.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** In whole seconds, as far as the record can say. */
zel_uint32 AgeOf(const MacEntry &entry, TimePoint now) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - entry.last_seen).count();
  return static_cast<zel_uint32>(std::min<std::int64_t>(seconds, std::numeric_limits<zel_uint32>::max()));
}

/** Member by member, as a table may have a million entries. */
void WriteEntry(const MacItem &item, TimePoint now, VSMACEntry &record) {
  const auto &[key, entry] = item;
  static_assert(sizeof record.macAddress == sizeof key.address);
  std::memcpy(record.macAddress, key.address.data(), sizeof record.macAddress);
  record.macAddrType = entry.kind;
  record.portID = entry.port;
  record.aging = entry.kind == VS_MAC_ADDR_TYPE_LEARNED ? 1 : 0;
  record.vid = key.vlan;
  record.vni = ZEL_VIRTUAL_NETWORK_ID_NONE;
  record.elapsed = AgeOf(entry, now);
  record.macMove = entry.moves;
}

/** The entries of one kind out of a part of the table, the clients' own first: those for which `is_part(entry)` is
   true. `for_each(visit)` visits entries of the table, at most `most`, among which the whole part is. */
template <typename IsPart, typename ForEach>
VSMACTable *TableOf(const Host &host, const Switch &which, VSMACAddrType kind, IsPart is_part, std::size_t most,
                    ForEach for_each) {
  if (kind > VS_MAC_ADDR_TYPE_ALL) throw StatusError(ZEL_BAD_PARAM);
  const std::vector<MacItem> stations = StationsOf(host, which);
  const TimePoint now = host.clock().Now();
  VSMACTable head{};
  // One way through a table that may be large, so that its part is not counted before.
  RecordBlock block(sizeof head + (stations.size() + most) * sizeof(VSMACEntry));
  block.Append(head);
  auto *const records = block.Room<VSMACEntry>();
  const auto put = [&](const MacItem &item) {
    if (!is_part(item.entry)) return;
    ++head.totalEntries;
    if (kind == VS_MAC_ADDR_TYPE_ALL || item.entry.kind == kind) WriteEntry(item, now, records[head.numEntries++]);
  };
  for (const MacItem &item : stations) put(item);
  for_each(put);
  block.Fill(head.numEntries * sizeof(VSMACEntry));
  block.Trim();
  auto *table = block.Release<VSMACTable>();
  *table = head;
  return table;
}

/** The same out of the whole table. */
template <typename IsPart>
VSMACTable *TableOf(const Host &host, const Switch &which, VSMACAddrType kind, IsPart is_part) {
  const std::span<const MacItem> entries = which.runtime.macs.entries();
  return TableOf(host, which, kind, is_part, entries.size(), [entries](auto visit) {
    for (const MacItem &item : entries) visit(item);
  });
}

/** The place of a caller's entry in the table. The switch knows no overlay networks. */
MacKey KeyOf(const VSMACEntry *entry) {
  RequirePointer(entry);
  if (entry->vni != ZEL_VIRTUAL_NETWORK_ID_NONE) throw StatusError(ZEL_BAD_PARAM);
  MacKey key{.vlan = entry->vid, .address = {}};
  std::ranges::copy(entry->macAddress, key.address.begin());
  return key;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMACTable(const char *switchName, VSMACAddrType addrType,
                                                       VSMACTable **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    const Switch &which = host.FindSwitch(SwitchName(switchName));
    const auto all = [](const MacEntry & /*entry*/) { return true; };
    SetOutput(tableOut, TableOf(host, which, addrType, all));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetTeamMACTable(const char *switchName, VSMACAddrType addrType,
                                                           VSMACTable **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    const Switch &which = host.FindSwitch(SwitchName(switchName));
    const auto outside = [&which](const MacEntry &entry) { return which.config.uplinks().Find(entry.port) != nullptr; };
    SetOutput(tableOut, TableOf(host, which, addrType, outside));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortMACTable(const char *switchName, const char *portName,
                                                           VSMACAddrType addrType, VSMACTable **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const auto name = SwitchName(switchName);
    const Host &host = ReadHost();
    const Switch &which = host.FindSwitch(name);
    const PortId port = which.config.PortNamed(PortName(portName)).id;
    const auto behind = [port](const MacEntry &entry) { return entry.port == port; };
    const MacTable &macs = which.runtime.macs;
    const auto for_each = [&macs, port](auto visit) { macs.ForEachBehind(port, visit); };
    SetOutput(tableOut, TableOf(host, which, addrType, behind, macs.SizeBehind(port), for_each));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetPortMACTable(const char *switchName, const char *portName,
                                                           const VSMACEntry *entry) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const MacKey key = KeyOf(entry);
    if (entry->macAddrType != VS_MAC_ADDR_TYPE_USER) throw StatusError(ZEL_BAD_PARAM);
    Host &host = ChangeHost();
    const Switch &which = host.FindSwitch(name);
    const PortId id = which.config.PortNamed(port).id;
    const auto policy =
        RecordOf<VSPMACManagement>(ValueOf(PortProperty{switchName, portName, VSPROP_PORT_MAC_MANAGEMENT}));
    if (which.runtime.macs.UsersBehind(id) >= policy.portMACLearning.macLimit) throw StatusError(ZEL_LIMIT_EXCEEDED);
    host.EnterAddress(name, id, key, VS_MAC_ADDR_TYPE_USER);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_ClearPortMACTable(const char *switchName, const char *portName,
                                                             const VSMACEntry *entry) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const MacKey key = KeyOf(entry);
    Host &host = ChangeHost();
    host.RemoveAddress(name, host.FindSwitch(name).config.PortNamed(port).id, key);
  });
}
