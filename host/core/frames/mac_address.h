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

/** Locally administered addresses that tell by their second byte whose they are, and end in a number. */
constexpr MacAddress NumberedAddress(std::uint8_t family, std::uint32_t number) {
  return {0x02,
          family,
          static_cast<std::uint8_t>(number >> 24),
          static_cast<std::uint8_t>(number >> 16),
          static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number)};
}

/** The address of equipment that is told apart by a hash. */
constexpr MacAddress AddressOfHash(std::uint32_t hash) { return NumberedAddress(0x4b, hash); }

/** The address of a client that comes to a port without one: no two ports of a host ever have the same identifier. */
constexpr MacAddress AddressOfClient(std::uint32_t port) { return NumberedAddress(0x4c, port); }

}  // namespace kestrel::host
