/* Teaming policies: which uplinks carry the frames of a switch or a port. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/host.h"
#include "host/core/properties/property_table.h"
#include "host/export.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {

/** Checks a VSTeamPolicy. Throws StatusError ZEL_BAD_PARAM for a wrong size, an unknown balance, criterion or flag and
    an uplink that is named twice, ZEL_LIMIT_EXCEEDED for more than ZEL_TEAM_MAX_UPLINKS names, ZEL_NAME_TOO_LONG for
    one without an end, ZEL_INVALID_NAME for an empty one, ZEL_NOT_FOUND for one that is no uplink or group. */
void CheckTeamPolicy(std::string_view value, const PropertyContext &where);

/** The policy of a port that was given none: that of its switch. */
std::string TeamPolicyOfPort(const PropertyContext &where);

/** The policy of a switch that was given none: all uplinks active, balanced by the port that a frame comes from. */
std::string DefaultTeamPolicy(const PropertyContext &where);

/** Checks an LSTeamTable. Throws as CheckTeamPolicy does for each policy and as CheckName does for its name,
   StatusError ZEL_EXISTS for a name that is there twice, ZEL_BUSY when a port follows a policy that the table lacks. */
void CheckNamedTeams(std::string_view value, const PropertyContext &where);

/** A table of no policies. */
std::string NoNamedTeams(const PropertyContext &where);

/** Checks the name of the policy that a port is to follow. Throws StatusError ZEL_NOT_FOUND when the switch has none of
    that name. */
void CheckFollowedTeam(std::string_view value, const PropertyContext &where);

/** Checks the name of the uplink that a port is to be tied to. Throws StatusError ZEL_NOT_FOUND when it is no uplink
    or group. */
void CheckTeamingOverride(std::string_view value, const PropertyContext &where);

/** The named policies of a switch. */
std::vector<LSTeamPolicy> NamedTeamsOf(const SwitchConfig &config);

}  // namespace kestrel::host
