/* The functions that set, read and clear one property, in the forms that values have among arguments. */
#pragma once

#include <string>
#include <string_view>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/base/record_bytes.h"
#include "host/core/process_host.h"

namespace kestrel::host::abi {

/** A property of a switch, by the caller's name for the switch. */
struct SwitchProperty {
  const char *switch_name;
  std::string_view key;

  PropertyOwner Owner() const { return {.switch_name = SwitchName(switch_name)}; }
};

/** The same, by the id of the distributed switch. */
struct SwitchIdProperty {
  const char *switch_id;
  std::string_view key;

  PropertyOwner Owner() const {
    return {.switch_name = ReadHost().FindSwitchById(SwitchId(switch_id)).config.spec().portset};
  }
};

struct PortProperty {
  const char *switch_name;
  const char *port_name;
  std::string_view key;

  PropertyOwner Owner() const {
    const auto name = SwitchName(switch_name);
    return {.switch_name = name, .level = PropertyLevel::kPort, .port = PortName(port_name)};
  }
};

// ---- Inside of a guarded call ----

template <typename Where>
std::string ValueOf(const Where &where) {
  return ReadHost().PropertyOf(where.Owner(), where.key);
}

/** Sets a value and saves it. */
template <typename Where>
void SetValue(const Where &where, std::string value) {
  ChangeHost().SetProperty(where.Owner(), where.key, {std::move(value)});
}

/** Changes a record in place, `change(record)`, and saves it. */
template <typename Record, typename Where, typename Change>
void ChangeRecord(const Where &where, Change change) {
  auto record = RecordOf<Record>(ValueOf(where));
  change(record);
  SetValue(where, BytesOf(record));
}

// ---- As whole functions ----

template <typename Where, typename Record>
ZEL_ReturnStatus SetRecord(const Where &where, const Record *record, const char *function = __builtin_FUNCTION()) {
  return ChangeCall(
      [&] {
        RequirePointer(record);
        SetValue(where, BytesOf(*record));
      },
      function);
}

/** Fills the caller's record, which stays as it is when the call fails. */
template <typename Where, typename Record>
ZEL_ReturnStatus FillRecord(const Where &where, Record *record, const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        RequirePointer(record);
        SetOutput(record, RecordOf<Record>(ValueOf(where)));
      },
      function);
}

template <typename Where, typename Number>
ZEL_ReturnStatus SetNumber(const Where &where, Number number, const char *function = __builtin_FUNCTION()) {
  return ChangeCall([&] { SetValue(where, BytesOf(number)); }, function);
}

template <typename Where, typename Number>
ZEL_ReturnStatus GetNumber(const Where &where, Number *value_out, const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(value_out);
        SetOutput(value_out, RecordOf<Number>(ValueOf(where)));
      },
      function);
}

template <typename Where>
ZEL_ReturnStatus SetFlag(const Where &where, zel_Bool flag, const char *function = __builtin_FUNCTION()) {
  return SetNumber(where, static_cast<zel_Bool>(flag != 0), function);
}

template <typename Where>
ZEL_ReturnStatus GetFlag(const Where &where, zel_Bool *flag_out, const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(flag_out);
        SetOutput(flag_out, static_cast<zel_Bool>(RecordOf<zel_Bool>(ValueOf(where)) != 0));
      },
      function);
}

/** `width` is that of the field that the text must fit with its terminator. */
template <typename Where>
ZEL_ReturnStatus SetText(const Where &where, const char *text, std::size_t width,
                         const char *function = __builtin_FUNCTION()) {
  return ChangeCall([&] { SetValue(where, std::string(NameArgument(text, width))); }, function);
}

template <typename Where>
ZEL_ReturnStatus GetText(const Where &where, char *text_out, std::size_t width,
                         const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearText(text_out, width);
        SetTextOutput(text_out, TextOf(std::string_view(ValueOf(where))), width);
      },
      function);
}

/** Hands out a record of varying length. */
template <typename Where, typename Record>
ZEL_ReturnStatus GetBlock(const Where &where, Record **table_out, const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(table_out);
        SetOutput(table_out, BlockOf<Record>(ValueOf(where)));
      },
      function);
}

template <typename Where>
ZEL_ReturnStatus ClearValue(const Where &where, const char *function = __builtin_FUNCTION()) {
  return ChangeCall([&] { ChangeHost().ClearProperty(where.Owner(), where.key, Persistence::kSaved); }, function);
}

}  // namespace kestrel::host::abi
