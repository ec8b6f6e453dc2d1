#include "host/core/vlan.h"

#include <algorithm>

#include "host/core/errors.h"

namespace kestrel::host {
namespace {

bool AreDisjoint(std::vector<VlanRange> ranges) {
  std::ranges::sort(ranges, {}, &VlanRange::first);
  const auto overlap = [](VlanRange lower, VlanRange upper) { return lower.last >= upper.first; };
  return std::ranges::adjacent_find(ranges, overlap) == ranges.end();
}

}  // namespace

VlanMode VlanModeOf(int number) {
  for (const VlanMode mode : {VlanMode::kAccess, VlanMode::kTrunk, VlanMode::kPrivate}) {
    if (static_cast<int>(mode) == number) return mode;
  }
  throw StatusError(ZEL_BAD_PARAM);
}

void CheckVlanPolicy(const VlanPolicy &policy, VlanRange valid) {
  if ((policy.mode == VlanMode::kTrunk) == policy.ranges.empty()) throw StatusError(ZEL_BAD_PARAM);
  if (!valid.Contains(policy.vlan)) throw StatusError(ZEL_BAD_VLANID);
  for (const VlanRange range : policy.ranges) {
    if (range.first > range.last || !valid.Contains(range.first) || !valid.Contains(range.last)) {
      throw StatusError(ZEL_BAD_VLANID);
    }
  }
  if (!AreDisjoint(policy.ranges)) throw StatusError(ZEL_BAD_VLANID);
}

}  // namespace kestrel::host
