/* How switches and ports learn addresses. */
#include "host/abi/property_access.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMACLearning(const char *switchName, const VSPropMACLearning *policy) {
  return SetRecord(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARNING}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMACLearning(const char *switchName, VSPropMACLearning *policy) {
  return FillRecord(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARNING}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearMACLearning(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARNING});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortMACLearning(const char *switchName, const char *portName,
                                                              const VSPMACLearning *policy) {
  return ChangeCall([&] {
    RequirePointer(policy);
    ChangeRecord<VSPMACManagement>(PortProperty{switchName, portName, VSPROP_PORT_MAC_MANAGEMENT},
                                   [&](VSPMACManagement &management) { management.portMACLearning = *policy; });
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortMACLearning(const char *switchName, const char *portName,
                                                              VSPMACLearning *policy) {
  return ReadCall([&] {
    RequirePointer(policy);
    const PortProperty where{switchName, portName, VSPROP_PORT_MAC_MANAGEMENT};
    SetOutput(policy, RecordOf<VSPMACManagement>(ValueOf(where)).portMACLearning);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetStaticMACAllow(const char *switchName, zel_Bool allowed) {
  return SetFlag(SwitchProperty{switchName, VSPROP_SWITCH_STATIC_MAC_ALLOW}, allowed);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetStaticMACAllow(const char *switchName, zel_Bool *flagOut) {
  return GetFlag(SwitchProperty{switchName, VSPROP_SWITCH_STATIC_MAC_ALLOW}, flagOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearStaticMACAllow(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_SWITCH_STATIC_MAC_ALLOW});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetLearnStatic(const char *switchName, zel_Bool learn) {
  return SetFlag(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARN_STATIC}, learn);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetLearnStatic(const char *switchName, zel_Bool *flagOut) {
  return GetFlag(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARN_STATIC}, flagOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearLearnStatic(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_SWITCH_MAC_LEARN_STATIC});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetGlobalMACLearningProps(VSMACLearningGlobalProps *props) {
  return ReadCall([&] {
    RequirePointer(props);
    SetOutput(props, ReadHost().mac_learning());
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetGlobalMACLearningProps(VSMACLearningGlobalProps *props) {
  return ChangeCall([&] {
    RequirePointer(props);
    ChangeHost().SetMacLearning(*props);
  });
}
