/* Handles: what callers hold in the place of a switch, a port or a property. */
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/core/property.h"
#include "host/export.h"

namespace kestrel::host {

/** What a handle stands for. */
struct HandleMeaning {
  enum class Kind : std::uint8_t { kSwitch, kPort, kProperty };

  Kind kind;
  std::string switch_id;
  /** For a port, and for the property of one or of an uplink. */
  PortId port = 0;
  /** For a property. */
  PropertyLevel level = PropertyLevel::kSwitch;
  std::string key{};

  auto operator<=>(const HandleMeaning &) const = default;
};

/** Handles are numbers in the shape of pointers. They are looked up and never followed, and a number is not used again,
    so that one that is stale or was never a handle is told from one that is good. */
class KESTREL_HOST_EXPORT HandleTable {
 public:
  /** The handle of something, the same one at every call. */
  void *HandleOf(const HandleMeaning &meaning);
  /** Null for no handle. */
  const HandleMeaning *Find(const void *handle) const;

  /** Ends every handle of a switch and what belongs to it. */
  void ForgetSwitch(std::string_view id) noexcept;
  /** Ends every handle of a port and its properties. */
  void ForgetPort(PortId port) noexcept;

 private:
  template <typename Drop>
  void ForgetIf(Drop drop) noexcept;

  std::map<HandleMeaning, std::uintptr_t> numbers_;
  std::map<std::uintptr_t, const HandleMeaning *> meanings_;
  /** Apart from each other as objects would be. */
  std::uintptr_t next_ = 0x10000;
};

}  // namespace kestrel::host
