#include "host/core/traffic/switch_plan.h"

#include <algorithm>
#include <string_view>

#include "host/core/base/record_bytes.h"
#include "host/core/host.h"
#include "host/core/mac_limits.h"
#include "host/core/properties/property_table.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {
namespace {

std::uint64_t NumberOf(const MacAddress &address) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : address) number = number << 8 | byte;
  return number;
}

/** Whether a policy lets clients see the links of their team. */
template <typename Policy>
bool TracksLinks(const Policy &policy) {
  return (policy.flags & TEAM_FRP_FLAG_LST) != 0;
}

bool HasTrackingPolicy(const PropertySet &properties, std::string_view key) {
  const Property *policy = properties.Find(key);
  return policy != nullptr && TracksLinks(RecordOf<VSTeamPolicy>(policy->value));
}

bool HasTrackingNamedPolicy(const PropertySet &properties) {
  const Property *table = properties.Find(VSPROP_LS_TEAMING_POLICY);
  if (table == nullptr) return false;
  for (std::size_t place = sizeof(LSTeamTable); place < table->value.size(); place += sizeof(LSTeamPolicy)) {
    if (TracksLinks(RecordAt<LSTeamPolicy>(table->value, place))) return true;
  }
  return false;
}

/** Puts the plan of one switch together. */
class Planner {
 public:
  Planner(const Host &host, const SwitchConfig &config)
      : host_(host),
        config_(config),
        security_(ValueOf<VSPropSecurity>(VSPROP_PORT_SECURITY).flags),
        management_(ValueOf<VSPMACManagement>(VSPROP_PORT_MAC_MANAGEMENT)),
        priority_(ValueOf<zel_uint32>(VSPROP_PORT_PRIORITY)) {}

  SwitchPlan Make() {
    ReadSwitch();
    plan_.ports.reserve(config_.ports().size());
    for (const Port &port : config_.ports().Items()) Add(port);
    return std::move(plan_);
  }

 private:
  /** What a key of the switch has, or what a key of ports has by default. */
  template <typename Record>
  Record ValueOf(std::string_view key) const {
    if (const Property *set = config_.properties().Find(key)) return RecordOf<Record>(set->value);
    const PropertyContext where{.defaults = host_.mac_learning(), .config = config_, .port = nullptr};
    return RecordOf<Record>(FindPropertyRow(key)->fallback(where));
  }
  bool Flag(std::string_view key) const { return ValueOf<zel_Bool>(key) != 0; }
  bool Option(std::uint16_t code) const { return host_.options().NumberOf(code) != 0; }

  template <typename Record>
  static Record ValueAt(const Port &port, std::string_view key, Record standard) {
    const Property *set = port.properties.Find(key);
    return set == nullptr ? standard : RecordOf<Record>(set->value);
  }
  static bool FlagAt(const Port &port, std::string_view key) { return ValueAt<zel_Bool>(port, key, 0) != 0; }

  void ReadSwitch() {
    plan_.is_disabled = Flag(VSPROP_SWITCH_FORWARDING_DISABLED);
    plan_.learns_static_on_uplinks = Flag(VSPROP_SWITCH_MAC_LEARN_STATIC);
    plan_.learns_static_on_ports = Flag(VSPROP_SWITCH_STATIC_MAC_ALLOW);
    plan_.checks_reverse_path = Option(VS_RT_OPT_REVERSE_PATH_FWD_CHECK);
    plan_.checks_reverse_path_of_promiscuous = Option(VS_RT_OPT_REVERSE_PATH_FWD_CHECK_PROMISC);
    plan_.tracks_links =
        HasTrackingPolicy(config_.properties(), VSPROP_SWITCH_TEAMING) || HasTrackingNamedPolicy(config_.properties());
    plan_.mtu = MtuOf(config_);
    plan_.vlans = config_.spec().vlans;
    plan_.limits = MacLimitsOf(config_, host_.mac_learning());
    plan_.team_limit = std::min<std::size_t>(plan_.limits.entries, TEAM_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT);
    ReadPrivateVlans();
  }

