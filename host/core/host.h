/* The host: everything that its libraries answer from. */
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/base/revision.h"
#include "host/core/enhanced_datapath.h"
#include "host/core/host_defaults.h"
#include "host/core/images/state_image.h"
#include "host/core/mac_table.h"
#include "host/core/nic_table.h"
#include "host/core/properties/property.h"
#include "host/core/runtime_options.h"
#include "host/core/store.h"
#include "host/core/switch.h"
#include "host/core/switch_set.h"
#include "host/core/traffic/capture.h"
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
    not under the interpreter's lock: the host takes no lock of its own.

    A host may have a file behind it (host_file.h), which writes down after each call what has changed. So each change
    has to be noted:
    - a switch is changed through what Get, or a set of switches that is not const, hands out, which notes the switch;
    - within it, SwitchConfig notes what its operations change; a table keeps a ChangeList of its keys, or a revision
      that goes up;
    - NICs, clock, defaults and options are compared with what the file has.
    A new member of the host needs nothing here, but a place in the file (host_file_tables.h). */
class KESTREL_HOST_EXPORT Host {
 public:
  Host() = default;

  // ---- Time ----

  const VirtualClock &clock() const { return clock_; }
  /** Lets time pass; what has grown too old is dropped. Throws as VirtualClock::Advance does. */
  void AdvanceClock(Duration by);

  // ---- NICs ----

  /** Throw as NicTable::Add does. */
  void AddNic(std::string name, LinkStatus link);
  void AddNic(std::string name, const Nic &nic);
  /** Takes a NIC away for good, out of the uplink that it may be in. Throws StatusError ZEL_NOT_FOUND. */
  void RemoveNic(std::string_view name);
  /** Makes a NIC, and what it is connected to, what is written. Throws as NicTable::Set does. */
  void SetNic(std::string_view name, const Nic &nic);
  /** Takes the link of a NIC down by hand, or lets it be what it is again. Throws StatusError ZEL_NOT_FOUND. */
  void SetNicEnabled(std::string_view name, bool enabled);
  const NicTable &nics() const { return nics_; }
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
  /** Switch::number of the switch of that id, running or released; 0 when there is none. */
  std::uint64_t NumberOfSwitch(std::string_view id) const;
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
  /** Makes this host a member of a switch. Throws StatusError ZEL_IS_CONNECTED when it is one. */
  void Associate(std::string_view owner);
  /** Ends the membership. Throws StatusError ZEL_IS_DISCONNECTED when there is none, ZEL_BUSY while a client is
      connected. */
  void Dissociate(std::string_view owner);

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
  /** Policies that name the group keep its name. Throws StatusError ZEL_NOT_FOUND. */
  void RemoveLag(std::string_view owner, std::string_view lag);
  /** Plugs a client, or a NIC, into the port of that distributed-port id, whose counters begin anew. A client that
      brings no address is given one. Throws as SwitchConfig::Connect does, and
      StatusError ZEL_NOT_FOUND for an unknown port or NIC, ZEL_IS_CONNECTED for a NIC that is in another switch. */
  void Connect(std::string_view owner, std::string_view port, Client client);
  /** Pulls the client, or the NIC, out of a port. Addresses learned from it are left to age; the groups it has joined
      go with it. Throws StatusError ZEL_NOT_FOUND for an unknown port, ZEL_IS_DISCONNECTED for a free one. */
  void Disconnect(std::string_view owner, std::string_view port);
  /** What the client of a port asks of its adapter from now on. Throws as SwitchConfig::SetAdapter does. */
  void SetAdapter(std::string_view owner, std::string_view port, const Adapter &adapter);

  /** Says which NUMA node the client of a port runs on. Throws StatusError ZEL_NOT_FOUND for an unknown port. */
  void SetClientNode(std::string_view owner, std::string_view port, std::uint32_t node);
  /** Reads anew which NUMA nodes the NICs of a switch are near to. */
  void RefreshNumaNodes(std::string_view owner);

  // ---- Properties ----

