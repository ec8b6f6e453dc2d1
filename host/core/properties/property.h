/* Properties: values under keys, of a switch, of this host's part of it, of a port or of an uplink. */
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/core/port_id.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** What a property belongs to. */
enum class PropertyLevel : std::uint8_t { kSwitch, kHost, kPort, kUplink };

/** In bytes; a longer key or value is none that a script could have meant. */
inline constexpr std::size_t kMaxPropertyKey = 255;
inline constexpr std::size_t kMaxPropertyValue = 1 << 20;

struct Property {
  /** In the layout of the record that belongs to the key; plain bytes under a key that the host does not know. */
  std::string value;
  /** A mask of *_PROP_TYPE: see property_types.h. */
  std::uint32_t type = CONFIG_PROP_TYPE;

  bool operator==(const Property &) const = default;
};

/** The properties of one thing, in the order of their keys. */
class PropertySet {
 public:
  using Map = std::map<std::string, Property, std::less<>>;

  /** Null when there is none; good until it is replaced or removed. */
  const Property *Find(std::string_view key) const {
    const auto found = map_.find(key);
    return found == map_.end() ? nullptr : &found->second;
  }

  /** A property ready to be put into a set, so that nothing can fail from then on. */
  static Map::node_type Ready(std::string_view key, const Property &property) {
    Map made;
    made.emplace(key, property);
    return made.extract(made.begin());
  }
  /** In place of the one under the same key, if there is one. */
  void Put(Map::node_type ready) noexcept {
    Remove(ready.key());
    map_.insert(std::move(ready));
  }
  /** The same, quick for a key behind all others. */
  void Append(std::string_view key, Property property) {
    map_.insert_or_assign(map_.end(), std::string(key), std::move(property));
  }
  void Remove(std::string_view key) noexcept {
    const auto found = map_.find(key);
    if (found != map_.end()) map_.erase(found);
  }
  void Clear() noexcept { map_.clear(); }

  const Map &Items() const { return map_; }

  bool operator==(const PropertySet &) const = default;

 private:
  Map map_;
};

/** Where in the configuration of a switch a property is. */
struct PropertyPlace {
  PropertyLevel level = PropertyLevel::kSwitch;
  /** Of the port or uplink. */
  PortId port = 0;

  bool operator==(const PropertyPlace &) const = default;
};

/** Whose property is meant, in the words of a caller. */
struct PropertyOwner {
  std::string_view switch_name;
  PropertyLevel level = PropertyLevel::kSwitch;
  /** The distributed-port id of the port. */
  std::string_view port{};
  /** The number of the uplink among those of its switch, from 0. */
  std::uint32_t uplink = 0;
};

}  // namespace kestrel::host
