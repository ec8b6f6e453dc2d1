#include "host/core/switch_config.h"

#include <algorithm>
#include <set>
#include <utility>

#include "host/core/errors.h"
#include "host/core/names.h"
#include "kestrel/constants.h"

namespace kestrel::host {

SwitchConfig::SwitchConfig(SwitchSpec spec) : spec_(std::move(spec)) {
  CheckName(spec_.id, ZEL_VDS_ID_MAX_LEN);
  CheckName(spec_.portset, ZEL_PORTSET_NAME_MAX);
  CheckName(spec_.alias, ZEL_VDS_NAME_MAX_LEN);
  if (spec_.mtu < kMinMtu || spec_.mtu > kMaxMtu) throw StatusError(ZEL_BAD_PARAM);
  if (spec_.vlans.first > spec_.vlans.last || spec_.vlans.last > kMaxVlanId) throw StatusError(ZEL_BAD_VLANID);
}

const Port &SwitchConfig::PortNamed(std::string_view name) const {
  const Port *port = ports_.FindNamed(name);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *port;
}

const Uplink &SwitchConfig::UplinkNamed(std::string_view name) const {
  const Uplink *uplink = uplinks_.FindNamed(name);
  if (uplink == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *uplink;
}

const std::string *SwitchConfig::NicOf(PortId uplink) const {
  if (uplinks_.Find(uplink) == nullptr) return nullptr;
  const auto &client = ports_.Find(uplink)->client;
  return client ? &client->name : nullptr;
}

const Uplink *SwitchConfig::UplinkOfNic(std::string_view nic) const {
  const auto found = nics_.find(nic);
  return found == nics_.end() ? nullptr : uplinks_.Find(found->second);
}

std::uint32_t SwitchConfig::CountActivePorts() const {
  const auto is_active = [](const Port &port) { return port.client.has_value(); };
  return static_cast<std::uint32_t>(std::ranges::count_if(ports_.Items(), is_active));
}

void SwitchConfig::AddPort(Port port) {
  CheckName(port.name, ZEL_VDS_PORT_ID_MAX_LEN);
  if (ports_.size() >= spec_.max_ports) throw StatusError(ZEL_LIMIT_EXCEEDED);
  ports_.Add(std::move(port));
}

void SwitchConfig::RemovePort(PortId id) noexcept {
  Disconnect(id);
  uplinks_.Remove(id);
  ports_.Remove(id);
}

void SwitchConfig::AddUplink(std::string name, Port port) {
  CheckTeamingName(name, ZEL_VDS_PORT_ALIAS_MAX_LEN);
  if (uplinks_.size() >= ZEL_TEAM_MAX_UPLINKS) throw StatusError(ZEL_LIMIT_EXCEEDED);
  const PortId id = port.id;
  AddPort(std::move(port));
  try {
    uplinks_.Add(Uplink{id, std::move(name)});
  } catch (...) {
    ports_.Remove(id);
    throw;
  }
}

void SwitchConfig::AddLag(Lag lag) {
  CheckTeamingName(lag.name, VS_LACP_LAG_NAME_LENGTH);
  if (lag.members.empty()) throw StatusError(ZEL_BAD_PARAM);
  if (lags_.size() >= VS_MAX_LAGS || lag.members.size() > VS_MAX_UPLINKS_IN_LAG) {
    throw StatusError(ZEL_LIMIT_EXCEEDED);
  }
  std::set<std::string_view> taken;
  for (const Lag &other : lags_.Items()) taken.insert(other.members.begin(), other.members.end());
  std::set<std::string_view> own;
  for (const std::string &member : lag.members) {
    UplinkNamed(member);
    if (taken.contains(member)) throw StatusError(ZEL_BUSY);
    if (!own.insert(member).second) throw StatusError(ZEL_BAD_PARAM);
  }
  lags_.Add(std::move(lag));
}

void SwitchConfig::RemoveLag(std::uint32_t id) noexcept { lags_.Remove(id); }

void SwitchConfig::Connect(PortId id, Client client) {
  Port *port = ports_.Find(id);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  CheckName(client.name, ZEL_PORT_CLIENT_NAME_MAX);
  const bool is_uplink = uplinks_.Find(id) != nullptr;
  const bool is_station = client.type == VS_PORT_CLIENT_VNIC || client.type == VS_PORT_CLIENT_TCPIP;
  const bool belongs = is_uplink ? client.type == VS_PORT_CLIENT_UPLINK : is_station;
  if (!belongs) throw StatusError(ZEL_BAD_PARAM);
  if (port->client) throw StatusError(ZEL_IS_CONNECTED);
  if (is_uplink && !nics_.emplace(client.name, id).second) throw StatusError(ZEL_IS_CONNECTED);
  port->client = std::move(client);
}

void SwitchConfig::Disconnect(PortId id) noexcept {
  Port *port = ports_.Find(id);
  if (port == nullptr || !port->client) return;
  if (uplinks_.Find(id) != nullptr) nics_.erase(port->client->name);
  port->client.reset();
}

void SwitchConfig::SetVlan(PortId id, std::optional<VlanPolicy> policy) noexcept {
  if (Port *port = ports_.Find(id)) port->vlan = std::move(policy);
}

void SwitchConfig::ResetProperties() noexcept {
  spec_.mtu = kDefaultMtu;
  for (Port &port : ports_.Items()) port.vlan.reset();
}

void SwitchConfig::DropDangling() noexcept {
  for (Lag &lag : lags_.Items()) {
    std::erase_if(lag.members, [this](const std::string &name) { return uplinks_.FindNamed(name) == nullptr; });
  }
  lags_.RemoveIf([](const Lag &lag) { return lag.members.empty(); });
}

void SwitchConfig::CheckTeamingName(std::string_view name, std::size_t width) const {
  CheckName(name, width);
  if (uplinks_.FindNamed(name) != nullptr || lags_.FindNamed(name) != nullptr) throw StatusError(ZEL_EXISTS);
}

}  // namespace kestrel::host
