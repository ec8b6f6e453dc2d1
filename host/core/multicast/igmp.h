/* IGMP, versions 1 to 3, and the discovery of multicast routers that travels with it. */
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/multicast/group_message.h"

namespace kestrel::host {

/** What a message says, from its type to its end; `source` is where it comes from. */
GroupMessage ReadIgmp(FrameBytes message, const IpAddress &source);

/** Whether a message is for routers alone: a report or a leave. */
bool IsIgmpReport(FrameBytes message);

/** A query as a message, with its checksum. */
std::vector<std::uint8_t> WriteIgmpQuery(const GroupQuery &query);

}  // namespace kestrel::host
