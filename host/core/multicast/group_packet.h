/* Frames to multicast groups: where they go and what they say about groups. */
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/frames/ip_address.h"
#include "host/core/multicast/group_message.h"
#include "host/export.h"

namespace kestrel::host {

/** Where a frame to a group goes, as far as forwarding must know. */
struct GroupTarget {
  enum class Kind : std::uint8_t {
    /** Not IP, or not to an IP group: only its Ethernet address tells. */
    kOther,
    /** To a group that does not reach beyond its link. */
    kLinkLocal,
    /** A report, a leave or a done: for routers. */
    kReport,
    /** To any other group. */
    kGroup,
  };

  Kind kind = Kind::kOther;
  IpAddress group{};
  IpAddress source{};
};

/** Cheap, and without a check of what forwarding does not depend on. The frame must be to a group. */
KESTREL_HOST_EXPORT GroupTarget TargetOf(const Frame &frame);

/** Reads what a frame says about groups, whatever bytes it has. Malformed are messages that are cut off or in
   fragments, have a wrong checksum, can have come from beyond the link (a TTL or hop limit other than 1, MLD from a
   source that is not the link's or without the router alert option), or are against their protocol. */
KESTREL_HOST_EXPORT GroupMessage ReadGroupMessage(const Frame &frame);

/** A query as an untagged frame from `source`. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> WriteQueryFrame(const GroupQuery &query, const MacAddress &source);

}  // namespace kestrel::host
