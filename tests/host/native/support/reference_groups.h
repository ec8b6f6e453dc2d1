/* A plain model of group memberships, to compare the real one with: sets, and the rules of RFC 3376, chapter 6, and
   RFC 3810, chapter 7, row by row. Slow, and without any index. */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "host/core/multicast/membership.h"
#include "host/core/multicast/multicast_table.h"

namespace kestrel::host {

using Sources = std::set<IpAddress>;

inline Sources Both(const Sources &a, const Sources &b) {
  Sources result;
  std::ranges::set_intersection(a, b, std::inserter(result, result.end()));
  return result;
}
inline Sources Either(const Sources &a, const Sources &b) {
  Sources result = a;
  result.insert(b.begin(), b.end());
  return result;
}
inline Sources Less(const Sources &a, const Sources &b) {
  Sources result;
  std::ranges::set_difference(a, b, std::inserter(result, result.end()));
  return result;
}

class ReferenceMembership {
 public:
  bool excludes = false;
  TimePoint group_timer{0};
  /** With running timers: A of INCLUDE (A), X of EXCLUDE (X, Y). */
  std::map<IpAddress, TimePoint> timers;
  /** Y of EXCLUDE (X, Y). */
  Sources blocked;
  TimePoint updated{0};
  TimePoint joiners{0};
  TimePoint leavers{0};

  Sources Wanted() const {
    Sources wanted;
    for (const auto &[source, timer] : timers) wanted.insert(source);
    return wanted;
  }
  bool IsEmpty() const { return !excludes && timers.empty(); }
  bool Wants(const IpAddress &source) const { return excludes ? !blocked.contains(source) : timers.contains(source); }

  void Apply(const GroupRecord &record, Generation generation, const MembershipRules &rules, TimePoint now) {
    RecordType type = record.type;
    Sources set(record.sources.begin(), record.sources.end());
    if (generation > rules.generation) {
      // The sources cannot be said: joining is joining all, and only an empty list is none.
      if (type == RecordType::kBlock) return;
      const bool lists_wanted =
          type == RecordType::kIsInclude || type == RecordType::kAllow || type == RecordType::kToInclude;
      if (lists_wanted && !set.empty()) type = RecordType::kIsExclude;
      if (type == RecordType::kIsInclude || type == RecordType::kAllow) return;
      set.clear();
      generation = rules.generation;
    }
    if (type != RecordType::kToInclude) {
      if (generation == Generation::kJoin) joiners = Later(now, rules.lifetime);
      if (generation == Generation::kLeave) leavers = Later(now, rules.lifetime);
    }
    const bool has_joiners = joiners > now;
    const bool has_older = has_joiners || leavers > now;
    if (has_older && type == RecordType::kBlock) return;
    if (has_older && type == RecordType::kToExclude) set.clear();
    if (has_joiners && type == RecordType::kToInclude) return;

    const TimePoint full = Later(now, rules.lifetime);
    const TimePoint former_group_timer = group_timer;
    const auto start = [this](const Sources &which, TimePoint timer) {
      for (const IpAddress &source : which) timers[source] = timer;
    };
    const auto keep = [this](const Sources &which) {
      std::erase_if(timers, [&which](const auto &timer) { return !which.contains(timer.first); });
    };
    const Sources x = Wanted();
    const Sources y = blocked;
    Sources asked;
    bool asks_group = false;
    if (!excludes) {
      switch (type) {
        case RecordType::kIsInclude:
        case RecordType::kAllow:
          start(set, full);
          break;
        case RecordType::kToInclude:
          start(set, full);
          asked = Less(x, set);
          break;
        case RecordType::kBlock:
          asked = Both(x, set);
          break;
        case RecordType::kIsExclude:
        case RecordType::kToExclude:
          excludes = true;
          keep(Both(x, set));
          blocked = Less(set, x);
          group_timer = full;
          if (type == RecordType::kToExclude) asked = Both(x, set);
          break;
      }
    } else {
      switch (type) {
        case RecordType::kIsInclude:
        case RecordType::kAllow:
          start(set, full);
          blocked = Less(y, set);
          break;
        case RecordType::kToInclude:
          start(set, full);
          blocked = Less(y, set);
          asked = Less(x, set);
          asks_group = true;
          break;
        case RecordType::kBlock:
          start(Less(Less(set, x), y), former_group_timer);
          asked = Less(set, y);
          break;
        case RecordType::kIsExclude:
          keep(Less(set, y));
          start(Less(Less(set, x), y), full);
          blocked = Both(y, set);
          group_timer = full;
          break;
        case RecordType::kToExclude:
          keep(Less(set, y));
          start(Less(Less(set, x), y), former_group_timer);
          blocked = Both(y, set);
          group_timer = full;
          asked = Less(set, y);
          break;
      }
    }
    if (timers.size() + blocked.size() > rules.sources) {
      if (!excludes || type != RecordType::kBlock) group_timer = full;
      excludes = true;
      timers.clear();
      blocked.clear();
      asked.clear();
      asks_group = false;
    }
    updated = now;
    LowerTo(asks_group, asked, Later(now, rules.leaving));
    if (rules.leaving == Duration::zero()) Expire(now);
  }

