/* Who is connected where. */
#include <algorithm>
#include <string>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/record_block.h"
#include "host/lab/call.h"
#include "host/lab/handing_out.h"
#include "host/lab/refusal.h"
#include "kestrel/lab.h"

namespace kestrel::host::lab {
namespace {

static_assert(sizeof(KestrelLabClient::name) == ZEL_PORT_CLIENT_NAME_MAX);

constexpr zel_uint32 kUnknownNode = 0xffffffff;

MacAddress AddressAt(const zel_uint8 *bytes) {
  MacAddress address{};
  if (bytes != nullptr) std::copy_n(bytes, address.size(), address.begin());
  return address;
}

KestrelLabClient RecordOf(const Switch &owner, const Port &port) {
  const Client &client = port.plugged();
  KestrelLabClient record{};
  abi::SetText(record.port, port.name);
  record.portId = port.id;
  record.type = client.type;
  abi::SetText(record.name, client.name);
  std::ranges::copy(client.address, record.mac);
  std::ranges::copy(client.used_address(), record.usedMac);
  const auto &nodes = owner.runtime.team.state().client_nodes;
  const auto node = nodes.find(port.id);
  record.numaNode = node == nodes.end() ? kUnknownNode : node->second;
  return record;
}

}  // namespace
}  // namespace kestrel::host::lab

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_connect_nic(const char *switchName, const char *uplinkName,
                                                             const char *nicName) {
  return ChangeInLab([&] {
    const auto owner = abi::SwitchName(switchName);
    const SwitchConfig &config = ReadHost().FindSwitch(owner).config;
    const std::string port = config.ports().Find(config.UplinkNamed(abi::UplinkName(uplinkName)).id)->name;
    ChangeHost().Connect(owner, port, {.type = VS_PORT_CLIENT_UPLINK, .name = std::string(abi::NicName(nicName))});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_connect(const char *switchName, const char *portName,
                                                         VS_PortClientType type, const char *clientName,
                                                         const zel_uint8 *mac) {
  return ChangeInLab([&] {
    const auto owner = abi::SwitchName(switchName);
    const auto port = abi::PortName(portName);
    if (type != VS_PORT_CLIENT_VNIC && type != VS_PORT_CLIENT_TCPIP) {
      throw Refusal(ZEL_BAD_PARAM, "a client is a virtual machine or a service of the host");
    }
    const auto name = abi::NameArgument(clientName, sizeof(KestrelLabClient::name));
    if (name.empty()) throw StatusError(ZEL_INVALID_NAME);
    const MacAddress address = AddressAt(mac);
    if (mac != nullptr && !IsStation(address)) throw Refusal(ZEL_BAD_PARAM, "the address is not that of a station");
    ChangeHost().Connect(owner, port, {.type = type, .name = std::string(name), .address = address});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_disconnect(const char *switchName, const char *portName) {
  return ChangeInLab([&] { ChangeHost().Disconnect(abi::SwitchName(switchName), abi::PortName(portName)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_set_adapter(const char *switchName, const char *portName,
                                                             const zel_uint8 *mac, zel_uint32 filter,
                                                             const zel_uint8 *groups, size_t count) {
  return ChangeInLab([&] {
    if (count != 0) abi::RequirePointer(groups);
    if (count > VS_ETH_MAX_EXACT_MULTICAST_ADDRS) throw StatusError(ZEL_LIMIT_EXCEEDED);
    Adapter adapter{.address = AddressAt(mac), .filter = filter};
    for (std::size_t i = 0; i < count; ++i) adapter.groups.push_back(AddressAt(groups + i * sizeof(MacAddress)));
    ChangeHost().SetAdapter(abi::SwitchName(switchName), abi::PortName(portName), adapter);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_set_client_node(const char *switchName, const char *portName,
                                                                 zel_uint32 numaNode) {
  return ChangeInLab(
      [&] { ChangeHost().SetClientNode(abi::SwitchName(switchName), abi::PortName(portName), numaNode); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_list_clients(const char *switchName, KestrelLabClient **clientsCell,
                                                              size_t *countCell) {
  return ReadInLab([&] {
    abi::ClearOutputs(clientsCell, countCell);
    std::vector<KestrelLabClient> records;
    const Switch &owner = ReadHost().FindSwitch(abi::SwitchName(switchName));
    for (const PortId id : owner.config.active_ports())
      records.push_back(RecordOf(owner, *owner.config.ports().Find(id)));
    HandOut(records, clientsCell, countCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_add_lag(const char *switchName, zel_uint32 lagId, const char *lagName,
                                                         const char *const *uplinkNames, size_t count) {
  return ChangeInLab([&] {
    if (count != 0) abi::RequirePointer(uplinkNames);
    if (count > ZEL_TEAM_MAX_UPLINKS) throw StatusError(ZEL_LIMIT_EXCEEDED);
    std::vector<std::string> members;
    members.reserve(count);
    for (std::size_t i = 0; i < count; ++i) members.emplace_back(abi::UplinkName(uplinkNames[i]));
    const auto owner = abi::SwitchName(switchName);
    const auto name = abi::UplinkName(lagName);
    ChangeHost().AddLag(owner, {.id = lagId, .name = std::string(name), .members = std::move(members)});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_remove_lag(const char *switchName, const char *lagName) {
  return ChangeInLab([&] { ChangeHost().RemoveLag(abi::SwitchName(switchName), abi::UplinkName(lagName)); });
}
