/* Which ports want the frames of which multicast groups. */
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/frames/frame.h"
#include "host/core/multicast/group_message.h"
#include "host/core/multicast/group_packet.h"
#include "host/core/multicast/membership.h"
#include "host/core/port_id.h"
#include "host/export.h"

namespace kestrel::host {

/** A client's filter holds so many exact addresses; one with more takes every group. */
inline constexpr std::size_t kMaxFilterAddresses = VS_ETH_MAX_EXACT_MULTICAST_ADDRS;
/** In all its VLANs together; a port that joins more is refused. */
inline constexpr std::size_t kMaxGroupsOfPort = 1024;
/** Of a switch, known at a time. */
inline constexpr std::size_t kMaxMulticastRouters = 1024;

/** How a switch follows memberships. */
struct MulticastSettings {
  /** Memberships must be renewed in time. Otherwise they last until the port leaves, and end at once then. */
  bool ages = true;
  /** The switch asks its ports itself while nobody else does. */
  bool asks = false;
  /** Where it asks from; an unspecified address leaves asking to whoever else does. */
  IpAddress ipv4_router = kNoIpV4;
  IpAddress ipv6_router = kNoIpV6;
  /** The latest that it speaks. */
  Generation igmp = Generation::kSources;
  Generation mld = Generation::kSources;
  /** Where no router says otherwise: between queries for all groups, and how many of them may stay unanswered. */
  Duration query_interval = std::chrono::seconds(125);
  std::uint8_t robustness = 2;
  /** How many sources a membership tells apart. */
  std::size_t ipv4_sources = 10;
  std::size_t ipv6_sources = 10;
};

/** A multicast group in a VLAN. */
struct GroupKey {
  VlanId vlan;
  IpAddress group;

  auto operator<=>(const GroupKey &) const = default;
};

/** A port in a group, with the questions that are still to be asked. */
struct GroupMember {
  PortId port;
  Membership membership{};
  /** What is asked about, how many times more, and when next. */
  Doubt doubt{};
  std::uint32_t asking = 0;
  TimePoint ask_at{0};

  bool operator==(const GroupMember &) const = default;
};

/** What a port is to be asked about one of its groups. */
struct MemberQuestion {
  PortId port;
  GroupKey key;
  /** In order; none for the group as a whole. */
  std::vector<IpAddress> sources{};

  auto operator<=>(const MemberQuestion &) const = default;
};

/** What a table has seen. */
struct MulticastCounters {
  std::uint64_t queries = 0;
  std::uint64_t reports = 0;
  /** Routers that showed themselves otherwise than by queries. */
  std::uint64_t notices = 0;
  std::uint64_t malformed = 0;
  /** Memberships and routers that the table had no room for. */
  std::uint64_t refused = 0;

  bool operator==(const MulticastCounters &) const = default;
};

class KESTREL_HOST_EXPORT MulticastTable {
 public:
  // ---- What frames say ----

  /** Notes what a frame that came in through a port says of groups; frames that say nothing have no effect. */
  void Observe(PortId port, VlanId vlan, const Frame &frame, TimePoint now, const MulticastSettings &settings = {}) {
    Note(port, vlan, ReadGroupMessage(frame), now, settings);
  }
  /** Notes a message that came in through a port. Gives what the port is to be asked at once, when the switch asks. */
  std::vector<MemberQuestion> Note(PortId port, VlanId vlan, const GroupMessage &message, TimePoint now,
                                   const MulticastSettings &settings);

  // ---- Time ----

  /** Follows a change of whether memberships age. */
  void Follow(const MulticastSettings &settings, TimePoint now);
  /** Drops what has not been renewed in time. */
  void Expire(TimePoint now) noexcept;
  /** What ports are to be asked again by now; each is asked once, however late it is. In order. */
  std::vector<MemberQuestion> TakeQuestions(TimePoint now, const MulticastSettings &settings);
  /** Whether it is time for a query for all groups; if so, the next one is an interval away. */
  bool TakeGeneralQuery(TimePoint now, const MulticastSettings &settings);
  /** Drops what a port that is gone asked for. */
  void ForgetPort(PortId port) noexcept;

  // ---- Forwarding ----

