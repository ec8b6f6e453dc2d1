/* The runtime options of the host, which travel as one packed list. */
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/export.h"
#include "kestrel/option_records.h"

namespace kestrel::host {

class KESTREL_HOST_EXPORT RuntimeOptions {
 public:
  /** Every option at its default. */
  RuntimeOptions();

  /** The value of a number option. `code` is below NUM_RUNTIME_INT_OPTIONS. */
  std::uint32_t NumberOf(std::uint16_t code) const { return numbers_.at(code); }

  /** The text of an address option, one of the others; empty for none. */
  std::string_view AddressTextOf(std::uint16_t code) const { return texts_.at(code - NUM_RUNTIME_INT_OPTIONS); }

  /** The packed list of some options, by their VS_RT_OPT_* codes. Throws StatusError ZEL_BAD_PARAM for an unknown code,
      ZEL_LIMIT_EXCEEDED for a list longer than VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH. */
  std::string Pack(std::span<const std::uint16_t> codes) const;

  /** Applies a packed list, of which the last entry of a code counts. Throws StatusError ZEL_BAD_PARAM for an unknown
      code, an entry of a wrong length and a value out of its range; nothing has changed then. */
  void Apply(std::string_view packed);

  bool operator==(const RuntimeOptions &) const = default;

 private:
  std::array<std::uint32_t, NUM_RUNTIME_INT_OPTIONS> numbers_;
  std::array<std::string, VS_NUM_RT_OPT - NUM_RUNTIME_INT_OPTIONS> texts_;
};

}  // namespace kestrel::host
