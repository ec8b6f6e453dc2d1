#include "host/core/teaming/team_plan.h"

#include <algorithm>
#include <utility>

#include "host/core/base/record_bytes.h"
#include "host/core/properties/property_table.h"
#include "host/core/teaming/team.h"
#include "host/core/teaming/team_hash.h"

namespace kestrel::host {
namespace {

/** Shares of the traffic for each active member. A number that many others divide, so that the shares of a member that
    fails go to the rest in equal parts. */
constexpr std::size_t kSharesOfMember = 60;

bool IsNumaAware(const Host &host) { return host.options().NumberOf(VS_RT_OPT_TEAMING_NUMA_AWARE) != 0; }

/** Whether frames are kept from passing a port. */
bool IsBlocked(const Port &port) {
  const Property *block = port.properties.Find(ZEL_VDSPROP_PORT_BLOCK);
  return block != nullptr && RecordOf<zel_Bool>(block->value) != 0;
}

bool DependsOnFrame(std::uint32_t balance) {
  return balance == TEAM_FRP_TYPE_LB_IP || balance == TEAM_FRP_TYPE_LB_SRCMAC;
}

bool HasOneChoice(std::uint32_t balance) {
  return balance == TEAM_FRP_TYPE_FO_EXPLICIT || balance == TEAM_FRP_TYPE_NONE;
}

/** Whether the criteria of a policy let an uplink carry frames, those about beacons apart. */
bool Meets(const PlannedUplink &uplink, const TeamPolicy &policy) {
  const auto asks = [&policy](std::uint32_t criterion) { return policy.HasCriterion(criterion); };
  if (uplink.nic.empty()) return false;
  if (asks(TEAM_FRP_CRIT_LINK_STATE) && !uplink.HasLink()) return false;
  if (asks(TEAM_FRP_CRIT_LINK_SPEED) && policy.speed != 0 && uplink.link.speed != policy.speed) return false;
  if (asks(TEAM_FRP_CRIT_LINK_SPEED_GTE) && uplink.link.speed < policy.speed) return false;
  if (asks(TEAM_FRP_CRIT_LINK_DUPLEX) && policy.full_duplex && uplink.link.duplex != ZEL_LINK_DUPLEX_FULL) {
    return false;
  }
  if (asks(TEAM_FRP_CRIT_LINK_ERR) && uplink.error_percent > policy.percent_error) return false;
  if (asks(TEAM_FRP_CRIT_PORT_BLOCKED) && uplink.is_blocked) return false;
  if (asks(TEAM_FRP_CRIT_DRV_PRESENT) && !uplink.has_driver) return false;
  if (asks(TEAM_FRP_CRIT_LACP_PORT_DOWN) && uplink.lacp && !uplink.lacp->in_service) return false;
  if (policy.HasFlag(TEAM_FRP_FLAG_LACP_CLIENT) && !(uplink.lacp && uplink.lacp->in_service)) return false;
  return true;
}

/** Compiles one policy. */
class TeamCompiler {
 public:
  TeamCompiler(const SwitchConfig &config, const std::map<PortId, PlannedUplink> &uplinks, const TeamPolicy &policy)
      : config_(config), uplinks_(uplinks), team_(std::make_unique<PlannedTeam>()) {
    team_->policy = policy;
    for (const auto *names : {&policy.active, &policy.standby}) {
      for (const std::string &name : *names) AddMember(name);
    }
    const bool all = policy.HasFlag(TEAM_FRP_FLAG_ALL_AVAILABLE) || policy.active.empty();
    team_->active = all ? team_->members.size() : policy.active.size();
  }

  /** `held` is who carried each share when the links last changed, for a team that does not fall back; else null. */
  std::unique_ptr<PlannedTeam> Compile(const std::vector<std::uint8_t> *held) {
    ChooseCarriers();
    Share(held);
    return std::move(team_);
  }

 private:
  using Uplinks = std::vector<const PlannedUplink *>;

  void AddMember(const std::string &name) {
    const Lag *lag = config_.lags().FindNamed(name);
    team_->members.push_back({.name = name, .is_group = lag != nullptr, .carriers = {}});
    Uplinks &behind = behind_.emplace_back();
    const auto add = [&](const std::string &uplink_name) {
      const Uplink *uplink = config_.uplinks().FindNamed(uplink_name);
      if (uplink != nullptr) behind.push_back(&uplinks_.at(uplink->id));
    };
    if (lag == nullptr) {
      add(name);
    } else {
      std::ranges::for_each(lag->members, add);
    }
  }

