#include "host/core/properties/property_checks.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/base/record_bytes.h"
#include "host/core/frames/mac_address.h"

namespace kestrel::host {
namespace {

/** Throws StatusError ZEL_BAD_PARAM for bits that are not among `known`. */
void CheckFlags(std::uint32_t flags, std::uint32_t known) {
  if ((flags & ~known) != 0) throw StatusError(ZEL_BAD_PARAM);
}

MacAddress AddressAt(std::string_view bytes, std::size_t offset) { return RecordAt<MacAddress>(bytes, offset); }

void CheckGroupAddress(const MacAddress &address) {
  if (!IsGroup(address)) throw StatusError(ZEL_BAD_PARAM);
}

}  // namespace

void CheckText(std::string_view value, std::size_t width) {
  const std::string_view text = TextOf(value);
  CheckName(text, width);
  if (value.find_first_not_of('\0', text.size()) != std::string_view::npos) throw StatusError(ZEL_INVALID_NAME);
}

void CheckNothing(std::string_view /*value*/, const PropertyContext & /*where*/) {}

void CheckFlag(std::string_view value, const PropertyContext & /*where*/) { RecordOf<zel_Bool>(value); }

void CheckSecurity(std::string_view value, const PropertyContext & /*where*/) {
  CheckFlags(RecordOf<VSPropSecurity>(value).flags, VSPORT_SECURITY_DISALLOW_PROMISC |
                                                        VSPORT_SECURITY_DISALLOW_MAC_CHANGE |
                                                        VSPORT_SECURITY_DISALLOW_FORGED_SRC);
}

void CheckSwitchMacLearning(std::string_view value, const PropertyContext & /*where*/) {
  const auto policy = RecordOf<VSPropMACLearning>(value);
  if (policy.agingTime == 0 || policy.agingTime > VS_MAC_LEARNING_AGING_TIME_MAX) throw StatusError(ZEL_BAD_PARAM);
}

void CheckMacManagement(std::string_view value, const PropertyContext & /*where*/) {
  const VSPMACLearning policy = RecordOf<VSPMACManagement>(value).portMACLearning;
  if (policy.macLimitPolicy != VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW &&
      policy.macLimitPolicy != VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP) {
    throw StatusError(ZEL_BAD_PARAM);
  }
  if (policy.macLimit > VSPORT_MAC_LEARNING_LIMIT_ENTRIES_MAX) throw StatusError(ZEL_LIMIT_EXCEEDED);
}

void CheckUserMulticast(std::string_view value, const PropertyContext & /*where*/) {
  const std::size_t count = RecordAt<VSUserMcastLegacyKeys>(value, 0).numEntries;
  if (count > VS_MULTICAST_USER_ENTRIES_MAX) throw StatusError(ZEL_LIMIT_EXCEEDED);
  if (value.size() != sizeof(VSUserMcastLegacyKeys) + count * sizeof(MacAddress)) throw StatusError(ZEL_BAD_PARAM);
  std::array<MacAddress, VS_MULTICAST_USER_ENTRIES_MAX> seen{};
  for (std::size_t i = 0; i < count; ++i) {
    seen[i] = AddressAt(value, sizeof(VSUserMcastLegacyKeys) + i * sizeof(MacAddress));
    CheckGroupAddress(seen[i]);
    const auto end = seen.begin() + static_cast<std::ptrdiff_t>(i);
    if (std::find(seen.begin(), end, seen[i]) != end) throw StatusError(ZEL_EXISTS);
  }
}

void CheckExtraEthFilter(std::string_view value, const PropertyContext & /*where*/) {
  const auto filter = RecordOf<VSExtraEthFilter>(value);
  CheckFlags(filter.flags, ZEL_ETH_FILTER_UNICAST | ZEL_ETH_FILTER_MULTICAST | ZEL_ETH_FILTER_ALLMULTI |
                               ZEL_ETH_FILTER_BROADCAST | ZEL_ETH_FILTER_PROMISC | ZEL_ETH_FILTER_USE_LADRF |
                               ZEL_ETH_FILTER_SINK);
  const std::size_t count = filter.numMulticastAddrs;
  if (count > VSWITCH_ETH_MAX_EXACT_MULTICAST_ADDRS) throw StatusError(ZEL_LIMIT_EXCEEDED);
  for (std::size_t i = 0; i < count; ++i) {
    CheckGroupAddress(AddressAt(value, offsetof(VSExtraEthFilter, multicastAddrs) + i * sizeof(MacAddress)));
  }
}

void CheckPrpTunables(std::string_view value, const PropertyContext & /*where*/) {
  const auto tunables = RecordOf<EnsPRPTunablesData>(value);
  MacAddress address;
  std::ranges::copy(tunables.supMcastAddr, address.begin());
  CheckGroupAddress(address);
}

}  // namespace kestrel::host
