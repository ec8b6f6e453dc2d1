#include "host/core/teaming/lacp.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/core/base/fnv_hash.h"
#include "host/core/frames/mac_address.h"
#include "host/core/traffic/traffic.h"

namespace kestrel::host {
namespace {

constexpr std::uint16_t kSystemPriority = 0x8000;
constexpr std::uint16_t kPortPriority = 0xff;

/** What the host says of one of its ports before it has looked at the other end. */
LacpEnd OwnEnd(const SwitchConfig &config, const Lag &lag, PortId uplink) {
  return {.system_priority = kSystemPriority,
          .system = AddressOfHash(FnvHash{}.Add(config.spec().id).value()),
          .key = static_cast<std::uint16_t>(lag.id),
          .port_priority = kPortPriority,
          .port = static_cast<std::uint16_t>(uplink),
          .state = kLacpActivity | kLacpAggregation};
}

/** What a partner that the laboratory plays says. */
LacpEnd EndOfPartner(const LacpPartner &partner, PortId uplink) {
  std::uint8_t state = kLacpAggregation | kLacpSynchronization;
  if (partner.mode == LacpMode::kActive) state |= kLacpActivity;
  if (partner.short_timeout) state |= kLacpShortTimeout;
  if (partner.collects) state |= kLacpCollecting;
  if (partner.distributes) state |= kLacpDistributing;
  return {.system_priority = partner.system_priority,
          .system = partner.system,
          .key = partner.key,
          .port_priority = kPortPriority,
          .port = static_cast<std::uint16_t>(uplink),
          .state = state};
}

std::optional<LacpEnd> PartnerOf(const Host &host, const Switch &owner, PortId uplink, const Nic &nic) {
  const LinkStatus link = nic.CurrentLink();
  // Aggregation is for links of full duplex only.
  if (link.state != ZEL_LINK_STATE_UP || link.duplex == ZEL_LINK_DUPLEX_HALF || nic.is_blocked || !nic.has_driver) {
    return std::nullopt;
  }
  if (nic.partner.mode != LacpMode::kNone) return EndOfPartner(nic.partner, uplink);
  const auto &uplinks = owner.runtime.team.state().uplinks;
  const auto known = uplinks.find(uplink);
  if (known == uplinks.end() || known->second.lacp_heard_until <= host.clock().Now()) return std::nullopt;
  return known->second.lacp_partner;
}

/** The far end that most members have, that of the earliest member where there is no most. Null when none has one. */
const LacpEnd *CommonPartner(const std::vector<LacpMember> &members) {
  const LacpEnd *common = nullptr;
  std::ptrdiff_t most = 0;
  for (const LacpMember &member : members) {
    const LacpEnd &partner = member.pdu.partner;
    if (!member.has_partner || !partner.Says(kLacpAggregation)) continue;
    const auto count = std::ranges::count_if(members, [&partner](const LacpMember &other) {
      return other.has_partner && other.pdu.partner.Says(kLacpAggregation) && other.pdu.partner.IsSameGroup(partner);
    });
    if (count > most) {
      most = count;
      common = &partner;
    }
  }
  return common;
}

}  // namespace

std::vector<LacpMember> LacpMembersOf(const Host &host, const Switch &owner, const Lag &lag) {
  std::vector<LacpMember> members;
  for (const std::string &name : lag.members) {
    const Uplink *uplink = owner.config.uplinks().FindNamed(name);
    const std::string *nic_name = uplink == nullptr ? nullptr : owner.config.NicOf(uplink->id);
    const Nic *nic = nic_name == nullptr ? nullptr : host.nics().Find(*nic_name);
    if (nic == nullptr) continue;
    LacpMember member{.uplink = uplink->id};
    member.pdu.actor = OwnEnd(owner.config, lag, uplink->id);
    if (const auto partner = PartnerOf(host, owner, uplink->id, *nic)) {
      member.has_partner = true;
      member.pdu.partner = *partner;
    }
    members.push_back(member);
  }

  const LacpEnd *common = CommonPartner(members);
  for (LacpMember &member : members) {
    LacpEnd &own = member.pdu.actor;
    const LacpEnd &partner = member.pdu.partner;
    if (!member.has_partner) {
      own.state |= kLacpDefaulted;
      continue;
    }
    if (common == nullptr || !partner.Says(kLacpAggregation) || !partner.IsSameGroup(*common)) continue;
    own.state |= kLacpSynchronization;
    if (!partner.Says(kLacpSynchronization)) continue;
    own.state |= kLacpCollecting;
    if (!partner.Says(kLacpCollecting)) continue;
    own.state |= kLacpDistributing;
    member.in_service = true;
  }
  return members;
}

const Lag *LagOfUplink(const SwitchConfig &config, std::string_view uplink) {
  for (const Lag &lag : config.lags().Items()) {
    if (std::ranges::find(lag.members, uplink) != lag.members.end()) return &lag;
  }
  return nullptr;
}

bool IsInService(const Host &host, const Switch &owner, const Uplink &uplink) {
  const Lag *lag = LagOfUplink(owner.config, uplink.name);
  if (lag == nullptr) return false;
  return std::ranges::any_of(LacpMembersOf(host, owner, *lag), [&uplink](const LacpMember &member) {
    return member.uplink == uplink.id && member.in_service;
  });
}

void HearLacpdu(Host &host, Switch &owner, PortId uplink, const Lacpdu &pdu) {
  const Lag *lag = LagOfUplink(owner.config, owner.config.uplinks().Find(uplink)->name);
  if (lag == nullptr) return;
  const std::vector<LacpMember> members = LacpMembersOf(host, owner, *lag);
  const auto member = std::ranges::find(members, uplink, &LacpMember::uplink);
  if (member == members.end()) return;

  // In step with the host is only who means the host's own port, and knows that it may be aggregated.
  const bool means_us = pdu.partner.IsSamePort(member->pdu.actor) && pdu.partner.Says(kLacpAggregation);
  LacpEnd partner = pdu.actor;
  if (!means_us) partner.state &= static_cast<std::uint8_t>(~kLacpSynchronization);
  const bool is_news = !(member->has_partner && member->pdu.partner == partner);
  TeamState &teams = is_news ? owner.runtime.team.ChangeChoices() : owner.runtime.team.Change();
  UplinkRuntime &state = teams.uplinks[uplink];
  state.lacp_partner = partner;
  state.lacp_heard_until = host.clock().Now() + kLacpLongTimeout;
  // It is told at once what it does not know yet.
  const auto after = LacpMembersOf(host, owner, *lag);
  const LacpEnd &says = std::ranges::find(after, uplink, &LacpMember::uplink)->pdu.actor;
  if (!pdu.partner.IsSamePort(says) || pdu.partner.state != says.state) state.lacp_due = host.clock().Now();
}

std::optional<LacpEnd> LacpPartnerOf(const Host &host, const Switch &owner, PortId uplink) {
  const Lag *lag = LagOfUplink(owner.config, owner.config.uplinks().Find(uplink)->name);
  if (lag == nullptr) return std::nullopt;
  const std::vector<LacpMember> members = LacpMembersOf(host, owner, *lag);
  const auto member = std::ranges::find(members, uplink, &LacpMember::uplink);
  return member == members.end() || !member->has_partner ? std::nullopt : std::optional(member->pdu.partner);
}

void KeepLacpPartner(const Host &host, Switch &owner, PortId uplink, const LacpEnd &partner) {
  UplinkRuntime &state = owner.runtime.team.ChangeChoices().uplinks[uplink];
  state.lacp_partner = partner;
  state.lacp_heard_until = host.clock().Now() + kLacpLongTimeout;
}

void SendLacpdu(Host &host, Switch &owner, const LacpMember &member) {
  const Port &port = *owner.config.ports().Find(member.uplink);
  const bool is_fast = member.has_partner && member.pdu.partner.Says(kLacpShortTimeout);
  owner.runtime.team.Change().uplinks[member.uplink].lacp_due =
      host.clock().Now() + (is_fast ? kLacpFastPeriod : kLacpSlowPeriod);
  const auto bytes = BytesOfLacpdu(member.pdu, port.plugged().address);
  SendOut(host, owner, port, Frame(bytes), std::nullopt);
}

}  // namespace kestrel::host
