/* The host: everything that its libraries answer from. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/clock.h"
#include "host/core/mac_table.h"
#include "host/core/nic_table.h"
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
  /** The link of a NIC that is plugged in somewhere. */
  const LinkStatus &LinkOfPluggedNic(std::string_view name) const;

  // ---- Switches ----

  /** In the order in which they were made. */
  auto Switches() const { return switches_.Items(); }
  /** By portset name or alias, as everywhere below; good until the next LoadConfig or Cleanup. Throws StatusError
      ZEL_NOT_FOUND, as every operation does that is given the name of a switch. */
  const Switch &FindSwitch(std::string_view name) const;
  /** Throws as SwitchConfig's constructor and SwitchSet::Add do. */
  void AddSwitch(SwitchSpec spec);

  // ---- Structure, always saved ----

  /** Adds a port of the distributed-port id `port`. Throws as SwitchConfig::AddPort does. */
  PortId AddPort(std::string_view owner, std::string port);
  /** Adds an uplink, whose port has the distributed-port id `port`. Throws as SwitchConfig::AddUplink does. */
  PortId AddUplink(std::string_view owner, std::string uplink, std::string port);
  /** Removes an uplink with its port and the addresses behind it. Throws StatusError ZEL_NOT_FOUND. */
  void RemoveUplink(std::string_view owner, std::string_view uplink);
  /** Throws as SwitchConfig::AddLag does. */
  void AddLag(std::string_view owner, Lag lag);
  /** Plugs a client, or a NIC, into the port of that distributed-port id. Throws as SwitchConfig::Connect does, and
      StatusError ZEL_NOT_FOUND for an unknown port or NIC, ZEL_IS_CONNECTED for a NIC that is in another switch. */
  void Connect(std::string_view owner, std::string_view port, Client client);
  /** Pulls the client, or the NIC, out of a port. Addresses learned from it are left to age. Throws StatusError
      ZEL_NOT_FOUND for an unknown port, ZEL_IS_DISCONNECTED for a free one. */
  void Disconnect(std::string_view owner, std::string_view port);

  // ---- Properties ----

  /** Throws StatusError ZEL_NOT_FOUND for an unknown port, and as CheckVlanPolicy does. */
  void SetPortVlan(std::string_view owner, std::string_view port, VlanPolicy policy, Persistence persistence);
  /** Throws StatusError ZEL_NOT_FOUND for an unknown port and for one that has no policy. */
  void ClearPortVlan(std::string_view owner, std::string_view port);

  // ---- Addresses ----

  /** Tells a switch that a frame from `source` came in through a port. Throws StatusError ZEL_NOT_FOUND for an unknown
      port, ZEL_BAD_VLANID for a VLAN that the switch does not carry, ZEL_BAD_PARAM for an address that no station
      has. */
  Learning SeeSource(std::string_view owner, PortId port, const MacKey &source);
  /** Enters an address behind a port for good. Throws as SeeSource and MacTable::Enter do. */
  void EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind);

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

  VirtualClock clock_;
  NicTable nics_;
  SwitchSet<Switch> switches_;
  Store store_;
  /** Above the range of port indexes, so that an index is not taken for an identifier. */
  PortId next_port_id_ = 0x02000001;
};

}  // namespace kestrel::host
