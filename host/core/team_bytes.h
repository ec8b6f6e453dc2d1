/* Flags, addresses and times as bytes, for what NICs and teams keep. */
#pragma once

#include <cstdint>

#include "host/core/bytes.h"
#include "host/core/clock.h"
#include "host/core/mac_address.h"

namespace kestrel::host {

inline void Put(ByteWriter &writer, bool flag) { writer.Put(static_cast<std::uint8_t>(flag)); }

inline bool GetFlag(ByteReader &reader) {
  const auto flag = reader.Get<std::uint8_t>();
  if (flag > 1) throw StatusError(ZEL_INVALID_METADATA);
  return flag != 0;
}

inline void Put(ByteWriter &writer, const MacAddress &address) {
  for (const std::uint8_t byte : address) writer.Put(byte);
}

inline MacAddress GetAddress(ByteReader &reader) {
  MacAddress address;
  for (std::uint8_t &byte : address) byte = reader.Get<std::uint8_t>();
  return address;
}

inline void Put(ByteWriter &writer, Duration time) { writer.Put(static_cast<std::uint64_t>(time.count())); }

inline Duration GetTime(ByteReader &reader) {
  return Duration(static_cast<Duration::rep>(reader.Get<std::uint64_t>()));
}

}  // namespace kestrel::host
