#include "host/core/multicast/multicast.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <variant>

#include "host/core/base/record_bytes.h"
#include "host/core/traffic/traffic.h"
#include "kestrel/constants.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {
namespace {

/** What queries come from, in an address of no vendor. */
constexpr MacAddress kSwitchMac{0x02, 'k', 'e', 's', 't', 'r'};
/** Loses every election among routers: the network's own are to ask as soon as there is one. */
constexpr IpAddress kLastRouter{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};

bool IsSet(const PropertySet &properties, std::string_view key) {
  const Property *flag = properties.Find(key);
  return flag != nullptr && RecordOf<zel_Bool>(flag->value) != 0;
}

// ---- Filters by address ----

/** The addresses under a key of user entries, as they lie. */
std::string_view UserEntries(const PropertySet &properties, std::string_view key) {
  const Property *entries = properties.Find(key);
  if (entries == nullptr) return {};
  return std::string_view(entries->value).substr(sizeof(VSUserMcastLegacyKeys));
}

bool HasEntry(std::string_view entries, const MacAddress &address) {
  for (; !entries.empty(); entries.remove_prefix(address.size())) {
    if (std::memcmp(entries.data(), address.data(), address.size()) == 0) return true;
  }
  return false;
}

bool FollowsSwitch(const Port &port) { return !IsSet(port.properties, VSPROP_PORT_USER_MCAST_ADDRESSES_OVERRIDE); }

std::string_view ExtraFilter(const Port &port) {
  const Property *filter = port.properties.Find(VSPROP_PORT_EXTRA_ETH_FRP);
  return filter == nullptr ? std::string_view() : std::string_view(filter->value);
}

std::uint32_t FlagsOfFilter(std::string_view filter) {
  return filter.empty() ? 0 : RecordAt<std::uint32_t>(filter, offsetof(VSExtraEthFilter, flags));
}

/** The exact addresses of an extra filter, as they lie; the flag for groups makes them count. */
std::string_view EntriesOfFilter(std::string_view filter) {
  if ((FlagsOfFilter(filter) & ZEL_ETH_FILTER_MULTICAST) == 0) return {};
  const auto count = RecordAt<std::uint16_t>(filter, offsetof(VSExtraEthFilter, numMulticastAddrs));
  return filter.substr(offsetof(VSExtraEthFilter, multicastAddrs), count * sizeof(MacAddress));
}

bool PassesExtraFilter(const Port &port, const MacAddress &address) {
  const std::string_view filter = ExtraFilter(port);
  return (FlagsOfFilter(filter) & (ZEL_ETH_FILTER_ALLMULTI | ZEL_ETH_FILTER_PROMISC)) != 0 ||
         HasEntry(EntriesOfFilter(filter), address);
}

// ---- VLANs ----

/** The VLAN that groups are known in: those of a private VLAN are known in its primary one. */
VlanId GroupVlan(const SwitchConfig &config, VlanId vlan) {
  const Property *map = config.properties().Find(VSPROP_PVLAN_MAP);
  if (map == nullptr) return vlan;
  const std::string_view entries(map->value);
  for (std::size_t place = 0; place < entries.size(); place += sizeof(VSPvlanMapEntry)) {
    const auto entry = RecordAt<VSPvlanMapEntry>(entries, place);
    if (entry.secondaryVID == vlan) return entry.primaryVID;
  }
  return vlan;
}

// ---- Queries ----

GroupQuery QueryFor(const MulticastSettings &settings, bool is_v4) {
  return {.generation = is_v4 ? settings.igmp : settings.mld,
          .router = is_v4 ? settings.ipv4_router : settings.ipv6_router,
          .group = is_v4 ? kNoIpV4 : kNoIpV6,
          .robustness = settings.robustness,
          .interval = settings.query_interval};
}

void Ask(Host &host, Switch &owner, const Port &port, const GroupQuery &query, VlanId tag) {
  const auto bytes = WriteQueryFrame(query, kSwitchMac);
  SendOut(host, owner, port, Frame(bytes), tag == 0 ? std::nullopt : std::optional(VlanTag{.vlan = tag}));
}

/** Whether the switch speaks to a port. */
bool CanAsk(const Switch &owner, const Port &port) {
  return port.client && port.client->type != VS_PORT_CLIENT_UPLINK && !IsSet(port.properties, ZEL_VDSPROP_PORT_BLOCK) &&
         !IsSet(owner.config.properties(), VSPROP_SWITCH_FORWARDING_DISABLED);
}

/** The tag that a port sees on the frames of a VLAN; 0 for none. */
VlanId TagFor(const Port &port, VlanId vlan) {
  const auto policy = VlanOf(port);
  return policy && policy->mode == VlanMode::kTrunk && vlan != policy->vlan ? vlan : VlanId{0};
}

void AskAboutMembers(Host &host, Switch &owner, const std::vector<MemberQuestion> &questions,
                     const MulticastSettings &settings) {
  for (const MemberQuestion &question : questions) {
    const Port *port = owner.config.ports().Find(question.port);
    if (port == nullptr || !CanAsk(owner, *port)) continue;
    GroupQuery query = QueryFor(settings, IsIpV4(question.key.group));
    query.group = question.key.group;
    query.sources = question.sources;
    query.max_response = kLastMemberResponse;
    // Versions without sources and without groups cannot ask so; their hosts' memberships run out.
    const bool can_say =
        question.sources.empty() ? query.generation != Generation::kJoin : query.generation == Generation::kSources;
    if (can_say) Ask(host, owner, *port, query, TagFor(*port, question.key.vlan));
  }
}

/** The VLANs that a port is asked in for all its groups: its own and, on a trunk, those it has joined something in. */
std::vector<VlanId> VlansToAsk(const Switch &owner, const Port &port) {
  const auto policy = VlanOf(port);
  std::vector<VlanId> vlans{GroupVlan(owner.config, policy ? policy->vlan : VlanId{0})};
  if (!policy || policy->mode != VlanMode::kTrunk) return vlans;
  for (const GroupKey &key : owner.runtime.multicast.GroupsOf(port.id)) {
    if (key.vlan != vlans.front() && key.vlan != vlans.back()) vlans.push_back(key.vlan);
  }
  return vlans;
}

void AskForAll(Host &host, Switch &owner, const MulticastSettings &settings) {
  for (const Port &port : owner.config.ports().Items()) {
    if (!CanAsk(owner, port)) continue;
    for (const VlanId vlan : VlansToAsk(owner, port)) {
      for (const bool is_v4 : {true, false}) {
        const GroupQuery query = QueryFor(settings, is_v4);
        if (owner.runtime.multicast.HasOtherQuerier(vlan, query.router, host.clock().Now(), settings)) continue;
        Ask(host, owner, port, query, TagFor(port, vlan));
      }
    }
  }
}

}  // namespace

