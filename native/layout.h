// What the generated tables say about records, members and enumerations. Plain data; nothing of Python.
#pragma once

#include <cstdint>

namespace kestrel::records {

enum class Kind : std::uint8_t {
  kU8,
  kU16,
  kU32,
  kU64,
  kS32,
  kFlag,
  kText,
  kMac,
  kIpv4,
  kIpv6,
  kName,
  kRecord,
  kPointer,
  kOwnedText,
  kOpaque,
};

/** A value in memory. */
struct Element {
  Kind kind;
  /** Lowest bit and number of bits of a bit-field within its storage unit; no bits for any other value. */
  std::uint8_t bit_low;
  std::uint8_t bit_count;
  /** In bytes; of the storage unit for a bit-field. */
  std::uint32_t width;
  /** Index of the record of a record or pointer, or of the enumeration of an integer; negative for none. */
  std::int16_t target;
};

enum class Shape : std::uint8_t {
  kValue,
  /** A fixed array. */
  kFixed,
  /** As many elements behind the record as its counter says. */
  kFollows,
};

struct FieldSpec {
  const char *name;
  const char *doc;
  Element element;
  std::uint32_t offset;
  Shape shape;
  /** Elements of a fixed array. */
  std::uint32_t count;
  /** Index, among the record's fields, of the one that counts what follows; negative where the memory's size does. */
  std::int16_t counter;
  bool network_order;
  bool read_only;
  /** A further view of bytes that an earlier field shows. */
  bool overlaid;
  /** Counts what follows. */
  bool counts;
};

struct RecordSpec {
  const char *name;
  const char *doc;
  std::uint32_t size;
  /** Index of the first field, and how many there are. */
  std::uint32_t first;
  std::uint32_t fields;
  /** Something follows the fixed part. */
  bool table;
};

struct EnumeratorSpec {
  const char *name;
  int value;
};

struct EnumerationSpec {
  const char *name;
  const char *doc;
  std::uint32_t first;
  std::uint32_t count;
};

}  // namespace kestrel::records
