/* An Ethernet address. */
#pragma once

#include <array>
#include <cstdint>

namespace kestrel::host {

/** In the order of transmission, which is also the order of comparison. */
using MacAddress = std::array<std::uint8_t, 6>;

inline constexpr MacAddress kBroadcast{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

/** Whether the address is that of a multicast group, which all stations together are not. */
inline bool IsGroup(const MacAddress &address) { return (address[0] & 1) != 0 && address != kBroadcast; }

/** Whether frames can come from the address: it is neither a group's nor all zeros. */
inline bool IsStation(const MacAddress &address) { return (address[0] & 1) == 0 && address != MacAddress{}; }

}  // namespace kestrel::host
