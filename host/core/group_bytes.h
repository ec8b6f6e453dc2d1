/* Times and addresses as the memberships of groups keep them. */
#pragma once

#include <cstdint>

#include "host/core/bytes.h"
#include "host/core/clock.h"
#include "host/core/ip_address.h"

namespace kestrel::host {

/** Throws StatusError ZEL_INVALID_METADATA unless what was read is so. */
inline void Require(bool condition) {
  if (!condition) throw StatusError(ZEL_INVALID_METADATA);
}

inline void SaveTime(ByteWriter &writer, TimePoint time) { writer.Put(static_cast<std::uint64_t>(time.count())); }

inline TimePoint LoadTime(ByteReader &reader) {
  const auto count = reader.Get<std::uint64_t>();
  Require(count <= static_cast<std::uint64_t>(TimePoint::max().count()));
  return TimePoint(static_cast<TimePoint::rep>(count));
}

inline void SaveAddress(ByteWriter &writer, const IpAddress &address) {
  for (const std::uint8_t byte : address.bytes) writer.Put(byte);
}

inline IpAddress LoadAddress(ByteReader &reader) {
  IpAddress address;
  for (std::uint8_t &byte : address.bytes) byte = reader.Get<std::uint8_t>();
  return address;
}

}  // namespace kestrel::host
