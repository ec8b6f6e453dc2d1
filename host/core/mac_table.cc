#include "host/core/mac_table.h"

#include <algorithm>
#include <utility>

#include "host/core/base/bytes.h"
#include "host/core/base/errors.h"

namespace kestrel::host {
namespace {

bool IsLearned(const MacEntry &entry) { return entry.kind == VS_MAC_ADDR_TYPE_LEARNED; }

}  // namespace

std::string MacEntry::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint8_t>(kind));
  writer.Put(port);
  writer.Put(static_cast<std::uint64_t>(last_seen.count()));
  writer.Put(moves);
  return writer.Take();
}

MacEntry MacEntry::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  const auto kind = reader.Get<std::uint8_t>();
  if (kind > VS_MAC_ADDR_TYPE_LEARNED) throw StatusError(ZEL_INVALID_METADATA);
  MacEntry entry{};
  entry.kind = static_cast<VSMACAddrType>(kind);
  entry.port = reader.Get<PortId>();
  entry.last_seen = TimePoint(static_cast<TimePoint::rep>(reader.Get<std::uint64_t>()));
  entry.moves = reader.Get<std::uint32_t>();
  reader.RequireEnd();
  return entry;
}

Learning MacTable::Learn(const MacKey &key, PortId port, TimePoint now) {
  const Slot slot = SlotOf(key);
  if (slot == kNoSlot) {
    if (learned_ >= limits_.entries) return Learning::kFull;
    Link(Add({key, {VS_MAC_ADDR_TYPE_LEARNED, port, now, 0}}));
    return Learning::kNew;
  }

  MacEntry &entry = items_[slot].entry;
  if (!IsLearned(entry)) return Learning::kFixed;
  if (entry.port == port && entry.last_seen == now) return Learning::kRefreshed;
  const bool has_moved = entry.port != port;
  if (has_moved) {
    Part &part = parts_[port];
    Leave(slot);
    entry.port = port;
    ++entry.moves;
    Join(part, slot);
  }
  NoteChange(key);
  entry.last_seen = now;
  if (slot != youngest_) {
    Unlink(slot);
    Link(slot);
  }
  return has_moved ? Learning::kMoved : Learning::kRefreshed;
}

void MacTable::Enter(const MacKey &key, VSMACAddrType kind, PortId port, TimePoint now) {
  if (kind != VS_MAC_ADDR_TYPE_STATIC && kind != VS_MAC_ADDR_TYPE_USER) throw StatusError(ZEL_BAD_PARAM);
  const MacEntry entered{kind, port, now, 0};
  const Slot slot = SlotOf(key);
  if (slot == kNoSlot) {
    Add({key, entered});
    return;
  }
  MacEntry &entry = items_[slot].entry;
  if (!IsLearned(entry)) throw StatusError(ZEL_EXISTS);
  Part &part = parts_[port];
  Unlink(slot);
  --learned_;
  Leave(slot);
  NoteChange(key);
  entry = entered;
  Join(part, slot);
}

void MacTable::Restore(std::vector<MacItem> saved) {
  std::ranges::sort(saved, {}, [](const MacItem &item) { return item.entry.last_seen; });
  for (const MacItem &item : saved) {
    Remove(item.key);
    const Slot slot = Add(item);
    if (!IsLearned(item.entry)) continue;
    Slot older = youngest_;
    while (older != kNoSlot && items_[older].entry.last_seen > item.entry.last_seen)
      older = links_[older].by_age.previous;
    LinkAfter(older, slot);
  }
}

void MacTable::Remove(const MacKey &key) noexcept {
  const Slot slot = SlotOf(key);
  if (slot != kNoSlot) RemoveAt(slot);
}

void MacTable::RemoveBehind(PortId port) noexcept {
  for (Slot slot = PartOf(port).first; slot != kNoSlot; slot = PartOf(port).first) RemoveAt(slot);
}

void MacTable::Expire(TimePoint now) noexcept {
  while (oldest_ != kNoSlot && now - items_[oldest_].entry.last_seen >= limits_.ageing) RemoveAt(oldest_);
}

