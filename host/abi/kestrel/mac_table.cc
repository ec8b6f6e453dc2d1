/* The MAC table of a switch. */
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

#include "host/abi/property_access.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** In whole seconds, as far as the record can say. */
zel_uint32 AgeOf(const MacEntry &entry, TimePoint now) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - entry.last_seen).count();
  return static_cast<zel_uint32>(std::min<std::int64_t>(seconds, std::numeric_limits<zel_uint32>::max()));
}

VSMACEntry RecordOf(const MacKey &key, const MacEntry &entry, TimePoint now) {
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

/** The entries of one kind out of the part of the table for which `is_part(entry)` is true. */
template <typename IsPart>
VSMACTable *TableOf(const Switch &which, VSMACAddrType kind, TimePoint now, IsPart is_part) {
  if (kind > VS_MAC_ADDR_TYPE_ALL) throw StatusError(ZEL_BAD_PARAM);
  const auto is_there = [&](const auto &item) { return is_part(item.second); };
  const auto is_wanted = [&](const auto &item) {
    return is_part(item.second) && (kind == VS_MAC_ADDR_TYPE_ALL || item.second.kind == kind);
  };
  const auto &entries = which.macs.entries();
  const auto total = static_cast<std::size_t>(std::ranges::count_if(entries, is_there));
  const auto count = static_cast<std::size_t>(std::ranges::count_if(entries, is_wanted));

  RecordBlock block(sizeof(VSMACTable) + count * sizeof(VSMACEntry));
  block.Append(VSMACTable{
      .totalEntries = static_cast<zel_uint32>(total), .numEntries = static_cast<zel_uint32>(count), .macEntries = {}});
  for (const auto &item : entries) {
    if (is_wanted(item)) block.Append(RecordOf(item.first, item.second, now));
  }
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
  return Guarded([&] {
    ClearOutputs(tableOut);
    const Host &host = ProcessHost();
    const Switch &which = host.FindSwitch(SwitchName(switchName));
    const auto all = [](const MacEntry & /*entry*/) { return true; };
    SetOutput(tableOut, TableOf(which, addrType, host.clock().Now(), all));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetTeamMACTable(const char *switchName, VSMACAddrType addrType,
                                                           VSMACTable **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    const Host &host = ProcessHost();
    const Switch &which = host.FindSwitch(SwitchName(switchName));
    const auto outside = [&which](const MacEntry &entry) { return which.config.uplinks().Find(entry.port) != nullptr; };
    SetOutput(tableOut, TableOf(which, addrType, host.clock().Now(), outside));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortMACTable(const char *switchName, const char *portName,
                                                           VSMACAddrType addrType, VSMACTable **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    const auto name = SwitchName(switchName);
    const Host &host = ProcessHost();
    const Switch &which = host.FindSwitch(name);
    const PortId port = which.config.PortNamed(PortName(portName)).id;
    const auto behind = [port](const MacEntry &entry) { return entry.port == port; };
    SetOutput(tableOut, TableOf(which, addrType, host.clock().Now(), behind));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetPortMACTable(const char *switchName, const char *portName,
                                                           const VSMACEntry *entry) {
  return Guarded([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const MacKey key = KeyOf(entry);
    if (entry->macAddrType != VS_MAC_ADDR_TYPE_USER) throw StatusError(ZEL_BAD_PARAM);
    Host &host = ProcessHost();
    const Switch &which = host.FindSwitch(name);
    const PortId id = which.config.PortNamed(port).id;
    const auto policy =
        RecordOf<VSPMACManagement>(ValueOf(PortProperty{switchName, portName, VSPROP_PORT_MAC_MANAGEMENT}));
    const auto is_user_entry = [id](const auto &item) {
      return item.second.port == id && item.second.kind == VS_MAC_ADDR_TYPE_USER;
    };
    if (std::ranges::count_if(which.macs.entries(), is_user_entry) >= policy.portMACLearning.macLimit) {
      throw StatusError(ZEL_LIMIT_EXCEEDED);
    }
    host.EnterAddress(name, id, key, VS_MAC_ADDR_TYPE_USER);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_ClearPortMACTable(const char *switchName, const char *portName,
                                                             const VSMACEntry *entry) {
  return Guarded([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const MacKey key = KeyOf(entry);
    Host &host = ProcessHost();
    host.RemoveAddress(name, host.FindSwitch(name).config.PortNamed(port).id, key);
  });
}
