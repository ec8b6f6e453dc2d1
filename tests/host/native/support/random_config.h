/* Configurations by chance, for properties that hold of all of them. */
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/frames/mac_address.h"
#include "host/core/host_defaults.h"
#include "host/core/mirroring/mirror_table.h"
#include "host/core/properties/property_table.h"
#include "host/core/properties/property_types.h"
#include "host/core/switch_config.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {

/** A stream of choices that a seed determines, the same on every machine. */
class Chance {
 public:
  explicit Chance(std::uint64_t seed) : engine_(seed) {}

  /** From 0 to `limit` - 1. */
  std::uint64_t Below(std::uint64_t limit) { return engine_() % limit; }
  /** Both included. */
  template <typename Number>
  Number Between(Number least, Number most) {
    return static_cast<Number>(least + Below(static_cast<std::uint64_t>(most - least) + 1));
  }
  bool OneIn(std::uint64_t count) { return Below(count) == 0; }
  template <typename Items>
  const auto &Of(const Items &items) {
    return *std::next(std::begin(items), static_cast<std::ptrdiff_t>(Below(std::size(items))));
  }

  /** Any bytes. */
  std::string Bytes(std::size_t size) {
    std::string bytes(size, '\0');
    for (char &byte : bytes) byte = static_cast<char>(Below(256));
    return bytes;
  }
  /** A name that begins with `stem`, `number` telling it from others, and is now and then as long as it may be in a
     field of `width` bytes. Most have bytes beyond ASCII somewhere. */
  std::string Name(std::string stem, std::uint64_t number, std::size_t width) {
    stem += std::to_string(number);
    const std::size_t room = width - 1 - stem.size();
    const std::size_t length = OneIn(8) ? room : Below(std::min<std::size_t>(room, 6) + 1);
    for (std::size_t i = 0; i < length; ++i) stem += static_cast<char>(Between(1, 255));
    return stem;
  }

 private:
  std::mt19937_64 engine_;
};

/** How much there is of what in a configuration, at most. */
struct RandomSize {
  std::uint64_t ports = 12;
  std::uint64_t uplinks = 5;
  std::uint64_t lags = 2;
  /** Of each owner. */
  std::uint64_t properties = 4;
  /** In bytes, of values under keys that the host does not know. */
  std::uint64_t value = 40;
};

/** Makes configurations that a host could have come to. Switches from one generator differ in all their names, their
    ports in their identifiers and their NICs. */
class RandomConfigs {
 public:
  explicit RandomConfigs(std::uint64_t seed, RandomSize size = {}) : chance_(seed), size_(size) {}

  Chance &chance() { return chance_; }

  SwitchConfig Next() {
    const bool is_member = !chance_.OneIn(5);
    SwitchConfig config(Spec(is_member));
    for (std::uint64_t left = chance_.Below(size_.uplinks + 1); left > 0; --left) AddUplink(config);
    for (std::uint64_t left = chance_.Below(size_.ports + 1); left > 0; --left) {
      if (!config.uplinks().Items().empty() && chance_.OneIn(6)) AddUplink(config);
      AddPort(config);
    }
    AddLags(config);
    if (chance_.OneIn(3)) RemoveSome(config);
    AddProperties(config);
    return config;
  }

  /** A property that fits its place, if the host knows its key. */
  Property NextProperty(std::string_view key, PropertyPlace place, const SwitchConfig &config) {
    const PropertyRow *row = FindPropertyRow(key);
    Property property;
    property.value = row == nullptr ? chance_.Bytes(chance_.Below(size_.value + 1)) : Value(*row, place, config);
    property.type = Type();
    return property;
  }

  /** A mask of types, mostly of one. */
  std::uint32_t Type() {
    const auto rows = PropertyTypeRows();
    std::uint32_t type = chance_.Of(rows).type;
    while (chance_.OneIn(3)) type |= chance_.Of(rows).type;
    return type;
  }

