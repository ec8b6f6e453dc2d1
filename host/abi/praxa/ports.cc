/* Distributed ports and what their handles tell. */
#include <algorithm>
#include <ranges>
#include <string>

#include "host/abi/arguments.h"
#include "host/abi/handle_access.h"
#include "host/abi/record_block.h"
#include "host/core/base/kept_text.h"
#include "host/core/base/record_bytes.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

const Port &PortOf(const char *switch_id, const char *port_id) {
  const auto id = SwitchId(switch_id);
  const auto port = PortName(port_id);
  return ReadHost().FindSwitchById(id).config.PortNamed(port);
}

/** Ports of a switch that the host is no member of are only known to it; those of a switch that takes no traffic yet
    are shadows. */
DVSPortType TypeOfPorts(const SwitchConfig &config) {
  if (!config.spec().is_member) return DVSPORT_TYPE_LOCALCACHE;
  const Property *disabled = config.properties().Find(VSPROP_SWITCH_FORWARDING_DISABLED);
  const bool is_shadow = disabled != nullptr && RecordOf<zel_Bool>(disabled->value) != 0;
  return is_shadow ? DVSPORT_TYPE_SHADOW : DVSPORT_TYPE_ACTIVE;
}

DVPortData DataOf(const Port &port) {
  DVPortData data{};
  SetText(data.dvPortId, port.name);
  const Property *connection = port.properties.Find(ZEL_VDSPROP_PORT_CONNECTID);
  if (connection != nullptr) data.connectId = RecordOf<zel_uint32>(connection->value);
  return data;
}

/** The record has room for one port even where there is none. */
DVPortList *ListOf(const SwitchConfig &config, DVSPortType type) {
  const std::size_t count = type == TypeOfPorts(config) ? config.ports().size() : 0;
  const std::size_t extra = count > 1 ? count - 1 : 0;
  DVPortList head{};
  head.nports = static_cast<int>(count);
  head.type = type;
  RecordBlock block(sizeof head + extra * sizeof(DVPortData));
  if (count == 0) {
    block.Append(head);
    return block.Release<DVPortList>();
  }
  const auto ports = config.ports().Items();
  head.dvPort[0] = DataOf(*ports.begin());
  block.Append(head);
  for (const Port &port : ports | std::views::drop(1)) block.Append(DataOf(port));
  return block.Release<DVPortList>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SwitchPortList(const char *switchId, DVPortList **listCell,
                                                           DVSPortType type) {
  return ReadCall([&] {
    ClearOutputs(listCell);
    if (type <= DVSPORT_TYPE_INVALID || type > DVSPORT_TYPE_LOCALCACHE) throw StatusError(ZEL_BAD_PARAM);
    SetOutput(listCell, ListOf(ReadHost().FindSwitchById(SwitchId(switchId)).config, type));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortAdd(const char *switchId, const char *portId, void *image, int length) {
  return ChangeCall([&] {
    const auto bytes = BytesArgument(image, length);
    const auto id = SwitchId(switchId);
    const auto port = PortName(portId);
    Host &host = ChangeHost();
    const std::string &owner = host.FindSwitchById(id).config.spec().portset;
    if (bytes.empty()) {
      host.AddPort(owner, std::string(port));
    } else {
      host.AddPortOfImage(owner, std::string(port), bytes);
    }
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortRemove(const char *switchId, const char *portId) {
  return ChangeCall([&] {
    const std::string port = PortOf(switchId, portId).name;
    ChangeHost().RemovePort(ReadHost().FindSwitchById(switchId).config.spec().portset, port);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortFind(const char *switchId, const char *portId) {
  return ReadCall([&] { PortOf(switchId, portId); });
}

KESTREL_HOST_EXPORT char DVPortExist(const char *switchId, const char *portId) {
  return OrNothing([&] {
    PortOf(switchId, portId);
    return char{1};
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortGetByExternalId(const char *switchId, const char *externalId,
                                                                OpaqueDVPortData **dataCell) {
  return ReadCall([&] {
    ClearOutputs(dataCell);
    const auto id = SwitchId(switchId);
    const auto external = NameArgument(externalId, sizeof(OpaqueDVPortData::externalId));
    if (external.empty()) throw StatusError(ZEL_INVALID_NAME);
    const auto ports = ReadHost().FindSwitchById(id).config.ports().Items();
    const auto found = std::ranges::find(ports, external, &Port::external_id);
    if (found == ports.end()) throw StatusError(ZEL_NOT_FOUND);
    OpaqueDVPortData data{};
    SetText(data.dvPortId, (*found).name);
    SetText(data.externalId, external);
    RecordBlock block(sizeof data);
    block.Append(data);
    SetOutput(dataCell, block.Release<OpaqueDVPortData>());
  });
}

KESTREL_HOST_EXPORT DVSPortHandle DVSState_PortFind(const char *switchId, const char *portId) {
  return OrNothing([&] {
    const PortId port = PortOf(switchId, portId).id;
    return HandleOf({.kind = HandleMeaning::Kind::kPort, .switch_id = switchId, .port = port});
  });
}

KESTREL_HOST_EXPORT const char *DVS_PortId(DVSPortHandle handle) {
  return OrNothing([&] { return KeptText(PortOfHandle(handle).name); });
}

KESTREL_HOST_EXPORT const char *DVS_PortAlias(DVSPortHandle handle) {
  return OrNothing([&]() -> const char * {
    const Property *alias = PortOfHandle(handle).properties.Find(ZEL_VDSPROP_PORT_ALIAS);
    return alias == nullptr ? "" : KeptText(TextOf(alias->value));
  });
}