  /** The value in use: the one that is set, else the default of its key. Throws as ReadProperty does, and StatusError
      ZEL_NOT_FOUND for an unknown owner, as the others do. */
  std::string PropertyOf(const PropertyOwner &owner, std::string_view key) const;
  /** The same as an offload device sees it, which is not given what is not replicated and goes by the default then. */
  std::string OffloadedPropertyOf(const PropertyOwner &owner, std::string_view key) const;
  /** Sets a value; its type tells whether it is saved too. Throws as CheckProperty does, and StatusError ZEL_BAD_PARAM
      for an unknown type. */
  void SetProperty(const PropertyOwner &owner, std::string_view key, const Property &property);
  /** Brings a default back, saved too or for the runtime only. Throws as CheckPropertyKey does, and StatusError
      ZEL_READ_ONLY for a key that cannot be set, ZEL_NOT_FOUND when nothing was set, ZEL_BUSY when a port builds on the
      value. */
  void ClearProperty(const PropertyOwner &owner, std::string_view key, Persistence persistence);

  /** The VLAN policy of a port, as a property. */
  void SetPortVlan(std::string_view owner, std::string_view port, const VlanPolicy &policy, Persistence persistence);

  // ---- Images: docs/state-image.md ----

  /** The image of the switches in use, of those that are saved, of one in use. All throw as FrameImage does. */
  std::string ImageOfState() const;
  std::string ImageOfSavedState() const;
  std::string ImageOfSwitch(std::string_view owner) const;
  /** Puts the state of an image in the place of all switches, in use and saved. Throws as StateOfImage does,
     StatusError ZEL_NOT_FOUND for a NIC that the host lacks. */
  void InitState(std::string_view image);
  /** Puts one switch back, from an image of it alone. Throws as InitState does, StatusError ZEL_BAD_PARAM for an image
     of anything else than this switch, ZEL_EXISTS for a name or a port that another switch has, ZEL_IS_CONNECTED for a
     NIC that is in another one. */
  void RestoreSwitch(std::string_view owner, std::string_view image);
  /** Puts the saved side of an image in the place of the configuration, in use and saved; clients stay connected.
     Throws as StateOfImage does, StatusError ZEL_BUSY when there is no place for a client. */
  void ReplaceConfig(std::string_view image);
  /** The image of a port in use; of a port as it is saved, in the form of a version. Throw as ImageOfPort does,
     StatusError ZEL_NOT_FOUND for an unknown port. */
  std::string ImageOfPortInUse(std::string_view owner, std::string_view port) const;
  std::string ImageOfSavedPort(std::string_view owner, std::string_view port, std::uint32_t version) const;
  /** Adds a port with the state in an image. Throws as SwitchConfig::AddPort, PortOfImage and CheckProperty do, but
     that what a value refers to may be missing, StatusError ZEL_EXISTS for an external identifier that is taken. */
  PortId AddPortOfImage(std::string_view owner, std::string port, std::string_view image);

  // ---- What holds on the whole host, until the configuration is loaded anew ----

  const VSMACLearningGlobalProps &mac_learning() const { return mac_learning_; }
  /** Throws StatusError ZEL_BAD_PARAM for an ageing time of 0 or above VS_MAC_LEARNING_AGING_TIME_MAX. */
  void SetMacLearning(const VSMACLearningGlobalProps &defaults);
  const RuntimeOptions &options() const { return options_; }
  /** To change them. */
  RuntimeOptions &options() {
    revision_.Renew();
    return options_;
  }
  /** Another one after every change of the NICs, of the runtime options and of the defaults of MAC learning: with the
      revision of a switch's configuration, it tells whether what was derived from them still holds. */
  std::uint64_t revision() const { return revision_.number(); }

  const EnhancedDatapath &datapath() const { return datapath_; }
  /** To change it. */
  EnhancedDatapath &datapath() { return datapath_; }

  // ---- Addresses ----

