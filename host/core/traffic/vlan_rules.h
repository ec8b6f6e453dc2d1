/* How frames get into VLANs and out of them. */
#pragma once

#include <cstdint>
#include <optional>

#include "host/core/frames/frame.h"
#include "host/core/traffic/switch_plan.h"

namespace kestrel::host {

/** What a switch knows of the VLAN of a frame. */
struct Carried {
  /** The VLAN with what else is in its tag, which frames without one have too. */
  VlanTag tag{};
  /** The VLAN under which addresses are known. */
  VlanId table_vlan = 0;
  PrivateKind kind = PrivateKind::kNone;
  /** Whether there is another tag inside. */
  bool is_nested = false;
  /** Whether the outermost tag that the frame came with is the one inside. */
  bool needs_outer_tag = false;

  VlanId vlan() const { return tag.vlan; }
};

/** The VLAN of a frame that comes in through a port; nothing when the port or the switch does not carry it. */
std::optional<Carried> Admit(const SwitchPlan &plan, const PortPlan &port, const Frame &frame);

/** Whether a frame may leave through a port, as far as VLANs say. */
bool MayLeave(const SwitchPlan &plan, const PortPlan &port, const Carried &carried);

/** The tag that a frame leaves a port with, if any. */
std::optional<VlanTag> TagAt(const PortPlan &port, const Carried &carried);

}  // namespace kestrel::host
