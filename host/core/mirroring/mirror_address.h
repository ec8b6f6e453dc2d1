/* The addresses in the records of mirror sessions. */
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "host/core/frames/ip_address.h"
#include "kestrel/mirror_records.h"

namespace kestrel::host {

/** The address in a DVMirrorIP or DVMirrorIpPrefix, whose records have it in one place. */
template <typename Record>
IpAddress AddressOf(const Record &record) {
  std::array<std::uint8_t, kIpV6Size> bytes{};
  static_assert(sizeof record.ipv6 == bytes.size());
  std::memcpy(bytes.data(), &record.ipv6, bytes.size());
  return record.isIPv6 != 0 ? IpV6At(bytes) : IpV4At(bytes);
}

}  // namespace kestrel::host
