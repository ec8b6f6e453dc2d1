/* The uplinks of a switch and their links. */
#include <algorithm>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** Uplinks without a NIC have no link and no name in the kernel, and are left out. */
VSUplinks *UplinksOf(const SwitchConfig &config) {
  const auto has_nic = [&config](const Uplink &uplink) { return config.NicOf(uplink.id) != nullptr; };
  const auto count = static_cast<zel_uint32>(std::ranges::count_if(config.uplinks().Items(), has_nic));

  RecordBlock block(sizeof(VSUplinks) + count * sizeof(VSUplinks_entries));
  block.Append(VSUplinks{.totalEntries = count, .numEntries = count, .entries = {}});
  for (const Uplink &uplink : config.uplinks().Items()) {
    if (!has_nic(uplink)) continue;
    VSUplinks_entries record{};
    SetText(record.name.string, *config.NicOf(uplink.id));
    record.portID = uplink.id;
    block.Append(record);
  }
  return block.Release<VSUplinks>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinks(const char *switchName, VSUplinks **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    SetOutput(tableOut, UplinksOf(ProcessHost().FindSwitch(SwitchName(switchName)).config));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkLinkState(const char *switchName, const char *uplinkName,
                                                              zel_LinkState *valueOut) {
  return Guarded([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    const Host &host = ProcessHost();
    if (host.FindSwitch(name).config.UplinkOfNic(nic) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetOutput(valueOut, host.LinkOfPluggedNic(nic).state);
  });
}
