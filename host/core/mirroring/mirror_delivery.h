/* The ways of mirrored frames to their destinations. */
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/host.h"
#include "host/core/mirroring/mirror_plan.h"

namespace kestrel::host {

/** A frame that leaves through a port as it is. */
struct MirrorCopy {
  PortId port;
  std::vector<std::uint8_t> bytes;
};

/** What the copies of a frame are made from. */
struct MirrorOriginal {
  const SeenFrame &seen;
  /** As the destinations are to see it: with or without its VLAN tag, cut to what the session keeps. */
  std::vector<std::uint8_t> bytes;
  bool keeps_tag;
  bool is_truncated;
  /** The number of the frame among those of the session that go to collectors. */
  std::uint32_t sequence;
};

MirrorOriginal MirrorOriginalOf(const DVMirrorSession &session, const SeenFrame &seen, std::uint32_t sequence);

/** What became of a frame at one of its destinations. */
enum class MirrorOutcome : std::uint8_t {
  kSent,
  kFailed,
  /** The destination is not meant to have the frame. */
  kNotMeant,
};

/** Adds to `copies` what brings a frame to a destination; several where a packet to a collector is fragmented. */
MirrorOutcome Deliver(const Host &host, Switch &owner, const MirrorPlan &plan, const MirrorSessionPlan &session,
                      const MirrorOriginal &original, const MirrorDestination &destination,
                      std::vector<MirrorCopy> &copies);

}  // namespace kestrel::host
