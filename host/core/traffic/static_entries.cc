#include "host/core/traffic/static_entries.h"

#include <algorithm>
#include <tuple>

namespace kestrel::host {
namespace {

/** The VLANs that the address of a port's client is known in. */
VlanSet VlansOf(const SwitchPlan &plan, const PortPlan &port) {
  VlanSet vlans;
  switch (port.mode) {
    case VlanMode::kAccess:
      vlans.set(port.vlan);
      break;
    case VlanMode::kTrunk:
      vlans = plan.vlan_sets[port.vlan_set];
      break;
    case VlanMode::kPrivate:
      if (port.private_vlan.kind != PrivateKind::kNone) vlans.set(port.private_vlan.primary).set(port.vlan);
      break;
  }
  return vlans;
}

VlanId LowestOf(const VlanSet &vlans) { return static_cast<VlanId>(vlans._Find_first()); }

bool IsStationPort(const PortPlan &port) { return port.has_client && !port.is_uplink; }

}  // namespace

std::vector<StaticEntry> StaticEntriesOf(const Host &host, const Switch &owner) {
  const SwitchPlan &plan = PlanOf(host, owner);
  std::vector<StaticEntry> entries;
  for (const PortPlan &port : plan.ports) {
    if (!IsStationPort(port)) continue;
    entries.push_back({port.address, VS_MAC_ADDR_TYPE_STATIC, port.id, VlansOf(plan, port)});
  }
  for (const auto &[key, entry] : owner.runtime.macs.entries()) {
    if (entry.kind == VS_MAC_ADDR_TYPE_LEARNED) continue;
    entries.push_back({key.address, entry.kind, entry.port, VlanSet().set(key.vlan)});
  }
  std::ranges::stable_sort(entries, {},
                           [](const StaticEntry &entry) { return std::tuple(entry.port, entry.address, entry.kind); });
  return entries;
}

std::vector<MacItem> StationsOf(const Host &host, const Switch &owner) {
  const SwitchPlan &plan = PlanOf(host, owner);
  std::vector<MacItem> items;
  for (const PortPlan &port : plan.ports) {
    const VlanSet vlans = VlansOf(plan, port);
    if (!IsStationPort(port) || vlans.none()) continue;
    const MacKey key{plan.TableVlanOf(LowestOf(vlans)), port.address};
    if (owner.runtime.macs.Find(key) != nullptr) continue;
    const PortRuntime *runtime = owner.runtime.ports.Find(port.id);
    const TimePoint since = runtime == nullptr ? TimePoint{} : runtime->connected_at;
    items.push_back({key, {VS_MAC_ADDR_TYPE_STATIC, port.id, since, 0}});
  }
  std::ranges::sort(items, {}, [](const MacItem &item) { return std::tuple(item.key, item.entry.port); });
  return items;
}

}  // namespace kestrel::host
