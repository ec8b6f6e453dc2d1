/* Frames at the ports that they pass: counters and captures. */
#pragma once

#include <optional>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/teaming/teaming.h"
#include "host/core/traffic/port_runtime.h"
#include "host/core/traffic/switch_plan.h"

namespace kestrel::host {

/** Whether frames pass a port at all. */
inline bool IsOpen(const Host &host, const Switch &owner, const SwitchPlan &plan, const PortPlan &port) {
  return port.has_client && port.is_link_up && !port.is_blocked &&
         (!plan.tracks_links || port.is_uplink || HasLink(host, owner, *port.port));
}

/** Hands a frame to the client of a port, or to the network, with `tag` in the place of its outermost tag. */
void Deliver(Host &host, PortRuntime &runtime, PortId port, const Frame &frame, const std::optional<VlanTag> &tag);

}  // namespace kestrel::host
