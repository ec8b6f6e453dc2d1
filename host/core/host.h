/* The host: everything that its libraries answer from. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/clock.h"
#include "host/core/handles.h"
#include "host/core/host_defaults.h"
#include "host/core/mac_table.h"
#include "host/core/nic_table.h"
#include "host/core/property.h"
#include "host/core/runtime_options.h"
#include "host/core/store.h"
#include "host/core/switch.h"
#include "host/core/switch_set.h"
#include "host/export.h"

namespace kestrel::host {

/** How long a change of configuration lasts. */
enum class Persistence : std::uint8_t {
  kSaved,
  /** Until the configuration is loaded anew. */
  kRuntimeOnly,
};

/** The type of a property that lasts so long. */
inline std::uint32_t PropertyTypeOf(Persistence persistence) {
  return static_cast<std::uint32_t>(persistence == Persistence::kSaved ? CONFIG_PROP_TYPE : RUNTIME_PROP_TYPE);
}

/** An uplink as it is asked for. */
struct UplinkSpec {
  std::string name;
  /** The distributed-port id of its port. */
  std::string port;
};

/** Switches, NICs, their store and their clock. Every operation does all or nothing. Calls must not overlap, as they do
    not under the interpreter's lock: the host takes no lock of its own. */
class KESTREL_HOST_EXPORT Host {
 public:
  Host() = default;
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;

  // ---- Time ----

  const VirtualClock &clock() const { return clock_; }
  /** Lets time pass; what has grown too old is dropped. Throws as VirtualClock::Advance does. */
  void AdvanceClock(Duration by);

  // ---- NICs ----

  /** Throws as NicTable::Add does. */
  void AddNic(std::string name, LinkStatus link);
  /** Throws StatusError ZEL_NOT_FOUND. */
  void SetNicLink(std::string_view name, LinkStatus link);
  /** Takes the link of a NIC down by hand, or lets it be what it is again. Throws StatusError ZEL_NOT_FOUND. */
  void SetNicEnabled(std::string_view name, bool enabled);
  /** The link of a NIC that is plugged in somewhere. */
  LinkStatus LinkOfPluggedNic(std::string_view name) const;

  // ---- Switches ----

  /** In the order in which they were made. */
  auto Switches() const { return switches_.Items(); }
  /** By portset name or alias, as everywhere below; good until the next LoadConfig or Cleanup. Throws StatusError
      ZEL_NOT_FOUND, as every operation does that is given the name of a switch. */
  const Switch &FindSwitch(std::string_view name) const;
  const Switch &FindSwitchById(std::string_view id) const;
  /** The switch of that alias; its portset name does not count. */
  const Switch &FindSwitchByAlias(std::string_view alias) const;
  /** The switch that has that port. */
  const Switch &FindSwitchOfPort(PortId port) const;
  /** The switch that a NIC is plugged into. */
  const Switch &FindSwitchOfNic(std::string_view nic) const;
  /** Throws as SwitchConfig's constructor and SwitchSet::Add do. The switch may have properties already. */
  void AddSwitch(SwitchSpec spec) { AddSwitch(SwitchConfig(std::move(spec))); }
  void AddSwitch(const SwitchConfig &config);
  /** The next portset name that no switch has. */
  std::string FreePortsetName() const;
  /** Removes a switch for good. Throws StatusError ZEL_BUSY while a client is connected to it. */
  void RemoveSwitch(std::string_view owner);
  /** Throw as SwitchConfig::SetVersion and SetMaxPorts do. */
  void SetVersion(std::string_view owner, std::uint32_t version);
  void SetMaxPorts(std::string_view owner, std::uint32_t max_ports);

  // ---- Structure, always saved ----

  /** Adds a port of the distributed-port id `port`. Throws as SwitchConfig::AddPort does. */
  PortId AddPort(std::string_view owner, std::string port, std::string external_id = {}, PropertySet properties = {});
  /** Removes a port with the addresses behind it. Throws StatusError ZEL_NOT_FOUND, ZEL_BUSY while a client is
     connected and for the port of an uplink. */
  void RemovePort(std::string_view owner, std::string_view port);
  /** Adds an uplink, whose port has the distributed-port id `port`. Throws as SwitchConfig::AddUplink does. */
  PortId AddUplink(std::string_view owner, std::string uplink, std::string port);
  /** Removes an uplink with its port and the addresses behind it. Throws StatusError ZEL_NOT_FOUND. */
  void RemoveUplink(std::string_view owner, std::string_view uplink);
  /** Makes these the uplinks of a switch. One that is there already, on the same port, stays as it is. Throws as
      AddUplink does, and StatusError ZEL_BUSY when one that is not among them has a NIC. */
  void ReplaceUplinks(std::string_view owner, const std::vector<UplinkSpec> &uplinks);
  /** Throws as SwitchConfig::AddLag does. */
  void AddLag(std::string_view owner, Lag lag);
  /** Plugs a client, or a NIC, into the port of that distributed-port id. Throws as SwitchConfig::Connect does, and
      StatusError ZEL_NOT_FOUND for an unknown port or NIC, ZEL_IS_CONNECTED for a NIC that is in another switch. */
  void Connect(std::string_view owner, std::string_view port, Client client);
  /** Pulls the client, or the NIC, out of a port. Addresses learned from it are left to age. Throws StatusError
      ZEL_NOT_FOUND for an unknown port, ZEL_IS_DISCONNECTED for a free one. */
  void Disconnect(std::string_view owner, std::string_view port);