  void ReadPrivateVlans() {
    const Property *map = config_.properties().Find(VSPROP_PVLAN_MAP);
    if (map == nullptr || map->value.empty()) return;
    plan_.has_private_vlans = true;
    plan_.private_vlans.resize(VlanSet().size());
    for (std::size_t place = 0; place < map->value.size(); place += sizeof(VSPvlanMapEntry)) {
      const auto entry = RecordAt<VSPvlanMapEntry>(map->value, place);
      // A primary VLAN is one, be it named as such or not.
      plan_.private_vlans[entry.primaryVID] = {PrivateKind::kPromiscuous, entry.primaryVID};
      PrivateVlan &secondary = plan_.private_vlans[entry.secondaryVID];
      secondary.primary = entry.primaryVID;
      if (entry.pvlanType == VSPORT_PVLAN_TYPE_ISOLATED) secondary.kind = PrivateKind::kIsolated;
      if (entry.pvlanType == VSPORT_PVLAN_TYPE_COMMUNITY) secondary.kind = PrivateKind::kCommunity;
    }
  }

  void Add(const Port &port) {
    const auto place = static_cast<std::uint32_t>(plan_.ports.size());
    PortPlan planned;
    planned.id = port.id;
    planned.port = &port;
    planned.is_uplink = config_.uplinks().Find(port.id) != nullptr;
    ReadVlan(port, planned);
    ReadPolicies(port, planned);
    ReadFilter(port, planned);
    if (port.client) ReadClient(port, planned);
    if (HasTrackingPolicy(port.properties, VSPROP_PORT_TEAMING_POLICY)) plan_.tracks_links = true;

    plan_.places.emplace(port.id, place);
    if (planned.is_uplink) {
      plan_.uplinks.push_back(place);
    } else if (planned.has_client) {
      plan_.stations.emplace(NumberOf(planned.address), place);
      if (planned.takes_unknown || planned.is_sink || planned.is_promiscuous) plan_.listeners.push_back(place);
    }
    plan_.ports.push_back(std::move(planned));
  }

  void ReadVlan(const Port &port, PortPlan &planned) {
    // An uplink carries all VLANs unless it is told otherwise.
    const VlanPolicy all{.mode = VlanMode::kTrunk, .ranges = {kAllVlans}};
    const VlanPolicy policy = VlanOf(port).value_or(planned.is_uplink ? all : VlanPolicy{});
    planned.mode = policy.mode;
    planned.vlan = policy.vlan;
    if (policy.mode == VlanMode::kTrunk) planned.vlan_set = SetOf(policy);
    if (policy.mode == VlanMode::kPrivate) planned.private_vlan = plan_.PrivateVlanOf(policy.vlan);
    if (policy.set_priority) {
      planned.priority = static_cast<std::uint8_t>(ValueAt<zel_uint32>(port, VSPROP_PORT_PRIORITY, priority_));
    }
    planned.allows_nested_tags = planned.is_uplink || FlagAt(port, VSPROP_PORT_VLAN_NESTEDTAG);
    planned.keeps_priority = planned.is_uplink || FlagAt(port, VSPROP_PORT_PRIORITY_RETAIN);
  }

  /** The place of a trunk's VLANs among the sets; trunks of the same VLANs share one. */
  std::uint32_t SetOf(const VlanPolicy &policy) {
    VlanSet set;
    for (const VlanRange range : policy.ranges) {
      for (std::size_t vlan = range.first; vlan <= range.last; ++vlan) set.set(vlan);
    }
    // Frames without a tag can be of one VLAN only: of the port's, or of VLAN 0 where a range has it.
    if (policy.vlan != 0) set.reset(0).set(policy.vlan);
    const auto [place, is_new] = set_places_.emplace(set, static_cast<std::uint32_t>(plan_.vlan_sets.size()));
    if (is_new) plan_.vlan_sets.push_back(set);
    return place->second;
  }

  void ReadPolicies(const Port &port, PortPlan &planned) const {
    planned.is_blocked = FlagAt(port, ZEL_VDSPROP_PORT_BLOCK);
    planned.sends_to_uplink = !planned.is_uplink && FlagAt(port, VSPROP_PORT_TX_UPLINK);
    const auto learning = ValueAt(port, VSPROP_PORT_MAC_MANAGEMENT, management_).portMACLearning;
    planned.learns = planned.is_uplink || learning.learning != 0;
    planned.takes_unknown = !planned.is_uplink && learning.flooding != 0;
    planned.drops_at_limit = !planned.is_uplink && learning.macLimitPolicy == VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP;
    planned.learning_limit = planned.is_uplink ? plan_.team_limit : learning.macLimit;
  }

