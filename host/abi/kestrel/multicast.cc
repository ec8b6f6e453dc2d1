/* How switches and ports filter multicast frames. */
#include <string>

#include "host/abi/property_access.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

template <typename Where>
ZEL_ReturnStatus SetEntries(const Where &where, int count, const VSMACEntries *entries) {
  return Guarded([&] {
    if (count > VS_MULTICAST_USER_ENTRIES_MAX) throw StatusError(ZEL_LIMIT_EXCEEDED);
    const auto addresses = BytesArgument(entries, static_cast<long long>(count) * ZEL_ETH_ADDR_LENGTH);
    SetValue(where, BytesOf(VSUserMcastLegacyKeys{.numEntries = static_cast<zel_uint8>(count), .multicastAddrs = {}})
                        .append(addresses));
  });
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMcastFilterMode(const char *switchName, VSMcastFilterMode mode) {
  return SetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, mode);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut) {
  return GetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, valueOut);
}

/* The mode in force is the one that is configured. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut) {
  return GetNumber(SwitchProperty{switchName, VSPROP_MULTICAST_FILTER}, valueOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMcastUserLegacyEntries(const char *switchName, int count,
                                                                     VSMACEntries *entries) {
  return SetEntries(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES}, count, entries);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMcastUserLegacyEntries(const char *switchName,
                                                                     VSUserMcastLegacyKeys **tableOut) {
  return GetBlock(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearMcastUserLegacyEntries(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_USER_MCAST_ADDRESSES});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortMcastUserLegacyEntries(const char *switchName, const char *portName,
                                                                         int count, VSMACEntries *entries) {
  return SetEntries(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES}, count, entries);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortMcastUserLegacyEntries(const char *switchName, const char *portName,
                                                                         VSUserMcastLegacyKeys **tableOut) {
  return GetBlock(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortMcastUserLegacyEntries(const char *switchName,
                                                                           const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_USER_MCAST_ADDRESSES});
}
