/* Making IP packets and the frames that carry them. */
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/frames/ip_packet.h"
#include "host/export.h"

namespace kestrel::host {

/** Between whom a packet goes. */
struct IpPath {
  /** Both of one family. */
  IpAddress source;
  IpAddress destination;
  MacAddress source_station;
  MacAddress next_station;
};

/** The frames that carry a packet of that payload: one, or several fragments of an identification where the packet is
    longer than `mtu` bytes (1280 at the least). None for a payload that is too long for a packet. */
KESTREL_HOST_EXPORT std::vector<std::vector<std::uint8_t>> IpFrames(const IpPath &path, std::uint8_t protocol,
                                                                    std::span<const std::uint8_t> payload,
                                                                    std::uint32_t identification, std::size_t mtu);

}  // namespace kestrel::host
