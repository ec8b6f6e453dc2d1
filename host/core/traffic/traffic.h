/* Frames on their way through a switch. */
#pragma once

#include <cstdint>
#include <optional>

#include "host/core/frames/frame.h"
#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

/** Lets a frame come in through a port: from its client, or from the network for an uplink. What the switch does with
    it, dropping it included, is no failure. */
void Receive(Host &host, Switch &owner, const Port &port, const Frame &frame);

/** Lets a frame leave through a port, with `tag` in the place of the outermost tag it has; the port's counters and its
    capture see it. Policies have been asked before. */
void SendOut(Host &host, Switch &owner, const Port &port, const Frame &frame, const std::optional<VlanTag> &tag);

}  // namespace kestrel::host