  /** Lets the uplinks carry for which `accept(uplink)` is true; a group's only while they are in service. Returns
      whether the team has one. */
  template <typename Condition>
  bool Accept(Condition accept) {
    bool any = false;
    for (std::size_t i = 0; i < behind_.size(); ++i) {
      Uplinks &carriers = team_->members[i].carriers;
      carriers.clear();
      for (const PlannedUplink *uplink : behind_[i]) {
        const bool is_served = !team_->members[i].is_group || (uplink->lacp && uplink->lacp->in_service);
        if (is_served && accept(*uplink)) carriers.push_back(uplink);
      }
      any = any || !carriers.empty();
    }
    return any;
  }

  void ChooseCarriers() {
    const TeamPolicy &policy = team_->policy;
    const bool asks_beacons = policy.HasCriterion(TEAM_FRP_CRIT_BEACON_STATE);
    const auto meets = [&](const PlannedUplink &uplink) { return Meets(uplink, policy); };
    const auto is_heard = [&](const PlannedUplink &uplink) { return !(asks_beacons && uplink.is_beacon_lost); };
    if (Accept([&](const PlannedUplink &uplink) { return meets(uplink) && is_heard(uplink) && !uplink.is_new; })) {
      return;
    }
    // Rather one that has just come up than none.
    if (Accept([&](const PlannedUplink &uplink) { return meets(uplink) && is_heard(uplink); })) return;
    if (asks_beacons && Accept(meets)) {
      // When no uplink hears another, beacons do not tell which of them are cut off.
      if (policy.HasFlag(TEAM_FRP_FLAG_SHOTGUN)) {
        for (const TeamMember &member : team_->members) {
          team_->shotgun.insert(team_->shotgun.end(), member.carriers.begin(), member.carriers.end());
        }
      }
      return;
    }
    if (policy.HasFlag(TEAM_FRP_FLAG_BEST_EFFORT)) {
      Accept([](const PlannedUplink &uplink) { return uplink.HasLink(); });
    }
  }

  bool IsUsable(std::size_t member) const { return team_->members[member].IsUsable(); }

  /** The members that take part in order: the usable active ones and, for each active one that is not usable, one of
      the standby ones that are. */
  void Share(const std::vector<std::uint8_t> *held) {
    const std::size_t homes = team_->active;
    if (homes == 0) return;
    std::vector<std::uint8_t> replacements;
    for (std::size_t i = homes; i < team_->members.size(); ++i) {
      if (IsUsable(i)) replacements.push_back(static_cast<std::uint8_t>(i));
    }
    std::vector<std::uint8_t> carriers;
    std::vector<std::uint8_t> home_carriers(homes, PlannedTeam::kNobody);
    std::size_t used = 0;
    for (std::size_t i = 0; i < homes; ++i) {
      if (IsUsable(i)) {
        home_carriers[i] = static_cast<std::uint8_t>(i);
      } else if (used < replacements.size()) {
        home_carriers[i] = replacements[used++];
      } else {
        continue;
      }
      carriers.push_back(home_carriers[i]);
    }

    const std::uint32_t balance = team_->policy.balance;
    std::vector<std::uint8_t> &shares = team_->shares;
    if (HasOneChoice(balance)) {
      std::uint8_t choice = PlannedTeam::kNobody;
      if (balance == TEAM_FRP_TYPE_NONE) {
        if (IsUsable(0)) choice = 0;
      } else {
        for (std::size_t i = team_->members.size(); i-- > 0;) {
          if (IsUsable(i)) choice = static_cast<std::uint8_t>(i);
        }
      }
      shares.assign(1, choice);
    } else {
      shares.assign(homes * kSharesOfMember, PlannedTeam::kNobody);
      for (std::size_t i = 0; i < shares.size() && !carriers.empty(); ++i) {
        const std::uint8_t carrier = home_carriers[i % homes];
        shares[i] = carrier != PlannedTeam::kNobody ? carrier : carriers[i / homes % carriers.size()];
      }
    }

    if (held == nullptr || held->size() != shares.size() || balance == TEAM_FRP_TYPE_NONE) return;
    for (std::size_t i = 0; i < shares.size(); ++i) {
      const std::uint8_t former = (*held)[i];
      if (former < team_->members.size() && IsUsable(former)) shares[i] = former;
    }
  }

