/* The way of a frame from the port that it came in through to those that it leaves by. */
#pragma once

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/switch.h"
#include "host/core/traffic/port_runtime.h"
#include "host/core/traffic/vlan_rules.h"

namespace kestrel::host {

class MulticastDelivery;

CastKind CastKindOf(const MacAddress &destination);

/** What is known of a frame that has been let in. */
struct AdmittedFrame {
  Host &host;
  Switch &owner;
  const SwitchPlan &plan;
  /** Where it came in. */
  const PortPlan &source;
  /** As it came in. */
  const Frame &original;
  /** The same with the switch's tag as its outermost one, if it has one. */
  const Frame &frame;
  const Carried &carried;
};

/** A frame on its way. */
class Passage {
 public:
  explicit Passage(const AdmittedFrame &admitted) : in_(admitted) {}

  /** Takes the frame to every port that it is for. False when there is none. */
  bool Run();

 private:
  void TakeToKnown(const PortPlan &to);
  void TakeToUnknown();
  void TakeToAll();
  void TakeToGroup();
  /** `delivery` tells whether the network is to have a frame to a group. */
  void TakeToUplink(const MulticastDelivery *delivery = nullptr);
  /** To the ports that receive everything in their VLANs; `known` has the frame already. */
  void TakeToPromiscuous(const PortPlan *known);

  /** Calls `visit(port)` for the ports of clients that the frame could leave by, but for its source. */
  template <typename Visit>
  void ForEachReachable(Visit visit);
  bool IsReachable(const PortPlan &to) const;
  /** Whether a port accepts what is not for it alone from where the frame came in. */
  bool AcceptsCopy(const PortPlan &to) const;
  /** To a port that the frame is for. */
  void Take(const PortPlan &to);

  const AdmittedFrame &in_;
  /** How many ports the frame was for. */
  std::size_t taken_ = 0;
};

}  // namespace kestrel::host
