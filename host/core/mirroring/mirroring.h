/* Mirror sessions at work. */
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/mirroring/mirror_delivery.h"
#include "host/core/mirroring/mirror_plan.h"
#include "host/export.h"

namespace kestrel::host {

/** The copies that the sessions make of a frame that passes a port, in the order of the sessions and of the
    destinations of each; counts them. For the other arguments, see MirrorFrame. */
KESTREL_HOST_EXPORT std::vector<MirrorCopy> MirrorCopies(const Host &host, Switch &owner, const Port &port,
                                                         MirrorDirection direction, VlanId vlan, const Frame &frame);

KESTREL_HOST_EXPORT void SendMirrorCopies(Host &host, Switch &owner, const Port &port, MirrorDirection direction,
                                          VlanId vlan, const Frame &frame);

/** Copies a frame that passes a port to the destinations of the sessions that watch the port. `vlan` is the VLAN that
    the switch carries it in. The copies are not mirrored again. Costs next to nothing while the switch has no
    sessions. */
inline void MirrorFrame(Host &host, Switch &owner, const Port &port, MirrorDirection direction, VlanId vlan,
                        const Frame &frame) {
  if (!owner.mirror_plan.For(owner.config).sessions.empty()) {
    SendMirrorCopies(host, owner, port, direction, vlan, frame);
  }
}

/** Whether a port is the destination of a session that keeps other traffic from coming in through it, or from going out
    to it. */
inline bool IsClosedByMirroring(Switch &owner, PortId port, MirrorDirection direction) {
  const MirrorPlan &plan = owner.mirror_plan.For(owner.config);
  const std::vector<PortId> &closed = direction == MirrorDirection::kIn ? plan.closed_in : plan.closed_out;
  return !closed.empty() && std::ranges::binary_search(closed, port);
}

/** Drops what is known of sessions that a switch has no longer. */
void DropGoneSessions(Switch &owner) noexcept;

}  // namespace kestrel::host
