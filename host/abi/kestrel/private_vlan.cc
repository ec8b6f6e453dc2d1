/* The private VLAN map of a switch. */
#include "host/abi/property_access.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPrivateVLANMap(const char *switchName, const VSPvlanMapEntry *map,
                                                             int count) {
  return ChangeCall([&] {
    if (count > kMaxVlanId) throw StatusError(ZEL_LIMIT_EXCEEDED);
    const auto entries = BytesArgument(map, static_cast<long long>(count) * static_cast<long long>(sizeof *map));
    SetValue(SwitchProperty{switchName, VSPROP_PVLAN_MAP}, std::string(entries));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPrivateVLANMap(const char *switchName, VSPvlanMapEntry **mapOut,
                                                             int *valueOut) {
  return ReadCall([&] {
    ClearOutputs(mapOut, valueOut);
    const std::string map = ValueOf(SwitchProperty{switchName, VSPROP_PVLAN_MAP});
    SetOutput(mapOut, BlockOf<VSPvlanMapEntry>(map));
    SetOutput(valueOut, static_cast<int>(map.size() / sizeof(VSPvlanMapEntry)));
  });
}
