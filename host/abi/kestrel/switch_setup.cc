/* Making and destroying switches, and the properties that every switch has. */
#include "host/abi/property_access.h"
#include "host/core/properties/property_table.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

void GiveProperty(SwitchConfig &config, std::string_view key, std::string value) {
  CheckProperty(key, value, {}, ReadHost().mac_learning(), config);
  config.PropertiesAt({}).Put(PropertySet::Ready(key, {std::move(value)}));
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_CreateVSwitch(const char *alias, const char *switchId, const char *className,
                                                         zel_uint32 numPorts, zel_Bool createShadow,
                                                         zel_uint32 maxPorts, zel_uint32 mtu, zel_uint32 version) {
  return ChangeCall([&] {
    const auto name = Alias(alias);
    const auto id = SwitchId(switchId);
    const auto implementation = NameArgument(className, ZEL_VDS_CLASS_NAME_MAX_LEN);
    if (numPorts > maxPorts) throw StatusError(ZEL_BAD_PARAM);
    SwitchConfig config({.id = std::string(id),
                         .portset = ReadHost().FreePortsetName(),
                         .alias = std::string(name),
                         .max_ports = maxPorts,
                         .class_name = std::string(implementation),
                         .version = version});
    GiveProperty(config, VSPROP_MTU, BytesOf(mtu));
    if (createShadow != 0) GiveProperty(config, VSPROP_SWITCH_FORWARDING_DISABLED, BytesOf(zel_Bool{1}));
    ChangeHost().AddSwitch(config);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_DestroyVSwitch(const char *switchName) {
  return ChangeCall([&] { ChangeHost().RemoveSwitch(SwitchName(switchName)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetMTU(const char *switchName, zel_uint32 mtu) {
  return SetNumber(SwitchProperty{switchName, VSPROP_MTU}, mtu);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetMTU(const char *switchName, zel_uint32 *mtu) {
  return FillRecord(SwitchProperty{switchName, VSPROP_MTU}, mtu);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetRCFType(const char *switchName, trv_RCFInsnType type) {
  return SetNumber(SwitchProperty{switchName, VSPROP_RCF_INSN_TYPE}, type);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetRCFType(const char *switchName, trv_RCFInsnType *valueOut) {
  return GetNumber(SwitchProperty{switchName, VSPROP_RCF_INSN_TYPE}, valueOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetAliasFromPortset(const char *portsetName, char textOut[128]) {
  return ReadCall([&] {
    ClearText(textOut, PORTSET_NAME_MAX);
    const auto name = SwitchName(portsetName);
    const SwitchSpec &spec = ReadHost().FindSwitch(name).config.spec();
    if (spec.portset != name) throw StatusError(ZEL_NOT_FOUND);
    SetTextOutput(textOut, spec.alias, PORTSET_NAME_MAX);
  });
}

/* The room behind `switchId` is not known to be more than the id needs. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_DVSAliasToSwitchId(const char *alias, char *switchId) {
  return ReadCall([&] {
    RequirePointer(switchId);
    const std::string &id = ReadHost().FindSwitchByAlias(Alias(alias)).config.spec().id;
    id.copy(switchId, id.size());
    switchId[id.size()] = '\0';
  });
}
