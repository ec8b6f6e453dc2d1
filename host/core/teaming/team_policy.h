/* A teaming policy as the host works with it. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/export.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {

struct TeamPolicy {
  /** TEAM_FRP_TYPE_*. */
  std::uint32_t balance = TEAM_FRP_TYPE_LB_SRCID;
  /** TEAM_FRP_CRIT_*; none are the same as TEAM_FRP_CRIT_LINK_STATE. */
  std::uint32_t criteria = TEAM_FRP_CRIT_LINK_STATE;
  /** TEAM_FRP_FLAG_*. */
  std::uint32_t flags = 0;
  /** The highest percentage of errors that is tolerated. */
  std::uint8_t percent_error = 0;
  /** Whether full duplex is asked for. */
  bool full_duplex = false;
  /** That is asked for, in Mbit/s; 0 for any. */
  std::uint32_t speed = 0;
  /** Names of uplinks and groups, in order. */
  std::vector<std::string> active;
  std::vector<std::string> standby;

  bool HasCriterion(std::uint32_t criterion) const { return (criteria & criterion) != 0; }
  bool HasFlag(std::uint32_t flag) const { return (flags & flag) != 0; }
  /** A text that is the same for equal policies only. */
  std::string Key() const;

  bool operator==(const TeamPolicy &) const = default;
};

/** The policy in a record that was checked. */
KESTREL_HOST_EXPORT TeamPolicy TeamPolicyOf(const VSTeamPolicy &record);
/** A named policy has no speed, duplex or percentage of its own: it asks for any, and tolerates no errors. */
KESTREL_HOST_EXPORT TeamPolicy TeamPolicyOf(const LSTeamPolicy &record);

}  // namespace kestrel::host
