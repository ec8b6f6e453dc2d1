/* How multicast routers show themselves: discovery messages beside IGMP and MLD, and the hellos of PIM. */
#pragma once

#include "host/core/frames/frame.h"
#include "host/core/multicast/group_message.h"

namespace kestrel::host {

/** The advertisement of a router, from its type on; its checksum has been looked at. The message is the same beside
   IGMP and MLD. */
GroupMessage ReadRouterAdvertisement(FrameBytes message, const IpAddress &source);

/** A PIM message, from its version on. Only hellos have something to say. */
GroupMessage ReadPim(FrameBytes message, const IpAddress &source, const IpAddress &destination);

}  // namespace kestrel::host
