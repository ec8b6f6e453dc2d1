#include "host/core/teaming/team_watch.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>

#include "host/core/teaming/announcements.h"

namespace kestrel::host {
namespace {

/** How the network reaches what a member carries: by its NIC, or by the group, within which it is no matter of the
    network's who carries what. Empty when it does not. */
std::pair<std::string_view, std::string_view> PathOf(const TeamMember *member) {
  if (member == nullptr || member->carriers.empty()) return {};
  const PlannedUplink &carrier = *member->carriers[0];
  return {member->name, member->is_group ? std::string_view{} : std::string_view(carrier.nic)};
}

}  // namespace

TeamWatch::TeamWatch(Host &host, Switch &owner, TeamChange change) : host_(host), owner_(owner) {
  const TeamPlan &plan = TeamPlanOf(host, owner);
  before_ = owner.runtime.team.plan;
  if (change == TeamChange::kLinks) return;
  // Once the configuration has changed, the old plan can no longer tell.
  VisitClientAddresses(owner, [&](const ClientAddress &address) { plan.PortOf(owner, address.port); });
}

TeamWatch::TeamWatch(Host &host, Switch &owner, const Port &port) : host_(host), owner_(owner), port_(port.id) {
  TeamPlanOf(host, owner).PortOf(owner, port);
  before_ = owner.runtime.team.plan;
}

void TeamWatch::Settle() noexcept {
  try {
    NoteLinks(TeamPlanOf(host_, owner_));
    const TeamPlan &after = TeamPlanOf(host_, owner_);
    if (&after == before_.get()) return;
    AnnounceMoves(after);
    HoldShares(after);
    SendAnnouncements(host_, owner_);
  } catch (const std::exception &) {
    // What was not done is done at the next change.
  }
}

void TeamWatch::NoteLinks(const TeamPlan &after) {
  const auto &known = owner_.runtime.team.state().uplinks;
  std::vector<PortId> forgotten;
  for (const auto &[id, uplink] : known) {
    if (!after.uplinks().contains(id) || !after.UplinkOf(id)->HasLink()) forgotten.push_back(id);
  }
  std::vector<PortId> risen;
  for (const auto &[id, uplink] : after.uplinks()) {
    const PlannedUplink *former = before_->UplinkOf(id);
    // A NIC that is plugged in with its link up has had it for some time.
    const bool was_down = former != nullptr && former->nic == uplink.nic && !former->HasLink();
    if (uplink.HasLink() && was_down) risen.push_back(id);
  }
  if (forgotten.empty() && risen.empty()) return;

  TeamState &state = owner_.runtime.team.ChangeChoices();
  for (const PortId id : forgotten) state.uplinks.erase(id);
  const TimePoint now = host_.clock().Now();
  const std::chrono::milliseconds delay(host_.options().NumberOf(VS_RT_OPT_TEAM_POLICY_UP_DELAY));
  for (const PortId id : risen) {
    UplinkRuntime &uplink = state.uplinks[id];
    uplink.used_from = now + delay;
    uplink.lacp_due = now;
    uplink.beacon_heard = now;
  }
}

void TeamWatch::HoldShares(const TeamPlan &after) {
  std::map<std::string, std::vector<std::uint8_t>> held;
  if (port_ == 0) {
    after.CompileRollingTeams(owner_);
  } else {
    held = owner_.runtime.team.state().held;
  }
  for (const auto &[key, team] : after.teams()) {
    if (team->policy.HasFlag(TEAM_FRP_FLAG_ROLLING)) held[key] = team->shares;
  }
  // The plan's choices are these already.
  if (held != owner_.runtime.team.state().held) owner_.runtime.team.Change().held = std::move(held);
}

void TeamWatch::AnnounceMoves(const TeamPlan &after) {
  if (port_ != 0) {
    const Port *port = owner_.config.ports().Find(port_);
    if (port == nullptr) return;
    const PlannedPort &former = *before_->FindPort(port_);
    const PlannedPort &now = after.PortOf(owner_, *port);
    const bool is_fixed = !former.depends_on_frame && !now.depends_on_frame;
    if (is_fixed && PathOf(former.member) == PathOf(now.member)) return;
  }
  VisitClientAddresses(owner_, [&](const ClientAddress &address) {
    const Port &port = address.port;
    if (port_ != 0 && port.id != port_) return;
    const PlannedPort &now = after.PortOf(owner_, port);
    const TeamPolicy &policy = now.team->policy;
    if (!policy.HasFlag(TEAM_FRP_FLAG_NOTIFY_SWITCH)) return;
    // The far end of such a team is one aggregate, which the address has not left.
    if (policy.balance == TEAM_FRP_TYPE_LB_IP) return;
    const PlannedPort &former = before_->PortOf(owner_, port);
    const auto path = PathOf(MemberForAddress(now, address.address));
    if (path.first.empty() || path == PathOf(MemberForAddress(former, address.address))) return;
    Announce(host_, owner_, address);
  });
}

}  // namespace kestrel::host