  // ---- Properties ----

  /** The value in use: the one that is set, else the default of its key. Throws as ReadProperty does, and StatusError
      ZEL_NOT_FOUND for an unknown owner, as the other two do. */
  std::string PropertyOf(const PropertyOwner &owner, std::string_view key) const;
  /** Sets a value; its type tells whether it is saved too. Throws as CheckProperty does, and StatusError ZEL_BAD_PARAM
      for an unknown type. */
  void SetProperty(const PropertyOwner &owner, std::string_view key, const Property &property);
  /** Brings a default back, saved too or for the runtime only. Throws as CheckPropertyKey does, and StatusError
      ZEL_READ_ONLY for a key that cannot be set, ZEL_NOT_FOUND when nothing was set, ZEL_BUSY when a port builds on the
      value. */
  void ClearProperty(const PropertyOwner &owner, std::string_view key, Persistence persistence);
  /** Where a property of an owner is. Throws StatusError ZEL_NOT_FOUND. */
  PropertyPlace PlaceOf(const PropertyOwner &owner) const;

  /** The VLAN policy of a port, as a property. */
  void SetPortVlan(std::string_view owner, std::string_view port, const VlanPolicy &policy, Persistence persistence);
  void ClearPortVlan(std::string_view owner, std::string_view port);

  // ---- What holds on the whole host, until the configuration is loaded anew ----

  const VSMACLearningGlobalProps &mac_learning() const { return mac_learning_; }
  /** Throws StatusError ZEL_BAD_PARAM for an ageing time of 0 or above VS_MAC_LEARNING_AGING_TIME_MAX. */
  void SetMacLearning(const VSMACLearningGlobalProps &defaults);
  const RuntimeOptions &options() const { return options_; }
  RuntimeOptions &options() { return options_; }

  // ---- Handles ----

  const HandleTable &handles() const { return handles_; }
  HandleTable &handles() { return handles_; }

  // ---- Addresses ----

  /** Tells a switch that a frame from `source` came in through a port. Throws StatusError ZEL_NOT_FOUND for an unknown
      port, ZEL_BAD_VLANID for a VLAN that the switch does not carry, ZEL_BAD_PARAM for an address that no station
      has. */
  Learning SeeSource(std::string_view owner, PortId port, const MacKey &source);
  /** Enters an address behind a port for good. Throws as SeeSource and MacTable::Enter do. */
  void EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind);
  /** Takes an address from behind a port. Throws StatusError ZEL_NOT_FOUND when it is not there, ZEL_READ_ONLY for the
      static entry of a client. */
  void RemoveAddress(std::string_view owner, PortId port, const MacKey &address);

  // ---- Life of the configuration ----

  /** Puts the saved configuration in the place of the one in use. A switch that is in both keeps what traffic has made
      of it. */
  void LoadConfig();
  /** Gives every property its default, in use and saved. */
  void ResetConfig();
  /** Drops learned addresses behind ports without a client, group members whose uplink is gone and groups that have
      none left. */
  void Sanitize();
  /** Releases the switches. The NICs, the time and the saved configuration remain. */
  void Cleanup() noexcept;

 private:
  Switch &Get(std::string_view name);
  /** Drops what refers to a port that is gone. */
  void ForgetPort(Switch &owner, PortId port) noexcept;

  VirtualClock clock_;
  NicTable nics_;
  SwitchSet<Switch> switches_;
  Store store_;
  VSMACLearningGlobalProps mac_learning_ = kDefaultMacLearning;
  RuntimeOptions options_;
  HandleTable handles_;
  /** Above the range of port indexes, so that an index is not taken for an identifier. */
  PortId next_port_id_ = 0x02000001;
};

}  // namespace kestrel::host