  static void ReadFilter(const Port &port, PortPlan &planned) {
    const Property *filter = port.properties.Find(VSPROP_PORT_EXTRA_ETH_FRP);
    if (filter == nullptr) return;
    const std::uint32_t flags = RecordOf<VSExtraEthFilter>(filter->value).flags;
    planned.is_sink = (flags & ZEL_ETH_FILTER_SINK) != 0;
    Accept(flags, planned);
  }

  static void Accept(std::uint32_t filter, PortPlan &planned) {
    if ((filter & ZEL_ETH_FILTER_BROADCAST) != 0) planned.takes_broadcasts = true;
    if ((filter & ZEL_ETH_FILTER_ALLMULTI) != 0) planned.takes_all_groups = true;
    if ((filter & ZEL_ETH_FILTER_PROMISC) != 0) planned.is_promiscuous = true;
  }

  void ReadClient(const Port &port, PortPlan &planned) const {
    const Client &client = port.plugged();
    planned.has_client = true;
    planned.is_link_up = !planned.is_uplink || host_.LinkOfPluggedNic(client.name).state == ZEL_LINK_STATE_UP;
    planned.address = client.used_address();
    Accept(client.adapter.filter, planned);
    if ((client.adapter.filter & ZEL_ETH_FILTER_MULTICAST) != 0) planned.groups = client.adapter.groups;

    const std::uint32_t security = ValueAt(port, VSPROP_PORT_SECURITY, VSPropSecurity{security_}).flags;
    const bool may_change = (security & VSPORT_SECURITY_DISALLOW_MAC_CHANGE) == 0 ||
                            ValueAt(port, VSPROP_PORT_MAC_MANAGEMENT, management_).macChangeAllowed != 0;
    if (planned.address != client.address && !may_change) planned.is_blocked = true;
    planned.allows_forged_sources = planned.is_uplink || (security & VSPORT_SECURITY_DISALLOW_FORGED_SRC) == 0;
    if (planned.is_uplink || (security & VSPORT_SECURITY_DISALLOW_PROMISC) != 0) planned.is_promiscuous = false;
  }

  const Host &host_;
  const SwitchConfig &config_;
  /** What ports have where they say nothing else. */
  const std::uint32_t security_;
  const VSPMACManagement management_;
  const zel_uint32 priority_;
  SwitchPlan plan_{};
  std::unordered_map<VlanSet, std::uint32_t> set_places_{};
};

}  // namespace

const PortPlan *SwitchPlan::FindStation(VlanId vlan, const MacAddress &address) const {
  const PortPlan *station = nullptr;
  const auto [first, last] = stations.equal_range(NumberOf(address));
  for (auto found = first; found != last; ++found) {
    const PortPlan &port = ports[found->second];
    // Where several use one address, it is the first port's, so that an answer does not depend on the hash.
    if ((station == nullptr || port.id < station->id) && IsInVlan(*this, port, vlan)) station = &port;
  }
  return station;
}

bool IsInVlan(const SwitchPlan &plan, const PortPlan &port, VlanId vlan) {
  switch (port.mode) {
    case VlanMode::kAccess:
      return port.vlan == vlan;
    case VlanMode::kTrunk:
      return plan.vlan_sets[port.vlan_set].test(vlan);
    case VlanMode::kPrivate:
      return port.private_vlan.kind != PrivateKind::kNone && port.private_vlan.primary == plan.TableVlanOf(vlan);
  }
  return false;
}

const SwitchPlan &PlanOf(const Host &host, const Switch &owner) {
  PlanCache &cache = owner.plan;
  if (!cache.plan || cache.config_revision != owner.config.revision() || cache.host_revision != host.revision()) {
    cache = {std::make_shared<const SwitchPlan>(Planner(host, owner.config).Make()), owner.config.revision(),
             host.revision()};
  }
  return *cache.plan;
}

}  // namespace kestrel::host