  const SwitchConfig &config_;
  const std::map<PortId, PlannedUplink> &uplinks_;
  std::unique_ptr<PlannedTeam> team_;
  /** For each member the uplinks behind its name. */
  std::vector<Uplinks> behind_;
};

}  // namespace

bool PlannedTeam::IsUsable() const { return std::ranges::any_of(members, &TeamMember::IsUsable); }

TeamPlan::TeamPlan(const Host &host, const Switch &owner)
    : config_(owner.config.revision()),
      nics_(host.nics().revision()),
      choices_(owner.runtime.team.choices()),
      is_numa_aware_(IsNumaAware(host)) {
  const SwitchConfig &config = owner.config;
  const TeamState &state = owner.runtime.team.state();
  for (const Uplink &uplink : config.uplinks().Items()) {
    const Port *port = config.ports().Find(uplink.id);
    PlannedUplink &planned = uplinks_[uplink.id];
    planned.id = uplink.id;
    planned.uplink = &uplink;
    planned.port = port;
    const std::string nic_name = port->client ? port->client->name : std::string();
    const Nic *nic = host.nics().Find(nic_name);
    if (nic == nullptr) continue;
    planned.nic = nic_name;
    planned.link = nic->CurrentLink();
    planned.error_percent = nic->error_percent;
    planned.has_driver = nic->has_driver;
    planned.is_blocked = nic->is_blocked || IsBlocked(*port);
    const auto node = state.uplink_nodes.find(uplink.id);
    planned.numa_node = node == state.uplink_nodes.end() ? nic->numa_node : node->second;
    const auto known = state.uplinks.find(uplink.id);
    if (known == state.uplinks.end()) continue;
    planned.is_beacon_lost = known->second.is_beacon_lost;
    planned.is_new = known->second.used_from > host.clock().Now();
  }
  for (const Lag &lag : config.lags().Items()) {
    for (const LacpMember &member : LacpMembersOf(host, owner, lag)) uplinks_[member.uplink].lacp = member;
  }

  switch_policy_ =
      TeamPolicyOf(RecordOf<VSTeamPolicy>(ReadProperty(VSPROP_SWITCH_TEAMING, {}, host.mac_learning(), config)));
  for (const LSTeamPolicy &record : NamedTeamsOf(config)) {
    named_policies_.emplace(TextOf(record.name), TeamPolicyOf(record));
  }
  uses_load_ = switch_policy_.balance == TEAM_FRP_TYPE_LB_LBT || !state.load.of_ports.empty();
}

bool TeamPlan::IsCurrent(const Host &host, const Switch &owner) const {
  return config_ == owner.config.revision() && nics_ == host.nics().revision() &&
         choices_ == owner.runtime.team.choices() && is_numa_aware_ == IsNumaAware(host);
}

const PlannedUplink *TeamPlan::UplinkOf(PortId uplink) const {
  const auto found = uplinks_.find(uplink);
  return found == uplinks_.end() ? nullptr : &found->second;
}

bool TeamPlan::UsesBeacons(const Switch &owner) const {
  if (uses_beacons_) return *uses_beacons_;
  const auto uses = [](const TeamPolicy &policy) { return policy.HasCriterion(TEAM_FRP_CRIT_BEACON_STATE); };
  const auto port_uses = [&uses](const Port &port) {
    const Property *own = port.properties.Find(VSPROP_PORT_TEAMING_POLICY);
    return own != nullptr && uses(TeamPolicyOf(RecordOf<VSTeamPolicy>(own->value)));
  };
  uses_beacons_ = uses(switch_policy_) ||
                  std::ranges::any_of(named_policies_, [&](const auto &named) { return uses(named.second); }) ||
                  std::ranges::any_of(owner.config.ports().Items(), port_uses);
  return *uses_beacons_;
}

TeamPolicy TeamPlan::PolicyOf(const Port &port) const {
  if (const Property *followed = port.properties.Find(VSPROP_PORT_LS_TEAMING_POLICY)) {
    // A table that was for the runtime only may be gone while the port still names one of its policies.
    const auto named = named_policies_.find(TextOf(std::string_view(followed->value)));
    if (named != named_policies_.end()) return named->second;
  }
  const Property *own = port.properties.Find(VSPROP_PORT_TEAMING_POLICY);
  return own == nullptr ? switch_policy_ : TeamPolicyOf(RecordOf<VSTeamPolicy>(own->value));
}

const PlannedTeam &TeamPlan::TeamFor(const Switch &owner, const TeamPolicy &policy) const {
  std::string key = policy.Key();
  auto found = teams_.find(key);
  if (found == teams_.end()) {
    const auto &held = owner.runtime.team.state().held;
    const auto former = policy.HasFlag(TEAM_FRP_FLAG_ROLLING) ? held.find(key) : held.end();
    auto team = TeamCompiler(owner.config, uplinks_, policy).Compile(former == held.end() ? nullptr : &former->second);
    found = teams_.emplace(std::move(key), std::move(team)).first;
    if (policy.balance == TEAM_FRP_TYPE_LB_LBT) uses_load_ = true;
  }
  return *found->second;
}

void TeamPlan::CompileRollingTeams(const Switch &owner) const {
  const auto compile = [&](const TeamPolicy &policy) {
    if (policy.HasFlag(TEAM_FRP_FLAG_ROLLING)) TeamFor(owner, policy);
  };
  compile(switch_policy_);
  for (const auto &[name, policy] : named_policies_) compile(policy);
  for (const Port &port : owner.config.ports().Items()) {
    const bool is_special = port.properties.Find(VSPROP_PORT_TEAMING_POLICY) != nullptr ||
                            port.properties.Find(VSPROP_PORT_TEAMING_OVERRIDE) != nullptr;
    if (is_special && PolicyOf(port).HasFlag(TEAM_FRP_FLAG_ROLLING)) PortOf(owner, port);
  }
}

const PlannedPort &TeamPlan::AddPort(const Switch &owner, const Port &port) const {
  TeamPolicy policy = PolicyOf(port);
  if (const Property *tied = port.properties.Find(VSPROP_PORT_TEAMING_OVERRIDE)) {
    policy.active.assign(1, std::string(TextOf(std::string_view(tied->value))));
    policy.standby.clear();
  }
  PlannedPort planned;
  planned.team = &TeamFor(owner, policy);
  planned.depends_on_frame = DependsOnFrame(policy.balance);
  if (!planned.depends_on_frame) {
    planned.member = MemberOf(owner, *planned.team, port);
    if (planned.member != nullptr && planned.member->carriers.size() == 1) planned.uplink = planned.member->carriers[0];
  }
  planned.is_service = port.client && port.client->type == VS_PORT_CLIENT_TCPIP;
  if (const Property *filter = port.properties.Find(VSPROP_PORT_EXTRA_ETH_FRP)) {
    planned.is_promiscuous = (RecordOf<VSExtraEthFilter>(filter->value).flags & ZEL_ETH_FILTER_PROMISC) != 0;
  }
  const auto vlan = VlanOf(port);
  if (!vlan || vlan->mode != VlanMode::kTrunk) planned.vlan = vlan ? vlan->vlan : VlanId{0};
  return ports_.emplace(port.id, planned).first->second;
}

const TeamMember *TeamPlan::MemberOf(const Switch &owner, const PlannedTeam &team, const Port &port) const {
  const TeamState &state = owner.runtime.team.state();
  const std::uint32_t balance = team.policy.balance;
  if (balance == TEAM_FRP_TYPE_LB_LBT) {
    const auto placed = state.load.placements.find(port.id);
    if (placed != state.load.placements.end()) {
      const auto member = std::ranges::find(team.members, placed->second, &TeamMember::name);
      if (member != team.members.end() && member->IsUsable()) return &*member;
    }
  }
  const auto node = state.client_nodes.find(port.id);
  if (is_numa_aware_ && node != state.client_nodes.end() && !HasOneChoice(balance)) {
    std::vector<const TeamMember *> near;
    for (std::size_t i = 0; i < team.active; ++i) {
      const auto is_near = [&](const PlannedUplink *uplink) { return uplink->numa_node == node->second; };
      const TeamMember &member = team.members[i];
      if (member.IsUsable() && std::ranges::all_of(member.carriers, is_near)) near.push_back(&member);
    }
    if (!near.empty()) return near[port.id % near.size()];
  }
  return team.MemberFor(port.id);
}

const TeamPlan &TeamPlanOf(const Host &host, const Switch &owner) {
  auto &plan = owner.runtime.team.plan;
  if (plan == nullptr || !plan->IsCurrent(host, owner)) plan = std::make_shared<const TeamPlan>(host, owner);
  return *plan;
}

const TeamMember *MemberForAddress(const PlannedPort &port, const MacAddress &address) {
  if (!port.depends_on_frame) return port.member;
  return port.team->MemberFor(HashOfAddress(address));
}

}  // namespace kestrel::host
