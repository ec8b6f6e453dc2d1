/* What a port allows its client and lets through to it. */
#include "host/abi/property_access.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortNestedVLANTagging(const char *switchName, const char *portName,
                                                                    zel_Bool allowed) {
  return SetFlag(PortProperty{switchName, portName, VSPROP_PORT_VLAN_NESTEDTAG}, allowed);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortNestedVLANTagging(const char *switchName, const char *portName,
                                                                    zel_Bool *flagOut) {
  return GetFlag(PortProperty{switchName, portName, VSPROP_PORT_VLAN_NESTEDTAG}, flagOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortSecurity(const char *switchName, const char *portName,
                                                           const VSPropSecurity *policy) {
  return SetRecord(PortProperty{switchName, portName, VSPROP_PORT_SECURITY}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortSecurity(const char *switchName, const char *portName,
                                                           VSPropSecurity *policy) {
  return FillRecord(PortProperty{switchName, portName, VSPROP_PORT_SECURITY}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetExtraEthFilter(const char *switchName, const char *portName,
                                                             const VSExtraEthFilter *filter) {
  return SetRecord(PortProperty{switchName, portName, VSPROP_PORT_EXTRA_ETH_FRP}, filter);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetExtraEthFilter(const char *switchName, const char *portName,
                                                             VSExtraEthFilter *filter) {
  return FillRecord(PortProperty{switchName, portName, VSPROP_PORT_EXTRA_ETH_FRP}, filter);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearExtraEthFilter(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_EXTRA_ETH_FRP});
}

/* Being a sink is one flag of the filter. */

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ConfigureSinkPort(const char *switchName, const char *portName,
                                                             zel_Bool enabled) {
  return ChangeCall([&] {
    const auto turn = [&](VSExtraEthFilter &filter) {
      if (enabled != 0) {
        filter.flags |= ZEL_ETH_FILTER_SINK;
      } else {
        filter.flags &= ~static_cast<zel_uint32>(ZEL_ETH_FILTER_SINK);
      }
    };
    ChangeRecord<VSExtraEthFilter>(PortProperty{switchName, portName, VSPROP_PORT_EXTRA_ETH_FRP}, turn);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_IsSinkPortEnabled(const char *switchName, const char *portName,
                                                             zel_Bool *flagOut) {
  return ReadCall([&] {
    ClearOutputs(flagOut);
    const auto name = SwitchName(switchName);
    const Port &port = ReadHost().FindSwitch(name).config.PortNamed(PortName(portName));
    SetOutput(flagOut, static_cast<zel_Bool>(IsSink(port)));
  });
}
