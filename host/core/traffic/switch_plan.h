/* What forwarding needs to know of a switch, read out of its properties once instead of for every frame. */
#pragma once

#include <bitset>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "host/core/frames/mac_address.h"
#include "host/core/mac_table.h"
#include "host/core/port.h"
#include "host/core/vlan.h"

namespace kestrel::host {

class Host;
struct Switch;

/** By VLAN identifier. */
using VlanSet = std::bitset<4096>;

/** The part that a VLAN has in a private VLAN. */
enum class PrivateKind : std::uint8_t { kNone, kPromiscuous, kIsolated, kCommunity };

struct PrivateVlan {
  PrivateKind kind = PrivateKind::kNone;
  VlanId primary = 0;
};

/** A port as frames find it. */
struct PortPlan {
  PortId id = 0;
  const Port *port = nullptr;
  /** The address that the client uses. */
  MacAddress address{};

  VlanMode mode = VlanMode::kAccess;
  /** The VLAN of untagged frames; of a private VLAN the secondary one. */
  VlanId vlan = 0;
  /** Of a trunk: the VLANs that it carries, among those of the switch's plan. */
  std::uint32_t vlan_set = 0;
  /** Of a private VLAN port; kNone when its VLAN is in no private VLAN. */
  PrivateVlan private_vlan{};
  /** What its frames get; ZEL_VLAN_PRIORITY_INVALID for what they have. */
  std::uint8_t priority = ZEL_VLAN_PRIORITY_INVALID;

  bool is_uplink = false;
  bool has_client = false;
  /** A NIC's; a client's is up as long as it is there. */
  bool is_link_up = false;
  /** By hand, or because the client has an address that it may not have. */
  bool is_blocked = false;
  /** A tag inside of the VLAN may pass. */
  bool allows_nested_tags = false;
  /** Frames without a VLAN tag keep their priority in a tag of VLAN 0. */
  bool keeps_priority = false;
  /** Frames leave through an uplink whatever they are. */
  bool sends_to_uplink = false;
  bool allows_forged_sources = false;

  bool learns = false;
  /** Receives what no port is known for. */
  bool takes_unknown = false;
  bool is_sink = false;
  bool is_promiscuous = false;
  /** Frames from addresses that go beyond the limit are dropped. */
  bool drops_at_limit = false;
  /** How many addresses it learns. */
  std::size_t learning_limit = 0;

  bool takes_broadcasts = false;
  /** What the client's adapter takes of groups, beside what the port's filters and memberships do. */
  bool takes_all_groups = false;
  std::vector<MacAddress> groups{};
};

struct SwitchPlan {
  bool is_disabled = false;
  bool has_private_vlans = false;
  /** Addresses of this switch's own clients are learned on uplinks, and on other ports. */
  bool learns_static_on_uplinks = false;
  bool learns_static_on_ports = false;
  bool checks_reverse_path = false;
  bool checks_reverse_path_of_promiscuous = false;
  /** Clients may be without a link because their team is. */
  bool tracks_links = false;
  /** In bytes. */
  std::size_t mtu = 0;
  VlanRange vlans{};
  MacLimits limits{};
  /** How many entries the uplinks learn together. */
  std::size_t team_limit = 0;

  /** In the order of their identifiers. */
  std::vector<PortPlan> ports{};
  std::vector<VlanSet> vlan_sets{};
  /** By VLAN; empty when there are none. */
  std::vector<PrivateVlan> private_vlans{};
  /** Ports that receive more than what is meant for them: of unknown destination, or all. */
  std::vector<std::uint32_t> listeners{};
  std::vector<std::uint32_t> uplinks{};

  /** Null for a port that is not there. */
  const PortPlan *Find(PortId port) const {
    const auto found = places.find(port);
    return found == places.end() ? nullptr : &ports[found->second];
  }

  PrivateVlan PrivateVlanOf(VlanId vlan) const { return private_vlans.empty() ? PrivateVlan{} : private_vlans[vlan]; }

  /** The VLAN under which addresses are known: a private VLAN has one table for all its VLANs. */
  VlanId TableVlanOf(VlanId vlan) const {
    const PrivateVlan found = PrivateVlanOf(vlan);
    return found.kind == PrivateKind::kNone ? vlan : found.primary;
  }

  /** The port whose client uses an address in a VLAN; null when there is none. */
  const PortPlan *FindStation(VlanId vlan, const MacAddress &address) const;

  std::unordered_map<PortId, std::uint32_t> places{};
  /** The ports of the clients that use an address, one after the other, as a number. */
  std::unordered_multimap<std::uint64_t, std::uint32_t> stations{};
};

/** Whether a port is in a VLAN: it carries its frames one way or the other. */
KESTREL_HOST_EXPORT bool IsInVlan(const SwitchPlan &plan, const PortPlan &port, VlanId vlan);

/** The plan of a switch, made anew where what it is made from has changed. Good until then, as the ports that it points
    to are. */
KESTREL_HOST_EXPORT const SwitchPlan &PlanOf(const Host &host, const Switch &owner);

/** A plan with what it was made from. */
struct PlanCache {
  std::shared_ptr<const SwitchPlan> plan{};
  std::uint64_t config_revision = 0;
  std::uint64_t host_revision = 0;
};

}  // namespace kestrel::host
