#include "host/core/teaming/load_balance.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/core/teaming/team_plan.h"

namespace kestrel::host {
namespace {

/** What a member has sent, as a share of what its links can carry in a window. */
class Loads {
 public:
  explicit Loads(const LoadState &state) : uplinks_(state.of_uplinks) {}

  std::uint64_t BytesOf(const TeamMember &member) const {
    std::uint64_t bytes = 0;
    for (const PlannedUplink *carrier : member.carriers) {
      const auto found = uplinks_.find(carrier->id);
      if (found != uplinks_.end()) bytes += found->second;
    }
    return bytes;
  }
  static std::uint64_t RoomOf(const TeamMember &member) {
    constexpr std::uint64_t kBytesOfMegabit = 1000000 / 8;
    std::uint64_t speed = 0;
    for (const PlannedUplink *carrier : member.carriers) speed += carrier->link.speed;
    return speed * kBytesOfMegabit * static_cast<std::uint64_t>(kLoadWindow / std::chrono::seconds(1));
  }
  /** Of a load of so many bytes. */
  static bool IsHigh(const TeamMember &member, std::uint64_t bytes) {
    return bytes * 100 > RoomOf(member) * kHighLoadPercent;
  }

  void Move(const TeamMember &from, const TeamMember &to, std::uint64_t bytes) {
    // The members of a group share alike; what matters is their sum.
    uplinks_[from.carriers[0]->id] -= std::min(bytes, uplinks_[from.carriers[0]->id]);
    uplinks_[to.carriers[0]->id] += bytes;
  }

 private:
  std::map<PortId, std::uint64_t> uplinks_;
};

}  // namespace

std::optional<TimePoint> NextLoadBalance(const Switch &owner) {
  const LoadState &load = owner.runtime.team.state().load;
  if (load.of_ports.empty()) return std::nullopt;
  return load.window_start + kLoadWindow;
}

void BalanceLoad(const Host &host, Switch &owner) {
  const LoadState &measured = owner.runtime.team.state().load;
  const TeamPlan &plan = TeamPlanOf(host, owner);
  // The busiest first; of two that are equally busy, the older port.
  std::vector<std::pair<std::uint64_t, PortId>> busy;
  busy.reserve(measured.of_ports.size());
  for (const auto &[port, bytes] : measured.of_ports) busy.emplace_back(bytes, port);
  std::ranges::sort(
      busy, [](const auto &a, const auto &b) { return a.first != b.first ? a.first > b.first : a.second < b.second; });

  Loads loads(measured);
  std::map<PortId, std::string> placements = measured.placements;
  for (const auto &[bytes, id] : busy) {
    const Port *port = owner.config.ports().Find(id);
    if (port == nullptr) continue;
    const PlannedPort &planned = plan.PortOf(owner, *port);
    if (planned.team->policy.balance != TEAM_FRP_TYPE_LB_LBT || planned.member == nullptr) continue;
    const TeamMember &from = *planned.member;
    if (!Loads::IsHigh(from, loads.BytesOf(from))) continue;

    const TeamMember *best = nullptr;
    for (std::size_t i = 0; i < planned.team->active; ++i) {
      const TeamMember &member = planned.team->members[i];
      if (&member == &from || !member.IsUsable() || Loads::IsHigh(member, loads.BytesOf(member) + bytes)) continue;
      // By load in comparison to what each can carry.
      if (best == nullptr ||
          loads.BytesOf(member) * Loads::RoomOf(*best) < loads.BytesOf(*best) * Loads::RoomOf(member)) {
        best = &member;
      }
    }
    if (best == nullptr) continue;
    loads.Move(from, *best, bytes);
    placements[id] = best->name;
  }
  std::erase_if(placements,
                [&owner](const auto &placed) { return owner.config.ports().Find(placed.first) == nullptr; });

  const bool has_moved = placements != measured.placements;
  TeamState &state = has_moved ? owner.runtime.team.ChangeChoices() : owner.runtime.team.Change();
  state.load = {.window_start = host.clock().Now(), .placements = std::move(placements)};
}

}  // namespace kestrel::host
