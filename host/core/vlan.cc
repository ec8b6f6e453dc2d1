#include "host/core/vlan.h"

#include <algorithm>
#include <limits>
#include <set>

#include "host/core/base/errors.h"
#include "host/core/base/record_bytes.h"
#include "kestrel/policy_records.h"

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

std::string RecordOfVlanPolicy(const VlanPolicy &policy) {
  VSPortVlanPolicy head{};
  if (policy.ranges.size() > std::numeric_limits<zel_uint16>::max()) throw StatusError(ZEL_LIMIT_EXCEEDED);
  head.flags = static_cast<zel_uint16>(policy.mode);
  if (policy.set_priority) head.flags |= VSPORT_VLAN_SET_PRIORITY;
  head.vlanID = policy.vlan;
  head.numRanges = static_cast<zel_uint16>(policy.ranges.size());
  std::string record = BytesOf(head);
  record.reserve(record.size() + policy.ranges.size() * sizeof(zel_VDSPortVIDRange));
  for (const VlanRange range : policy.ranges) {
    const zel_VDSPortVIDRange item{range.first, range.last};
    record.append(reinterpret_cast<const char *>(&item), sizeof item);
  }
  return record;
}

VlanPolicy VlanPolicyOfRecord(std::string_view record) {
  const auto head = RecordAt<VSPortVlanPolicy>(record, 0);
  const std::size_t count = head.numRanges;
  if (record.size() != sizeof head + count * sizeof(zel_VDSPortVIDRange)) throw StatusError(ZEL_BAD_PARAM);
  VlanPolicy policy{.mode = VlanModeOf(static_cast<int>(head.flags & ~VSPORT_VLAN_SET_PRIORITY)),
                    .vlan = head.vlanID,
                    .set_priority = (head.flags & VSPORT_VLAN_SET_PRIORITY) != 0,
                    .ranges = {}};
  policy.ranges.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const auto item = RecordAt<zel_VDSPortVIDRange>(record, sizeof head + i * sizeof(zel_VDSPortVIDRange));
    policy.ranges.push_back({item.minVID, item.maxVID});
  }
  return policy;
}

void CheckPrivateVlans(std::string_view map, VlanRange valid) {
  if (map.size() % sizeof(VSPvlanMapEntry) != 0) throw StatusError(ZEL_BAD_PARAM);
  std::set<VlanId> primaries, promiscuous, secondaries, isolating;
  for (std::size_t place = 0; place < map.size(); place += sizeof(VSPvlanMapEntry)) {
    const auto entry = RecordAt<VSPvlanMapEntry>(map, place);
    for (const VlanId id : {VlanId{entry.primaryVID}, VlanId{entry.secondaryVID}}) {
      if (id == 0 || !valid.Contains(id)) throw StatusError(ZEL_BAD_VLANID);
    }
    const bool is_promiscuous = entry.pvlanType == VSPORT_PVLAN_TYPE_PROMISC;
    const bool is_isolated = entry.pvlanType == VSPORT_PVLAN_TYPE_ISOLATED;
    const bool is_known = is_promiscuous || is_isolated || entry.pvlanType == VSPORT_PVLAN_TYPE_COMMUNITY;
    if (!is_known || is_promiscuous != (entry.primaryVID == entry.secondaryVID) ||
        !(is_promiscuous ? promiscuous : secondaries).insert(entry.secondaryVID).second ||
        (is_isolated && !isolating.insert(entry.primaryVID).second)) {
      throw StatusError(ZEL_BAD_PARAM);
    }
    primaries.insert(entry.primaryVID);
  }
  for (const VlanId id : secondaries) {
    if (primaries.contains(id)) throw StatusError(ZEL_BAD_PARAM);
  }
}

}  // namespace kestrel::host
