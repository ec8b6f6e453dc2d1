/* How group messages write times, records and lists. */
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/core/multicast/group_message.h"

namespace kestrel::host {

/** A number that is written as it is below the half of its field's range, and above with a mantissa and an exponent of
   3 bits: `mantissa_bits` is 4 in a byte and 12 in two. */
constexpr std::uint32_t NumberOfCode(std::uint32_t code, unsigned mantissa_bits) {
  if (code < std::uint32_t{1} << (mantissa_bits + 3)) return code;
  const std::uint32_t mantissa = (code & ((std::uint32_t{1} << mantissa_bits) - 1)) | std::uint32_t{1} << mantissa_bits;
  return mantissa << ((code >> mantissa_bits & 7) + 3);
}

/** The code of the largest number not above `number` that has one. */
constexpr std::uint32_t CodeOfNumber(std::uint32_t number, unsigned mantissa_bits) {
  if (number < std::uint32_t{1} << (mantissa_bits + 3)) return number;
  std::uint32_t exponent = 0;
  while (exponent < 7 && number >> (exponent + 3) >= std::uint32_t{2} << mantissa_bits) ++exponent;
  const std::uint32_t one = std::uint32_t{1} << mantissa_bits;
  const std::uint32_t mantissa = number >> (exponent + 3);
  return std::uint32_t{8} << mantissa_bits | exponent << mantissa_bits |
         (mantissa >= 2 * one ? one - 1 : mantissa & (one - 1));
}

inline constexpr unsigned kByteMantissa = 4;
inline constexpr unsigned kWordMantissa = 12;

/** The first `count` addresses of `size` bytes each, in order and each once; nothing when there are fewer. */
std::optional<std::vector<IpAddress>> SourcesAt(FrameBytes bytes, std::size_t count, std::size_t size);

/** What follows the type and the checksum of a report with records: their count, at byte 6, and the records, with
    addresses of `size` bytes. Records of unknown types are left out. */
GroupMessage ReadRecords(FrameBytes report, std::size_t size);

/** The tail of a query that names sources: flags, interval, count and sources, from `offset` on. False when it is not
    whole. */
bool ReadSourcesOfQuery(FrameBytes query, std::size_t offset, std::size_t size, GroupQuery &read);
void AppendSourcesOfQuery(std::vector<std::uint8_t> &bytes, const GroupQuery &query);

/** Writes two bytes in network order over those that are there. */
void PutWord(std::vector<std::uint8_t> &bytes, std::size_t offset, std::uint16_t word);

}  // namespace kestrel::host
