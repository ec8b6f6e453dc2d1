/* States by chance: what is in use, and what is saved beside it. */
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/core/images/port_image.h"
#include "host/core/images/property_image.h"
#include "host/core/images/state_image.h"
#include "tests/host/native/support/random_config.h"

namespace kestrel::host {

/** The owners of properties in a switch. */
inline std::vector<PropertyPlace> PlacesOf(const SwitchConfig &config) {
  std::vector<PropertyPlace> places{{PropertyLevel::kSwitch}, {PropertyLevel::kHost}};
  for (const Port &port : config.ports().Items()) places.push_back({PropertyLevel::kPort, port.id});
  for (const Uplink &uplink : config.uplinks().Items()) places.push_back({PropertyLevel::kUplink, uplink.id});
  return places;
}

/** Lets some values that are not saved hide some that are, as happens when one is set over the other, and saves some
   that are in use no longer. */
inline void HideSome(RandomConfigs &configs, PropertyLayers &layers, PropertyPlace place, const SwitchConfig &config) {
  const auto hide = [&](const std::string &key) {
    Property hidden = configs.NextProperty(key, place, config);
    hidden.type = configs.chance().OneIn(2) ? CONFIG_PROP_TYPE : POLICY_PROP_TYPE;
    layers.saved.Put(PropertySet::Ready(key, hidden));
  };
  for (const auto &[key, property] : layers.in_use.Items()) {
    if (!IsSaved(property.type) && configs.chance().OneIn(2)) hide(key);
  }
  if (const std::string key = configs.Key(place.level);
      configs.chance().OneIn(3) && layers.in_use.Find(key) == nullptr) {
    hide(key);
  }
}

inline SwitchState NextState(RandomConfigs &configs) {
  SwitchConfig in_use = configs.Next();
  SwitchConfig saved = in_use;
  for (const PropertyPlace place : PlacesOf(in_use)) {
    PropertyLayers layers = LayersOf(in_use.PropertiesAt(place));
    HideSome(configs, layers, place, in_use);
    saved.PropertiesAt(place) = std::move(layers.saved);
  }
  return {.in_use = std::move(in_use), .saved = std::move(saved)};
}

inline std::vector<SwitchState> NextStates(RandomConfigs &configs, std::uint64_t most) {
  std::vector<SwitchState> states;
  for (std::uint64_t left = configs.chance().Below(most + 1); left > 0; --left) states.push_back(NextState(configs));
  return states;
}

/** Without what is not replicated, so that nothing is lost in an image. */
inline PortState NextPortState(RandomConfigs &configs) {
  const SwitchConfig config({.id = "id", .portset = "portset", .alias = "alias", .max_ports = 1});
  const PropertyPlace place{PropertyLevel::kPort};
  PropertySet properties;
  for (std::uint64_t left = configs.chance().Below(5); left > 0; --left) {
    const std::string key = configs.Key(PropertyLevel::kPort);
    const Property property = configs.NextProperty(key, place, config);
    if (IsReplicated(property.type)) properties.Put(PropertySet::Ready(key, property));
  }
  PortState port{.external_id = {}, .properties = LayersOf(std::move(properties))};
  if (configs.chance().OneIn(2)) port.external_id = configs.chance().Name("outer-", 1, 64);
  HideSome(configs, port.properties, place, config);
  return port;
}

inline std::string ImageOf(const std::vector<SwitchState> &states) {
  StateImageWriter writer;
  for (const SwitchState &state : states) writer.Add(state.in_use, state.saved);
  return writer.Take();
}

}  // namespace kestrel::host