  /** A key that may be set at a level. */
  std::string Key(PropertyLevel level) {
    std::vector<std::string_view> known;
    for (const PropertyRow &row : PropertyRows()) {
      if (row.level == level && row.check != nullptr) known.push_back(row.key);
    }
    if (!known.empty() && !chance_.OneIn(3)) return std::string(chance_.Of(known));
    static constexpr const char *kStems[] = {"org.example.note", "com.example.x", "note", "com.talvex.future"};
    return chance_.Name(chance_.Of(kStems), ++serial_, kMaxPropertyKey + 1);
  }

 private:
  SwitchSpec Spec(bool is_member) {
    static constexpr std::uint32_t kVersions[] = {DVS_VERSION_60, DVS_VERSION_65,        DVS_VERSION_66,
                                                  DVS_VERSION_70, VS_TRV_VDS_VERSION_10, VS_TRVT_ON_DVS70_VERSION};
    const std::uint64_t number = ++serial_;
    const auto first = chance_.OneIn(3) ? chance_.Between<VlanId>(0, kMaxVlanId) : VlanId{0};
    const std::uint64_t most = size_.ports * 2 + size_.uplinks + 1;
    return {.id = chance_.Name("id", number, ZEL_VDS_ID_MAX_LEN),
            .portset = chance_.Name("DvsPortset-", number, ZEL_PORTSET_NAME_MAX),
            .alias = chance_.Name("dvs-", number, ZEL_VDS_NAME_MAX_LEN),
            .max_ports = static_cast<std::uint32_t>(chance_.Between<std::uint64_t>(most, kMaxPorts)),
            .version = chance_.Of(kVersions),
            .vlans = {first, chance_.Between<VlanId>(first, kMaxVlanId)},
            .is_member = is_member};
  }

  Port NewPort() {
    next_id_ += static_cast<PortId>(chance_.Between(1, 3));
    Port port{.id = next_id_, .name = chance_.Name("port-", ++serial_, ZEL_VDS_PORT_ID_MAX_LEN)};
    if (chance_.OneIn(4)) port.external_id = chance_.Name("outer-", serial_, sizeof(OpaqueDVPortData::externalId));
    return port;
  }

  void AddPort(SwitchConfig &config) {
    Port port = NewPort();
    const PortId id = port.id;
    config.AddPort(std::move(port));
    if (!config.spec().is_member || chance_.OneIn(3)) return;
    const auto type = chance_.OneIn(2) ? VS_PORT_CLIENT_VNIC : VS_PORT_CLIENT_TCPIP;
    Client client = NextClient(type, chance_.Name("vm-", ++serial_, chance_.OneIn(9) ? ZEL_PORT_CLIENT_NAME_MAX : 64));
    if (chance_.OneIn(3)) {
      client.adapter.address = Station();
      client.adapter.filter |= ZEL_ETH_FILTER_ALLMULTI;
      for (std::uint64_t left = chance_.Below(4); left > 0; --left) client.adapter.groups.push_back(Group());
    }
    config.Connect(id, std::move(client));
  }

  void AddUplink(SwitchConfig &config) {
    if (config.uplinks().size() >= ZEL_TEAM_MAX_UPLINKS) return;
    Port port = NewPort();
    const PortId id = port.id;
    config.AddUplink(chance_.Name("uplink", ++serial_, ZEL_VDS_PORT_ALIAS_MAX_LEN), std::move(port));
    if (!config.spec().is_member || chance_.OneIn(3)) return;
    config.Connect(id, NextClient(VS_PORT_CLIENT_UPLINK, chance_.Name("nic", ++serial_, ZEL_DEVICE_NAME_MAX_LENGTH)));
  }

  void AddLags(SwitchConfig &config) {
    std::vector<std::string> free;
    for (const Uplink &uplink : config.uplinks().Items()) free.push_back(uplink.name);
    for (std::uint64_t left = chance_.Below(size_.lags + 1); left > 0 && !free.empty(); --left) {
      Lag lag{.id = static_cast<std::uint32_t>(++serial_),
              .name = chance_.Name("lag", serial_, VS_LACP_LAG_NAME_LENGTH),
              .members = {}};
      for (std::uint64_t count = chance_.Between<std::uint64_t>(1, free.size()); count > 0; --count) {
        const auto taken = free.begin() + static_cast<std::ptrdiff_t>(chance_.Below(free.size()));
        lag.members.push_back(std::move(*taken));
        free.erase(taken);
      }
      config.AddLag(std::move(lag));
    }
  }

