/* What a port asks of one multicast group: the state that a router keeps of a network, for the port alone. */
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/core/base/bytes.h"
#include "host/core/base/clock.h"
#include "host/core/frames/ip_address.h"
#include "host/core/multicast/group_message.h"
#include "host/export.h"

namespace kestrel::host {

/** A time that does not come. */
inline constexpr TimePoint kNever = TimePoint::max();

/** `by` after `now`, kNever at most. */
constexpr TimePoint Later(TimePoint now, Duration by) { return by >= kNever - now ? kNever : now + by; }

constexpr bool IsOver(TimePoint until, TimePoint now) { return until <= now && until != kNever; }

enum class SourceMode : std::uint8_t {
  /** Frames from the sources that are listed, and from no other. */
  kInclude = 1,
  /** Frames from all sources but the blocked ones. */
  kExclude = 2,
};

struct GroupSource {
  IpAddress address;
  /** Until when its frames are wanted. Blocked, which only kExclude knows, when there is none. */
  std::optional<TimePoint> until;

  bool operator==(const GroupSource &) const = default;
};

/** How memberships last. */
struct MembershipRules {
  /** Without a report. */
  Duration lifetime;
  /** After the port seems to have left; 0 when its word is enough. */
  Duration leaving;
  /** How many sources a membership tells apart; one with more takes frames from all. */
  std::size_t sources;
  /** The latest that the switch speaks; reports of a later one are read as though they were of this. */
  Generation generation = Generation::kSources;
};

/** What must be asked before something is taken from a port. */
struct Doubt {
  /** Whether anyone wants the group. */
  bool group = false;
  /** Whether anyone wants these of its sources; in order. */
  std::vector<IpAddress> sources{};

  explicit operator bool() const { return group || !sources.empty(); }
  bool operator==(const Doubt &) const = default;
};

/** A value; a new one wants nothing. */
class KESTREL_HOST_EXPORT Membership {
 public:
  /** Takes a record of a report in, and lowers the timers of what is in doubt then. The record's group is the one that
      this is about. */
  Doubt Apply(const GroupRecord &record, Generation generation, const MembershipRules &rules, TimePoint now);
  /** Follows a router's question whether the group, or some sources of it, are still wanted: what nobody answers for is
      over at `until`. */
  void FollowQuery(const GroupQuery &query, TimePoint until);
  /** Drops what is over; tells whether something was. */
  bool Expire(TimePoint now) noexcept;
  /** Makes nothing last longer than `until`; with kNever, makes everything last for ever. */
  void Hold(TimePoint until) noexcept;

  /** Whether nothing is wanted: there is no membership. */
  bool IsEmpty() const { return mode_ == SourceMode::kInclude && sources_.empty(); }
  /** Whether frames from a source are wanted. */
  bool Wants(const IpAddress &source) const;
  /** Of the doubts, those that no report has settled by a time. */
  Doubt Unsettled(const Doubt &doubt, TimePoint until) const;

  SourceMode mode() const { return mode_; }
  /** In the order of their addresses. */
  const std::vector<GroupSource> &sources() const { return sources_; }
  /** In kExclude, until when. */
  TimePoint until() const { return until_; }
  /** When a report was last taken in. */
  TimePoint updated() const { return updated_; }
  /** The latest that all hosts behind the port speak. */
  Generation GenerationAt(TimePoint now) const;
  /** When Expire will next have something to do. */
  TimePoint NextEvent() const;

  void Save(ByteWriter &writer) const;
  /** Throws StatusError ZEL_INVALID_METADATA for bytes that no membership is saved as. */
  static Membership Load(ByteReader &reader);

  bool operator==(const Membership &) const = default;

 private:
  GroupSource *Find(const IpAddress &address);
  const GroupSource *Find(const IpAddress &address) const;
  void PutSource(const IpAddress &address, std::optional<TimePoint> until);
  /** Keeps only sources that are in `kept`. */
  void Restrict(const std::vector<IpAddress> &kept);
  /** The sources among `asked` whose frames are wanted. */
  std::vector<IpAddress> WantedAmong(const std::vector<IpAddress> &asked) const;
  /** The sources whose frames are wanted, without those in `spared`. */
  std::vector<IpAddress> WantedBut(const std::vector<IpAddress> &spared) const;
  /** The addresses without those that are blocked. */
  std::vector<IpAddress> NotBlocked(const std::vector<IpAddress> &addresses) const;

  void NoteGeneration(Generation generation, const MembershipRules &rules, TimePoint now);
  Doubt ApplyToInclude(const GroupRecord &record, const MembershipRules &rules, TimePoint now);
  Doubt ApplyToExclude(const GroupRecord &record, const MembershipRules &rules, TimePoint now);
  void Lower(const Doubt &doubt, TimePoint until);

  SourceMode mode_ = SourceMode::kInclude;
  TimePoint until_{0};
  std::vector<GroupSource> sources_;
  TimePoint updated_{0};
  /** Until when hosts of that generation are taken to be there. */
  TimePoint joiners_until_{0};
  TimePoint leavers_until_{0};
};

}  // namespace kestrel::host
