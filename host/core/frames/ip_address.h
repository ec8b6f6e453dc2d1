/* An address of either version of IP. */
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include "host/core/frames/mac_address.h"
#include "host/export.h"

namespace kestrel::host {

/** Sixteen bytes in network order. An IPv4 address stands behind the prefix ::ffff:0:0/96, so that both versions are of
    one type and never equal. Comparison is that of the bytes, which is the one that elections of routers go by. */
struct IpAddress {
  std::array<std::uint8_t, 16> bytes{};

  auto operator<=>(const IpAddress &) const = default;
};

/** So that it can be kept: base/kept_values.h. */
template <typename Address, typename Visit>
  requires std::same_as<std::remove_const_t<Address>, IpAddress>
void VisitMembers(Address &address, Visit visit) {
  visit(address.bytes);
}

inline constexpr std::size_t kIpV4Size = 4;
inline constexpr std::size_t kIpV6Size = 16;

constexpr IpAddress IpV4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
  return {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, a, b, c, d}};
}

/** The address in the first 4 bytes. */
inline IpAddress IpV4At(std::span<const std::uint8_t> bytes) { return IpV4(bytes[0], bytes[1], bytes[2], bytes[3]); }

/** The address in the first 16 bytes. */
inline IpAddress IpV6At(std::span<const std::uint8_t> bytes) {
  IpAddress address;
  std::ranges::copy(bytes.first(kIpV6Size), address.bytes.begin());
  return address;
}

inline constexpr IpAddress kNoIpV4 = IpV4(0, 0, 0, 0);
inline constexpr IpAddress kNoIpV6{};

inline bool IsIpV4(const IpAddress &address) {
  constexpr std::array<std::uint8_t, 12> kPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  return std::equal(kPrefix.begin(), kPrefix.end(), address.bytes.begin());
}

/** The bytes as they travel: 4 or 16. */
inline std::span<const std::uint8_t> WireBytes(const IpAddress &address) {
  const std::span<const std::uint8_t> all(address.bytes);
  return IsIpV4(address) ? all.last(kIpV4Size) : all;
}

/** Whether an address says nothing. */
inline bool IsUnspecified(const IpAddress &address) { return address == kNoIpV4 || address == kNoIpV6; }

/** Whether the address is that of a multicast group. */
inline bool IsMulticast(const IpAddress &address) {
  return IsIpV4(address) ? address.bytes[12] >> 4 == 0xe : address.bytes[0] == 0xff;
}

/** Whether a group does not reach beyond its link: 224.0.0.0/24, and IPv6 groups of that scope or a narrower one. */
inline bool IsLinkLocalGroup(const IpAddress &group) {
  if (IsIpV4(group)) return group.bytes[12] == 224 && group.bytes[13] == 0 && group.bytes[14] == 0;
  return group.bytes[0] == 0xff && (group.bytes[1] & 0xf) <= 2;
}

/** Whether an IPv6 address is one of a single station on its link, fe80::/10. */
inline bool IsLinkLocalStation(const IpAddress &address) {
  return address.bytes[0] == 0xfe && (address.bytes[1] & 0xc0) == 0x80;
}

/** The Ethernet address that frames to a group are sent to. */
inline MacAddress MacOfGroup(const IpAddress &group) {
  const auto &bytes = group.bytes;
  if (IsIpV4(group)) return {0x01, 0x00, 0x5e, static_cast<std::uint8_t>(bytes[13] & 0x7f), bytes[14], bytes[15]};
  return {0x33, 0x33, bytes[12], bytes[13], bytes[14], bytes[15]};
}

/** The address that a text says; nothing when it says none. */
KESTREL_HOST_EXPORT std::optional<IpAddress> IpAddressOf(std::string_view text);

}  // namespace kestrel::host