  void LowerTo(bool group, const Sources &which, TimePoint until) {
    if (group && excludes) group_timer = std::min(group_timer, until);
    for (auto &[source, timer] : timers) {
      if (which.contains(source)) timer = std::min(timer, until);
    }
  }

  void Expire(TimePoint now) {
    Sources over;
    for (const auto &[source, timer] : timers) {
      if (timer <= now && timer != kNever) over.insert(source);
    }
    for (const IpAddress &source : over) timers.erase(source);
    if (excludes && group_timer <= now && group_timer != kNever) {
      excludes = false;
      blocked.clear();
      group_timer = TimePoint{0};
    } else if (excludes) {
      blocked = Either(blocked, over);
    }
  }
};

/** Whether the real one is what the plain one is. */
inline bool Agrees(const Membership &real, const ReferenceMembership &plain) {
  std::map<IpAddress, TimePoint> timers;
  Sources blocked;
  for (const GroupSource &source : real.sources()) {
    if (source.until) {
      timers[source.address] = *source.until;
    } else {
      blocked.insert(source.address);
    }
  }
  return (real.mode() == SourceMode::kExclude) == plain.excludes && timers == plain.timers &&
         blocked == plain.blocked && real.updated() == plain.updated &&
         (!plain.excludes || real.until() == plain.group_timer);
}

/** The memberships of all ports, as a list that is searched from end to end. */
class ReferenceGroups {
 public:
  struct Item {
    PortId port;
    VlanId vlan;
    IpAddress group;
    ReferenceMembership membership;
  };

  /** A record of a report; rules as they are without a router that asks. */
  void Report(PortId port, VlanId vlan, const GroupRecord &record, Generation generation, const MembershipRules &rules,
              TimePoint now) {
    auto item = std::ranges::find_if(
        items, [&](const Item &each) { return Key(each) == std::tuple(port, vlan, record.group); });
    if (item == items.end()) item = items.insert(items.end(), Item{port, vlan, record.group, {}});
    item->membership.Apply(record, generation, rules, now);
    DropEmpty();
  }
  void Query(PortId port, VlanId vlan, const IpAddress &group, const std::vector<IpAddress> &sources, TimePoint until) {
    for (Item &item : items) {
      if (item.port == port || item.vlan != vlan || item.group != group) continue;
      item.membership.LowerTo(sources.empty(), {sources.begin(), sources.end()}, until);
    }
  }
  void Expire(TimePoint now) {
    for (Item &item : items) item.membership.Expire(now);
    DropEmpty();
  }
  void ForgetPort(PortId port) {
    std::erase_if(items, [port](const Item &item) { return item.port == port; });
  }

  const ReferenceMembership *Find(PortId port, VlanId vlan, const IpAddress &group) const {
    for (const Item &item : items) {
      if (Key(item) == std::tuple(port, vlan, group)) return &item.membership;
    }
    return nullptr;
  }

  std::vector<Item> items;

 private:
  static std::tuple<PortId, VlanId, IpAddress> Key(const Item &item) { return {item.port, item.vlan, item.group}; }
  void DropEmpty() {
    std::erase_if(items, [](const Item &item) { return item.membership.IsEmpty(); });
  }
};

}  // namespace kestrel::host
