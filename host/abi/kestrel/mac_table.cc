/* The MAC table of a switch. */
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
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

VSMACTable *TableOf(const Switch &which, VSMACAddrType kind, TimePoint now) {
  if (kind > VS_MAC_ADDR_TYPE_ALL) throw StatusError(ZEL_BAD_PARAM);
  const auto is_wanted = [kind](const auto &item) { return kind == VS_MAC_ADDR_TYPE_ALL || item.second.kind == kind; };
  const auto &entries = which.macs.entries();
  const auto count = static_cast<std::size_t>(std::ranges::count_if(entries, is_wanted));

  RecordBlock block(sizeof(VSMACTable) + count * sizeof(VSMACEntry));
  block.Append(VSMACTable{.totalEntries = static_cast<zel_uint32>(entries.size()),
                          .numEntries = static_cast<zel_uint32>(count),
                          .macEntries = {}});
  for (const auto &item : entries) {
    if (is_wanted(item)) block.Append(RecordOf(item.first, item.second, now));
  }
  return block.Release<VSMACTable>();
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
    SetOutput(tableOut, TableOf(host.FindSwitch(SwitchName(switchName)), addrType, host.clock().Now()));
  });
}