  /** So that identifiers have gaps and groups have members that are gone. */
  void RemoveSome(SwitchConfig &config) {
    std::vector<PortId> gone;
    for (const Port &port : config.ports().Items()) {
      if (chance_.OneIn(4)) gone.push_back(port.id);
    }
    for (const PortId id : gone) config.RemovePort(id);
  }

  void AddProperties(SwitchConfig &config) {
    std::vector<PropertyPlace> places{{PropertyLevel::kSwitch}, {PropertyLevel::kHost}};
    for (const Port &port : config.ports().Items()) places.push_back({PropertyLevel::kPort, port.id});
    for (const Uplink &uplink : config.uplinks().Items()) places.push_back({PropertyLevel::kUplink, uplink.id});
    for (const PropertyPlace place : places) {
      for (std::uint64_t left = chance_.Below(size_.properties + 1); left > 0; --left) {
        const std::string key = Key(place.level);
        const Property property = NextProperty(key, place, config);
        config.PropertiesAt(place).Put(PropertySet::Ready(key, property));
      }
    }
  }

  Client NextClient(VS_PortClientType type, std::string name) {
    return {.type = type, .name = std::move(name), .address = Station(), .adapter = {}};
  }

  MacAddress Address() {
    MacAddress address;
    for (std::uint8_t &byte : address) byte = chance_.Between<std::uint8_t>(0, 255);
    return address;
  }

  MacAddress Station() {
    MacAddress address = Address();
    address[0] &= 0xfe;
    address[5] |= 1;  // not all zeros
    return address;
  }

  MacAddress Group() {
    MacAddress address = Address();
    address[0] |= 1;
    address[5] &= 0x7f;  // not the address of all stations
    return address;
  }

  std::string Vlan(const SwitchConfig &config) {
    const VlanRange valid = config.spec().vlans;
    VlanPolicy policy{.mode = VlanMode::kAccess, .vlan = chance_.Between(valid.first, valid.last), .ranges = {}};
    policy.set_priority = chance_.OneIn(2);
    if (chance_.OneIn(2)) {
      policy.mode = VlanMode::kTrunk;
      policy.vlan = valid.first;
      for (VlanId from = valid.first; policy.ranges.empty() || !chance_.OneIn(3);) {
        const VlanId last = chance_.Between<VlanId>(from, valid.last);
        policy.ranges.push_back({from, last});
        if (last >= valid.last) break;
        from = chance_.Between<VlanId>(static_cast<VlanId>(last + 1), valid.last);
      }
    }
    return RecordOfVlanPolicy(policy);
  }

  std::string Mirrors() {
    MirrorTable table;
    for (std::uint64_t left = chance_.Below(3); left > 0; --left) {
      MirrorSession session{};
      chance_.Name("mirror", ++serial_, sizeof session.head.sid).copy(session.head.sid, sizeof session.head.sid - 1);
      session.head.type = VS_DVMIRROR_SESSIONTYPE_DVPORT;
      for (std::uint64_t count = chance_.Below(3); count > 0; --count) {
        DVMirrorEntity entity{};
        entity.type = MIRROR_ENTTYPE_VLAN;
        entity.vlan = chance_.Between<VlanId>(0, kMaxVlanId);
        session.entities.push_back(entity);
        ++session.head.numDstEntities;
      }
      table.sessions.push_back(std::move(session));
    }
    return Pack(table);
  }

