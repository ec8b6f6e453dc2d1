/* What IGMP and MLD messages say, in the words of both. */
#pragma once

#include <chrono>
#include <cstdint>
#include <variant>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/frames/ip_address.h"

namespace kestrel::host {

/** What a version of a protocol can say. */
enum class Generation : std::uint8_t {
  /** Joining: IGMPv1. */
  kJoin = 1,
  /** Leaving too: IGMPv2, MLDv1. */
  kLeave = 2,
  /** Sources too: IGMPv3, MLDv2. */
  kSources = 3,
};

/** How late a host may answer a query that does not say it, and one that asks for the last members of a group. */
inline constexpr Duration kQueryResponse = std::chrono::seconds(10);
inline constexpr Duration kLastMemberResponse = std::chrono::seconds(1);

/** By the number on the wire. */
enum class RecordType : std::uint8_t {
  kIsInclude = 1,
  kIsExclude = 2,
  kToInclude = 3,
  kToExclude = 4,
  kAllow = 5,
  kBlock = 6,
};

struct GroupRecord {
  RecordType type;
  IpAddress group;
  /** In order, each once. */
  std::vector<IpAddress> sources{};

  bool operator==(const GroupRecord &) const = default;
};

/** What a host has joined, changed or left. A report without records of its own stands as one: joining as kIsExclude,
    leaving as kToInclude, both without sources. */
struct GroupReport {
  Generation generation;
  std::vector<GroupRecord> records;

  bool operator==(const GroupReport &) const = default;
};

/** A router asks which groups are wanted. */
struct GroupQuery {
  Generation generation;
  /** Where the question comes from; unspecified when it is asked on behalf of a router. */
  IpAddress router{};
  /** Unspecified for all groups. */
  IpAddress group{};
  /** In order, each once; none for the group as a whole. */
  std::vector<IpAddress> sources{};
  /** Within which a host answers. */
  Duration max_response = kQueryResponse;
  /** Other routers are to leave their timers alone. */
  bool suppress = false;
  /** How many unanswered queries end a membership; 0 when it is not told. */
  std::uint8_t robustness = 0;
  /** Between queries for all groups; 0 when it is not told. */
  Duration interval{0};

  bool operator==(const GroupQuery &) const = default;
};

/** A multicast router shows itself. */
struct RouterNotice {
  IpAddress router;
  /** For how long it counts as present: 0 when it goes, Duration::max() for ever. */
  Duration holds;

  bool operator==(const RouterNotice &) const = default;
};

/** A message that must have no effect: cut off, with a wrong checksum, or against its protocol's rules. */
struct MalformedMessage {
  bool operator==(const MalformedMessage &) const = default;
};

/** std::monostate is a frame that has nothing to say about groups. */
using GroupMessage = std::variant<std::monostate, MalformedMessage, GroupQuery, GroupReport, RouterNotice>;

}  // namespace kestrel::host