  /** Tells a switch that a frame from `source` came in through a port. Throws StatusError ZEL_NOT_FOUND for an unknown
      port, ZEL_BAD_VLANID for a VLAN that the switch does not carry, ZEL_BAD_PARAM for an address that no station
      has. */
  Learning SeeSource(std::string_view owner, PortId port, const MacKey &source);
  /** Enters an address behind a port for good. Throws as SeeSource and MacTable::Enter do. */
  void EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind);
  /** Drops the learned addresses of a switch; gives their number. */
  std::size_t FlushAddresses(std::string_view owner);
  /** Takes an address from behind a port. Throws StatusError ZEL_NOT_FOUND when it is not there, ZEL_READ_ONLY for the
      static entry of a client. */
  void RemoveAddress(std::string_view owner, PortId port, const MacKey &address);

  // ---- Traffic ----

  /** Lets a frame come in through a port, from its client or, for an uplink, from the network. Throws StatusError
      ZEL_NOT_FOUND for an unknown port, ZEL_IS_DISCONNECTED for a free one, ZEL_ENETDOWN for a NIC without a link,
      ZEL_BAD_PARAM for bytes that are no frame. What becomes of the frame is no failure. */
  void SendFrame(std::string_view owner, std::string_view port, FrameBytes bytes);

  /** Keeps what leaves a port from now on. Throws as CaptureTable::Start does, and StatusError ZEL_NOT_FOUND for an
      unknown port, as the others do. */
  void StartCapture(std::string_view owner, std::string_view port, const CaptureOptions &options = {});
  void StopCapture(std::string_view owner, std::string_view port);
  Captured TakeCapture(std::string_view owner, std::string_view port);
  CaptureTable &captures() { return captures_; }

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

  // ---- The host as a whole ----

  /** Starts the host anew, as after a loss of power: switches run on their saved configuration, and what traffic made
      of them is gone, as are the defaults and options that were set. NICs, clients with their own addresses and the
     time remain. */
  void Restart();
  /** What the host is now, as a value. */
  std::unique_ptr<const Host> Snapshot() const;
  /** Becomes what a host was. Its switches count as others than before: handles to those end. */
  void Restore(const Host &snapshot);
  /** Becomes what it was itself a moment ago, as if nothing had happened since. */
  void TakeBack(const Host &snapshot) { *this = Host(snapshot); }

 private:
  friend class HostFile;
  friend class HostFileTables;

  Host(const Host &) = default;
  Host(Host &&) = default;
  Host &operator=(const Host &) = delete;
  Host &operator=(Host &&) = default;

  Switch &Get(std::string_view name);
  /** Puts switches that are fit for this host in the place of all. */
  void Install(std::vector<SwitchState> switches);
  /** The saved side of a switch in use. */
  const SwitchConfig &SavedOf(const SwitchConfig &in_use) const;
  /** Null when the NIC is in no switch. */
  Switch *FindOwnerOfNic(std::string_view nic);
  /** Does what is due until a time; what there is no memory for is left to the next time. */
  void RunTimers(TimePoint end) noexcept;
  /** The switch for which `owns(switch)` is true, looked for first where it was found the last time. */
  template <typename Owners, typename Key, typename Owns>
  const Switch &FindOwner(Owners &owners, const Key &key, Owns owns) const;
  /** Where an address stands in the table of a switch: those of a private VLAN are under its primary one. */
  MacKey InTable(const Switch &owner, const MacKey &key) const;
  /** Drops what refers to a port that is gone. */
  void ForgetPort(Switch &owner, PortId port) noexcept;

  VirtualClock clock_;
  NicTable nics_;
  SwitchSet<Switch> switches_;
  Store store_;
  VSMACLearningGlobalProps mac_learning_ = kDefaultMacLearning;
  RuntimeOptions options_;
  EnhancedDatapath datapath_;
  Revision revision_;
  CaptureTable captures_;
  /** Identifiers of switches: where ports and NICs were found the last time. They may be gone from there. */
  mutable std::unordered_map<PortId, std::string> owners_of_ports_;
  mutable TextMap<std::string> owners_of_nics_;
  PortId next_port_id_ = kFirstPortId;
  std::uint64_t next_switch_number_ = 1;
};

}  // namespace kestrel::host
