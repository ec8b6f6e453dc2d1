/* What holds for all ports of a switch, in one table. */
#include <chrono>

#include "host/abi/property_access.h"
#include "host/core/port_status.h"
#include "host/core/traffic/switch_plan.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** A table of one Record a port, `describe(port)`, behind a head that counts them. */
template <typename Table, typename Record, typename Describe>
Table *PortTable(const SwitchConfig &config, Describe describe) {
  const auto count = static_cast<zel_uint32>(config.ports().size());
  Table head{};
  head.totalEntries = count;
  head.numEntries = count;
  RecordBlock block(sizeof head + count * sizeof(Record));
  block.Append(head);
  for (const Port &port : config.ports().Items()) block.Append(describe(port));
  return block.Release<Table>();
}

template <typename Record>
Record PolicyOf(const SwitchConfig &config, const Port &port, std::string_view key) {
  const PropertyOwner owner{.switch_name = config.spec().portset, .level = PropertyLevel::kPort, .port = port.name};
  return RecordOf<Record>(ReadHost().PropertyOf(owner, key));
}

VSPMACLearning LearningOf(const SwitchConfig &config, const Port &port) {
  return PolicyOf<VSPMACManagement>(config, port, VSPROP_PORT_MAC_MANAGEMENT).portMACLearning;
}

void Add(VSPMACLearningStats &sum, const VSPMACLearningStats &stats) {
  sum.numMACsLearned += stats.numMACsLearned;
  sum.noLearningAllowedPkts += stats.noLearningAllowedPkts;
  sum.noLearningDroppedPkts += stats.noLearningDroppedPkts;
  sum.numMACsMoved += stats.numMACsMoved;
}

VSMACLearningSwitchInfo InfoOf(const Host &host, const Switch &which) {
  const SwitchPlan &plan = PlanOf(host, which);
  VSMACLearningSwitchInfo info{};
  info.agingTime =
      static_cast<zel_uint32>(std::chrono::duration_cast<std::chrono::seconds>(plan.limits.ageing).count());
  info.macLimit = static_cast<zel_uint32>(plan.limits.entries);
  // Uplinks always learn, and whom they do not know they let pass.
  info.teamMACLearning = {.learning = 1,
                          .flooding = 1,
                          .macLimit = static_cast<zel_uint32>(plan.team_limit),
                          .macLimitPolicy = VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW};
  for (const PortPlan &port : plan.ports) {
    const VSPMACLearningStats stats = LearningStatsOf(which, port.id);
    if (port.is_uplink) {
      Add(info.teamMACLearningStats, stats);
      const PortRuntime *runtime = which.runtime.ports.Find(port.id);
      if (runtime != nullptr) info.teamAllowedPktsWithPortLimit += runtime->unlearned_by_own_limit;
      continue;
    }
    info.numMACsLearned += stats.numMACsLearned;
    if (port.learns) ++info.numLearningPorts;
    if (port.learns && stats.numMACsLearned >= port.learning_limit) ++info.noOfPortsMACLimitHit;
    if (port.is_sink) ++info.numSinkPorts;
    if (port.is_sink && port.takes_unknown) ++info.numSinkAndFloodingPorts;
  }
  info.teamNumMACsLearned = info.teamMACLearningStats.numMACsLearned;
  return info;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetL2Security(const char *switchName, VSL2Security **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const SwitchConfig &config = ReadHost().FindSwitch(SwitchName(switchName)).config;
    const auto describe = [&config](const Port &port) {
      return VSPropSecurityPortInfo{.portID = port.id,
                                    .l2SecPortInfo = PolicyOf<VSPropSecurity>(config, port, VSPROP_PORT_SECURITY)};
    };
    SetOutput(tableOut, PortTable<VSL2Security, VSPropSecurityPortInfo>(config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMACLearningAllPorts(const char *switchName,
                                                                  VSMACLearningEntries **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const SwitchConfig &config = ReadHost().FindSwitch(SwitchName(switchName)).config;
    const auto describe = [&config](const Port &port) {
      return VSPMACLearningInfo{.portID = port.id, .portMACLearning = LearningOf(config, port)};
    };
    SetOutput(tableOut, PortTable<VSMACLearningEntries, VSPMACLearningInfo>(config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetSwitchMACLearningStats(const char *switchName,
                                                                     VSMACLearningStats **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Switch &which = ReadHost().FindSwitch(SwitchName(switchName));
    const auto describe = [&which](const Port &port) {
      return VSPMACLearningStatsPortInfo{.portID = port.id, .portStats = LearningStatsOf(which, port.id)};
    };
    SetOutput(tableOut, PortTable<VSMACLearningStats, VSPMACLearningStatsPortInfo>(which.config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortMACLearningStats(const char *switchName, const char *portName,
                                                                   VSPMACLearningStats *stats) {
  return ReadCall([&] {
    RequirePointer(stats);
    const auto name = SwitchName(switchName);
    const Switch &which = ReadHost().FindSwitch(name);
    SetOutput(stats, LearningStatsOf(which, which.config.PortNamed(PortName(portName)).id));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetSwitchMACLearningInfo(const char *switchName,
                                                                    VSMACLearningSwitchInfo *info) {
  return ReadCall([&] {
    RequirePointer(info);
    const Host &host = ReadHost();
    SetOutput(info, InfoOf(host, host.FindSwitch(SwitchName(switchName))));
  });
}
