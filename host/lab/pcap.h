/* Packets in pcap files. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/base/clock.h"
#include "host/core/frames/frame.h"
#include "host/export.h"

namespace kestrel::host::lab {

struct PcapPacket {
  TimePoint time;
  /** An Ethernet frame without its frame check sequence. */
  FrameBytes bytes;
};

/** The packets of a pcap file, in the order of the file, as views of `file`: of either byte order, with times in
    microseconds or nanoseconds. Throws Refusal: ZEL_INVALID_METADATA for a file that is none, ends too early or
    contradicts itself, ZEL_VERSION_MISMATCH_MAJOR for another version of the format, ZEL_NOT_SUPPORTED for its
    successor pcapng, for packets of other networks than Ethernet and for packets that were cut short. */
KESTREL_HOST_EXPORT std::vector<PcapPacket> PacketsOfPcap(std::string_view file);

/** The packets as a file, with times in nanoseconds. Throws Refusal ZEL_LIMIT_EXCEEDED for a time that such a file
    cannot tell, which is one of 2^32 seconds. */
KESTREL_HOST_EXPORT std::string PcapOf(const std::vector<PcapPacket> &packets);

}  // namespace kestrel::host::lab
