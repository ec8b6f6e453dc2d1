/* Handles: what callers hold in the place of a switch, a port or a property. */
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/core/properties/property.h"
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
  /** Switch::number. */
  std::uint64_t switch_number = 0;

  auto operator<=>(const HandleMeaning &) const = default;
};

/** Handles are numbers in the shape of pointers. They are looked up and never followed, and a number is not used again,
    so that one that is stale or was never a handle is told from one that is good. They belong to a process; what they
    stand for may be gone. */
class KESTREL_HOST_EXPORT HandleTable {
 public:
  /** The handle of something, the same one at every call. */
  void *HandleOf(const HandleMeaning &meaning);
  /** Null for no handle. */
  const HandleMeaning *Find(const void *handle) const;

  /** Keeps the value of a property for whoever holds its handle, at one address for as long as it is the same. Throws
      StatusError ZEL_INVALID_HANDLE. */
  const std::string &KeepValue(const void *handle, std::string_view value);

  /** Ends the handles for which `drop(meaning)` is true; it must not throw. */
  template <typename Drop>
  void ForgetIf(Drop drop) noexcept {
    for (auto entry = numbers_.begin(); entry != numbers_.end();) {
      if (drop(entry->first)) {
        meanings_.erase(entry->second);
        entry = numbers_.erase(entry);
      } else {
        ++entry;
      }
    }
  }

  std::size_t size() const { return numbers_.size(); }

 private:
  struct Entry {
    const HandleMeaning *meaning;
    std::string value{};
  };

  std::map<HandleMeaning, std::uintptr_t> numbers_;
  std::map<std::uintptr_t, Entry> meanings_;
  /** Apart from each other as objects would be. */
  std::uintptr_t next_ = 0x10000;
};

}  // namespace kestrel::host
