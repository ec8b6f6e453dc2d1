/* MLD, versions 1 and 2, and the discovery of multicast routers that travels with it. */
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/multicast/group_message.h"

namespace kestrel::host {

/** Whether an ICMPv6 message belongs here. */
bool IsMld(FrameBytes message);

/** Whether a message is for routers alone: a report or a done. */
bool IsMldReport(FrameBytes message);

/** What an ICMPv6 message says, from its type to its end; of others than IsMld has, nothing. */
GroupMessage ReadMld(FrameBytes message, const IpAddress &source, const IpAddress &destination);

/** A query as an ICMPv6 message to `destination`, with its checksum. */
std::vector<std::uint8_t> WriteMldQuery(const GroupQuery &query, const IpAddress &destination);

}  // namespace kestrel::host
