/* A hash index: from a 64-bit key to the place of an item in an array. */
#pragma once

#include <cstdint>
#include <vector>

namespace kestrel::host {

/** Where an item stands in its array. */
using Slot = std::uint32_t;

inline constexpr Slot kNoSlot = 0xffffffff;

/** Knows hashes and slots alone; the keys are with the items. Open addressing with linear probing. */
class SlotIndex {
 public:
  /** Spreads the bits of a key. */
  static std::uint32_t HashOf(std::uint64_t key) {
    key ^= key >> 32;
    key *= 0xd6e8feb86659fd93;
    key ^= key >> 32;
    key *= 0xd6e8feb86659fd93;
    return static_cast<std::uint32_t>(key >> 32);
  }

  /** The slot of that hash for which `is_meant(slot)` is true, else kNoSlot. */
  template <typename IsMeant>
  Slot Find(std::uint32_t hash, IsMeant is_meant) const {
    if (cells_.empty()) return kNoSlot;
    for (std::size_t place = hash & mask();; place = (place + 1) & mask()) {
      const Cell &cell = cells_[place];
      if (cell.slot == kNoSlot) return kNoSlot;
      if (cell.hash == hash && is_meant(cell.slot)) return cell.slot;
    }
  }

  /** Makes room, so that adding up to `count` slots in all cannot fail. Throws std::bad_alloc. */
  void Reserve(std::size_t count) {
    if (count * 2 <= cells_.size()) return;
    std::size_t size = 16;
    while (size < count * 2) size *= 2;
    std::vector<Cell> former(size);
    former.swap(cells_);
    for (const Cell &cell : former) {
      if (cell.slot != kNoSlot) Add(cell.hash, cell.slot);
    }
  }

  /** There must be room. */
  void Add(std::uint32_t hash, Slot slot) noexcept {
    std::size_t place = hash & mask();
    while (cells_[place].slot != kNoSlot) place = (place + 1) & mask();
    cells_[place] = {hash, slot};
  }

  /** The slot must be there. */
  void Remove(std::uint32_t hash, Slot slot) noexcept {
    std::size_t hole = PlaceOf(hash, slot);
    // What was pushed beyond the hole moves up, so that a search never ends before what it looks for.
    for (std::size_t place = hole;;) {
      place = (place + 1) & mask();
      const Cell &cell = cells_[place];
      if (cell.slot == kNoSlot) break;
      if (((place - cell.hash) & mask()) < ((place - hole) & mask())) continue;
      cells_[hole] = cell;
      hole = place;
    }
    cells_[hole] = {};
  }

  /** An item has moved. */
  void Replace(std::uint32_t hash, Slot slot, Slot by) noexcept { cells_[PlaceOf(hash, slot)].slot = by; }

 private:
  struct Cell {
    std::uint32_t hash = 0;
    Slot slot = kNoSlot;
  };

  std::size_t mask() const { return cells_.size() - 1; }
  std::size_t PlaceOf(std::uint32_t hash, Slot slot) const {
    std::size_t place = hash & mask();
    while (cells_[place].slot != slot) place = (place + 1) & mask();
    return place;
  }

  /** A power of two of them, of which at most half are in use. */
  std::vector<Cell> cells_;
};

}  // namespace kestrel::host
