/* Values as bytes by the kind that they are of: what the host file keeps as a whole.

   Put and Get of one kind are each other's inverse. A record takes part by an overload of VisitMembers(record, visit)
   that calls `visit(member)` for each member in the order in which they are kept. Every Get throws StatusError
   ZEL_INVALID_METADATA for bytes that Put did not write. */
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "host/core/base/bytes.h"
#include "host/core/base/clock.h"

namespace kestrel::host {

/** Throws StatusError ZEL_INVALID_METADATA unless what was read is so. */
inline void RequireSound(bool condition) {
  if (!condition) throw StatusError(ZEL_INVALID_METADATA);
}

/** A kind of record, to read or to change: what an overload of VisitMembers is for. */
template <typename Record, typename Kind>
concept Is = std::same_as<std::remove_const_t<Record>, Kind>;

/** A record that says what its members are. */
template <typename Record>
concept HasMembers = requires(Record &record) { VisitMembers(record, [](auto &) {}); };

template <typename Enumeration>
using BitsOf = std::make_unsigned_t<std::underlying_type_t<Enumeration>>;

template <typename Number>
  requires std::unsigned_integral<Number> || std::is_enum_v<Number>
void Put(ByteWriter &writer, Number number) {
  if constexpr (std::is_enum_v<Number>) {
    Put(writer, static_cast<BitsOf<Number>>(number));
  } else if constexpr (std::same_as<Number, bool>) {
    writer.Put(static_cast<std::uint8_t>(number));
  } else {
    writer.Put(number);
  }
}

/** Of an enumeration any value of its type: the caller knows the enumerators. */
template <typename Number>
  requires std::unsigned_integral<Number> || std::is_enum_v<Number>
void Get(ByteReader &reader, Number &number) {
  if constexpr (std::is_enum_v<Number>) {
    number = static_cast<Number>(reader.Get<BitsOf<Number>>());
  } else if constexpr (std::same_as<Number, bool>) {
    const auto flag = reader.Get<std::uint8_t>();
    RequireSound(flag <= 1);
    number = flag != 0;
  } else {
    number = reader.Get<Number>();
  }
}

inline void Put(ByteWriter &writer, Duration time) { writer.Put(static_cast<std::uint64_t>(time.count())); }

inline void Get(ByteReader &reader, Duration &time) {
  const auto count = reader.Get<std::uint64_t>();
  RequireSound(count <= static_cast<std::uint64_t>(Duration::max().count()));
  time = Duration(static_cast<Duration::rep>(count));
}

template <std::size_t size>
void Put(ByteWriter &writer, const std::array<std::uint8_t, size> &bytes) {
  for (const std::uint8_t byte : bytes) writer.Put(byte);
}

template <std::size_t size>
void Get(ByteReader &reader, std::array<std::uint8_t, size> &bytes) {
  for (std::uint8_t &byte : bytes) byte = reader.Get<std::uint8_t>();
}

inline void Put(ByteWriter &writer, const std::string &text) { writer.PutText(text); }

inline void Get(ByteReader &reader, std::string &text) { text = reader.GetText(); }

inline void Put(ByteWriter &writer, const std::vector<std::uint8_t> &bytes) {
  writer.PutText({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

inline void Get(ByteReader &reader, std::vector<std::uint8_t> &bytes) {
  const std::string_view text = reader.GetText();
  bytes.assign(text.begin(), text.end());
}

template <HasMembers Record>
void Put(ByteWriter &writer, const Record &record) {
  VisitMembers(record, [&writer](const auto &member) { Put(writer, member); });
}

template <HasMembers Record>
void Get(ByteReader &reader, Record &record) {
  VisitMembers(record, [&reader](auto &member) { Get(reader, member); });
}

template <typename Value>
void Put(ByteWriter &writer, const std::optional<Value> &value) {
  Put(writer, value.has_value());
  if (value) Put(writer, *value);
}

template <typename Value>
void Get(ByteReader &reader, std::optional<Value> &value) {
  bool is_there = false;
  Get(reader, is_there);
  if (is_there) Get(reader, value.emplace());
}

template <typename Key, typename Value>
void Put(ByteWriter &writer, const std::map<Key, Value> &map) {
  writer.Put(static_cast<std::uint32_t>(map.size()));
  for (const auto &[key, value] : map) {
    Put(writer, key);
    Put(writer, value);
  }
}

template <typename Key, typename Value>
void Get(ByteReader &reader, std::map<Key, Value> &map) {
  for (auto count = reader.Get<std::uint32_t>(); count > 0; --count) {
    Key key{};
    Get(reader, key);
    // In order and once each, as they were written.
    RequireSound(map.empty() || std::prev(map.end())->first < key);
    Get(reader, map[key]);
  }
}

/** The value of a type that follows. */
template <typename Value>
Value Next(ByteReader &reader) {
  Value value{};
  Get(reader, value);
  return value;
}

}  // namespace kestrel::host
