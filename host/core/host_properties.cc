/* The properties of switches, ports and uplinks. */
#include <algorithm>
#include <iterator>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/host.h"
#include "host/core/mirroring/mirroring.h"
#include "host/core/port_status.h"
#include "host/core/properties/property_table.h"
#include "host/core/properties/property_types.h"
#include "host/core/teaming/team_watch.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

/** Whether the teams of a switch go by the property. */
bool ConcernsTeams(std::string_view key) {
  constexpr std::string_view kKeys[] = {VSPROP_SWITCH_TEAMING,         VSPROP_LS_TEAMING_POLICY,
                                        VSPROP_PORT_TEAMING_POLICY,    VSPROP_PORT_TEAMING_OVERRIDE,
                                        VSPROP_PORT_LS_TEAMING_POLICY, ZEL_VDSPROP_PORT_BLOCK};
  return std::ranges::find(kKeys, key) != std::end(kKeys);
}

/** Makes a change of a property, `change()`, under the eyes of the teams that it concerns. */
template <typename Change>
void ChangeProperty(Host &host, Switch &owner, std::string_view key, PropertyPlace place, Change change) {
  if (!ConcernsTeams(key)) {
    change();
    return;
  }
  const bool is_client = place.level == PropertyLevel::kPort && owner.config.uplinks().Find(place.port) == nullptr;
  TeamWatch watch = is_client ? TeamWatch(host, owner, *owner.config.ports().Find(place.port))
                              : TeamWatch(host, owner, TeamChange::kAll);
  change();
  watch.Settle();
}

bool IsMirrorKey(std::string_view key) {
  return key == VSPROP_PORT_MIRROR_SESSIONS || key == VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS;
}

PropertyPlace PlaceIn(const SwitchConfig &config, const PropertyOwner &owner) {
  if (owner.level == PropertyLevel::kPort) return {owner.level, config.PortNamed(owner.port).id};
  if (owner.level != PropertyLevel::kUplink) return {owner.level};
  const auto uplinks = config.uplinks().Items();
  if (owner.uplink >= uplinks.size()) throw StatusError(ZEL_NOT_FOUND);
  return {owner.level, (*std::ranges::next(uplinks.begin(), owner.uplink)).id};
}

}  // namespace

std::string Host::PropertyOf(const PropertyOwner &owner, std::string_view key) const {
  const Switch &target = FindSwitch(owner.switch_name);
  const PropertyPlace place = PlaceIn(target.config, owner);
  if (place.level == PropertyLevel::kPort) {
    if (auto value = ReadPortStatus(*this, target, place.port, key)) return *std::move(value);
  }
  return ReadProperty(key, place, mac_learning_, target.config);
}

std::string Host::OffloadedPropertyOf(const PropertyOwner &owner, std::string_view key) const {
  const SwitchConfig &config = FindSwitch(owner.switch_name).config;
  return ReadProperty(key, PlaceIn(config, owner), mac_learning_, config,
                      [](const Property &property) { return IsReplicated(property.type); });
}

void Host::SetProperty(const PropertyOwner &owner, std::string_view key, const Property &property) {
  Switch &target = Get(owner.switch_name);
  SwitchConfig &in_use = target.config;
  const PropertyPlace place = PlaceIn(in_use, owner);
  const Property set{property.value, PropertyTypeOfRequest(property.type)};
  CheckProperty(key, set.value, place, mac_learning_, in_use);
  auto ready = PropertySet::Ready(key, set);
  // Twice, so that a session that comes back begins anew.
  if (IsMirrorKey(key)) DropGoneSessions(target);
  ChangeProperty(*this, target, key, place, [&] {
    if (IsSaved(set.type)) {
      store_.Update(in_use.spec().id, [&, for_saved = PropertySet::Ready(key, set)](SwitchConfig &saved) mutable {
        saved.PutProperty(place, std::move(for_saved));
      });
    }
    in_use.PutProperty(place, std::move(ready));
  });
  if (IsMirrorKey(key)) DropGoneSessions(target);
}

void Host::ClearProperty(const PropertyOwner &owner, std::string_view key, Persistence persistence) {
  Switch &target = Get(owner.switch_name);
  SwitchConfig &in_use = target.config;
  const PropertyPlace place = PlaceIn(in_use, owner);
  CheckClearing(key, place, mac_learning_, in_use);
  bool is_set = std::as_const(in_use).PropertiesAt(place).Find(key) != nullptr;
  ChangeProperty(*this, target, key, place, [&] {
    if (persistence == Persistence::kSaved) {
      store_.Update(in_use.spec().id, [&](SwitchConfig &saved) {
        is_set = is_set || std::as_const(saved).PropertiesAt(place).Find(key) != nullptr;
        if (is_set) saved.RemoveProperty(place, key);
      });
    }
    if (!is_set) throw StatusError(ZEL_NOT_FOUND);
    in_use.RemoveProperty(place, key);
  });
  if (IsMirrorKey(key)) DropGoneSessions(target);
}

void Host::SetPortVlan(std::string_view owner, std::string_view port, const VlanPolicy &policy,
                       Persistence persistence) {
  SetProperty({.switch_name = owner, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_VLAN,
              {RecordOfVlanPolicy(policy), PropertyTypeOf(persistence)});
}

}  // namespace kestrel::host
