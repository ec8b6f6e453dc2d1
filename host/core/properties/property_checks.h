/* Checks of the values of single properties. Each throws StatusError ZEL_BAD_PARAM for bytes that are not the record,
   or are it with a value out of its range, and whatever else its comment says. */
#pragma once

#include <string_view>

#include "host/core/base/errors.h"
#include "host/core/base/record_bytes.h"
#include "host/core/properties/property_table.h"

namespace kestrel::host {

/** A number of type Number between two others, both included. */
template <typename Number, long long least, long long most>
void CheckNumber(std::string_view value, const PropertyContext & /*where*/) {
  const auto number = static_cast<long long>(RecordOf<Number>(value));
  if (number < least || number > most) throw StatusError(ZEL_BAD_PARAM);
}

/** A text shorter than a field of `width` bytes, with or without zeros behind it. Throws ZEL_INVALID_NAME for an empty
    one and for other bytes behind a zero, ZEL_NAME_TOO_LONG. */
void CheckText(std::string_view value, std::size_t width);

/** Anything. */
void CheckNothing(std::string_view value, const PropertyContext &where);
void CheckFlag(std::string_view value, const PropertyContext &where);
/** VSPropSecurity of known flags. */
void CheckSecurity(std::string_view value, const PropertyContext &where);
/** VSPropMACLearning with an ageing time of 1 to VS_MAC_LEARNING_AGING_TIME_MAX. */
void CheckSwitchMacLearning(std::string_view value, const PropertyContext &where);
/** VSPMACManagement. Throws ZEL_LIMIT_EXCEEDED for a limit above VSPORT_MAC_LEARNING_LIMIT_ENTRIES_MAX. */
void CheckMacManagement(std::string_view value, const PropertyContext &where);
/** VSUserMcastLegacyKeys of group addresses. Throws ZEL_LIMIT_EXCEEDED for more than VS_MULTICAST_USER_ENTRIES_MAX,
    ZEL_EXISTS for one that is there twice. */
void CheckUserMulticast(std::string_view value, const PropertyContext &where);
/** VSExtraEthFilter of known flags and group addresses. Throws ZEL_LIMIT_EXCEEDED for more than
    VSWITCH_ETH_MAX_EXACT_MULTICAST_ADDRS. */
void CheckExtraEthFilter(std::string_view value, const PropertyContext &where);
/** EnsPRPTunablesData with a group address. */
void CheckPrpTunables(std::string_view value, const PropertyContext &where);

}  // namespace kestrel::host
