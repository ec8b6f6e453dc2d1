#include "host/core/traffic/passage.h"

#include <algorithm>

#include "host/core/mirroring/mirroring.h"
#include "host/core/multicast/multicast.h"
#include "host/core/teaming/teaming.h"
#include "host/core/traffic/delivery.h"

namespace kestrel::host {

CastKind CastKindOf(const MacAddress &destination) {
  if ((destination[0] & 1) == 0) return CastKind::kUnicast;
  return destination == kBroadcast ? CastKind::kBroadcast : CastKind::kMulticast;
}

bool Passage::Run() {
  const MacAddress &destination = in_.frame.destination();
  if (in_.source.sends_to_uplink) {
    TakeToUplink();
  } else if (const CastKind kind = CastKindOf(destination); kind == CastKind::kBroadcast) {
    TakeToAll();
  } else if (kind == CastKind::kMulticast) {
    TakeToGroup();
  } else {
    const MacEntry *entry = in_.owner.runtime.macs.Find({in_.carried.table_vlan, destination});
    const PortPlan *known =
        entry != nullptr ? in_.plan.Find(entry->port) : in_.plan.FindStation(in_.carried.vlan(), destination);
    if (known == nullptr) {
      TakeToUnknown();
    } else {
      TakeToKnown(*known);
    }
  }
  return taken_ != 0;
}

void Passage::TakeToKnown(const PortPlan &to) {
  if (to.is_uplink) {
    // Which of them is the team's business, wherever the address was seen.
    TakeToUplink();
  } else if (to.id != in_.source.id) {
    // Asked for its count: for one station everybody accepts.
    if (in_.source.is_uplink) AcceptsFromUplink(in_.host, in_.owner, *to.port, in_.source.id, in_.original);
    Take(to);
  }
  TakeToPromiscuous(&to);
}

void Passage::TakeToUnknown() {
  for (const std::uint32_t place : in_.plan.listeners) {
    const PortPlan &to = in_.plan.ports[place];
    if (IsReachable(to) && AcceptsCopy(to)) Take(to);
  }
  TakeToUplink();
}

void Passage::TakeToAll() {
  ForEachReachable([this](const PortPlan &to) {
    if ((to.takes_broadcasts || to.is_promiscuous) && AcceptsCopy(to)) Take(to);
  });
  TakeToUplink();
}

void Passage::TakeToGroup() {
  const MulticastDelivery delivery(in_.host, in_.owner, in_.carried.vlan(), in_.frame);
  ForEachReachable([&](const PortPlan &to) {
    const bool is_wanted = to.is_promiscuous || to.takes_all_groups || delivery.Reaches(*to.port) ||
                           std::ranges::find(to.groups, in_.frame.destination()) != to.groups.end();
    if (is_wanted && AcceptsCopy(to)) Take(to);
  });
  if (taken_ == 0) {
    for (const std::uint32_t place : in_.plan.listeners) {
      const PortPlan &to = in_.plan.ports[place];
      if (to.is_sink && IsReachable(to) && AcceptsCopy(to)) Take(to);
    }
  }
  TakeToUplink(&delivery);
}

void Passage::TakeToUplink(const MulticastDelivery *delivery) {
  if (in_.source.is_uplink) return;
  for (const PlannedUplink *uplink : ChooseUplinks(in_.host, in_.owner, *in_.source.port, in_.original)) {
    if (delivery == nullptr || delivery->Reaches(*uplink->port)) Take(*in_.plan.Find(uplink->id));
  }
}

void Passage::TakeToPromiscuous(const PortPlan *known) {
  for (const std::uint32_t place : in_.plan.listeners) {
    const PortPlan &to = in_.plan.ports[place];
    if (to.is_promiscuous && &to != known && IsReachable(to) && AcceptsCopy(to)) Take(to);
  }
}

template <typename Visit>
void Passage::ForEachReachable(Visit visit) {
  for (const PortPlan &to : in_.plan.ports) {
    if (IsReachable(to)) visit(to);
  }
}

bool Passage::IsReachable(const PortPlan &to) const {
  return to.has_client && !to.is_uplink && to.id != in_.source.id && MayLeave(in_.plan, to, in_.carried);
}

bool Passage::AcceptsCopy(const PortPlan &to) const {
  if (!in_.source.is_uplink) return true;
  // What it sent itself comes back where its frames are sent out whatever they are.
  if (to.address == in_.frame.source()) return false;
  if (to.is_promiscuous && !in_.plan.checks_reverse_path_of_promiscuous) return true;
  return AcceptsFromUplink(in_.host, in_.owner, *to.port, in_.source.id, in_.original, true);
}

void Passage::Take(const PortPlan &to) {
  ++taken_;
  PortRuntime &runtime = in_.owner.runtime.ports.At(to.id);
  if (!IsOpen(in_.host, in_.owner, in_.plan, to) || !MayLeave(in_.plan, to, in_.carried) ||
      IsClosedByMirroring(in_.owner, to.id, MirrorDirection::kOut)) {
    ++runtime.dropped_out;
    return;
  }
  const VlanId vlan = in_.carried.vlan();
  Deliver(in_.host, runtime, to.id, in_.frame, TagAt(to, in_.carried));
  MirrorFrame(in_.host, in_.owner, *to.port, MirrorDirection::kOut, vlan, in_.frame);
}

}  // namespace kestrel::host
