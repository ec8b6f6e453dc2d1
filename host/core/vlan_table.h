/* The VLANs that a switch has carried frames in. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/clock.h"
#include "host/core/vlan.h"
#include "host/export.h"

namespace kestrel::host {

struct VlanRuntime {
  VlanId vlan = 0;
  /** When its first frame passed, and its last. */
  TimePoint first_used{};
  TimePoint last_used{};
  /** Frames from ports into the switch, and from the switch to ports. */
  std::uint64_t frames_in = 0;
  std::uint64_t frames_out = 0;

  bool operator==(const VlanRuntime &) const = default;
};

class KESTREL_HOST_EXPORT VlanTable {
 public:
  void CountIn(VlanId vlan, TimePoint now);
  void CountOut(VlanId vlan, TimePoint now);

  /** Null for a VLAN that has carried nothing. */
  const VlanRuntime *Find(VlanId vlan) const;
  /** In the order of their first use. */
  const std::vector<VlanRuntime> &Items() const { return items_; }

  /** Goes up with every change, so that a change is seen from outside. */
  std::uint64_t revision() const { return revision_; }
  /** The table as bytes, and back. Load throws StatusError ZEL_INVALID_METADATA for bytes that are none. */
  std::string Save() const;
  static VlanTable Load(std::string_view bytes);

 private:
  VlanRuntime &At(VlanId vlan, TimePoint now);

  std::vector<VlanRuntime> items_;
  /** By VLAN, the place of its item and 1, 0 for none; empty before the first frame. */
  std::vector<std::uint16_t> places_;
  std::uint64_t revision_ = 0;
};

}  // namespace kestrel::host
