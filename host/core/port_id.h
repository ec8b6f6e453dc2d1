/* What a port is called among machines. */
#pragma once

#include <cstdint>

namespace kestrel::host {

/** Unique among the ports of a host and never used twice; ZEL_VSWITCH_INVALID_PORT_ID is none. */
using PortId = std::uint32_t;

/** Above the range of port indexes, so that an index is not taken for an identifier. */
inline constexpr PortId kFirstPortId = 0x02000001;
/** No port that comes from elsewhere is above this one, so that identifiers are left for new ports. */
inline constexpr PortId kLastKeptPortId = 0xf0000000;

}  // namespace kestrel::host
