/* The VLAN policy of a port. */
#include <vector>

#include "host/abi/property_access.h"
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

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortVLANPolicy(const char *switchName, const char *portName,
                                                             zel_uint16 vlanID, int mode, zel_Bool setPriority,
                                                             zel_Bool runtimeOnly, zel_VDSPortVIDRange *ranges,
                                                             zel_uint16 numRanges) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const VlanPolicy policy{.mode = VlanModeOf(mode),
                            .vlan = vlanID,
                            .set_priority = setPriority != 0,
                            .ranges = RangesOf(ranges, numRanges)};
    const auto persistence = runtimeOnly != 0 ? Persistence::kRuntimeOnly : Persistence::kSaved;
    ChangeHost().SetPortVlan(name, port, policy, persistence);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortVLANPolicy(const char *switchName, const char *portName,
                                                             VSPortVlanPolicy **tableOut, int *valueOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut, valueOut);
    const std::string policy = ValueOf(PortProperty{switchName, portName, VSPROP_PORT_VLAN});
    SetOutput(tableOut, BlockOf<VSPortVlanPolicy>(policy));
    SetOutput(valueOut, static_cast<int>(policy.size()));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortVLANPolicy(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_VLAN});
}
