/* Addresses that a switch knows without having learned them, with the VLANs that they are known in. */
#include "host/core/traffic/static_entries.h"

#include <algorithm>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

VSStaticLEEntry RecordOf(const StaticEntry &entry) {
  VSStaticLEEntry record{};
  constexpr std::size_t kBits = 64;
  for (std::size_t vlan = entry.vlans._Find_first(); vlan < entry.vlans.size(); vlan = entry.vlans._Find_next(vlan)) {
    record.vlanBitmap.bits[vlan / kBits] |= zel_uint64{1} << vlan % kBits;
  }
  std::ranges::copy(entry.address, record.macAddress);
  record.macAddrType = entry.kind;
  record.portID = entry.port;
  return record;
}

VSStaticLeCtxEntries *TableOf(const std::vector<StaticEntry> &entries) {
  const auto count = static_cast<zel_uint32>(entries.size());
  RecordBlock block(sizeof(VSStaticLeCtxEntries) + count * sizeof(VSStaticLEEntry));
  block.Append(VSStaticLeCtxEntries{.totalEntries = count, .numEntries = count, .staticLECtxEntries = {}});
  for (const StaticEntry &entry : entries) block.Append(RecordOf(entry));
  return block.Release<VSStaticLeCtxEntries>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetStaticLectx(const char *switchName, VSStaticLeCtxEntries **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    SetOutput(tableOut, TableOf(StaticEntriesOf(host, host.FindSwitch(SwitchName(switchName)))));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortStaticLectx(const char *switchName, const char *portName,
                                                              VSStaticLeCtxEntries **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const Host &host = ReadHost();
    const Switch &which = host.FindSwitch(name);
    const PortId id = which.config.PortNamed(port).id;
    std::vector<StaticEntry> entries = StaticEntriesOf(host, which);
    std::erase_if(entries, [id](const StaticEntry &entry) { return entry.port != id; });
    SetOutput(tableOut, TableOf(entries));
  });
}
