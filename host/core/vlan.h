/* VLAN identifiers and the VLAN policy of a port. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/export.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** 0 for untagged frames, else the identifier in the tag. */
using VlanId = std::uint16_t;

/** The highest identifier; 4095 is reserved. */
inline constexpr VlanId kMaxVlanId = 4094;

/** Both ends included; empty when `first` is above `last`. */
struct VlanRange {
  VlanId first;
  VlanId last;

  bool Contains(VlanId id) const { return first <= id && id <= last; }
  bool operator==(const VlanRange &) const = default;
};

inline constexpr VlanRange kAllVlans{0, kMaxVlanId};

enum class VlanMode : std::uint8_t {
  /** One VLAN, whose frames the client sees without a tag. */
  kAccess = 0,
  /** The client tags its frames itself, with VLANs out of some ranges. */
  kTrunk = VSPORT_VLAN_GUEST_TAGGING,
  /** One secondary VLAN of a private VLAN. */
  kPrivate = VSPORT_VLAN_PVLAN_ENABLED,
};

/** The mode of that number. Throws StatusError ZEL_BAD_PARAM when there is none. */
KESTREL_HOST_EXPORT VlanMode VlanModeOf(int number);

struct VlanPolicy {
  VlanMode mode = VlanMode::kAccess;
  VlanId vlan = 0;
  /** The port's own priority replaces that of its frames. */
  bool set_priority = false;
  /** Of a trunk; in the order in which they were given. */
  std::vector<VlanRange> ranges;

  bool operator==(const VlanPolicy &) const = default;
};

/** Checks a policy for a port of a switch that carries the VLANs `valid`. Throws StatusError ZEL_BAD_PARAM for a trunk
    without ranges and for ranges on a port that is no trunk, ZEL_BAD_VLANID for an identifier outside of `valid` and
    for a range that is empty or overlaps another. */
void CheckVlanPolicy(const VlanPolicy &policy, VlanRange valid);

/** The policy as a VSPortVlanPolicy with its ranges. Throws StatusError ZEL_LIMIT_EXCEEDED for more ranges than that
   can count. */
KESTREL_HOST_EXPORT std::string RecordOfVlanPolicy(const VlanPolicy &policy);

/** The policy in such a record. Throws StatusError ZEL_BAD_PARAM for bytes that are not one. */
KESTREL_HOST_EXPORT VlanPolicy VlanPolicyOfRecord(std::string_view record);

/** Checks a private VLAN map, VSPvlanMapEntry by entry. Throws StatusError ZEL_BAD_PARAM for an unknown kind, a
    promiscuous VLAN that is not its own primary, another that is, a secondary VLAN that is named twice or is a primary
    one and a second isolated VLAN of one primary, ZEL_BAD_VLANID for an identifier outside of `valid` and for 0. */
void CheckPrivateVlans(std::string_view map, VlanRange valid);

}  // namespace kestrel::host
