/* Records as the bytes that properties are kept in. */
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

template <typename Record>
std::string BytesOf(const Record &record) {
  static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>);
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

/** The record at a place in some bytes, which may be unaligned. Throws StatusError ZEL_BAD_PARAM when they end before
    it does. */
template <typename Record>
Record RecordAt(std::string_view bytes, std::size_t offset) {
  static_assert(std::is_trivially_copyable_v<Record>);
  if (offset > bytes.size() || sizeof(Record) > bytes.size() - offset) throw StatusError(ZEL_BAD_PARAM);
  Record record;
  std::memcpy(&record, bytes.data() + offset, sizeof record);
  return record;
}

/** The record that some bytes are. Throws StatusError ZEL_BAD_PARAM when they are more or fewer. */
template <typename Record>
Record RecordOf(std::string_view bytes) {
  if (bytes.size() != sizeof(Record)) throw StatusError(ZEL_BAD_PARAM);
  return RecordAt<Record>(bytes, 0);
}

/** The text in a field: what comes before its first zero, or all of it. */
inline std::string_view TextOf(std::string_view field) { return field.substr(0, field.find('\0')); }

template <std::size_t width>
std::string_view TextOf(const char (&field)[width]) {
  return TextOf(std::string_view(field, width));
}

}  // namespace kestrel::host
