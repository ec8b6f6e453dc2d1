#include "host/core/teaming/team.h"

#include <algorithm>
#include <set>
#include <vector>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/base/record_bytes.h"
#include "host/core/properties/property_checks.h"

namespace kestrel::host {
namespace {

constexpr std::uint32_t kCriteria = TEAM_FRP_CRIT_LINK_SPEED | TEAM_FRP_CRIT_LINK_SPEED_GTE |
                                    TEAM_FRP_CRIT_LINK_DUPLEX | TEAM_FRP_CRIT_LACP_PORT_DOWN |
                                    TEAM_FRP_CRIT_BEACON_STATE | TEAM_FRP_CRIT_LINK_ERR | TEAM_FRP_CRIT_LINK_STATE |
                                    TEAM_FRP_CRIT_PORT_BLOCKED | TEAM_FRP_CRIT_DRV_PRESENT;
constexpr std::uint32_t kFlags = TEAM_FRP_FLAG_ALL_AVAILABLE | TEAM_FRP_FLAG_REVERSE | TEAM_FRP_FLAG_BEST_EFFORT |
                                 TEAM_FRP_FLAG_ROLLING | TEAM_FRP_FLAG_SHOTGUN | TEAM_FRP_FLAG_NOTIFY_SWITCH |
                                 TEAM_FRP_FLAG_BLOCK_OUTPUT | TEAM_FRP_FLAG_LACP_CLIENT | TEAM_FRP_FLAG_LST;

bool IsTeamMember(std::string_view name, const SwitchConfig &config) {
  return config.uplinks().FindNamed(name) != nullptr || config.lags().FindNamed(name) != nullptr;
}

/** The part that both kinds of policy have. */
template <typename Policy>
void CheckTeam(const Policy &policy, const PropertyContext &where) {
  if (policy.loadBalance > TEAM_FRP_TYPE_LB_LBT || (policy.linkCriteria & ~kCriteria) != 0 ||
      (policy.flags & ~kFlags) != 0) {
    throw StatusError(ZEL_BAD_PARAM);
  }
  const std::uint64_t count = std::uint64_t{policy.numActive} + policy.numStandby;
  if (count > ZEL_TEAM_MAX_UPLINKS) throw StatusError(ZEL_LIMIT_EXCEEDED);
  std::set<std::string_view> seen;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view name = TextOf(policy.uplinkPortName[i]);
    CheckName(name, ZEL_VDS_PORT_ALIAS_MAX_LEN);
    if (!where.may_dangle && !IsTeamMember(name, where.config)) throw StatusError(ZEL_NOT_FOUND);
    if (!seen.insert(name).second) throw StatusError(ZEL_BAD_PARAM);
  }
}

/** The policies of an LSTeamTable. Throws StatusError ZEL_BAD_PARAM when its size is not that of its count. */
std::vector<LSTeamPolicy> NamedTeamsIn(std::string_view table) {
  const std::size_t count = RecordAt<LSTeamTable>(table, 0).numLSTeam;
  if (table.size() != sizeof(LSTeamTable) + count * sizeof(LSTeamPolicy)) throw StatusError(ZEL_BAD_PARAM);
  std::vector<LSTeamPolicy> policies;
  policies.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    policies.push_back(RecordAt<LSTeamPolicy>(table, sizeof(LSTeamTable) + i * sizeof(LSTeamPolicy)));
  }
  return policies;
}

const LSTeamPolicy *FindNamed(const std::vector<LSTeamPolicy> &policies, std::string_view name) {
  const auto found = std::ranges::find_if(policies, [name](const auto &policy) { return TextOf(policy.name) == name; });
  return found == policies.end() ? nullptr : &*found;
}

}  // namespace

void CheckTeamPolicy(std::string_view value, const PropertyContext &where) {
  const auto policy = RecordOf<VSTeamPolicy>(value);
  CheckTeam(policy, where);
  if (policy.percentError > 100) throw StatusError(ZEL_BAD_PARAM);
}

std::string DefaultTeamPolicy(const PropertyContext &where) {
  VSTeamPolicy policy{};
  policy.loadBalance = TEAM_FRP_TYPE_LB_SRCID;
  policy.linkCriteria = TEAM_FRP_CRIT_LINK_STATE;
  policy.flags = TEAM_FRP_FLAG_REVERSE | TEAM_FRP_FLAG_NOTIFY_SWITCH;
  for (const Uplink &uplink : where.config.uplinks().Items()) {
    uplink.name.copy(policy.uplinkPortName[policy.numActive], ZEL_VDS_PORT_ALIAS_MAX_LEN - 1);
    ++policy.numActive;
  }
  return BytesOf(policy);
}

std::string TeamPolicyOfPort(const PropertyContext &where) {
  return ReadProperty(VSPROP_SWITCH_TEAMING, {}, where.defaults, where.config);
}

void CheckNamedTeams(std::string_view value, const PropertyContext &where) {
  const std::vector<LSTeamPolicy> policies = NamedTeamsIn(value);
  std::set<std::string_view> names;
  for (const LSTeamPolicy &policy : policies) {
    const std::string_view name = TextOf(policy.name);
    CheckName(name, sizeof policy.name);
    if (!names.insert(name).second) throw StatusError(ZEL_EXISTS);
    CheckTeam(policy, where);
  }
  if (where.may_dangle) return;
  for (const Port &port : where.config.ports().Items()) {
    const Property *followed = port.properties.Find(VSPROP_PORT_LS_TEAMING_POLICY);
    if (followed != nullptr && !names.contains(TextOf(followed->value))) throw StatusError(ZEL_BUSY);
  }
}

std::string NoNamedTeams(const PropertyContext & /*where*/) { return BytesOf(LSTeamTable{}); }

void CheckFollowedTeam(std::string_view value, const PropertyContext &where) {
  CheckText(value, sizeof(LSTeamPolicy::name));
  if (where.may_dangle) return;
  if (FindNamed(NamedTeamsOf(where.config), TextOf(value)) == nullptr) throw StatusError(ZEL_NOT_FOUND);
}

void CheckTeamingOverride(std::string_view value, const PropertyContext &where) {
  CheckText(value, ZEL_VDS_PORT_ALIAS_MAX_LEN);
  if (!where.may_dangle && !IsTeamMember(TextOf(value), where.config)) throw StatusError(ZEL_NOT_FOUND);
}

std::vector<LSTeamPolicy> NamedTeamsOf(const SwitchConfig &config) {
  const Property *table = config.properties().Find(VSPROP_LS_TEAMING_POLICY);
  return table == nullptr ? std::vector<LSTeamPolicy>{} : NamedTeamsIn(table->value);
}

}  // namespace kestrel::host
