/* Which address is behind which port. */
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "host/core/clock.h"
#include "host/core/mac_address.h"
#include "host/core/port.h"
#include "host/core/vlan.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** Orders a table by VLAN, then by address. */
struct MacKey {
  VlanId vlan;
  MacAddress address;

  auto operator<=>(const MacKey &) const = default;
};

struct MacEntry {
  /** Static and user entries are entered and stay; learned ones come from traffic and age. */
  VSMACAddrType kind;
  PortId port;
  /** When a frame last came from the address; when it was entered, for an entry that is not learned. */
  TimePoint last_seen;
  /** How often the address was seen behind another port than before. */
  std::uint32_t moves;

  bool operator==(const MacEntry &) const = default;
};

/** What a table made of a source address. */
enum class Learning : std::uint8_t {
  kNew,
  kRefreshed,
  kMoved,
  /** The address has a static or user entry, which traffic does not change. */
  kFixed,
  /** The address is unknown and the table has no room for it. */
  kFull,
};

struct MacLimits {
  /** How many learned entries a table holds. */
  std::size_t entries = VS_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT;
  /** For how long after its last frame it holds each. */
  Duration ageing = std::chrono::seconds(VS_MAC_LEARNING_AGING_TIME_DEFAULT);
};

class MacTable {
 public:
  MacTable() = default;
  explicit MacTable(MacLimits limits) : limits_(limits) {}

  /** From here on; entries above a new limit stay until their time is over. */
  void SetLimits(MacLimits limits) { limits_ = limits; }

  /** Notes a frame from `key` through `port`. */
  Learning Learn(const MacKey &key, PortId port, TimePoint now);

  /** Enters an address for good, in place of a learned entry if there is one. `kind` is VS_MAC_ADDR_TYPE_STATIC or
      VS_MAC_ADDR_TYPE_USER. Throws StatusError ZEL_BAD_PARAM for another kind, ZEL_EXISTS when the address has such an
      entry already. */
  void Enter(const MacKey &key, VSMACAddrType kind, PortId port, TimePoint now);

  /** Drops an entry; no effect when there is none. */
  void Remove(const MacKey &key) noexcept;

  /** Drops the learned entries whose time is over. */
  void Expire(TimePoint now) noexcept;

  /** Drops the entries for which `drop(key, entry)` is true; it must not throw. */
  template <typename Drop>
  void RemoveIf(Drop drop) noexcept {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
      if (drop(entry->first, std::as_const(entry->second))) {
        queue_.erase({entry->second.last_seen, entry->first});
        entry = entries_.erase(entry);
      } else {
        ++entry;
      }
    }
  }

  const std::map<MacKey, MacEntry> &entries() const { return entries_; }

 private:
  MacLimits limits_;
  std::map<MacKey, MacEntry> entries_;
  /** The learned entries, the one seen longest ago first. */
  std::set<std::pair<TimePoint, MacKey>> queue_;
};

}  // namespace kestrel::host
