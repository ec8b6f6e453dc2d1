/* The ports that see more than what is meant for them. */
#include <algorithm>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/traffic/delivery.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

VSPromiscSessionActiveDsts *DestinationsIn(const Host &host, const Switch &which) {
  const SwitchPlan &plan = PlanOf(host, which);
  const auto is_active = [&](const PortPlan &port) {
    return port.is_promiscuous && IsOpen(host, which, plan, port) && !plan.is_disabled;
  };
  const auto count = static_cast<zel_uint32>(std::ranges::count_if(plan.ports, is_active));
  RecordBlock block(sizeof(VSPromiscSessionActiveDsts) + count * sizeof(zel_SwitchPortID));
  block.Append(VSPromiscSessionActiveDsts{.totalEntries = count, .numEntries = count, .entries = {}});
  for (const PortPlan &port : plan.ports) {
    if (is_active(port)) block.AppendBytes({reinterpret_cast<const char *>(&port.id), sizeof port.id});
  }
  return block.Release<VSPromiscSessionActiveDsts>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPromiscSessionActiveDsts(const char *switchName,
                                                                       VSPromiscSessionActiveDsts **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    SetOutput(tableOut, DestinationsIn(host, host.FindSwitch(SwitchName(switchName))));
  });
}
