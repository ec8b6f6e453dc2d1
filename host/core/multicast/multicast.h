/* Multicast at work on a switch: what it listens to, what it asks, and which ports a frame to a group is for. */
#pragma once

#include <array>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/multicast/group_packet.h"
#include "host/core/switch.h"
#include "host/export.h"

namespace kestrel::host {

/** The multicast filter mode of a switch, VS_MCAST_FILTER_MODE_LEGACY or _SNOOPING. */
KESTREL_HOST_EXPORT VSMcastFilterMode MulticastModeOf(const SwitchConfig &config);

/** How a switch follows memberships, as its mode and the host's runtime options say. */
KESTREL_HOST_EXPORT MulticastSettings MulticastSettingsOf(const Host &host, const SwitchConfig &config);

/** Notes what a frame that came in through a port says of groups, and asks the port where something is in doubt. To be
    called for every frame with a group destination, in either mode; others have nothing to say. */
KESTREL_HOST_EXPORT void ObserveMulticast(Host &host, Switch &owner, const Port &port, VlanId vlan, const Frame &frame);

/** Drops memberships that are over and sends the queries that are due. To be called when time has passed. */
KESTREL_HOST_EXPORT void RunMulticastTimers(Host &host, Switch &owner);

/** A frame to a group on its way to the ports: made once a frame, then asked for each port that the frame's VLAN
   reaches. Allocates nothing. All that it is given must stay, unchanged, as long as it does. */
class KESTREL_HOST_EXPORT MulticastDelivery {
 public:
  /** The destination of the frame must be a group, IsGroup. */
  MulticastDelivery(const Host &host, const Switch &owner, VlanId vlan, const Frame &frame);

  /** Whether the frame is for a port, be it an uplink or not, by its filters and what it has joined. Whatever else a
     port accepts, promiscuous ones for instance, is not asked here. */
  bool Reaches(const Port &port) const;

 private:
  bool ReachesBySnooping(const Port &port) const;
  bool ReachesByAddress(const Port &port) const;

  const Switch &owner_;
  const MacAddress address_;
  const GroupTarget target_;
  const bool snoops_;
  /** In which groups are known. */
  const VlanId vlan_;
  /** Of the group in that VLAN; null when it has none. */
  const std::vector<GroupMember> *members_ = nullptr;
  bool uplinks_take_it_ = true;
  /** Among the addresses that are let through on all ports of the switch. */
  bool is_user_address_ = false;
};

/** The group addresses that a port accepts in legacy mode, in order: those entered by users for the switch or the port,
    those of its extra Ethernet filter and those of the groups that it has joined. */
KESTREL_HOST_EXPORT std::vector<MacAddress> AcceptedGroupAddresses(const Switch &owner, const Port &port);

}  // namespace kestrel::host
