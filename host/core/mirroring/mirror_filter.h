/* Which of the frames that a mirror session watches it copies. */
#pragma once

#include <optional>
#include <span>

#include "host/core/frames/frame.h"
#include "host/core/frames/ip_packet.h"
#include "host/core/mirroring/mirror_table.h"
#include "host/export.h"

namespace kestrel::host {

/** Whether the rules of a session let a frame be copied. The first rule that a frame meets decides; a frame that meets
    none is copied unless the session has a rule to copy. A frame meets a rule that it meets every part of: one of the
    source prefixes, one of the destination prefixes, the protocol, the ranges of ports. A part that a rule lacks is met
    by every frame, the others by no frame that lacks it. A protocol up to 255 is IP's, above it is the type of the
    frame. `packet` is the frame's, if it has one. */
KESTREL_HOST_EXPORT bool RulesPass(std::span<const MirrorRule> rules, const Frame &frame,
                                   const std::optional<IpPacket> &packet);

/** Whether a frame that passes an uplink is one of those that the session wants from uplinks: all, those that carry no
    other frame in a tunnel, those that do, or those of one kind of tunnel. */
KESTREL_HOST_EXPORT bool UplinkFilterPasses(DVMirrorFilterType filter, const std::optional<IpPacket> &packet);

}  // namespace kestrel::host
