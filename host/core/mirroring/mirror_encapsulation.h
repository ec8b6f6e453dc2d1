/* The headers that a mirrored frame travels behind to a collector elsewhere in the network. */
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/frames/frame.h"
#include "host/export.h"
#include "kestrel/mirror_records.h"

namespace kestrel::host {

/** What the headers tell of a frame. */
struct MirrorLabel {
  /** Counts the frames of a session, so that a collector sees what it missed. */
  std::uint32_t sequence;
  TimePoint time;
  VlanId vlan;
  /** Whether the frame has its VLAN tag still. */
  bool keeps_tag;
  /** Whether it was cut off. */
  bool is_truncated;
  /** Whether it was on its way out of the switch. */
  bool is_out;
  /** Where it was seen; the lower 20 bits count. */
  std::uint32_t port;
};

/** A frame behind a GRE header (RFC 2890), with a key if the session has one, and behind an ERSPAN header of type II or
    III for the sessions that ask for it. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> Encapsulated(const DVMirrorSession &session, const MirrorLabel &label,
                                                           FrameBytes frame);

}  // namespace kestrel::host