VSMcastFilterMode MulticastModeOf(const SwitchConfig &config) {
  const Property *mode = config.properties().Find(VSPROP_MULTICAST_FILTER);
  return mode == nullptr ? VS_MCAST_FILTER_MODE_LEGACY : RecordOf<VSMcastFilterMode>(mode->value);
}

MulticastSettings MulticastSettingsOf(const Host &host, const SwitchConfig &config) {
  const RuntimeOptions &options = host.options();
  const bool snoops = MulticastModeOf(config) == VS_MCAST_FILTER_MODE_SNOOPING;
  return {
      .ages = snoops,
      .asks = snoops,
      .ipv4_router = IpAddressOf(options.AddressTextOf(VS_RT_OPT_IGMP_ROUTER_IP)).value_or(kNoIpV4),
      .ipv6_router = IpAddressOf(options.AddressTextOf(VS_RT_OPT_MLD_ROUTER_IP)).value_or(kLastRouter),
      .igmp = static_cast<Generation>(options.NumberOf(VS_RT_OPT_IGMP_VERSION)),
      .mld = static_cast<Generation>(options.NumberOf(VS_RT_OPT_MLD_VERSION) + 1),
      .query_interval = std::chrono::seconds(options.NumberOf(VS_RT_OPT_IGMP_QUERY_INTERVAL)),
      .robustness = static_cast<std::uint8_t>(options.NumberOf(VS_RT_OPT_IGMP_QUERIES)),
      .ipv4_sources = options.NumberOf(VS_RT_OPT_IGMP_V3_MAX_SRC_IP_NUM),
      .ipv6_sources = options.NumberOf(VS_RT_OPT_MLD_V2_MAX_SRC_IP_NUM),
  };
}

