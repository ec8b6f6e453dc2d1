#include "host/core/teaming/team_timers.h"

#include <algorithm>

#include "host/core/teaming/announcements.h"
#include "host/core/teaming/beacons.h"
#include "host/core/teaming/lacp.h"
#include "host/core/teaming/load_balance.h"
#include "host/core/teaming/team_plan.h"
#include "host/core/teaming/team_watch.h"

namespace kestrel::host {
namespace {

TimePoint LacpDue(const Switch &owner, PortId uplink) {
  const auto &uplinks = owner.runtime.team.state().uplinks;
  const auto known = uplinks.find(uplink);
  return known == uplinks.end() ? TimePoint{0} : known->second.lacp_due;
}

/** Uplinks that came up are used from now on, and partners that have been silent for too long are forgotten. */
void EndWaits(Host &host, Switch &owner) {
  const TimePoint now = host.clock().Now();
  const auto is_used = [now](const UplinkRuntime &uplink) {
    return uplink.used_from != TimePoint{0} && uplink.used_from <= now;
  };
  const auto is_silent = [now](const UplinkRuntime &uplink) {
    return uplink.lacp_partner && uplink.lacp_heard_until <= now;
  };
  const auto &uplinks = owner.runtime.team.state().uplinks;
  const auto is_over = [&](const auto &uplink) { return is_used(uplink.second) || is_silent(uplink.second); };
  if (std::ranges::none_of(uplinks, is_over)) return;
  TeamWatch watch(host, owner, TeamChange::kLinks);
  for (auto &[id, uplink] : owner.runtime.team.ChangeChoices().uplinks) {
    if (is_used(uplink)) uplink.used_from = TimePoint{0};
    if (!is_silent(uplink)) continue;
    uplink.lacp_partner.reset();
    // The far end is told that it is no longer heard.
    uplink.lacp_due = now;
  }
  watch.Settle();
}

}  // namespace

std::optional<TimePoint> TeamTimers::Next(const Host &host, const Switch &owner) const {
  const TimePoint now = host.clock().Now();
  std::optional<TimePoint> next;
  const auto consider = [&](std::optional<TimePoint> time) {
    if (!time) return;
    // What is overdue is done now.
    const TimePoint due = std::max(*time, now);
    if (!next || due < *next) next = due;
  };
  consider(NextAnnouncement(owner));
  consider(NextBeacons(host, owner));
  consider(NextLoadBalance(owner));
  for (const auto &[id, uplink] : TeamPlanOf(host, owner).uplinks()) {
    if (uplink.lacp && uplink.Carries()) consider(LacpDue(owner, id));
  }
  for (const auto &[id, uplink] : owner.runtime.team.state().uplinks) {
    if (uplink.used_from != TimePoint{0}) consider(uplink.used_from);
    if (uplink.lacp_partner) consider(uplink.lacp_heard_until);
  }
  return next;
}

void TeamTimers::Run(Host &host, Switch &owner, TimePoint end) {
  const TimePoint now = host.clock().Now();
  EndWaits(host, owner);
  if (const auto due = NextLoadBalance(owner); due && *due <= now) {
    TeamWatch watch(host, owner, TeamChange::kAll);
    BalanceLoad(host, owner);
    watch.Settle();
  }
  if (const auto due = NextBeacons(host, owner); due && *due <= now) {
    TeamWatch watch(host, owner, TeamChange::kLinks);
    const std::uint32_t rounds = ++beacons_[&owner];
    RunBeacons(host, owner, rounds > kMostInAdvance);
    if (rounds > kMostInAdvance) owner.runtime.team.Change().beacon_due = end + kBeaconPeriod;
    watch.Settle();
  }
  RunLacp(host, owner, end);
  if (const auto due = NextAnnouncement(owner); due && *due <= now) {
    SendAnnouncements(host, owner);
    if (++announcements_[&owner] > kMostInAdvance) {
      for (auto &[address, waiting] : owner.runtime.team.Change().announcements.waiting) {
        waiting.due = std::max(waiting.due, end + Duration(1));
      }
    }
  }
}

void TeamTimers::RunLacp(Host &host, Switch &owner, TimePoint end) {
  const TimePoint now = host.clock().Now();
  for (const Lag &lag : owner.config.lags().Items()) {
    for (const LacpMember &member : LacpMembersOf(host, owner, lag)) {
      const PlannedUplink *uplink = TeamPlanOf(host, owner).UplinkOf(member.uplink);
      if (!uplink->Carries() || LacpDue(owner, member.uplink) > now) continue;
      SendLacpdu(host, owner, member);
      if (++lacpdus_[member.uplink] >= kMostInAdvance) {
        TimePoint &due = owner.runtime.team.Change().uplinks[member.uplink].lacp_due;
        due = std::max(due, end + Duration(1));
      }
    }
  }
}

}  // namespace kestrel::host
