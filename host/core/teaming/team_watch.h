/* What becomes of teams when links or policies change. */
#pragma once

#include <cstdint>
#include <memory>

#include "host/core/host.h"
#include "host/core/teaming/team_plan.h"

namespace kestrel::host {

/** What of a switch changes under the eyes of a TeamWatch. */
enum class TeamChange : std::uint8_t {
  /** Its links and what was heard through them; the configuration stays the same. */
  kLinks,
  /** Anything. */
  kAll,
};

/** Stands around a change of what the teams of a switch go by. */
class TeamWatch {
 public:
  /** Before the change. */
  TeamWatch(Host &host, Switch &owner, TeamChange change);
  /** Before a change that concerns the policy of one port only. */
  TeamWatch(Host &host, Switch &owner, const Port &port);

  /** After it: notes which links came up and which went, moves what has to move, and tells the network of it. What
      there is no memory for is left to the next time. */
  void Settle() noexcept;

 private:
  void NoteLinks(const TeamPlan &after);
  void HoldShares(const TeamPlan &after);
  void AnnounceMoves(const TeamPlan &after);

  Host &host_;
  Switch &owner_;
  /** 0 for all of them. */
  PortId port_ = 0;
  std::shared_ptr<const TeamPlan> before_;
};

}  // namespace kestrel::host
