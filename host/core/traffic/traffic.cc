#include "host/core/traffic/traffic.h"

#include "host/core/mirroring/mirroring.h"
#include "host/core/multicast/multicast.h"
#include "host/core/teaming/teaming.h"
#include "host/core/traffic/delivery.h"
#include "host/core/traffic/passage.h"
#include "host/core/traffic/source_rules.h"

namespace kestrel::host {
namespace {

void CaptureIncoming(Host &host, PortId port, const Frame &frame) {
  CaptureTable &captures = host.captures();
  if (captures.IsEmpty() || !captures.IsWanted(port, true)) return;
  captures.Note(port, true, host.clock().Now(), {frame.bytes().begin(), frame.bytes().end()});
}

/** What is left to be done with a frame that the port's policies let in. False when it goes nowhere. */
bool Forward(const AdmittedFrame &in) {
  const Port &port = *in.source.port;
  const VlanId vlan = in.carried.vlan();
  MirrorFrame(in.host, in.owner, port, MirrorDirection::kIn, vlan, in.frame);
  if (!LearnSource(in.host, in.owner, in.plan, in.source, in.carried, in.frame.source())) return false;
  if (IsGroup(in.frame.destination())) ObserveMulticast(in.host, in.owner, port, vlan, in.frame);
  return Passage(in).Run();
}

bool LetIn(Host &host, Switch &owner, const SwitchPlan &plan, const PortPlan &source, const Frame &frame) {
  if (IsClosedByMirroring(owner, source.id, MirrorDirection::kIn)) return false;
  const std::optional<Carried> carried = Admit(plan, source, frame);
  if (!carried || !MayComeFrom(owner, plan, source, *carried, frame.source())) return false;
  if (!carried->needs_outer_tag) return Forward({host, owner, plan, source, frame, frame, *carried});
  const std::vector<std::uint8_t> bytes = BytesWithTagBefore(frame, carried->tag);
  return Forward({host, owner, plan, source, frame, Frame(bytes), *carried});
}

}  // namespace

void Receive(Host &host, Switch &owner, const Port &port, const Frame &frame) {
  const SwitchPlan &plan = PlanOf(host, owner);
  const PortPlan *source = plan.Find(port.id);
  if (source == nullptr || !source->has_client) return;
  CaptureIncoming(host, port.id, frame);

  PortRuntime &runtime = owner.runtime.ports.At(port.id);
  if (plan.is_disabled || !IsOpen(host, owner, plan, *source) || frame.mtu_size() > plan.mtu) {
    ++runtime.dropped_in;
    return;
  }
  runtime.in.Count(CastKindOf(frame.destination()), frame.bytes().size());
  if (HandleUplinkControlFrame(host, owner, port, frame)) {
    ++runtime.exceptions_in;
  } else if (!LetIn(host, owner, plan, *source, frame)) {
    ++runtime.dropped_in;
  }
}

void SendOut(Host &host, Switch &owner, const Port &port, const Frame &frame, const std::optional<VlanTag> &tag) {
  const SwitchPlan &plan = PlanOf(host, owner);
  const PortPlan *to = plan.Find(port.id);
  if (to == nullptr) return;
  PortRuntime &runtime = owner.runtime.ports.At(port.id);
  if (!IsOpen(host, owner, plan, *to)) {
    ++runtime.dropped_out;
    return;
  }
  ++runtime.exceptions_out;
  Deliver(host, runtime, port.id, frame, tag);
}

}  // namespace kestrel::host