void ObserveMulticast(Host &host, Switch &owner, const Port &port, VlanId vlan, const Frame &frame) {
  const GroupMessage message = ReadGroupMessage(frame);
  if (std::holds_alternative<std::monostate>(message)) return;
  // What hosts elsewhere have joined is the network's business.
  const bool is_uplink = owner.config.uplinks().Find(port.id) != nullptr;
  if (is_uplink && std::holds_alternative<GroupReport>(message)) return;
  const MulticastSettings settings = MulticastSettingsOf(host, owner.config);
  const auto questions =
      owner.runtime.multicast.Note(port.id, GroupVlan(owner.config, vlan), message, host.clock().Now(), settings);
  AskAboutMembers(host, owner, questions, settings);
}

void RunMulticastTimers(Host &host, Switch &owner) {
  MulticastTable &table = owner.runtime.multicast;
  const MulticastSettings settings = MulticastSettingsOf(host, owner.config);
  const TimePoint now = host.clock().Now();
  table.Follow(settings, now);
  table.Expire(now);
  AskAboutMembers(host, owner, table.TakeQuestions(now, settings), settings);
  if (table.TakeGeneralQuery(now, settings)) AskForAll(host, owner, settings);
}

MulticastDelivery::MulticastDelivery(const Host &host, const Switch &owner, VlanId vlan, const Frame &frame)
    : owner_(owner),
      address_(frame.destination()),
      target_(TargetOf(frame)),
      snoops_(MulticastModeOf(owner.config) == VS_MCAST_FILTER_MODE_SNOOPING),
      vlan_(GroupVlan(owner.config, vlan)) {
  if (snoops_ && target_.kind == GroupTarget::Kind::kGroup) {
    members_ = owner.runtime.multicast.Members(vlan_, target_.group);
  }
  if (snoops_ && target_.kind == GroupTarget::Kind::kReport) {
    uplinks_take_it_ = host.options().NumberOf(VS_RT_OPT_SEND_IGMP_REPORT_TO_UPLINK) != 0;
  }
  if (!snoops_) {
    is_user_address_ = HasEntry(UserEntries(owner.config.properties(), VSPROP_USER_MCAST_ADDRESSES), address_);
  }
}

bool MulticastDelivery::Reaches(const Port &port) const {
  if (port.client && port.client->type == VS_PORT_CLIENT_UPLINK) return uplinks_take_it_;
  const bool reaches = snoops_ ? ReachesBySnooping(port) : ReachesByAddress(port);
  return reaches || PassesExtraFilter(port, address_);
}

bool MulticastDelivery::ReachesBySnooping(const Port &port) const {
  if (target_.kind == GroupTarget::Kind::kOther || target_.kind == GroupTarget::Kind::kLinkLocal) return true;
  if (members_ != nullptr) {
    const auto member = std::ranges::lower_bound(*members_, port.id, {}, &GroupMember::port);
    const bool is_in = member != members_->end() && member->port == port.id;
    if (is_in && member->membership.Wants(target_.source)) return true;
  }
  return owner_.runtime.multicast.IsRouterPort(port.id, vlan_, target_.group);
}

bool MulticastDelivery::ReachesByAddress(const Port &port) const {
  // Clients need no report for what their neighbours say to all of them.
  if (target_.kind == GroupTarget::Kind::kLinkLocal || IsLinkLocalGroup(target_.group)) return true;
  if (is_user_address_ && FollowsSwitch(port)) return true;
  return owner_.runtime.multicast.HasJoined(port.id, address_) ||
         HasEntry(UserEntries(port.properties, VSPROP_PORT_USER_MCAST_ADDRESSES), address_);
}

std::vector<MacAddress> AcceptedGroupAddresses(const Switch &owner, const Port &port) {
  std::vector<MacAddress> accepted = owner.runtime.multicast.AddressesOf(port.id);
  const auto add = [&accepted](std::string_view entries) {
    for (; !entries.empty(); entries.remove_prefix(sizeof(MacAddress))) {
      std::ranges::copy_n(entries.begin(), sizeof(MacAddress), accepted.emplace_back().begin());
    }
  };
  if (FollowsSwitch(port)) add(UserEntries(owner.config.properties(), VSPROP_USER_MCAST_ADDRESSES));
  add(UserEntries(port.properties, VSPROP_PORT_USER_MCAST_ADDRESSES));
  add(EntriesOfFilter(ExtraFilter(port)));
  std::ranges::sort(accepted);
  const auto repeated = std::ranges::unique(accepted);
  accepted.erase(repeated.begin(), repeated.end());
  return accepted;
}

}  // namespace kestrel::host
