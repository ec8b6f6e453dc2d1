// Integers, flags and bit-fields in memory that need not be aligned.
#pragma once

#include <cstdint>
#include <cstring>

#include "native/layout.h"

namespace kestrel::records {

template <typename Value>
inline Value LoadAs(const char *place) {
  Value value;
  std::memcpy(&value, place, sizeof value);
  return value;
}

inline std::uint16_t LoadU16(const char *place) { return LoadAs<std::uint16_t>(place); }

inline std::uint16_t Swapped16(std::uint16_t value) { return __builtin_bswap16(value); }

/** Any integer or bit-field but one of 64 bits, whose upper half is lost. */
inline long long LoadInteger(const Element &element, const char *place) {
  if (element.kind == Kind::kS32) return LoadAs<std::int32_t>(place);
  std::uint64_t value = 0;
  switch (element.width) {
    case 1:
      value = LoadAs<std::uint8_t>(place);
      break;
    case 2:
      value = LoadAs<std::uint16_t>(place);
      break;
    case 4:
      value = LoadAs<std::uint32_t>(place);
      break;
    default:
      value = LoadAs<std::uint64_t>(place);
      break;
  }
  if (element.bit_count) value = value >> element.bit_low & ((std::uint64_t{1} << element.bit_count) - 1);
  return static_cast<long long>(value);
}

/** Whether a number of 63 bits can be stored. */
inline bool FitsInteger(const Element &element, long long value) {
  if (element.kind == Kind::kS32) return value >= INT32_MIN && value <= INT32_MAX;
  const unsigned bits = element.bit_count ? element.bit_count : 8 * element.width;
  return value >= 0 && (bits >= 63 || value >> bits == 0);
}

/** Stores the low bits of `value`. */
inline void StoreInteger(const Element &element, char *place, std::uint64_t value) {
  if (element.bit_count) {
    std::uint64_t unit = 0;
    std::memcpy(&unit, place, element.width);
    const std::uint64_t mask = ((std::uint64_t{1} << element.bit_count) - 1) << element.bit_low;
    value = (unit & ~mask) | (value << element.bit_low & mask);
  }
  std::memcpy(place, &value, element.width);
}

}  // namespace kestrel::records
