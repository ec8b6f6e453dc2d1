#include "host/core/switch_config.h"

#include <algorithm>
#include <new>
#include <set>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/base/record_bytes.h"
#include "kestrel/constants.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {
namespace {

constexpr std::uint32_t kVersions[] = {DVS_VERSION_60, DVS_VERSION_65,        DVS_VERSION_66,
                                       DVS_VERSION_70, VS_TRV_VDS_VERSION_10, VS_TRVT_ON_DVS70_VERSION};

static_assert(std::ranges::max(kVersions) == kNewestVersion);

void CheckVersion(std::uint32_t version) {
  if (!IsPublishedVersion(version)) throw StatusError(ZEL_BAD_PARAM);
}

void CheckMaxPorts(std::uint32_t max_ports) {
  if (max_ports == 0 || max_ports > kMaxPorts) throw StatusError(ZEL_BAD_PARAM);
}

}  // namespace

bool IsPublishedVersion(std::uint32_t version) { return std::ranges::find(kVersions, version) != std::end(kVersions); }

SwitchConfig::SwitchConfig(SwitchSpec spec) : spec_(std::move(spec)) {
  CheckName(spec_.id, ZEL_VDS_ID_MAX_LEN);
  CheckName(spec_.portset, ZEL_PORTSET_NAME_MAX);
  CheckName(spec_.alias, ZEL_VDS_NAME_MAX_LEN);
  CheckName(spec_.class_name, ZEL_VDS_CLASS_NAME_MAX_LEN);
  CheckMaxPorts(spec_.max_ports);
  CheckVersion(spec_.version);
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

std::uint32_t SwitchConfig::CountSinkPorts() const {
  return sink_ports_.Get([this] { return static_cast<std::uint32_t>(std::ranges::count_if(ports_.Items(), IsSink)); });
}

void SwitchConfig::AddPort(Port port) {
  CheckName(port.name, ZEL_VDS_PORT_ID_MAX_LEN);
  // Told before the limit: of a port that is there, a full switch is not what is wrong.
  if (ports_.FindNamed(port.name) != nullptr) throw StatusError(ZEL_EXISTS);
  if (ports_.size() >= spec_.max_ports) throw StatusError(ZEL_LIMIT_EXCEEDED);
  const PortId id = port.id;
  const bool has_properties = !port.properties.Items().empty();
  if (port.client) throw FatalError("a client is plugged into a port that is there");
  ports_.Add(std::move(port));
  if (has_properties) sink_ports_.Forget();
  Note(ConfigPart::Kind::kPort, id);
  if (has_properties) changes_.Note({.kind = ConfigPart::Kind::kProperties, .place = {PropertyLevel::kPort, id}});
}

void SwitchConfig::RemovePort(PortId id) noexcept {
  const Port *port = ports_.Find(id);
  if (port == nullptr) return;
  if (!port->properties.Items().empty()) sink_ports_.Forget();
  Disconnect(id);
  uplinks_.Remove(id);
  ports_.Remove(id);
  Note(ConfigPart::Kind::kPort, id);
  changes_.Note({.kind = ConfigPart::Kind::kProperties, .place = {PropertyLevel::kPort, id}});
  changes_.Note({.kind = ConfigPart::Kind::kProperties, .place = {PropertyLevel::kUplink, id}});
}

void SwitchConfig::AddUplink(std::string name, Port port) {
  CheckTeamingName(name, ZEL_VDS_PORT_ALIAS_MAX_LEN);
  if (uplinks_.FindNamed(name) != nullptr) throw StatusError(ZEL_EXISTS);
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
  CheckLag(lag);
  for (const std::string &member : lag.members) UplinkNamed(member);
  AddKeptLag(std::move(lag));
}

void SwitchConfig::AddKeptLag(Lag lag) {
  CheckLag(lag);
  for (const std::string &member : lag.members) CheckName(member, ZEL_VDS_PORT_ALIAS_MAX_LEN);
  const std::uint32_t id = lag.id;
  lags_.Add(std::move(lag));
  Note(ConfigPart::Kind::kLag, id);
}

void SwitchConfig::CheckLag(const Lag &lag) const {
  CheckTeamingName(lag.name, VS_LACP_LAG_NAME_LENGTH);
  if (lag.members.empty()) throw StatusError(ZEL_BAD_PARAM);
  if (lags_.size() >= VS_MAX_LAGS || lag.members.size() > VS_MAX_UPLINKS_IN_LAG) {
    throw StatusError(ZEL_LIMIT_EXCEEDED);
  }
  std::set<std::string_view> taken;
  for (const Lag &other : lags_.Items()) taken.insert(other.members.begin(), other.members.end());
  std::set<std::string_view> own;
  for (const std::string &member : lag.members) {
    if (taken.contains(member)) throw StatusError(ZEL_BUSY);
    if (!own.insert(member).second) throw StatusError(ZEL_BAD_PARAM);
  }
}

void SwitchConfig::RemoveLag(std::uint32_t id) noexcept {
  lags_.Remove(id);
  Note(ConfigPart::Kind::kLag, id);
}

void SwitchConfig::Connect(PortId id, Client client) {
  Port *port = ports_.Find(id);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  CheckName(client.name, ZEL_PORT_CLIENT_NAME_MAX);
  const bool is_uplink = uplinks_.Find(id) != nullptr;
  const bool is_station = client.type == VS_PORT_CLIENT_VNIC || client.type == VS_PORT_CLIENT_TCPIP;
  const bool belongs = is_uplink ? client.type == VS_PORT_CLIENT_UPLINK : is_station;
  if (!belongs) throw StatusError(ZEL_BAD_PARAM);
  if (!spec_.is_member) throw StatusError(ZEL_IS_DISCONNECTED);
  CheckAdapter(client.adapter);
  if (port->client) throw StatusError(ZEL_IS_CONNECTED);
  if (is_uplink && nics_.contains(client.name)) throw StatusError(ZEL_IS_CONNECTED);
  active_ports_.insert(id);
  try {
    if (is_uplink) nics_.emplace(client.name, id);
  } catch (...) {
    active_ports_.erase(id);
    throw;
  }
  port->client = std::move(client);
  Note(ConfigPart::Kind::kPort, id);
}

void SwitchConfig::Disconnect(PortId id) noexcept {
  Port *port = ports_.Find(id);
  if (port == nullptr || !port->client) return;
  if (uplinks_.Find(id) != nullptr) nics_.erase(port->client->name);
  port->client.reset();
  active_ports_.erase(id);
  Note(ConfigPart::Kind::kPort, id);
}

void SwitchConfig::SetAdapter(PortId id, Adapter adapter) {
  Port *port = ports_.Find(id);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  if (!port->client) throw StatusError(ZEL_IS_DISCONNECTED);
  CheckAdapter(adapter);
  port->client->adapter = std::move(adapter);
  Note(ConfigPart::Kind::kPort, id);
}

void SwitchConfig::SetVersion(std::uint32_t version) {
  CheckVersion(version);
  spec_.version = version;
  Note(ConfigPart::Kind::kSpec);
}

void SwitchConfig::SetMaxPorts(std::uint32_t max_ports) {
  CheckMaxPorts(max_ports);
  if (max_ports < ports_.size()) throw StatusError(ZEL_BUSY);
  spec_.max_ports = max_ports;
  Note(ConfigPart::Kind::kSpec);
}

void SwitchConfig::SetMember(bool is_member) {
  if (!is_member && !active_ports_.empty()) throw StatusError(ZEL_BUSY);
  spec_.is_member = is_member;
  Note(ConfigPart::Kind::kSpec);
}

const PropertySet &SwitchConfig::PropertiesAt(PropertyPlace place) const {
  switch (place.level) {
    case PropertyLevel::kSwitch:
      return properties_;
    case PropertyLevel::kHost:
      return host_properties_;
    case PropertyLevel::kPort:
      if (const Port *port = ports_.Find(place.port)) return port->properties;
      break;
    case PropertyLevel::kUplink:
      if (const Uplink *uplink = uplinks_.Find(place.port)) return uplink->properties;
      break;
  }
  throw StatusError(ZEL_NOT_FOUND);
}

PropertySet &SwitchConfig::PropertiesToChange(PropertyPlace place) {
  revision_.Renew();
  return const_cast<PropertySet &>(std::as_const(*this).PropertiesAt(place));
}

void SwitchConfig::PutProperty(PropertyPlace place, PropertySet::Map::node_type ready) {
  PropertySet &properties = PropertiesToChange(place);
  NoteProperty(place, ready.key());
  if (ready.key() == VSPROP_PORT_EXTRA_ETH_FRP) sink_ports_.Forget();
  properties.Put(std::move(ready));
}

void SwitchConfig::RemoveProperty(PropertyPlace place, std::string_view key) {
  PropertiesToChange(place).Remove(key);
  if (key == VSPROP_PORT_EXTRA_ETH_FRP) sink_ports_.Forget();
  NoteProperty(place, key);
}

PropertySet &SwitchConfig::PropertiesAt(PropertyPlace place) {
  PropertySet &properties = PropertiesToChange(place);
  if (place.level == PropertyLevel::kPort) sink_ports_.Forget();
  changes_.Note({.kind = ConfigPart::Kind::kProperties, .place = place});
  return properties;
}

void SwitchConfig::NoteProperty(PropertyPlace place, std::string_view key) noexcept {
  if (!changes_.is_enabled()) return;
  try {
    changes_.Note({.kind = ConfigPart::Kind::kProperty, .place = place, .key = std::string(key)});
  } catch (const std::bad_alloc &) {
    changes_.NoteAll();
  }
}

void SwitchConfig::ResetProperties() noexcept {
  changes_.NoteAll();
  revision_.Renew();
  properties_.Clear();
  host_properties_.Clear();
  for (Port &port : ports_.Items()) port.properties.Clear();
  for (Uplink &uplink : uplinks_.Items()) uplink.properties.Clear();
  sink_ports_.Forget();
  revision_.Renew();
}

void SwitchConfig::DropDangling() noexcept {
  revision_.Renew();
  for (Lag &lag : lags_.Items()) {
    if (std::erase_if(lag.members, [this](const std::string &name) { return uplinks_.FindNamed(name) == nullptr; })) {
      Note(ConfigPart::Kind::kLag, lag.id);
    }
  }
  lags_.RemoveIf([](const Lag &lag) { return lag.members.empty(); });
  revision_.Renew();
}

void SwitchConfig::CheckTeamingName(std::string_view name, std::size_t width) const {
  CheckName(name, width);
  if (uplinks_.FindNamed(name) != nullptr || lags_.FindNamed(name) != nullptr) throw StatusError(ZEL_EXISTS);
}

std::uint32_t MtuOf(const SwitchConfig &config) {
  const Property *mtu = config.properties().Find(VSPROP_MTU);
  return mtu == nullptr ? kDefaultMtu : RecordOf<std::uint32_t>(mtu->value);
}

std::optional<VlanPolicy> VlanOf(const Port &port) {
  const Property *policy = port.properties.Find(VSPROP_PORT_VLAN);
  return policy == nullptr ? std::nullopt : std::optional(VlanPolicyOfRecord(policy->value));
}

bool IsSink(const Port &port) {
  const Property *filter = port.properties.Find(VSPROP_PORT_EXTRA_ETH_FRP);
  return filter != nullptr && (RecordOf<VSExtraEthFilter>(filter->value).flags & ZEL_ETH_FILTER_SINK) != 0;
}

}  // namespace kestrel::host
