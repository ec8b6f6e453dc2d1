#include "host/core/mirroring/mirroring.h"

#include <span>

#include "host/core/mirroring/mirror_filter.h"
#include "host/core/traffic/traffic.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

/** Whether a session wants a frame that it watches, by its filters. */
bool Wants(const MirrorSessionPlan &session, const SeenFrame &seen) {
  if (seen.is_at_uplink && !UplinkFilterPasses(session.head.uplinkFilter, seen.packet)) return false;
  return RulesPass(session.rules, seen.frame, seen.packet);
}

/** Takes the first of every `rate` frames, each one for 0. */
bool Samples(std::uint32_t rate, MirrorProgress &progress) { return progress.passed++ % std::max(rate, 1U) == 0; }

/** Adds to `copies` those that one session makes of a frame. */
void Mirror(const Host &host, Switch &owner, const MirrorPlan &plan, const MirrorSessionPlan &session,
            const SeenFrame &seen, std::vector<MirrorCopy> &copies) {
  MirrorProgress &progress = owner.runtime.mirrors.At(session.id());
  MirrorCounters counters{};
  if (!Wants(session, seen) || !Samples(session.head.samplingRate, progress)) {
    counters.discarded = 1;
  } else {
    const MirrorOriginal original = MirrorOriginalOf(session.head, seen, progress.sequence++);
    for (const MirrorDestination &destination : session.destinations) {
      const MirrorOutcome outcome = Deliver(host, owner, plan, session, original, destination, copies);
      if (outcome == MirrorOutcome::kSent) ++counters.copies;
      if (outcome == MirrorOutcome::kFailed) ++counters.failed_copies;
    }
    const bool is_meant_for_none = counters.failed_copies == 0 && !session.destinations.empty();
    (counters.copies > 0 ? counters.mirrored : is_meant_for_none ? counters.discarded : counters.failed) = 1;
  }
  if (host.options().NumberOf(VS_RT_OPT_ALLOW_MIRROR_STATS) != 0) progress.counters += counters;
}

}  // namespace

std::vector<MirrorCopy> MirrorCopies(const Host &host, Switch &owner, const Port &port, MirrorDirection direction,
                                     VlanId vlan, const Frame &frame) {
  const MirrorPlan &plan = owner.mirror_plan.For(owner.config);
  const SeenFrame seen{.port = port,
                       .is_at_uplink = owner.config.uplinks().Find(port.id) != nullptr,
                       .direction = direction,
                       .vlan = vlan,
                       .frame = frame,
                       .packet = IpPacketIn(frame)};
  std::vector<MirrorCopy> copies;
  const auto mirror = [&](std::span<const std::size_t> numbers) {
    for (const std::size_t number : numbers) {
      const MirrorSessionPlan &session = plan.sessions[number];
      if (session.Watches(seen)) Mirror(host, owner, plan, session, seen, copies);
    }
  };
  const auto own = plan.by_port.find(port.id);
  if (own != plan.by_port.end()) mirror(own->second);
  mirror(plan.by_content);
  return copies;
}

void SendMirrorCopies(Host &host, Switch &owner, const Port &port, MirrorDirection direction, VlanId vlan,
                      const Frame &frame) {
  for (const MirrorCopy &copy : MirrorCopies(host, owner, port, direction, vlan, frame)) {
    const Frame sent(copy.bytes);
    SendOut(host, owner, *owner.config.ports().Find(copy.port), sent, sent.tag());
  }
}

void DropGoneSessions(Switch &owner) noexcept {
  owner.runtime.mirrors.RemoveIf([&](std::string_view id) { return !HasMirrorSession(owner.config, id); });
}

}  // namespace kestrel::host
