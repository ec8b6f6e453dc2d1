/* Distributed switches: making and changing them, and what their handles tell. */
#include "host/abi/arguments.h"
#include "host/abi/handle_access.h"
#include "host/core/base/kept_text.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

/** A good name for the switch of an id. */
std::string_view NameOfId(const char *id) { return ReadHost().FindSwitchById(SwitchId(id)).config.spec().portset; }

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchAdd(const char *switchId, const char *alias, zel_uint32 maxPorts,
                                                      VDSVersion version) {
  return ChangeCall([&] {
    const auto id = SwitchId(switchId);
    const auto name = Alias(alias);
    ChangeHost().AddSwitch(SwitchSpec{.id = std::string(id),
                                      .portset = ReadHost().FreePortsetName(),
                                      .alias = std::string(name),
                                      .max_ports = maxPorts,
                                      .version = version,
                                      .is_member = false});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchRemove(const char *switchId) {
  return ChangeCall([&] { ChangeHost().RemoveSwitch(NameOfId(switchId)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchAssociate(const char *switchId) {
  return ChangeCall([&] { ChangeHost().Associate(NameOfId(switchId)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchDissociate(const char *switchId) {
  return ChangeCall([&] { ChangeHost().Dissociate(NameOfId(switchId)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchSetVersion(const char *switchId, VDSVersion version) {
  return ChangeCall([&] { ChangeHost().SetVersion(NameOfId(switchId), version); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchSetMaxPorts(const char *switchId, zel_uint32 maxPorts) {
  return ChangeCall([&] { ChangeHost().SetMaxPorts(NameOfId(switchId), maxPorts); });
}

KESTREL_HOST_EXPORT DVSwitchHandle DVSState_SwitchFindByAlias(const char *alias) {
  return OrNothing([&] {
    const Host &host = ReadHost();
    const std::string &id = host.FindSwitchByAlias(Alias(alias)).config.spec().id;
    return HandleOf({.kind = HandleMeaning::Kind::kSwitch, .switch_id = id});
  });
}

KESTREL_HOST_EXPORT const char *DVS_SwitchId(DVSwitchHandle handle) {
  return OrNothing([&] { return KeptText(SwitchOfHandle(handle).spec().id); });
}

KESTREL_HOST_EXPORT const char *DVS_SwitchName(DVSwitchHandle handle) {
  return OrNothing([&] { return KeptText(SwitchOfHandle(handle).spec().alias); });
}

KESTREL_HOST_EXPORT const char *DVS_ClassName(DVSwitchHandle handle) {
  return OrNothing([&] { return KeptText(SwitchOfHandle(handle).spec().class_name); });
}

KESTREL_HOST_EXPORT VDSVersion DVS_Version(DVSwitchHandle handle) {
  return OrNothing([&] { return VDSVersion{SwitchOfHandle(handle).spec().version}; });
}

KESTREL_HOST_EXPORT int DVS_GetMaxPorts(DVSwitchHandle handle) {
  return OrNothing([&] { return static_cast<int>(SwitchOfHandle(handle).spec().max_ports); });
}
