#include "host/core/mac_table.h"

#include "host/core/errors.h"

namespace kestrel::host {

Learning MacTable::Learn(const MacKey &key, PortId port, TimePoint now) {
  const auto found = entries_.find(key);
  if (found == entries_.end()) {
    if (queue_.size() >= limits_.entries) return Learning::kFull;
    const auto place = queue_.emplace(now, key).first;
    try {
      entries_.emplace(key, MacEntry{VS_MAC_ADDR_TYPE_LEARNED, port, now, 0});
    } catch (...) {
      queue_.erase(place);
      throw;
    }
    return Learning::kNew;
  }

  MacEntry &entry = found->second;
  if (entry.kind != VS_MAC_ADDR_TYPE_LEARNED) return Learning::kFixed;
  auto place = queue_.extract({entry.last_seen, key});
  place.value().first = now;
  queue_.insert(std::move(place));
  entry.last_seen = now;
  if (entry.port == port) return Learning::kRefreshed;
  entry.port = port;
  ++entry.moves;
  return Learning::kMoved;
}

void MacTable::Enter(const MacKey &key, VSMACAddrType kind, PortId port, TimePoint now) {
  if (kind != VS_MAC_ADDR_TYPE_STATIC && kind != VS_MAC_ADDR_TYPE_USER) throw StatusError(ZEL_BAD_PARAM);
  const MacEntry entered{kind, port, now, 0};
  const auto [place, is_new] = entries_.try_emplace(key, entered);
  if (is_new) return;
  if (place->second.kind != VS_MAC_ADDR_TYPE_LEARNED) throw StatusError(ZEL_EXISTS);
  queue_.erase({place->second.last_seen, key});
  place->second = entered;
}

void MacTable::Remove(const MacKey &key) noexcept {
  const auto found = entries_.find(key);
  if (found == entries_.end()) return;
  queue_.erase({found->second.last_seen, key});
  entries_.erase(found);
}

void MacTable::Expire(TimePoint now) noexcept {
  while (!queue_.empty() && now - queue_.begin()->first >= limits_.ageing) {
    entries_.erase(queue_.begin()->second);
    queue_.erase(queue_.begin());
  }
}

}  // namespace kestrel::host
