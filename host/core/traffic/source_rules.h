/* What a switch makes of the address that a frame comes from. */
#pragma once

#include "host/core/host.h"
#include "host/core/traffic/switch_plan.h"
#include "host/core/traffic/vlan_rules.h"

namespace kestrel::host {

/** Whether a frame may come from its source address: a station's that the port's client may use or, through an uplink,
    one that is not a client's of this switch. */
bool MayComeFrom(const Switch &owner, const SwitchPlan &plan, const PortPlan &port, const Carried &carried,
                 const MacAddress &source);

/** Learns the source address of a frame where the port does, and counts. False when the frame is to be dropped because
    a limit is reached. */
bool LearnSource(Host &host, Switch &owner, const SwitchPlan &plan, const PortPlan &port, const Carried &carried,
                 const MacAddress &source);

}  // namespace kestrel::host
