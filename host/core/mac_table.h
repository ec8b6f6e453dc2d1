/* Which address is behind which port. */
#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/core/base/change_list.h"
#include "host/core/base/clock.h"
#include "host/core/base/slot_index.h"
#include "host/core/frames/mac_address.h"
#include "host/core/port_id.h"
#include "host/core/vlan.h"
#include "host/export.h"
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

  /** The entry as bytes, and back. Load throws StatusError ZEL_INVALID_METADATA for bytes that are none. */
  KESTREL_HOST_EXPORT std::string Save() const;
  KESTREL_HOST_EXPORT static MacEntry Load(std::string_view bytes);

  bool operator==(const MacEntry &) const = default;
};

/** An entry with its place in a table. */
struct MacItem {
  MacKey key;
  MacEntry entry;

  bool operator==(const MacItem &) const = default;
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

/** Finding, learning, refreshing and dropping an entry take the same time whatever the size of the table. */
class KESTREL_HOST_EXPORT MacTable {
 public:
  MacTable() = default;
  explicit MacTable(MacLimits limits) : limits_(limits) {}

  /** From here on; entries above a new limit stay until their time is over. */
  void SetLimits(MacLimits limits) { limits_ = limits; }

  /** Null when there is none; good until the next change, as all that the table hands out. */
  const MacEntry *Find(const MacKey &key) const {
    const Slot slot = SlotOf(key);
    return slot == kNoSlot ? nullptr : &items_[slot].entry;
  }

  /** Notes a frame from `key` through `port`. The time must not go back. */
  Learning Learn(const MacKey &key, PortId port, TimePoint now);

  /** Enters an address for good, in place of a learned entry if there is one. `kind` is VS_MAC_ADDR_TYPE_STATIC or
      VS_MAC_ADDR_TYPE_USER. Throws StatusError ZEL_BAD_PARAM for another kind, ZEL_EXISTS when the address has such an
      entry already. */
  void Enter(const MacKey &key, VSMACAddrType kind, PortId port, TimePoint now);

  /** Puts entries that were saved back, in place of those of the same addresses. */
  void Restore(std::vector<MacItem> saved);

  /** Drops an entry; no effect when there is none. */
  void Remove(const MacKey &key) noexcept;

  /** Drops the learned entries whose time is over. */
  void Expire(TimePoint now) noexcept;

  /** Drops the entries behind a port. */
  void RemoveBehind(PortId port) noexcept;

  /** Drops the entries for which `drop(key, entry)` is true; it must not throw. */
  template <typename Drop>
  void RemoveIf(Drop drop) noexcept {
    for (Slot slot = 0; slot < items_.size();) {
      // The last entry takes the place of one that is dropped.
      if (drop(items_[slot].key, items_[slot].entry)) {
        RemoveAt(slot);
      } else {
        ++slot;
      }
    }
  }

  std::size_t size() const { return items_.size(); }
  std::size_t learned() const { return learned_; }
  /** How many entries are behind a port, how many of them learned, and how many entered by users. */
  std::size_t SizeBehind(PortId port) const { return PartOf(port).size; }
  std::size_t LearnedBehind(PortId port) const { return PartOf(port).learned; }
  std::size_t UsersBehind(PortId port) const { return PartOf(port).users; }
  /** Calls `visit(item)` for each entry behind a port, and looks at no other. */
  template <typename Visit>
  void ForEachBehind(PortId port, Visit visit) const {
    for (Slot slot = PartOf(port).first; slot != kNoSlot; slot = links_[slot].by_port.next) visit(items_[slot]);
  }

  /** All of them, in an order that only what has happened to the table decides. To sort a large one would take longer
      than to hand it out. */
  std::span<const MacItem> entries() const { return items_; }

  ChangeList<MacKey> &changes() { return changes_; }
  const ChangeList<MacKey> &changes() const { return changes_; }

 private:
  struct Neighbours {
    Slot previous = kNoSlot;
    Slot next = kNoSlot;
  };
  struct Links {
    /** Among the learned entries, by when they were last seen. */
    Neighbours by_age;
    /** Among the entries behind the same port. */
    Neighbours by_port;
  };
  /** The entries behind a port. */
  struct Part {
    Slot first = kNoSlot;
    std::size_t size = 0;
    std::size_t learned = 0;
    std::size_t users = 0;
  };

  static std::uint32_t HashOf(const MacKey &key) {
    static_assert(sizeof key == sizeof(std::uint64_t));
    std::uint64_t bits;
    std::memcpy(&bits, &key, sizeof bits);
    return SlotIndex::HashOf(bits);
  }

  Slot SlotOf(const MacKey &key) const {
    return index_.Find(HashOf(key), [&](Slot slot) { return items_[slot].key == key; });
  }
  Part PartOf(PortId port) const {
    const auto found = parts_.find(port);
    return found == parts_.end() ? Part{} : found->second;
  }
  Slot Add(const MacItem &item);
  void RemoveAt(Slot slot) noexcept;
  /** Puts an entry that is where and what it is going to be into its port's part. */
  void Join(Part &part, Slot slot) noexcept;
  /** Takes an entry out of its port's part, before it becomes another's. */
  void Leave(Slot slot) noexcept;
  /** Makes an entry the youngest of those that are learned. */
  void Link(Slot slot) noexcept { LinkAfter(youngest_, slot); }
  void LinkAfter(Slot older, Slot slot) noexcept;
  void Unlink(Slot slot) noexcept;
  void NoteChange(const MacKey &key) noexcept;

  MacLimits limits_;
  std::vector<MacItem> items_;
  /** Of the same size. */
  std::vector<Links> links_;
  SlotIndex index_;
  Slot oldest_ = kNoSlot;
  Slot youngest_ = kNoSlot;
  std::size_t learned_ = 0;
  std::unordered_map<PortId, Part> parts_;
  ChangeList<MacKey> changes_;
};

}  // namespace kestrel::host
