#include "host/core/handles.h"

namespace kestrel::host {

void *HandleTable::HandleOf(const HandleMeaning &meaning) {
  const auto [place, is_new] = numbers_.try_emplace(meaning, next_);
  if (is_new) {
    try {
      meanings_.emplace(next_, &place->first);
    } catch (...) {
      numbers_.erase(place);
      throw;
    }
    next_ += 16;
  }
  // The number is only ever compared. NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<void *>(place->second);
}

const HandleMeaning *HandleTable::Find(const void *handle) const {
  const auto found = meanings_.find(reinterpret_cast<std::uintptr_t>(handle));
  return found == meanings_.end() ? nullptr : found->second;
}

template <typename Drop>
void HandleTable::ForgetIf(Drop drop) noexcept {
  for (auto entry = numbers_.begin(); entry != numbers_.end();) {
    if (drop(entry->first)) {
      meanings_.erase(entry->second);
      entry = numbers_.erase(entry);
    } else {
      ++entry;
    }
  }
}

void HandleTable::ForgetSwitch(std::string_view id) noexcept {
  ForgetIf([id](const HandleMeaning &meaning) { return meaning.switch_id == id; });
}

void HandleTable::ForgetPort(PortId port) noexcept {
  ForgetIf([port](const HandleMeaning &meaning) { return meaning.port == port; });
}

}  // namespace kestrel::host
