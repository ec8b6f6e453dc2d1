/* Images of the host's switches and ports: handing them out and taking them back. */
#include <algorithm>
#include <map>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/text_map.h"
#include "host/core/host.h"
#include "host/core/images/port_image.h"
#include "host/core/images/state_image.h"
#include "host/core/mirroring/mirroring.h"
#include "host/core/properties/property_table.h"
#include "host/core/properties/property_types.h"

namespace kestrel::host {
namespace {

PortState StateOf(const Port &port, const Port &saved) {
  return {.external_id = port.external_id, .properties = {.in_use = port.properties, .saved = saved.properties}};
}

/** Puts the properties that stay with the host whatever configuration it gets in the place of those in a set. */
void KeepUnsynchronised(PropertySet &properties, const PropertySet &former, PropertyLevel level,
                        const SwitchConfig &config) {
  const PropertySet given = std::exchange(properties, {});
  for (const auto &[key, property] : given.Items()) {
    if (IsSynchronised(property.type)) properties.Put(PropertySet::Ready(key, property));
  }
  for (const auto &[key, property] : former.Items()) {
    if (IsSynchronised(property.type)) continue;
    CheckKeptProperty(key, property.value, level, config);
    properties.Put(PropertySet::Ready(key, property));
  }
}

void KeepUnsynchronised(SwitchConfig &config, const SwitchConfig *former) {
  const PropertySet none;
  const auto keep = [&](PropertyPlace place, const PropertySet *properties) {
    KeepUnsynchronised(config.PropertiesAt(place), properties == nullptr ? none : *properties, place.level, config);
  };
  for (const PropertyLevel level : {PropertyLevel::kSwitch, PropertyLevel::kHost}) {
    keep({level}, former == nullptr ? nullptr : &former->PropertiesAt({level}));
  }
  for (const Port &port : config.ports().Items()) {
    const Port *same = former == nullptr ? nullptr : former->ports().FindNamed(port.name);
    keep({PropertyLevel::kPort, port.id}, same == nullptr ? nullptr : &same->properties);
  }
  for (const Uplink &uplink : config.uplinks().Items()) {
    const Uplink *same = former == nullptr ? nullptr : former->uplinks().FindNamed(uplink.name);
    keep({PropertyLevel::kUplink, uplink.id}, same == nullptr ? nullptr : &same->properties);
  }
}

/** Throws StatusError ZEL_NOT_FOUND for a NIC that there is not. */
void CheckNics(const SwitchConfig &config, const NicTable &nics) {
  for (const Uplink &uplink : config.uplinks().Items()) {
    const std::string *nic = config.NicOf(uplink.id);
    if (nic != nullptr) nics.Get(*nic);
  }
}

/** Throws StatusError ZEL_EXISTS for a port that both switches have, ZEL_IS_CONNECTED for a NIC that is in both. */
void CheckApart(const SwitchConfig &one, const SwitchConfig &other) {
  for (const Port &port : one.ports().Items()) {
    if (other.ports().Find(port.id) != nullptr) throw StatusError(ZEL_EXISTS);
    const std::string *nic = one.NicOf(port.id);
    if (nic != nullptr && other.UplinkOfNic(*nic) != nullptr) throw StatusError(ZEL_IS_CONNECTED);
  }
}

/** Whether a port of a configuration has the identifier of another one of the former configuration. */
bool HasOtherPort(const SwitchConfig &config, const SwitchConfig &former) {
  return std::ranges::any_of(former.ports().Items(), [&config](const Port &port) {
    const Port *same = config.ports().Find(port.id);
    return same != nullptr && same->name != port.name;
  });
}

/** Unplugs everybody. */
void Unplug(SwitchConfig &config) {
  for (const Port &port : config.ports().Items()) config.Disconnect(port.id);
}

/** Plugs the clients of a switch into the ports of the same names in its new configuration. */
void PlugIn(SwitchConfig &config, const SwitchConfig &former) {
  for (const Port &port : former.ports().Items()) {
    if (!port.client) continue;
    const Port *same = config.ports().FindNamed(port.name);
    if (same == nullptr) throw StatusError(ZEL_BUSY);
    try {
      config.Connect(same->id, *port.client);
    } catch (const StatusError &) {
      throw StatusError(ZEL_BUSY);
    }
  }
}

}  // namespace

const SwitchConfig &Host::SavedOf(const SwitchConfig &in_use) const {
  const SavedSwitch *saved = store_.FindById(in_use.spec().id);
  if (saved == nullptr) throw FatalError("switch " + in_use.spec().id + " runs and was never saved");
  return saved->config;
}

std::string Host::ImageOfState() const {
  StateImageWriter writer;
  for (const Switch &each : Switches()) writer.Add(each.config, SavedOf(each.config));
  return writer.Take();
}

std::string Host::ImageOfSavedState() const {
  StateImageWriter writer;
  for (const SavedSwitch &each : store_.Switches()) writer.Add(each.config, each.config);
  return writer.Take();
}

std::string Host::ImageOfSwitch(std::string_view owner) const {
  const SwitchConfig &config = FindSwitch(owner).config;
  StateImageWriter writer;
  writer.Add(config, SavedOf(config));
  return writer.Take();
}

void Host::InitState(std::string_view image) {
  std::vector<SwitchState> switches = StateOfImage(image);
  for (const SwitchState &each : switches) CheckNics(each.in_use, nics_);
  Install(std::move(switches));
}

void Host::RestoreSwitch(std::string_view owner, std::string_view image) {
  const std::string id = FindSwitch(owner).config.spec().id;
  std::vector<SwitchState> restored = StateOfImage(image);
  if (restored.size() != 1 || restored[0].in_use.spec().id != id) throw StatusError(ZEL_BAD_PARAM);
  CheckNics(restored[0].in_use, nics_);
  std::vector<SwitchState> switches;
  for (const Switch &each : Switches()) {
    if (each.config.spec().id == id) {
      switches.push_back(restored[0]);
    } else {
      CheckApart(restored[0].in_use, each.config);
      switches.push_back({.in_use = each.config, .saved = SavedOf(each.config)});
    }
  }
  Install(std::move(switches));
}

void Host::ReplaceConfig(std::string_view image) {
  std::vector<SwitchState> switches = StateOfImage(image);
  TextMap<SwitchConfig *> by_id;
  for (SwitchState &each : switches) {
    SwitchConfig &config = each.saved;
    Unplug(config);
    const SavedSwitch *former = store_.FindById(config.spec().id);
    KeepUnsynchronised(config, former == nullptr ? nullptr : &former->config);
    by_id.emplace(config.spec().id, &config);
  }
  for (const Switch &former : Switches()) {
    const auto same = by_id.find(former.config.spec().id);
    if (same != by_id.end()) {
      PlugIn(*same->second, former.config);
    } else if (!former.config.active_ports().empty()) {
      throw StatusError(ZEL_BUSY);
    }
  }
  for (SwitchState &each : switches) each.in_use = each.saved;
  Install(std::move(switches));
}

void Host::Install(std::vector<SwitchState> switches) {
  SwitchSet<Switch> fresh;
  SwitchSet<SavedSwitch> saved;
  PortId next_port_id = next_port_id_;
  std::uint64_t last_number = 0, next_number = next_switch_number_;
  std::vector<std::map<PortId, std::uint32_t>> nodes;
  std::vector<std::pair<Switch *, PortId>> gone_ports;
  for (SwitchState &each : switches) {
    const std::string id = each.in_use.spec().id;
    const Switch *former = std::as_const(switches_).FindById(id);
    std::uint64_t number = NumberOfSwitch(id);
    // What has a handle stays what it is. And numbers ascend as the switches follow each other.
    if (number <= last_number || (former != nullptr && HasOtherPort(each.in_use, former->config)))
      number = next_number++;
    last_number = number;

    std::map<PortId, std::uint32_t> &node_of = nodes.emplace_back();
    for (const Port &port : each.in_use.ports().Items()) {
      next_port_id = std::max(next_port_id, port.id + 1);
      if (const std::string *nic = each.in_use.NicOf(port.id)) node_of[port.id] = nics_.Get(*nic).numa_node;
    }
    Switch &added = fresh.Add(Switch{.config = std::move(each.in_use), .number = number});
    saved.Add(SavedSwitch{.config = std::move(each.saved), .number = number});
    if (former == nullptr) continue;
    for (const Port &port : former->config.ports().Items()) {
      const Port *kept = added.config.ports().Find(port.id);
      if (kept == nullptr || kept->name != port.name) gone_ports.emplace_back(&added, port.id);
    }
  }

  // From here on nothing can fail.
  for (const Switch &former : Switches()) {
    if (std::as_const(fresh).FindById(former.config.spec().id) != nullptr) continue;
    for (const Port &port : former.config.ports().Items()) captures_.Forget(port.id);
  }
  auto node_of = nodes.begin();
  for (Switch &each : fresh.Items()) {
    Switch *former = switches_.FindById(each.config.spec().id);
    if (former != nullptr) each.runtime = std::move(former->runtime);
    each.runtime.team.ChangeChoices().uplink_nodes.merge(*node_of++);
  }
  switches_ = std::move(fresh);
  store_.switches() = std::move(saved);
  next_port_id_ = next_port_id;
  next_switch_number_ = next_number;
  for (const auto &[owner, port] : gone_ports) ForgetPort(*owner, port);
  for (Switch &each : switches_.Items()) DropGoneSessions(each);
}

std::string Host::ImageOfPortInUse(std::string_view owner, std::string_view port) const {
  const SwitchConfig &config = FindSwitch(owner).config;
  const Port &in_use = config.PortNamed(port);
  return ImageOfPort(StateOf(in_use, *SavedOf(config).ports().Find(in_use.id)), kNewestVersion);
}

std::string Host::ImageOfSavedPort(std::string_view owner, std::string_view port, std::uint32_t version) const {
  const Port &saved = SavedOf(FindSwitch(owner).config).PortNamed(port);
  return ImageOfPort(StateOf(saved, saved), version);
}

PortId Host::AddPortOfImage(std::string_view owner, std::string port, std::string_view image) {
  PortState state = PortOfImage(image);
  SwitchConfig &config = Get(owner).config;
  const auto has_same_name = [&](const Port &other) { return other.external_id == state.external_id; };
  if (!state.external_id.empty() && std::ranges::any_of(config.ports().Items(), has_same_name)) {
    throw StatusError(ZEL_EXISTS);
  }
  Port in_use{.id = next_port_id_, .name = std::move(port), .external_id = std::move(state.external_id)};
  for (const PropertySet *layer : {&state.properties.in_use, &state.properties.saved}) {
    for (const auto &[key, property] : layer->Items()) CheckArrivingProperty(key, property.value, in_use, config);
  }
  Port saved = in_use;
  in_use.properties = std::move(state.properties.in_use);
  saved.properties = std::move(state.properties.saved);
  const PortId id = in_use.id;
  config.AddPort(std::move(in_use));
  try {
    store_.Update(config.spec().id, [&](SwitchConfig &kept) { kept.AddPort(saved); });
  } catch (...) {
    config.RemovePort(id);
    throw;
  }
  ++next_port_id_;
  return id;
}

}  // namespace kestrel::host
