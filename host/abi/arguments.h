/* What the faces do with their arguments before and after they call the model. */
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host::abi {

/** Throws StatusError ZEL_BAD_PARAM for null. */
template <typename Pointed>
void RequirePointer(const Pointed *argument) {
  if (argument == nullptr) throw StatusError(ZEL_BAD_PARAM);
}

/** A name that must fit a zero-terminated field of `width` bytes. Throws StatusError ZEL_BAD_PARAM for null,
    ZEL_NAME_TOO_LONG for a longer one. */
inline std::string_view NameArgument(const char *text, std::size_t width) {
  RequirePointer(text);
  const std::size_t length = strnlen(text, width);
  if (length == width) throw StatusError(ZEL_NAME_TOO_LONG);
  return {text, length};
}

inline std::string_view SwitchName(const char *text) { return NameArgument(text, ZEL_PORTSET_NAME_MAX); }
inline std::string_view SwitchId(const char *text) { return NameArgument(text, ZEL_VDS_ID_MAX_LEN); }
inline std::string_view Alias(const char *text) { return NameArgument(text, ZEL_VDS_NAME_MAX_LEN); }
inline std::string_view UplinkName(const char *text) { return NameArgument(text, ZEL_VDS_PORT_ALIAS_MAX_LEN); }
inline std::string_view PortName(const char *text) { return NameArgument(text, ZEL_VDS_PORT_ID_MAX_LEN); }
inline std::string_view NicName(const char *text) { return NameArgument(text, ZEL_DEVICE_NAME_MAX_LENGTH); }

/** Writes an output; the cell may lie at any address. */
template <typename Value>
void SetOutput(Value *cell, Value value) {
  // A pointer, too, is written as it is. NOLINTNEXTLINE(bugprone-sizeof-expression)
  std::memcpy(static_cast<void *>(cell), static_cast<const void *>(&value), sizeof(Value));
}

/** Sets all outputs of a call to 0 or null, which they keep if it fails. Throws StatusError ZEL_BAD_PARAM when one of
    the cells is missing. */
template <typename... Values>
void ClearOutputs(Values *...cells) {
  ((cells == nullptr ? void() : SetOutput(cells, Values{})), ...);
  (RequirePointer(cells), ...);
}

/** Empties a text output of `width` bytes, which it stays if the call fails. Throws StatusError ZEL_BAD_PARAM for
    null. */
inline void ClearText(char *field, std::size_t width) {
  RequirePointer(field);
  std::memset(field, 0, width);
}

/** Writes a text output that has been emptied; one that fills its width has no terminator. */
inline void SetTextOutput(char *field, std::string_view text, std::size_t width) { text.copy(field, width); }

/** Bytes that come with their length. Throws StatusError ZEL_BAD_PARAM for a negative length and for null with any
    other than 0. */
inline std::string_view BytesArgument(const void *bytes, long long length) {
  if (length < 0) throw StatusError(ZEL_BAD_PARAM);
  if (length == 0) return {};
  RequirePointer(bytes);
  return {static_cast<const char *>(bytes), static_cast<std::size_t>(length)};
}

}  // namespace kestrel::host::abi