  /** The ports in a group, in their order; null when there are none. */
  const std::vector<GroupMember> *Members(VlanId vlan, const IpAddress &group) const;
  /** Whether a router for the version of IP that `like` is of is behind a port. */
  bool IsRouterPort(PortId port, VlanId vlan, const IpAddress &like) const;
  /** Whether somebody else than the switch asks which groups of that version are wanted. */
  bool HasOtherQuerier(VlanId vlan, const IpAddress &like, TimePoint now, const MulticastSettings &settings) const;
  /** Whether a port wants a frame that is sent to a multicast group, as snooping knows. */
  bool Wants(PortId port, VlanId vlan, const Frame &frame) const;
  /** Whether a port has joined, in any VLAN, a group whose frames go to an Ethernet address; or so many groups that its
      filter is open to all. */
  bool HasJoined(PortId port, const MacAddress &address) const;

  // ---- Looking at it ----

  /** The groups that a port has joined, in order. */
  std::vector<GroupKey> GroupsOf(PortId port) const;
  /** The Ethernet addresses of those groups, in order. */
  std::vector<MacAddress> AddressesOf(PortId port) const;
  /** What a port wants of a group; null when it has not joined it. Good until the next change. */
  const Membership *Find(PortId port, const GroupKey &key) const;
  const MulticastCounters &counters() const { return counters_; }

  /** Goes up with every change, so that a change is seen from outside. */
  std::uint64_t revision() const { return revision_; }
  std::string Save() const;
  /** Throws StatusError ZEL_INVALID_METADATA for bytes that Save does not give. */
  static MulticastTable Load(std::string_view bytes);

  /** Whether two tables hold the same; how often they changed does not matter. */
  bool operator==(const MulticastTable &other) const;

 private:
  struct GroupKeyHash {
    std::size_t operator()(const GroupKey &key) const noexcept;
  };
  using Groups = std::unordered_map<GroupKey, std::vector<GroupMember>, GroupKeyHash>;

  enum class Family : std::uint8_t { kIpV4 = 4, kIpV6 = 6 };
  static Family FamilyOf(const IpAddress &address) { return IsIpV4(address) ? Family::kIpV4 : Family::kIpV6; }

  struct RouterKey {
    VlanId vlan;
    Family family;
    PortId port;
    IpAddress router;

    auto operator<=>(const RouterKey &) const = default;
  };
  /** The router that asks in a VLAN: the one of the lowest address. */
  struct Querier {
    PortId port;
    IpAddress router;
    TimePoint until;
    /** As it last told; 0 when it did not. */
    std::uint8_t robustness;
    Duration interval;
    Duration response;

    bool operator==(const Querier &) const = default;
  };
  /** How memberships that a router asks about last. */
  struct Times {
    std::uint8_t robustness;
    Duration interval;
    Duration response;

    Duration Lifetime() const { return robustness * interval + response; }
    /** For how long a router that was heard asking counts as the one that asks. */
    Duration QuerierPresent() const { return robustness * interval + response / 2; }
  };
  /** The groups of a port, and by Ethernet address how many of them are behind it. */
  struct PortGroups {
    std::set<GroupKey> groups;
    std::map<MacAddress, std::size_t> addresses;
  };

  Times TimesOf(VlanId vlan, Family family, TimePoint now, const MulticastSettings &settings) const;
  const GroupMember *FindMember(PortId port, const GroupKey &key) const;

  void NoteQuery(PortId port, VlanId vlan, const GroupQuery &query, TimePoint now, const MulticastSettings &settings);
  void NoteRouter(PortId port, VlanId vlan, const RouterNotice &notice, TimePoint now);
  void NoteRecord(PortId port, VlanId vlan, Generation generation, const GroupRecord &record, TimePoint now,
                  const MulticastSettings &settings, std::vector<MemberQuestion> &questions);

  /** Puts a member in the place of the one that the port has there; one that wants nothing takes its leave. */
  void PutMember(const GroupKey &key, GroupMember member);
  /** Counts a group in with what its port has. */
  void CountIn(PortId port, const GroupKey &key);
  void CountOut(PortId port, const GroupKey &key) noexcept;
  void WatchFor(TimePoint event) { next_event_ = std::min(next_event_, event); }

  Groups groups_;
  std::unordered_map<PortId, PortGroups> ports_;
  std::map<RouterKey, TimePoint> routers_;
  std::map<std::pair<VlanId, Family>, Querier> queriers_;
  MulticastCounters counters_;
  bool ages_ = true;
  TimePoint next_general_query_{0};
  /** Before these, there is nothing to drop and nobody to ask again. */
  TimePoint next_event_ = kNever;
  TimePoint next_question_ = kNever;
  std::uint64_t revision_ = 0;
};

}  // namespace kestrel::host
