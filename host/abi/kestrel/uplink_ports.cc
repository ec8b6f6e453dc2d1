/* The uplink ports of a switch, with NICs or without. */
#include <string>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/property_access.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

/** The lowest number that no port of the switch is called. */
std::string FreePortName(const SwitchConfig &config) {
  for (unsigned number = 0;; ++number) {
    std::string name = std::to_string(number);
    if (config.ports().FindNamed(name) == nullptr) return name;
  }
}

RecordBlock Block(std::string_view bytes) {
  RecordBlock block(bytes.size());
  block.AppendBytes(bytes);
  return block;
}

std::vector<UplinkSpec> SpecsOf(const VSUplinkPorts *ports, const VSUplinkPortIds *ids) {
  RequirePointer(ports);
  RequirePointer(ids);
  const zel_uint32 count = ports->nUplinkPorts;
  if (ids->nUplinkPorts != count) throw StatusError(ZEL_BAD_PARAM);
  if (count > ZEL_TEAM_MAX_UPLINKS) throw StatusError(ZEL_LIMIT_EXCEEDED);
  std::vector<UplinkSpec> specs;
  const char *name = reinterpret_cast<const char *>(ports + 1);
  const char *id = reinterpret_cast<const char *>(ids + 1);
  for (zel_uint32 i = 0; i < count; ++i) {
    const auto uplink = UplinkName(name + i * ZEL_VDS_PORT_ALIAS_MAX_LEN);
    specs.push_back({std::string(uplink), std::string(PortName(id + i * ZEL_VDS_PORT_ID_MAX_LEN))});
  }
  return specs;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_AddSwitchUplinkPort(const char *switchName, const char *uplinkName) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto uplink = UplinkName(uplinkName);
    Host &host = ChangeHost();
    host.AddUplink(name, std::string(uplink), FreePortName(host.FindSwitch(name).config));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_RemoveSwitchUplinkPort(const char *switchName, const char *uplinkName) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto uplink = UplinkName(uplinkName);
    Host &host = ChangeHost();
    const SwitchConfig &config = host.FindSwitch(name).config;
    if (config.NicOf(config.UplinkNamed(uplink).id) != nullptr) throw StatusError(ZEL_BUSY);
    host.RemoveUplink(name, uplink);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearSwitchUplinkPorts(const char *switchName) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    Host &host = ChangeHost();
    if (host.FindSwitch(name).config.uplinks().size() == 0) throw StatusError(ZEL_NOT_FOUND);
    host.ReplaceUplinks(name, {});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetSwitchUplinkPorts(const char *switchName, const VSUplinkPorts *ports,
                                                                const VSUplinkPortIds *portIds) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    ChangeHost().ReplaceUplinks(name, SpecsOf(ports, portIds));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetSwitchUplinkPorts(const char *switchName, VSUplinkPorts **tableOut,
                                                                VSUplinkPortIds **secondTableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut, secondTableOut);
    const PropertyOwner owner{.switch_name = SwitchName(switchName)};
    const PropertyOwner part{.switch_name = owner.switch_name, .level = PropertyLevel::kHost};
    const Host &host = ReadHost();
    RecordBlock names = Block(host.PropertyOf(owner, ZEL_VDSPROP_SWITCH_UPLINKPORTS));
    RecordBlock ids = Block(host.PropertyOf(part, ZEL_VDSPROP_HOST_UPLINKPORTS));
    SetOutput(tableOut, names.Release<VSUplinkPorts>());
    SetOutput(secondTableOut, ids.Release<VSUplinkPortIds>());
  });
}
