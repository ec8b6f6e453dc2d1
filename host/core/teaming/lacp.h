/* Link aggregation control (IEEE 802.1AX): which members of a group are in service. */
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "host/core/host.h"
#include "host/core/teaming/lacp_frame.h"
#include "host/export.h"

namespace kestrel::host {

/** For how long the word of a far end counts: three of the periods that the host asks for. */
inline constexpr Duration kLacpLongTimeout = std::chrono::seconds(90);
/** How often the host sends, as the far end wishes. */
inline constexpr Duration kLacpSlowPeriod = std::chrono::seconds(30);
inline constexpr Duration kLacpFastPeriod = std::chrono::seconds(1);

/** A member of a group that has a NIC. */
struct LacpMember {
  PortId uplink = 0;
  /** What the host says of its end; what it knows of the other. */
  Lacpdu pdu{};
  /** Whether the other end is known. */
  bool has_partner = false;
  /** Whether the group's frames go out through it. */
  bool in_service = false;
};

/** The members of a group that have a NIC, in the order of the group. */
KESTREL_HOST_EXPORT std::vector<LacpMember> LacpMembersOf(const Host &host, const Switch &owner, const Lag &lag);

/** The group that an uplink belongs to; null when there is none. */
KESTREL_HOST_EXPORT const Lag *LagOfUplink(const SwitchConfig &config, std::string_view uplink);

/** Whether an uplink belongs to a group whose frames go out through it. */
KESTREL_HOST_EXPORT bool IsInService(const Host &host, const Switch &owner, const Uplink &uplink);

/** Takes in what the far end of an uplink says in an LACPDU. */
void HearLacpdu(Host &host, Switch &owner, PortId uplink, const Lacpdu &pdu);

/** What is known of the far end of an uplink that belongs to a group. */
std::optional<LacpEnd> LacpPartnerOf(const Host &host, const Switch &owner, PortId uplink);
/** The far end has fallen silent: what was known of it counts until its time is over. */
void KeepLacpPartner(const Host &host, Switch &owner, PortId uplink, const LacpEnd &partner);

/** Sends the LACPDU of a member and notes when the next one is due. */
void SendLacpdu(Host &host, Switch &owner, const LacpMember &member);

}  // namespace kestrel::host
