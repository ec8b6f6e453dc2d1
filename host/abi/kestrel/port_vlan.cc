/* The VLAN policy of a port. */
#include <utility>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

std::vector<VlanRange> RangesOf(const zel_VDSPortVIDRange *ranges, std::size_t count) {
  if (count != 0) RequirePointer(ranges);
  std::vector<VlanRange> copies;
  copies.reserve(count);
  for (std::size_t i = 0; i < count; ++i) copies.push_back({ranges[i].minVID, ranges[i].maxVID});
  return copies;
}

VSPortVlanPolicy *RecordOf(const VlanPolicy &policy, std::size_t size) {
  RecordBlock block(size);
  VSPortVlanPolicy record{};
  record.flags = static_cast<zel_uint16>(policy.mode);
  if (policy.set_priority) record.flags |= VSPORT_VLAN_SET_PRIORITY;
  record.vlanID = policy.vlan;
  record.numRanges = static_cast<zel_uint16>(policy.ranges.size());
  block.Append(record);
  for (const VlanRange range : policy.ranges) block.Append(zel_VDSPortVIDRange{range.first, range.last});
  return block.Release<VSPortVlanPolicy>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortVLANPolicy(const char *switchName, const char *portName,
                                                             zel_uint16 vlanID, int mode, zel_Bool setPriority,
                                                             zel_Bool runtimeOnly, zel_VDSPortVIDRange *ranges,
                                                             zel_uint16 numRanges) {
  return Guarded([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    VlanPolicy policy{.mode = VlanModeOf(mode),
                      .vlan = vlanID,
                      .set_priority = setPriority != 0,
                      .ranges = RangesOf(ranges, numRanges)};
    const auto persistence = runtimeOnly != 0 ? Persistence::kRuntimeOnly : Persistence::kSaved;
    ProcessHost().SetPortVlan(name, port, std::move(policy), persistence);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortVLANPolicy(const char *switchName, const char *portName,
                                                             VSPortVlanPolicy **tableOut, int *valueOut) {
  return Guarded([&] {
    ClearOutputs(tableOut, valueOut);
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const VlanPolicy policy = ProcessHost().FindSwitch(name).config.PortNamed(port).vlan.value_or(VlanPolicy{});
    const std::size_t size = sizeof(VSPortVlanPolicy) + policy.ranges.size() * sizeof(zel_VDSPortVIDRange);
    SetOutput(tableOut, RecordOf(policy, size));
    SetOutput(valueOut, static_cast<int>(size));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortVLANPolicy(const char *switchName, const char *portName) {
  return Guarded([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    ProcessHost().ClearPortVlan(name, port);
  });
}
