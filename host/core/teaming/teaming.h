/* Uplink teams at work. */
#pragma once

#include <span>
#include <string_view>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/core/teaming/team_plan.h"
#include "host/export.h"

namespace kestrel::host {

/** The uplinks that carry a frame from a port to the network: one, none when the team has none or its choice leads
    nowhere, or several while the team does not know which are good. Good until the next change. The frame is as the
    client sent it. */
KESTREL_HOST_EXPORT std::span<const PlannedUplink *const> ChooseUplinks(const Host &host, Switch &owner,
                                                                        const Port &source, const Frame &frame);

/** The first of them; null when there is none. */
KESTREL_HOST_EXPORT const Uplink *ChooseUplink(const Host &host, Switch &owner, const Port &source, const Frame &frame);

/** Whether a port accepts a frame that came in through an uplink. What is for many stations it accepts only from the
    uplink that its team would send through, since all uplinks of a team receive it; frames for one station it always
    accepts, unless they are flooded because nobody knows the station: every uplink brings those too. To be asked once
    for each frame and port. */
KESTREL_HOST_EXPORT bool AcceptsFromUplink(const Host &host, Switch &owner, const Port &destination, PortId uplink,
                                           const Frame &frame, bool is_flooded = false);

/** Takes a frame that came in through a port and is not for stations, if it is one: those for the nearest bridge, LACP
    among them, and the beacons of teams. The switch does nothing further with it then. */
KESTREL_HOST_EXPORT bool HandleUplinkControlFrame(Host &host, Switch &owner, const Port &port, const Frame &frame);

/** Whether a port's client sees a link: not while its team tracks the links and none of its uplinks can carry. */
KESTREL_HOST_EXPORT bool HasLink(const Host &host, const Switch &owner, const Port &port);

/** The NIC that carries the frames of a port at the moment: of the uplink that the port is tied to, else out of the
    policy that the port follows, else out of its own or its switch's policy. Where that depends on the frame, one of
    those that it may be. Throws StatusError ZEL_NOT_FOUND when there is none. */
KESTREL_HOST_EXPORT std::string_view TeamUplinkOf(const Host &host, const Switch &owner, const Port &port);

}  // namespace kestrel::host
