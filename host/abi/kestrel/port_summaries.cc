/* What holds for all ports of a switch, in one table. */
#include <algorithm>

#include "host/abi/property_access.h"
#include "host/core/mac_limits.h"
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
  return RecordOf<Record>(ProcessHost().PropertyOf(owner, key));
}

VSPMACLearning LearningOf(const SwitchConfig &config, const Port &port) {
  return PolicyOf<VSPMACManagement>(config, port, VSPROP_PORT_MAC_MANAGEMENT).portMACLearning;
}

/** The statistics of the ports for which `is_meant(port id)` is true. A frame that could not be learned from is
    forwarded all the same. */
template <typename IsMeant>
VSPMACLearningStats StatsOf(const Switch &which, IsMeant is_meant) {
  VSPMACLearningStats stats{};
  for (const auto &[key, entry] : which.macs.entries()) {
    if (entry.kind != VS_MAC_ADDR_TYPE_LEARNED || !is_meant(entry.port)) continue;
    ++stats.numMACsLearned;
    stats.numMACsMoved += entry.moves;
  }
  for (const auto &[port, frames] : which.unlearned) {
    if (is_meant(port)) stats.noLearningAllowedPkts += frames;
  }
  return stats;
}

VSPMACLearningStats StatsOf(const Switch &which, const Port &port) {
  return StatsOf(which, [&port](PortId id) { return id == port.id; });
}

VSMACLearningSwitchInfo InfoOf(const Switch &which) {
  const SwitchConfig &config = which.config;
  const auto is_uplink = [&config](PortId id) { return config.uplinks().Find(id) != nullptr; };
  const MacLimits limits = MacLimitsOf(config, ProcessHost().mac_learning());

  VSMACLearningSwitchInfo info{};
  info.agingTime = static_cast<zel_uint32>(std::chrono::duration_cast<std::chrono::seconds>(limits.ageing).count());
  info.macLimit = static_cast<zel_uint32>(limits.entries);
  info.numMACsLearned = StatsOf(which, [&](PortId id) { return !is_uplink(id); }).numMACsLearned;
  info.teamMACLearningStats = StatsOf(which, is_uplink);
  info.teamNumMACsLearned = info.teamMACLearningStats.numMACsLearned;
  // Uplinks always learn, as far as the switch's own table has room.
  info.teamMACLearning = {.learning = 1,
                          .flooding = 1,
                          .macLimit = info.macLimit,
                          .macLimitPolicy = VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW};
  for (const Port &port : config.ports().Items()) {
    const VSPMACLearning policy = LearningOf(config, port);
    const bool learns = policy.learning != 0;
    if (learns) ++info.numLearningPorts;
    if (learns && StatsOf(which, port).numMACsLearned >= policy.macLimit) ++info.noOfPortsMACLimitHit;
    if (IsSink(port) && policy.flooding != 0) ++info.numSinkAndFloodingPorts;
  }
  info.numSinkPorts = CountSinkPorts(config);
  return info;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetL2Security(const char *switchName, VSL2Security **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    const SwitchConfig &config = ProcessHost().FindSwitch(SwitchName(switchName)).config;
    const auto describe = [&config](const Port &port) {
      return VSPropSecurityPortInfo{.portID = port.id,
                                    .l2SecPortInfo = PolicyOf<VSPropSecurity>(config, port, VSPROP_PORT_SECURITY)};
    };
    SetOutput(tableOut, PortTable<VSL2Security, VSPropSecurityPortInfo>(config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMACLearningAllPorts(const char *switchName,
                                                                  VSMACLearningEntries **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    const SwitchConfig &config = ProcessHost().FindSwitch(SwitchName(switchName)).config;
    const auto describe = [&config](const Port &port) {
      return VSPMACLearningInfo{.portID = port.id, .portMACLearning = LearningOf(config, port)};
    };
    SetOutput(tableOut, PortTable<VSMACLearningEntries, VSPMACLearningInfo>(config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetSwitchMACLearningStats(const char *switchName,
                                                                     VSMACLearningStats **tableOut) {
  return Guarded([&] {
    ClearOutputs(tableOut);
    const Switch &which = ProcessHost().FindSwitch(SwitchName(switchName));
    const auto describe = [&which](const Port &port) {
      return VSPMACLearningStatsPortInfo{.portID = port.id, .portStats = StatsOf(which, port)};
    };
    SetOutput(tableOut, PortTable<VSMACLearningStats, VSPMACLearningStatsPortInfo>(which.config, describe));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortMACLearningStats(const char *switchName, const char *portName,
                                                                   VSPMACLearningStats *stats) {
  return Guarded([&] {
    RequirePointer(stats);
    const auto name = SwitchName(switchName);
    const Switch &which = ProcessHost().FindSwitch(name);
    SetOutput(stats, StatsOf(which, which.config.PortNamed(PortName(portName))));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetSwitchMACLearningInfo(const char *switchName,
                                                                    VSMACLearningSwitchInfo *info) {
  return Guarded([&] {
    RequirePointer(info);
    SetOutput(info, InfoOf(ProcessHost().FindSwitch(SwitchName(switchName))));
  });
}
