/* Multicast tables as bytes. */
#include <algorithm>

#include "host/core/group_bytes.h"
#include "host/core/multicast_table.h"

namespace kestrel::host {
namespace {

constexpr std::uint8_t kFormat = 1;

void SaveDuration(ByteWriter &writer, Duration duration) { SaveTime(writer, TimePoint(duration)); }
Duration LoadDuration(ByteReader &reader) { return LoadTime(reader); }

/** Throws StatusError ZEL_INVALID_METADATA for bytes other than 0 and 1. */
bool LoadFlag(ByteReader &reader) {
  const auto flag = reader.Get<std::uint8_t>();
  Require(flag <= 1);
  return flag != 0;
}

VlanId LoadVlan(ByteReader &reader) {
  const auto vlan = reader.Get<VlanId>();
  Require(vlan <= kMaxVlanId);
  return vlan;
}

IpAddress LoadGroup(ByteReader &reader) {
  const IpAddress group = LoadAddress(reader);
  Require(IsMulticast(group));
  return group;
}

void SaveMember(ByteWriter &writer, const GroupMember &member) {
  writer.Put(member.port);
  member.membership.Save(writer);
  writer.Put(static_cast<std::uint8_t>(member.doubt.group ? 1 : 0));
  writer.Put(static_cast<std::uint32_t>(member.doubt.sources.size()));
  for (const IpAddress &source : member.doubt.sources) SaveAddress(writer, source);
  writer.Put(member.asking);
  SaveTime(writer, member.ask_at);
}

GroupMember LoadMember(ByteReader &reader) {
  GroupMember member{.port = reader.Get<PortId>(), .membership = Membership::Load(reader)};
  Require(!member.membership.IsEmpty());
  member.doubt.group = LoadFlag(reader);
  const auto count = reader.Get<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    const IpAddress source = LoadAddress(reader);
    Require(member.doubt.sources.empty() || member.doubt.sources.back() < source);
    member.doubt.sources.push_back(source);
  }
  member.asking = reader.Get<std::uint32_t>();
  member.ask_at = LoadTime(reader);
  return member;
}

}  // namespace

std::string MulticastTable::Save() const {
  ByteWriter writer;
  writer.Put(kFormat);
  writer.Put(counters_.queries);
  writer.Put(counters_.reports);
  writer.Put(counters_.notices);
  writer.Put(counters_.malformed);
  writer.Put(counters_.refused);
  writer.Put(static_cast<std::uint8_t>(ages_ ? 1 : 0));
  SaveTime(writer, next_general_query_);

  // In order, so that equal tables are equal bytes.
  std::vector<const Groups::value_type *> groups;
  for (const auto &group : groups_) groups.push_back(&group);
  std::ranges::sort(groups, {}, [](const auto *group) { return group->first; });
  writer.Put(static_cast<std::uint32_t>(groups.size()));
  for (const auto *group : groups) {
    writer.Put(group->first.vlan);
    SaveAddress(writer, group->first.group);
    writer.Put(static_cast<std::uint32_t>(group->second.size()));
    for (const GroupMember &member : group->second) SaveMember(writer, member);
  }

  writer.Put(static_cast<std::uint32_t>(routers_.size()));
  for (const auto &[key, until] : routers_) {
    writer.Put(key.vlan);
    writer.Put(key.port);
    SaveAddress(writer, key.router);
    SaveTime(writer, until);
  }
  writer.Put(static_cast<std::uint32_t>(queriers_.size()));
  for (const auto &[key, querier] : queriers_) {
    writer.Put(key.first);
    writer.Put(querier.port);
    SaveAddress(writer, querier.router);
    SaveTime(writer, querier.until);
    writer.Put(querier.robustness);
    SaveDuration(writer, querier.interval);
    SaveDuration(writer, querier.response);
  }
  return writer.Take();
}

MulticastTable MulticastTable::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  MulticastTable loaded;
  Require(reader.Get<std::uint8_t>() == kFormat);
  loaded.counters_.queries = reader.Get<std::uint64_t>();
  loaded.counters_.reports = reader.Get<std::uint64_t>();
  loaded.counters_.notices = reader.Get<std::uint64_t>();
  loaded.counters_.malformed = reader.Get<std::uint64_t>();
  loaded.counters_.refused = reader.Get<std::uint64_t>();
  loaded.ages_ = LoadFlag(reader);
  loaded.next_general_query_ = LoadTime(reader);

  for (auto groups = reader.Get<std::uint32_t>(); groups != 0; --groups) {
    const VlanId vlan = LoadVlan(reader);
    const GroupKey key{vlan, LoadGroup(reader)};
    auto members = reader.Get<std::uint32_t>();
    Require(members != 0 && !loaded.groups_.contains(key));
    for (; members != 0; --members) {
      GroupMember member = LoadMember(reader);
      const PortId port = member.port;
      Require(loaded.FindMember(port, key) == nullptr);
      loaded.Put(key, std::move(member));
      Require(loaded.ports_[port].groups.size() <= kMaxGroupsOfPort);
    }
  }
  for (auto routers = reader.Get<std::uint32_t>(); routers != 0; --routers) {
    RouterKey key{.vlan = LoadVlan(reader), .family = Family::kIpV4, .port = reader.Get<PortId>(), .router = {}};
    key.router = LoadAddress(reader);
    key.family = FamilyOf(key.router);
    Require(loaded.routers_.size() < kMaxMulticastRouters);
    Require(loaded.routers_.emplace(key, LoadTime(reader)).second);
  }
  for (auto queriers = reader.Get<std::uint32_t>(); queriers != 0; --queriers) {
    const VlanId vlan = LoadVlan(reader);
    Querier querier{};
    querier.port = reader.Get<PortId>();
    querier.router = LoadAddress(reader);
    querier.until = LoadTime(reader);
    querier.robustness = reader.Get<std::uint8_t>();
    querier.interval = LoadDuration(reader);
    querier.response = LoadDuration(reader);
    // So long as a query can say.
    constexpr Duration kLongest = std::chrono::hours(24);
    Require(querier.robustness != 0 && querier.interval <= kLongest && querier.response <= kLongest);
    Require(loaded.queriers_.emplace(std::pair(vlan, FamilyOf(querier.router)), querier).second);
  }
  reader.RequireEnd();
  // Finds out at the next opportunity when there is something to do.
  loaded.next_event_ = loaded.next_question_ = TimePoint{0};
  return loaded;
}

}  // namespace kestrel::host
