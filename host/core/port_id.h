/* What a port is called among machines. */
#pragma once

#include <cstdint>

namespace kestrel::host {

/** Unique among the ports of a host and never used twice; ZEL_VSWITCH_INVALID_PORT_ID is none. */
using PortId = std::uint32_t;

}  // namespace kestrel::host
