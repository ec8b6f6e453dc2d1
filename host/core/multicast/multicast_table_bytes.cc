/* Multicast tables as bytes. */
#include <algorithm>

#include "host/core/base/kept_values.h"
#include "host/core/multicast/multicast_table.h"

namespace kestrel::host {
namespace {

constexpr std::uint8_t kMulticastFormat = 1;

VlanId LoadVlan(ByteReader &reader) {
  const auto vlan = reader.Get<VlanId>();
  RequireSound(vlan <= kMaxVlanId);
  return vlan;
}

IpAddress LoadGroup(ByteReader &reader) {
  const IpAddress group = Next<IpAddress>(reader);
  RequireSound(IsMulticast(group));
  return group;
}

void SaveMember(ByteWriter &writer, const GroupMember &member) {
  writer.Put(member.port);
  member.membership.Save(writer);
  Put(writer, member.doubt.group);
  writer.Put(static_cast<std::uint32_t>(member.doubt.sources.size()));
  for (const IpAddress &source : member.doubt.sources) Put(writer, source);
  writer.Put(member.asking);
  Put(writer, member.ask_at);
}

GroupMember LoadMember(ByteReader &reader) {
  GroupMember member{.port = reader.Get<PortId>(), .membership = Membership::Load(reader)};
  RequireSound(!member.membership.IsEmpty());
  member.doubt.group = Next<bool>(reader);
  const auto count = reader.Get<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    const IpAddress source = Next<IpAddress>(reader);
    RequireSound(member.doubt.sources.empty() || member.doubt.sources.back() < source);
    member.doubt.sources.push_back(source);
  }
  member.asking = reader.Get<std::uint32_t>();
  member.ask_at = Next<TimePoint>(reader);
  return member;
}

}  // namespace

std::string MulticastTable::Save() const {
  ByteWriter writer;
  writer.Put(kMulticastFormat);
  writer.Put(counters_.queries);
  writer.Put(counters_.reports);
  writer.Put(counters_.notices);
  writer.Put(counters_.malformed);
  writer.Put(counters_.refused);
  Put(writer, ages_);
  Put(writer, next_general_query_);

  // In order, so that equal tables are equal bytes.
  std::vector<const Groups::value_type *> groups;
  for (const auto &group : groups_) groups.push_back(&group);
  std::ranges::sort(groups, {}, [](const auto *group) { return group->first; });
  writer.Put(static_cast<std::uint32_t>(groups.size()));
  for (const auto *group : groups) {
    writer.Put(group->first.vlan);
    Put(writer, group->first.group);
    writer.Put(static_cast<std::uint32_t>(group->second.size()));
    for (const GroupMember &member : group->second) SaveMember(writer, member);
  }

  writer.Put(static_cast<std::uint32_t>(routers_.size()));
  for (const auto &[key, until] : routers_) {
    writer.Put(key.vlan);
    writer.Put(key.port);
    Put(writer, key.router);
    Put(writer, until);
  }
  writer.Put(static_cast<std::uint32_t>(queriers_.size()));
  for (const auto &[key, querier] : queriers_) {
    writer.Put(key.first);
    writer.Put(querier.port);
    Put(writer, querier.router);
    Put(writer, querier.until);
    writer.Put(querier.robustness);
    Put(writer, querier.interval);
    Put(writer, querier.response);
  }
  return writer.Take();
}

MulticastTable MulticastTable::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  MulticastTable loaded;
  RequireSound(reader.Get<std::uint8_t>() == kMulticastFormat);
  loaded.counters_.queries = reader.Get<std::uint64_t>();
  loaded.counters_.reports = reader.Get<std::uint64_t>();
  loaded.counters_.notices = reader.Get<std::uint64_t>();
  loaded.counters_.malformed = reader.Get<std::uint64_t>();
  loaded.counters_.refused = reader.Get<std::uint64_t>();
  loaded.ages_ = Next<bool>(reader);
  loaded.next_general_query_ = Next<TimePoint>(reader);

  for (auto groups = reader.Get<std::uint32_t>(); groups != 0; --groups) {
    const VlanId vlan = LoadVlan(reader);
    const GroupKey key{vlan, LoadGroup(reader)};
    auto members = reader.Get<std::uint32_t>();
    RequireSound(members != 0 && !loaded.groups_.contains(key));
    for (; members != 0; --members) {
      GroupMember member = LoadMember(reader);
      const PortId port = member.port;
      RequireSound(loaded.FindMember(port, key) == nullptr);
      loaded.PutMember(key, std::move(member));
      RequireSound(loaded.ports_[port].groups.size() <= kMaxGroupsOfPort);
    }
  }
  for (auto routers = reader.Get<std::uint32_t>(); routers != 0; --routers) {
    RouterKey key{.vlan = LoadVlan(reader), .family = Family::kIpV4, .port = reader.Get<PortId>(), .router = {}};
    key.router = Next<IpAddress>(reader);
    key.family = FamilyOf(key.router);
    RequireSound(loaded.routers_.size() < kMaxMulticastRouters);
    RequireSound(loaded.routers_.emplace(key, Next<TimePoint>(reader)).second);
  }
  for (auto queriers = reader.Get<std::uint32_t>(); queriers != 0; --queriers) {
    const VlanId vlan = LoadVlan(reader);
    Querier querier{};
    querier.port = reader.Get<PortId>();
    querier.router = Next<IpAddress>(reader);
    querier.until = Next<TimePoint>(reader);
    querier.robustness = reader.Get<std::uint8_t>();
    querier.interval = Next<Duration>(reader);
    querier.response = Next<Duration>(reader);
    // So long as a query can say.
    constexpr Duration kLongest = std::chrono::hours(24);
    RequireSound(querier.robustness != 0 && querier.interval <= kLongest && querier.response <= kLongest);
    RequireSound(loaded.queriers_.emplace(std::pair(vlan, FamilyOf(querier.router)), querier).second);
  }
  reader.RequireEnd();
  // Finds out at the next opportunity when there is something to do.
  loaded.next_event_ = loaded.next_question_ = TimePoint{0};
  return loaded;
}

}  // namespace kestrel::host
