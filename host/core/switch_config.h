/* How a switch is configured. */
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/core/base/change_list.h"
#include "host/core/base/kept_count.h"
#include "host/core/base/named_table.h"
#include "host/core/base/revision.h"
#include "host/core/base/text_map.h"
#include "host/core/lag.h"
#include "host/core/port.h"
#include "host/core/properties/property.h"
#include "host/core/uplink.h"
#include "host/core/vlan.h"
#include "host/export.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** In bytes, the Ethernet header apart. */
inline constexpr std::uint32_t kDefaultMtu = 1500;
/** The least that IPv6 asks of a link. */
inline constexpr std::uint32_t kMinMtu = 1280;
inline constexpr std::uint32_t kMaxMtu = 9000;

/** Ports of one switch. */
inline constexpr std::uint32_t kMaxPorts = 60000;

/** The version with everything in it. */
inline constexpr std::uint32_t kNewestVersion = VS_TRVT_ON_DVS70_VERSION;
KESTREL_HOST_EXPORT bool IsPublishedVersion(std::uint32_t version);

/** What a switch is made from. */
struct SwitchSpec {
  /** Unique among all switches, in UUID form. */
  std::string id;
  /** The name by which the kernel knows the switch. */
  std::string portset;
  /** The name by which people know it. */
  std::string alias;
  std::uint32_t max_ports;
  /** The name of the implementation that the switch asks for. */
  std::string class_name = CSWITCH_CNAME_STR;
  std::uint32_t version = DVS_VERSION_70;
  /** The VLANs that the switch carries. */
  VlanRange vlans = kAllVlans;
  /** Whether this host takes part in the switch; without it nothing can be plugged in. */
  bool is_member = true;

  bool operator==(const SwitchSpec &) const = default;
};

/** A part of a switch's configuration that is written down on its own. */
struct ConfigPart {
  enum class Kind : std::uint8_t {
    /** What the switch was made from. */
    kSpec,
    /** A port without its properties; with the uplink that it is the port of, if any. */
    kPort,
    kLag,
    /** One property. */
    kProperty,
    /** All properties of one owner. */
    kProperties,
  };

  Kind kind;
  /** Of the port or the group. */
  std::uint32_t id = 0;
  /** For properties. */
  PropertyPlace place{};
  std::string key{};

  bool operator==(const ConfigPart &) const = default;
};

/** The configuration of a switch: its ports, uplinks and groups, and the properties of each. A value, of which the
    running switch holds one and the store another. Every operation does all or nothing, and notes in changes() what it
    changes; equality is that of the configurations, whatever became of them. */
class KESTREL_HOST_EXPORT SwitchConfig {
 public:
  /** Throws as CheckName does for the names, StatusError ZEL_BAD_PARAM for no ports, for more than kMaxPorts and for an
      unknown version, ZEL_BAD_VLANID for a range of VLANs that is empty or goes beyond kMaxVlanId. */
  explicit SwitchConfig(SwitchSpec spec);

  /** Another one with every change. */
  std::uint64_t revision() const { return revision_.number(); }
  const SwitchSpec &spec() const { return spec_; }
  const NamedTable<Port> &ports() const { return ports_; }
  const NamedTable<Uplink> &uplinks() const { return uplinks_; }
  const NamedTable<Lag> &lags() const { return lags_; }
  /** Those of the switch. */
  const PropertySet &properties() const { return properties_; }
  /** Throws StatusError ZEL_NOT_FOUND for a port or uplink that is not there. */
  const PropertySet &PropertiesAt(PropertyPlace place) const;

  /** Throws StatusError ZEL_NOT_FOUND. */
  const Port &PortNamed(std::string_view name) const;
  const Uplink &UplinkNamed(std::string_view name) const;

  /** The name of the NIC in an uplink, null when it has none or is no uplink. */
  const std::string *NicOf(PortId uplink) const;
  /** Null when the NIC is not plugged into this switch. */
  const Uplink *UplinkOfNic(std::string_view nic) const;
  /** The ports that have a client, in order. */
  const std::set<PortId> &active_ports() const { return active_ports_; }
  /** The ports in sink mode, counted anew only after something has changed that decides on it. */
  std::uint32_t CountSinkPorts() const;

