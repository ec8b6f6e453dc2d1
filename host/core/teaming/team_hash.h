/* The numbers by which teams and groups spread frames over uplinks. The same frame has the same number everywhere. */
#pragma once

#include <cstdint>

#include "host/core/frames/frame.h"
#include "host/core/frames/mac_address.h"
#include "host/export.h"

namespace kestrel::host {

/** Of an address: its six bytes. */
KESTREL_HOST_EXPORT std::uint32_t HashOfAddress(const MacAddress &address);

/** Of the stations that speak: source and destination address of the IPv4 or IPv6 packet, of the frame when it carries
    neither. */
KESTREL_HOST_EXPORT std::uint32_t HashOfStations(const Frame &frame);

/** Of the conversation that a frame belongs to: source and destination address of the frame, those of its IPv4 or IPv6
    packet, and the ports of TCP or UDP when the packet is whole. */
KESTREL_HOST_EXPORT std::uint32_t HashOfConversation(const Frame &frame);

}  // namespace kestrel::host
