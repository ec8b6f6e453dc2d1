#include "host/core/traffic/source_rules.h"

namespace kestrel::host {
namespace {

/** Whether the user entered an address behind a port: it is the port's own then. */
bool IsEntered(const MacTable &macs, const PortPlan &port, const MacKey &key) {
  const MacEntry *entry = macs.Find(key);
  return entry != nullptr && entry->kind != VS_MAC_ADDR_TYPE_LEARNED && entry->port == port.id;
}

/** What of a client of this switch comes in from outside can only be the echo of what it sent, unless clients are meant
    to be heard outside: their frames are sent out whatever they are, or they may have left without a word. */
bool IsEcho(const SwitchPlan &plan, const PortPlan &uplink, const Carried &carried, const MacAddress &source) {
  if (!uplink.is_uplink || !plan.checks_reverse_path || plan.learns_static_on_uplinks) return false;
  const PortPlan *station = plan.FindStation(carried.vlan(), source);
  return station != nullptr && !station->sends_to_uplink;
}

std::size_t LearnedByTeam(const Switch &owner, const SwitchPlan &plan) {
  std::size_t count = 0;
  for (const std::uint32_t place : plan.uplinks) count += owner.runtime.macs.LearnedBehind(plan.ports[place].id);
  return count;
}

/** Whether a port has learned as much as it may; the uplinks have one limit together. */
bool IsFull(const Switch &owner, const SwitchPlan &plan, const PortPlan &port) {
  const std::size_t learned = port.is_uplink ? LearnedByTeam(owner, plan) : owner.runtime.macs.LearnedBehind(port.id);
  return learned >= port.learning_limit;
}

/** Whether an entry would be new to what a limit counts. */
bool IsNewTo(const SwitchPlan &plan, const PortPlan &port, const MacEntry *entry) {
  if (entry == nullptr) return true;
  if (entry->kind != VS_MAC_ADDR_TYPE_LEARNED || entry->port == port.id) return false;
  const PortPlan *former = plan.Find(entry->port);
  return !port.is_uplink || former == nullptr || !former->is_uplink;
}

/** A frame from an address that was not learned. False when it is to be dropped. */
bool PassesUnlearned(Switch &owner, const PortPlan &port, bool is_own_limit) {
  PortRuntime &runtime = owner.runtime.ports.At(port.id);
  if (port.drops_at_limit) {
    ++runtime.unlearned_dropped;
    return false;
  }
  ++runtime.unlearned;
  if (is_own_limit) ++runtime.unlearned_by_own_limit;
  return true;
}

}  // namespace

bool MayComeFrom(const Switch &owner, const SwitchPlan &plan, const PortPlan &port, const Carried &carried,
                 const MacAddress &source) {
  if (!IsStation(source)) return false;
  if (port.is_uplink) return !IsEcho(plan, port, carried, source);
  return source == port.address || port.allows_forged_sources ||
         IsEntered(owner.runtime.macs, port, {carried.table_vlan, source});
}

bool LearnSource(Host &host, Switch &owner, const SwitchPlan &plan, const PortPlan &port, const Carried &carried,
                 const MacAddress &source) {
  MacTable &macs = owner.runtime.macs;
  const MacKey key{carried.table_vlan, source};
  const MacEntry *entry = macs.Find(key);
  if (!port.is_uplink && source == port.address) {
    // The client is here, whatever was learned while it was elsewhere.
    if (entry != nullptr && entry->kind == VS_MAC_ADDR_TYPE_LEARNED) macs.Remove(key);
    return true;
  }
  if (!port.learns) return true;
  const bool may_learn_static = port.is_uplink ? plan.learns_static_on_uplinks : plan.learns_static_on_ports;
  if (!may_learn_static && plan.FindStation(carried.vlan(), source) != nullptr) return true;

  if (IsNewTo(plan, port, entry) && IsFull(owner, plan, port)) return PassesUnlearned(owner, port, true);
  macs.SetLimits(plan.limits);
  const Learning outcome = macs.Learn(key, port.id, host.clock().Now());
  if (outcome == Learning::kMoved) ++owner.runtime.ports.At(port.id).moved_here;
  return outcome != Learning::kFull || PassesUnlearned(owner, port, false);
}

}  // namespace kestrel::host