/** A learned entry still has to be linked. */
Slot MacTable::Add(const MacItem &item) {
  // All that can fail comes first.
  index_.Reserve(items_.size() + 1);
  if (links_.size() == links_.capacity()) links_.reserve(2 * links_.size() + 1);
  Part &part = parts_[item.entry.port];
  items_.push_back(item);

  links_.emplace_back();
  const auto slot = static_cast<Slot>(items_.size() - 1);
  index_.Add(HashOf(item.key), slot);
  Join(part, slot);
  if (IsLearned(item.entry)) ++learned_;
  NoteChange(item.key);
  return slot;
}

void MacTable::RemoveAt(Slot slot) noexcept {
  const MacItem gone = items_[slot];
  NoteChange(gone.key);
  if (IsLearned(gone.entry)) {
    Unlink(slot);
    --learned_;
  }
  Leave(slot);
  if (const auto part = parts_.find(gone.entry.port); part->second.size == 0) parts_.erase(part);
  index_.Remove(HashOf(gone.key), slot);
  const auto last = static_cast<Slot>(items_.size() - 1);
  if (slot != last) {
    items_[slot] = items_[last];
    links_[slot] = links_[last];
    index_.Replace(HashOf(items_[slot].key), last, slot);
    const auto &[by_age, by_port] = links_[slot];
    if (IsLearned(items_[slot].entry)) {
      (by_age.previous == kNoSlot ? oldest_ : links_[by_age.previous].by_age.next) = slot;
      (by_age.next == kNoSlot ? youngest_ : links_[by_age.next].by_age.previous) = slot;
    }
    Slot &to_slot = by_port.previous == kNoSlot ? parts_.find(items_[slot].entry.port)->second.first
                                                : links_[by_port.previous].by_port.next;
    to_slot = slot;
    if (by_port.next != kNoSlot) links_[by_port.next].by_port.previous = slot;
  }
  items_.pop_back();
  links_.pop_back();
}

void MacTable::Join(Part &part, Slot slot) noexcept {
  links_[slot].by_port = {.previous = kNoSlot, .next = part.first};
  if (part.first != kNoSlot) links_[part.first].by_port.previous = slot;
  part.first = slot;
  const VSMACAddrType kind = items_[slot].entry.kind;
  ++part.size;
  part.learned += kind == VS_MAC_ADDR_TYPE_LEARNED ? 1 : 0;
  part.users += kind == VS_MAC_ADDR_TYPE_USER ? 1 : 0;
}

void MacTable::Leave(Slot slot) noexcept {
  Part &part = parts_.find(items_[slot].entry.port)->second;
  const auto [previous, next] = std::exchange(links_[slot].by_port, {});
  (previous == kNoSlot ? part.first : links_[previous].by_port.next) = next;
  if (next != kNoSlot) links_[next].by_port.previous = previous;
  const VSMACAddrType kind = items_[slot].entry.kind;
  part.learned -= kind == VS_MAC_ADDR_TYPE_LEARNED ? 1 : 0;
  part.users -= kind == VS_MAC_ADDR_TYPE_USER ? 1 : 0;
  --part.size;
}

void MacTable::LinkAfter(Slot older, Slot slot) noexcept {
  Slot &to_slot = older == kNoSlot ? oldest_ : links_[older].by_age.next;
  const Slot younger = std::exchange(to_slot, slot);
  (younger == kNoSlot ? youngest_ : links_[younger].by_age.previous) = slot;
  links_[slot].by_age = {.previous = older, .next = younger};
}

void MacTable::Unlink(Slot slot) noexcept {
  const auto [older, younger] = std::exchange(links_[slot].by_age, {});
  (older == kNoSlot ? oldest_ : links_[older].by_age.next) = younger;
  (younger == kNoSlot ? youngest_ : links_[younger].by_age.previous) = older;
}

void MacTable::NoteChange(const MacKey &key) noexcept {
  try {
    changes_.Note(key);
  } catch (...) {
    // Without the memory to tell which, all may have.
    changes_.NoteAll();
  }
}

}  // namespace kestrel::host