  std::string UserMulticast() {
    std::vector<MacAddress> addresses;
    for (std::uint64_t left = chance_.Below(VS_MULTICAST_USER_ENTRIES_MAX + 1); left > 0; --left) {
      const MacAddress address = Group();
      if (std::ranges::find(addresses, address) == addresses.end()) addresses.push_back(address);
    }
    VSUserMcastLegacyKeys head{};
    head.numEntries = static_cast<decltype(head.numEntries)>(addresses.size());
    std::string value = BytesOf(head);
    for (const MacAddress &address : addresses) value += BytesOf(address);
    return value;
  }

  std::string Team(std::string base, const SwitchConfig &config) {
    auto policy = RecordOf<VSTeamPolicy>(base);
    policy.loadBalance = static_cast<decltype(policy.loadBalance)>(chance_.Below(TEAM_FRP_TYPE_LB_LBT + 1));
    policy.flags |= chance_.OneIn(2) ? TEAM_FRP_FLAG_ROLLING : 0;
    if (policy.numActive > 1 && chance_.OneIn(2)) {
      --policy.numActive;
      ++policy.numStandby;
    }
    // A group may stand where an uplink does.
    if (policy.numActive > 0 && !config.lags().Items().empty() && chance_.OneIn(2)) {
      auto &field = policy.uplinkPortName[0];
      std::fill(std::begin(field), std::end(field), '\0');
      chance_.Of(config.lags().Items()).name.copy(reinterpret_cast<char *>(&field[0]), sizeof field - 1);
    }
    return BytesOf(policy);
  }

  /** One that the row's check accepts. Where there is no maker for a key, numbers are tried, and then texts. */
  std::string Value(const PropertyRow &row, PropertyPlace place, const SwitchConfig &config) {
    const Port *port = place.level == PropertyLevel::kPort ? config.ports().Find(place.port) : nullptr;
    const PropertyContext where{.defaults = kDefaultMacLearning, .config = config, .port = port};
    const auto is_good = [&](const std::string &value) {
      try {
        row.check(value, where);
        return true;
      } catch (const StatusError &) {
        return false;
      }
    };
    std::vector<std::string> tries;
    if (row.key == VSPROP_MTU) tries.push_back(BytesOf(chance_.Between(kMinMtu, kMaxMtu)));
    if (row.key == VSPROP_PORT_VLAN) tries.push_back(Vlan(config));
    if (row.key == VSPROP_PORT_MIRROR_SESSIONS || row.key == VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS) {
      tries.push_back(Mirrors());
    }
    if (row.key == VSPROP_USER_MCAST_ADDRESSES || row.key == VSPROP_PORT_USER_MCAST_ADDRESSES) {
      tries.push_back(UserMulticast());
    }
    if (row.key == VSPROP_SWITCH_TEAMING || row.key == VSPROP_PORT_TEAMING_POLICY ||
        row.key == TRV_PRP_LAN_TEAMING_POLICY) {
      tries.push_back(Team(DefaultTeamPolicyOf(where), config));
    }
    for (const std::uint64_t limit : {8, 2}) tries.push_back(BytesOf(static_cast<std::uint32_t>(chance_.Below(limit))));
    tries.push_back(chance_.Bytes(1));
    if (row.fallback != nullptr) tries.push_back(row.fallback(where));
    if (!config.uplinks().Items().empty()) tries.push_back(chance_.Of(config.uplinks().Items()).name);
    std::string last = BytesOf(Group());
    last.resize(sizeof(EnsPRPTunablesData), '\0');
    tries.push_back(std::move(last));
    tries.push_back(chance_.Name("text", ++serial_, ZEL_VDS_PORT_ALIAS_MAX_LEN));
    const auto found = std::ranges::find_if(tries, is_good);
    if (found != tries.end()) return *found;
    // What it refers to is gone.
    return row.fallback != nullptr ? row.fallback(where) : "gone";
  }

  static std::string DefaultTeamPolicyOf(const PropertyContext &where) {
    return FindPropertyRow(VSPROP_SWITCH_TEAMING)->fallback(where);
  }

  Chance chance_;
  RandomSize size_;
  std::uint64_t serial_ = 0;
  PortId next_id_ = 0x02000000;
};

}  // namespace kestrel::host
