/* The MAC table of a switch. */
#include <algorithm>
#include <chrono>
#include <cstdint>
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

VSMACEntry RecordOfEntry(const MacKey &key, const MacEntry &entry, TimePoint now) {
  VSMACEntry record{};
  std::ranges::copy(key.address, record.macAddress);
  record.macAddrType = entry.kind;
  record.portID = entry.port;
  record.aging = entry.kind == VS_MAC_ADDR_TYPE_LEARNED ? 1 : 0;
  record.vid = key.vlan;
  record.elapsed = AgeOf(entry, now);
  record.macMove = entry.moves;
  return record;
}

/** Calls `visit(key, entry)` for the entries of a switch, its clients' own among them, in the order of their keys. */
template <typename Visit>
void ForEachEntry(std::span<const MacItem> entries, std::span<const MacItem> stations, Visit visit) {
  auto station = stations.begin();
  for (const MacItem &item : entries) {
    for (; station != stations.end() && station->key < item.key; ++station) visit(station->key, station->entry);
    visit(item.key, item.entry);
  }
  for (; station != stations.end(); ++station) visit(station->key, station->entry);
}

/** The entries of one kind out of the part of the table for which `is_part(entry)` is true. */
template <typename IsPart>
VSMACTable *TableOf(const Host &host, const Switch &which, VSMACAddrType kind, IsPart is_part) {
  if (kind > VS_MAC_ADDR_TYPE_ALL) throw StatusError(ZEL_BAD_PARAM);
  const auto is_wanted = [&](const MacEntry &entry) {
    return (kind == VS_MAC_ADDR_TYPE_ALL || entry.kind == kind) && is_part(entry);
  };
  const std::span<const MacItem> entries = which.runtime.macs.entries();
  const std::vector<MacItem> stations = StationsOf(host, which);
  std::size_t total = 0;
  std::size_t count = 0;
  for (const std::span<const MacItem> part : {entries, std::span<const MacItem>(stations)}) {
    for (const MacItem &item : part) {
      if (is_part(item.entry)) ++total;
      if (is_wanted(item.entry)) ++count;
    }
  }

  RecordBlock block(sizeof(VSMACTable) + count * sizeof(VSMACEntry));
  block.Append(VSMACTable{
      .totalEntries = static_cast<zel_uint32>(total), .numEntries = static_cast<zel_uint32>(count), .macEntries = {}});
  const TimePoint now = host.clock().Now();
  ForEachEntry(entries, stations, [&](const MacKey &key, const MacEntry &entry) {
    if (is_wanted(entry)) block.Append(RecordOfEntry(key, entry, now));
  });
  return block.Release<VSMACTable>();
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
    SetOutput(tableOut, TableOf(host, which, addrType, behind));
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
    const auto is_user_entry = [id](const MacItem &item) {
      return item.entry.port == id && item.entry.kind == VS_MAC_ADDR_TYPE_USER;
    };
    if (std::ranges::count_if(which.runtime.macs.entries(), is_user_entry) >= policy.portMACLearning.macLimit) {
      throw StatusError(ZEL_LIMIT_EXCEEDED);
    }
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
