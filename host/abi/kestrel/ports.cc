/* Distributed ports and their names. */
#include <string>
#include <utility>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/core/base/record_bytes.h"
#include "host/core/process_host.h"
#include "kestrel/mirror_records.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_AddDVPort(const char *switchName, const char *portName,
                                                     zel_uint32 connectId) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    PropertySet properties;
    properties.Put(PropertySet::Ready(ZEL_VDSPROP_PORT_CONNECTID, {BytesOf(connectId)}));
    ChangeHost().AddPort(name, std::string(port), {}, std::move(properties));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_AddOpaqueDVPort(const char *switchName, const char *portName,
                                                           const char *externalId) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    const auto external = NameArgument(externalId, sizeof(OpaqueDVPortData::externalId));
    if (external.empty()) throw StatusError(ZEL_INVALID_NAME);
    ChangeHost().AddPort(name, std::string(port), std::string(external));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_RemoveDVPort(const char *switchName, const char *portName) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    ChangeHost().RemovePort(name, PortName(portName));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_DvPortIDToPortID(const char *switchName, const char *portName,
                                                            zel_SwitchPortID *valueOut) {
  return ReadCall([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    SetOutput(valueOut, ReadHost().FindSwitch(name).config.PortNamed(port).id);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_DvPortIDToPortIDFromDVSID(const char *switchId, const char *portName,
                                                                     zel_SwitchPortID *valueOut) {
  return ReadCall([&] {
    ClearOutputs(valueOut);
    const auto id = SwitchId(switchId);
    const auto port = PortName(portName);
    SetOutput(valueOut, ReadHost().FindSwitchById(id).config.PortNamed(port).id);
  });
}
