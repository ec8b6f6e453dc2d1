#include "host/core/traffic/vlan_rules.h"

namespace kestrel::host {
namespace {

/** Whether frames of one VLAN of a private VLAN reach a port in another of it. */
bool MayReach(const Carried &carried, const PortPlan &port) {
  switch (carried.kind) {
    case PrivateKind::kPromiscuous:
      return true;
    case PrivateKind::kIsolated:
      return port.private_vlan.kind == PrivateKind::kPromiscuous;
    case PrivateKind::kCommunity:
      return port.private_vlan.kind == PrivateKind::kPromiscuous || port.vlan == carried.vlan();
    case PrivateKind::kNone:
      return false;
  }
  return false;
}

}  // namespace

std::optional<Carried> Admit(const SwitchPlan &plan, const PortPlan &port, const Frame &frame) {
  Carried carried;
  std::size_t inner_tags = frame.tag_count();
  const auto &tag = frame.tag();
  const bool has_vlan_tag = tag && tag->vlan != 0;
  const bool is_trunk = port.mode == VlanMode::kTrunk;
  // The outermost tag is the switch's own, unless it says a VLAN and the port has one already.
  if (tag && (is_trunk || !has_vlan_tag)) {
    carried.tag = *tag;
    --inner_tags;
  }
  if (!is_trunk || !has_vlan_tag) carried.tag.vlan = port.vlan;
  carried.is_nested = inner_tags > 0;
  carried.needs_outer_tag = !is_trunk && has_vlan_tag;

  if (!plan.vlans.Contains(carried.vlan())) return std::nullopt;
  if (carried.is_nested && !port.allows_nested_tags) return std::nullopt;
  if (is_trunk && !plan.vlan_sets[port.vlan_set].test(carried.vlan())) return std::nullopt;
  if (port.mode == VlanMode::kPrivate && port.private_vlan.kind == PrivateKind::kNone) return std::nullopt;

  const PrivateVlan private_vlan = plan.PrivateVlanOf(carried.vlan());
  carried.kind = private_vlan.kind;
  carried.table_vlan = carried.kind == PrivateKind::kNone ? carried.vlan() : private_vlan.primary;
  if (port.priority != ZEL_VLAN_PRIORITY_INVALID) {
    carried.tag.priority = port.priority;
    carried.tag.drop_eligible = false;
  }
  return carried;
}

bool MayLeave(const SwitchPlan &plan, const PortPlan &port, const Carried &carried) {
  if (carried.is_nested && !port.allows_nested_tags) return false;
  switch (port.mode) {
    case VlanMode::kAccess:
      return port.vlan == carried.vlan();
    case VlanMode::kTrunk:
      return plan.vlan_sets[port.vlan_set].test(carried.vlan());
    case VlanMode::kPrivate:
      return port.private_vlan.kind != PrivateKind::kNone && port.private_vlan.primary == carried.table_vlan &&
             MayReach(carried, port);
  }
  return false;
}

std::optional<VlanTag> TagAt(const PortPlan &port, const Carried &carried) {
  const bool is_trunk = port.mode == VlanMode::kTrunk;
  if (is_trunk && carried.vlan() != port.vlan) return carried.tag;
  VlanTag tag = carried.tag;
  tag.vlan = 0;
  // Where the outermost tag says the VLAN, the one inside must not become it.
  const bool hides_nested = is_trunk && carried.is_nested;
  const bool says_priority = port.keeps_priority && tag.priority != 0;
  return hides_nested || says_priority ? std::optional(tag) : std::nullopt;
}

}  // namespace kestrel::host
