#include "host/core/multicast/multicast_table.h"

#include <algorithm>
#include <variant>

namespace kestrel::host {
namespace {

/** Hosts never report the group of all hosts, nor IPv6 groups that do not leave them. */
bool IsReportable(const IpAddress &group) {
  if (IsIpV4(group)) return group != IpV4(224, 0, 0, 1);
  constexpr IpAddress kAllHosts{{0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
  return (group.bytes[1] & 0xf) >= 2 && group != kAllHosts;
}

void Merge(std::vector<IpAddress> &into, const std::vector<IpAddress> &more) {
  into.insert(into.end(), more.begin(), more.end());
  std::ranges::sort(into);
  const auto repeated = std::ranges::unique(into);
  into.erase(repeated.begin(), repeated.end());
}

void AppendQuestions(std::vector<MemberQuestion> &questions, PortId port, const GroupKey &key, const Doubt &doubt) {
  if (doubt.group) questions.push_back({port, key});
  if (!doubt.sources.empty()) questions.push_back({port, key, doubt.sources});
}

template <typename Members>
auto PlaceOf(Members &members, PortId port) {
  return std::ranges::lower_bound(members, port, {}, &GroupMember::port);
}

}  // namespace

std::size_t MulticastTable::GroupKeyHash::operator()(const GroupKey &key) const noexcept {
  std::uint64_t hash = key.vlan;
  for (const std::uint8_t byte : key.group.bytes) hash = (hash ^ byte) * 0x9e3779b97f4a7c15;
  return hash ^ hash >> 32;
}

// ---- What frames say ----

std::vector<MemberQuestion> MulticastTable::Note(PortId port, VlanId vlan, const GroupMessage &message, TimePoint now,
                                                 const MulticastSettings &settings) {
  std::vector<MemberQuestion> questions;
  if (std::holds_alternative<std::monostate>(message)) return questions;
  ++revision_;
  if (std::holds_alternative<MalformedMessage>(message)) {
    ++counters_.malformed;
    return questions;
  }
  Follow(settings, now);
  if (const auto *query = std::get_if<GroupQuery>(&message)) {
    ++counters_.queries;
    NoteQuery(port, vlan, *query, now, settings);
  } else if (const auto *notice = std::get_if<RouterNotice>(&message)) {
    ++counters_.notices;
    NoteRouter(port, vlan, *notice, now);
  } else if (const auto *report = std::get_if<GroupReport>(&message)) {
    ++counters_.reports;
    for (const GroupRecord &record : report->records) {
      if (IsReportable(record.group)) {
        NoteRecord(port, vlan, report->generation, record, now, settings, questions);
      }
    }
  }
  return questions;
}

void MulticastTable::NoteQuery(PortId port, VlanId vlan, const GroupQuery &query, TimePoint now,
                               const MulticastSettings &settings) {
  const Family family = FamilyOf(query.router);
  const bool is_general = IsUnspecified(query.group);
  Times times = TimesOf(vlan, family, now, settings);
  if (!IsUnspecified(query.router)) {
    if (query.robustness != 0) times.robustness = query.robustness;
    if (query.interval != Duration::zero()) times.interval = query.interval;
    if (is_general) times.response = query.max_response;
    const TimePoint until = Later(now, times.QuerierPresent());
    NoteRouter(port, vlan, {query.router, times.QuerierPresent()}, now);
    const auto [place, is_new] = queriers_.try_emplace({vlan, family});
    Querier &querier = place->second;
    if (is_new || IsOver(querier.until, now) || query.router <= querier.router) {
      querier = {port, query.router, until, times.robustness, times.interval, times.response};
      WatchFor(until);
    }
  }
  if (is_general || query.suppress || !ages_) return;
  const auto found = groups_.find({vlan, query.group});
  if (found == groups_.end()) return;
  // A query that leaves no time to answer is no reason to take a group away.
  const TimePoint until = Later(now, times.robustness * std::max(query.max_response, kLastMemberResponse));
  for (GroupMember &member : found->second) {
    if (member.port == port) continue;
    member.membership.FollowQuery(query, until);
    WatchFor(until);
  }
}

void MulticastTable::NoteRouter(PortId port, VlanId vlan, const RouterNotice &notice, TimePoint now) {
  if (IsUnspecified(notice.router)) return;
  const RouterKey key{vlan, FamilyOf(notice.router), port, notice.router};
  if (notice.holds == Duration::zero()) {
    routers_.erase(key);
    return;
  }
  if (routers_.size() >= kMaxMulticastRouters && !routers_.contains(key)) {
    ++counters_.refused;
    return;
  }
  TimePoint &until = routers_[key];
  until = std::max(until, Later(now, notice.holds));
  WatchFor(until);
}

void MulticastTable::NoteRecord(PortId port, VlanId vlan, Generation generation, const GroupRecord &record,
                                TimePoint now, const MulticastSettings &settings,
                                std::vector<MemberQuestion> &questions) {
  const GroupKey key{vlan, record.group};
  const Family family = FamilyOf(record.group);
  const Times times = TimesOf(vlan, family, now, settings);
  const bool is_v4 = family == Family::kIpV4;
  const MembershipRules rules{.lifetime = ages_ ? times.Lifetime() : Duration::max(),
                              .leaving = ages_ ? times.robustness * kLastMemberResponse : Duration::zero(),
                              .sources = is_v4 ? settings.ipv4_sources : settings.ipv6_sources,
                              .generation = is_v4 ? settings.igmp : settings.mld};
  const GroupMember *former = FindMember(port, key);
  GroupMember member = former != nullptr ? *former : GroupMember{.port = port};
  const Doubt doubt = member.membership.Apply(record, generation, rules, now);
  if (former == nullptr) {
    if (member.membership.IsEmpty()) return;
    const auto has = ports_.find(port);
    if (has != ports_.end() && has->second.groups.size() >= kMaxGroupsOfPort) {
      ++counters_.refused;
      return;
    }
  }
  if (doubt && ages_ && settings.asks && !HasOtherQuerier(vlan, record.group, now, settings)) {
    AppendQuestions(questions, port, key, doubt);
    member.doubt.group = member.doubt.group || doubt.group;
    Merge(member.doubt.sources, doubt.sources);
    member.asking = times.robustness - 1U;
    member.ask_at = Later(now, kLastMemberResponse);
    next_question_ = std::min(next_question_, member.ask_at);
  }
  PutMember(key, std::move(member));
}

MulticastTable::Times MulticastTable::TimesOf(VlanId vlan, Family family, TimePoint now,
                                              const MulticastSettings &settings) const {
  const auto found = queriers_.find({vlan, family});
  if (found == queriers_.end() || IsOver(found->second.until, now)) {
    return {settings.robustness, settings.query_interval, kQueryResponse};
  }
  return {found->second.robustness, found->second.interval, found->second.response};
}

void MulticastTable::PutMember(const GroupKey &key, GroupMember member) {
  const PortId port = member.port;
  WatchFor(member.membership.NextEvent());
  if (member.membership.IsEmpty()) {
    const auto group = groups_.find(key);
    group->second.erase(PlaceOf(group->second, port));
    if (group->second.empty()) groups_.erase(group);
    CountOut(port, key);
    return;
  }
  std::vector<GroupMember> &members = groups_[key];
  const auto place = PlaceOf(members, port);
  if (place != members.end() && place->port == port) {
    *place = std::move(member);
    return;
  }
  try {
    const auto inserted = members.insert(place, std::move(member));
    try {
      CountIn(port, key);
    } catch (...) {
      members.erase(inserted);
      throw;
    }
  } catch (...) {
    if (members.empty()) groups_.erase(key);
    throw;
  }
}

void MulticastTable::CountIn(PortId port, const GroupKey &key) {
  PortGroups &has = ports_[port];
  const auto added = has.groups.insert(key).first;
  try {
    ++has.addresses[MacOfGroup(key.group)];
  } catch (...) {
    has.groups.erase(added);
    throw;
  }
}

void MulticastTable::CountOut(PortId port, const GroupKey &key) noexcept {
  const auto has = ports_.find(port);
  has->second.groups.erase(key);
  const auto address = has->second.addresses.find(MacOfGroup(key.group));
  if (--address->second == 0) has->second.addresses.erase(address);
  if (has->second.groups.empty()) ports_.erase(has);
}

// ---- Time ----

void MulticastTable::Follow(const MulticastSettings &settings, TimePoint now) {
  if (settings.ages == ages_) return;
  ages_ = settings.ages;
  ++revision_;
  for (auto &[key, members] : groups_) {
    const TimePoint until =
        ages_ ? Later(now, TimesOf(key.vlan, FamilyOf(key.group), now, settings).Lifetime()) : kNever;
    for (GroupMember &member : members) member.membership.Hold(until);
    WatchFor(until);
  }
}

void MulticastTable::Expire(TimePoint now) noexcept {
  if (now < next_event_) return;
  next_event_ = kNever;
  bool changes = false;
  for (auto group = groups_.begin(); group != groups_.end();) {
    std::erase_if(group->second, [&](GroupMember &member) {
      changes = member.membership.Expire(now) || changes;
      WatchFor(member.membership.NextEvent());
      if (!member.membership.IsEmpty()) return false;
      CountOut(member.port, group->first);
      return true;
    });
    group = group->second.empty() ? groups_.erase(group) : std::next(group);
  }
  const auto drop = [&](TimePoint until) {
    if (!IsOver(until, now)) WatchFor(until);
    return IsOver(until, now);
  };
  changes = std::erase_if(routers_, [&](const auto &router) { return drop(router.second); }) != 0 || changes;
  changes = std::erase_if(queriers_, [&](const auto &querier) { return drop(querier.second.until); }) != 0 || changes;
  if (changes) ++revision_;
}

std::vector<MemberQuestion> MulticastTable::TakeQuestions(TimePoint now, const MulticastSettings &settings) {
  std::vector<MemberQuestion> questions;
  if (now < next_question_) return questions;
  next_question_ = kNever;
  for (auto &[key, members] : groups_) {
    for (GroupMember &member : members) {
      if (member.asking == 0) continue;
      if (member.ask_at <= now) {
        const Times times = TimesOf(key.vlan, FamilyOf(key.group), now, settings);
        const bool asks = ages_ && settings.asks && !HasOtherQuerier(key.vlan, key.group, now, settings);
        const TimePoint settled = Later(now, times.robustness * kLastMemberResponse);
        member.doubt = asks ? member.membership.Unsettled(member.doubt, settled) : Doubt{};
        AppendQuestions(questions, member.port, key, member.doubt);
        member.asking = member.doubt ? member.asking - 1 : 0;
        member.ask_at = Later(now, kLastMemberResponse);
        ++revision_;
      }
      if (member.asking != 0) next_question_ = std::min(next_question_, member.ask_at);
      if (member.asking == 0) member.doubt = {};
    }
  }
  std::ranges::sort(questions);
  return questions;
}

bool MulticastTable::TakeGeneralQuery(TimePoint now, const MulticastSettings &settings) {
  const TimePoint next = Later(now, settings.query_interval);
  if (!settings.asks || (now < next_general_query_ && next_general_query_ <= next)) return false;
  const bool is_due = now >= next_general_query_;
  next_general_query_ = next;
  ++revision_;
  return is_due;
}

void MulticastTable::ForgetPort(PortId port) noexcept {
  bool changes = std::erase_if(routers_, [port](const auto &router) { return router.first.port == port; }) != 0;
  changes =
      std::erase_if(queriers_, [port](const auto &querier) { return querier.second.port == port; }) != 0 || changes;
  const auto has = ports_.find(port);
  if (has != ports_.end()) {
    for (const GroupKey &key : has->second.groups) {
      const auto group = groups_.find(key);
      group->second.erase(PlaceOf(group->second, port));
      if (group->second.empty()) groups_.erase(group);
    }
    ports_.erase(has);
    changes = true;
  }
  if (changes) ++revision_;
}

// ---- Forwarding ----

const std::vector<GroupMember> *MulticastTable::Members(VlanId vlan, const IpAddress &group) const {
  const auto found = groups_.find({vlan, group});
  return found == groups_.end() ? nullptr : &found->second;
}

bool MulticastTable::IsRouterPort(PortId port, VlanId vlan, const IpAddress &like) const {
  const RouterKey first{vlan, FamilyOf(like), port, {}};
  const auto found = routers_.lower_bound(first);
  return found != routers_.end() && found->first.vlan == vlan && found->first.family == first.family &&
         found->first.port == port;
}

bool MulticastTable::HasOtherQuerier(VlanId vlan, const IpAddress &like, TimePoint now,
                                     const MulticastSettings &settings) const {
  const Family family = FamilyOf(like);
  const auto found = queriers_.find({vlan, family});
  if (found == queriers_.end() || IsOver(found->second.until, now)) return false;
  const IpAddress &own = family == Family::kIpV4 ? settings.ipv4_router : settings.ipv6_router;
  return IsUnspecified(own) || found->second.router <= own;
}

bool MulticastTable::Wants(PortId port, VlanId vlan, const Frame &frame) const {
  const GroupTarget target = TargetOf(frame);
  switch (target.kind) {
    case GroupTarget::Kind::kOther:
    case GroupTarget::Kind::kLinkLocal:
      return true;
    case GroupTarget::Kind::kReport:
      return IsRouterPort(port, vlan, target.group);
    case GroupTarget::Kind::kGroup:
      break;
  }
  const Membership *membership = Find(port, {vlan, target.group});
  return (membership != nullptr && membership->Wants(target.source)) || IsRouterPort(port, vlan, target.group);
}

bool MulticastTable::HasJoined(PortId port, const MacAddress &address) const {
  const auto has = ports_.find(port);
  if (has == ports_.end()) return false;
  return has->second.addresses.size() > kMaxFilterAddresses || has->second.addresses.contains(address);
}

// ---- Looking at it ----

const GroupMember *MulticastTable::FindMember(PortId port, const GroupKey &key) const {
  const auto group = groups_.find(key);
  if (group == groups_.end()) return nullptr;
  const auto place = PlaceOf(group->second, port);
  return place != group->second.end() && place->port == port ? &*place : nullptr;
}

const Membership *MulticastTable::Find(PortId port, const GroupKey &key) const {
  const GroupMember *member = FindMember(port, key);
  return member == nullptr ? nullptr : &member->membership;
}

std::vector<GroupKey> MulticastTable::GroupsOf(PortId port) const {
  const auto has = ports_.find(port);
  if (has == ports_.end()) return {};
  return {has->second.groups.begin(), has->second.groups.end()};
}

std::vector<MacAddress> MulticastTable::AddressesOf(PortId port) const {
  std::vector<MacAddress> addresses;
  const auto has = ports_.find(port);
  if (has == ports_.end()) return addresses;
  for (const auto &[address, count] : has->second.addresses) addresses.push_back(address);
  return addresses;
}

bool MulticastTable::operator==(const MulticastTable &other) const {
  return groups_ == other.groups_ && routers_ == other.routers_ && queriers_ == other.queriers_ &&
         counters_ == other.counters_ && ages_ == other.ages_ && next_general_query_ == other.next_general_query_;
}

}  // namespace kestrel::host