  /** Throws StatusError ZEL_EXISTS when the identifier or the name is taken, ZEL_LIMIT_EXCEEDED when the switch is
      full, and as CheckName does. */
  void AddPort(Port port);
  /** Removes a port, be it an uplink or not; groups keep the uplink's name. No effect when there is none. */
  void RemovePort(PortId id) noexcept;
  /** Adds an uplink and its port. Throws as AddPort does; uplinks and groups share one space of names. */
  void AddUplink(std::string name, Port port);
  /** Throws StatusError ZEL_NOT_FOUND for a member that is no uplink, ZEL_BAD_PARAM for no members or one that is named
      twice, ZEL_BUSY for one that belongs to another group, ZEL_EXISTS, ZEL_LIMIT_EXCEEDED and as CheckName does. */
  void AddLag(Lag lag);
  /** The same for a group that was there before: uplinks among its members may have gone since. */
  void AddKeptLag(Lag lag);
  void RemoveLag(std::uint32_t id) noexcept;

  /** Plugs a client into a port. Throws StatusError ZEL_NOT_FOUND for an unknown port, ZEL_BAD_PARAM for a client that
      does not belong there: a NIC belongs into an uplink and nothing else does; ZEL_IS_CONNECTED when the port or the
      NIC is taken, ZEL_IS_DISCONNECTED when the host is no member; and as CheckAdapter does. */
  void Connect(PortId id, Client client);
  /** No effect on a port that is unknown or free. */
  void Disconnect(PortId id) noexcept;
  /** Throws StatusError ZEL_NOT_FOUND for an unknown port, ZEL_IS_DISCONNECTED for a free one, and as CheckAdapter
      does. */
  void SetAdapter(PortId id, Adapter adapter);

  /** Throws StatusError ZEL_BAD_PARAM for an unknown version. */
  void SetVersion(std::uint32_t version);
  /** Throws StatusError ZEL_BAD_PARAM for no ports and for more than kMaxPorts, ZEL_BUSY for fewer than there are. */
  void SetMaxPorts(std::uint32_t max_ports);
  /** Throws StatusError ZEL_BUSY for the end of a membership while a client is connected. */
  void SetMember(bool is_member);

  /** Sets a property; its value is not checked here. Throws as PropertiesAt does and for no other reason. */
  void PutProperty(PropertyPlace place, PropertySet::Map::node_type ready);
  /** No effect when it is not set. Throws as PropertiesAt does and for no other reason. */
  void RemoveProperty(PropertyPlace place, std::string_view key);
  /** All of them, to change them; values are not checked here. For one property the operations above say more exactly
      what changes. */
  PropertySet &PropertiesAt(PropertyPlace place);

  /** Gives every property of the switch and its ports its default. What exists and who is plugged in remains. */
  void ResetProperties() noexcept;
  /** Drops group members whose uplink is gone, and groups that have none left. */
  void DropDangling() noexcept;

  ChangeList<ConfigPart> &changes() { return changes_; }
  const ChangeList<ConfigPart> &changes() const { return changes_; }

  bool operator==(const SwitchConfig &) const = default;

 private:
  void CheckTeamingName(std::string_view name, std::size_t width) const;
  /** The checks of a group but for whether its members are uplinks. */
  void CheckLag(const Lag &lag) const;
  PropertySet &PropertiesToChange(PropertyPlace place);
  void Note(ConfigPart::Kind kind, std::uint32_t id = 0) noexcept {
    revision_.Renew();
    changes_.Note({.kind = kind, .id = id});
  }
  void NoteProperty(PropertyPlace place, std::string_view key) noexcept;

  SwitchSpec spec_;
  NamedTable<Port> ports_;
  NamedTable<Uplink> uplinks_;
  NamedTable<Lag> lags_;
  PropertySet properties_;
  /** Those of this host's part of the switch. */
  PropertySet host_properties_;
  /** The uplinks that have a NIC, by its name. */
  TextMap<PortId> nics_;
  std::set<PortId> active_ports_;
  mutable KeptCount sink_ports_;
  ChangeList<ConfigPart> changes_;
  Revision revision_;
};

/** In bytes. */
KESTREL_HOST_EXPORT std::uint32_t MtuOf(const SwitchConfig &config);
/** Null for a port without one. */
KESTREL_HOST_EXPORT std::optional<VlanPolicy> VlanOf(const Port &port);
/** Whether a port receives what no other port wants. */
KESTREL_HOST_EXPORT bool IsSink(const Port &port);

}  // namespace kestrel::host
