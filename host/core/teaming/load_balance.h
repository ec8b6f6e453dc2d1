/* Balancing by load: ports leave an uplink that has too much to send. */
#pragma once

#include <chrono>
#include <optional>

#include "host/core/host.h"

namespace kestrel::host {

/** Over which the load is measured. */
inline constexpr Duration kLoadWindow = std::chrono::seconds(30);
/** Of what the link can carry; above it, ports leave. */
inline constexpr std::uint64_t kHighLoadPercent = 75;

/** When the window is over; nothing when nothing was sent in it. */
std::optional<TimePoint> NextLoadBalance(const Switch &owner);

/** Ends the window that is over: the ports of teams that are balanced by load leave the uplinks that carried too much,
    the busiest port first, for the least loaded one of their team that has room for them. */
void BalanceLoad(const Host &host, Switch &owner);

}  // namespace kestrel::host
