/* The properties of switches, ports and uplinks. */
#include <iterator>
#include <utility>

#include "host/core/errors.h"
#include "host/core/host.h"
#include "host/core/property_table.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

void CheckType(std::uint32_t type) {
  constexpr auto kKnown = static_cast<std::uint32_t>(ALL_PROP_TYPE);
  if ((type & ~kKnown) != 0) throw StatusError(ZEL_BAD_PARAM);
}

bool IsSaved(std::uint32_t type) { return (type & (RUNTIME_PROP_TYPE | VOLATILE_PROP_TYPE)) == 0; }

PropertyPlace PlaceIn(const SwitchConfig &config, const PropertyOwner &owner) {
  if (owner.level == PropertyLevel::kPort) return {owner.level, config.PortNamed(owner.port).id};
  if (owner.level != PropertyLevel::kUplink) return {owner.level};
  const auto uplinks = config.uplinks().Items();
  if (owner.uplink >= uplinks.size()) throw StatusError(ZEL_NOT_FOUND);
  return {owner.level, (*std::ranges::next(uplinks.begin(), owner.uplink)).id};
}

}  // namespace

PropertyPlace Host::PlaceOf(const PropertyOwner &owner) const {
  return PlaceIn(FindSwitch(owner.switch_name).config, owner);
}

std::string Host::PropertyOf(const PropertyOwner &owner, std::string_view key) const {
  const SwitchConfig &config = FindSwitch(owner.switch_name).config;
  return ReadProperty(key, PlaceIn(config, owner), mac_learning_, config);
}

void Host::SetProperty(const PropertyOwner &owner, std::string_view key, const Property &property) {
  SwitchConfig &in_use = Get(owner.switch_name).config;
  const PropertyPlace place = PlaceIn(in_use, owner);
  CheckType(property.type);
  CheckProperty(key, property.value, place, mac_learning_, in_use);
  auto ready = PropertySet::Ready(key, property);
  if (IsSaved(property.type)) {
    store_.Update(in_use.spec().id, [&, for_saved = PropertySet::Ready(key, property)](SwitchConfig &saved) mutable {
      saved.PropertiesAt(place).Put(std::move(for_saved));
    });
  }
  in_use.PropertiesAt(place).Put(std::move(ready));
}

void Host::ClearProperty(const PropertyOwner &owner, std::string_view key, Persistence persistence) {
  SwitchConfig &in_use = Get(owner.switch_name).config;
  const PropertyPlace place = PlaceIn(in_use, owner);
  CheckClearing(key, place, mac_learning_, in_use);
  bool is_set = in_use.PropertiesAt(place).Find(key) != nullptr;
  if (persistence == Persistence::kSaved) {
    store_.Update(in_use.spec().id, [&](SwitchConfig &saved) {
      PropertySet &properties = saved.PropertiesAt(place);
      is_set = is_set || properties.Find(key) != nullptr;
      properties.Remove(key);
    });
  }
  if (!is_set) throw StatusError(ZEL_NOT_FOUND);
  in_use.PropertiesAt(place).Remove(key);
}

void Host::SetPortVlan(std::string_view owner, std::string_view port, const VlanPolicy &policy,
                       Persistence persistence) {
  SetProperty({.switch_name = owner, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_VLAN,
              {RecordOfVlanPolicy(policy), PropertyTypeOf(persistence)});
}

void Host::ClearPortVlan(std::string_view owner, std::string_view port) {
  ClearProperty({.switch_name = owner, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_VLAN,
                Persistence::kSaved);
}

}  // namespace kestrel::host
