#include "host/core/handles.h"

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void *HandleTable::HandleOf(const HandleMeaning &meaning) {
  const auto [place, is_new] = numbers_.try_emplace(meaning, next_);
  if (is_new) {
    try {
      meanings_.emplace(next_, Entry{&place->first});
    } catch (...) {
      numbers_.erase(place);
      throw;
    }
    next_ += 16;
  }
  // The number is only ever compared.
  return reinterpret_cast<void *>(place->second);
}

const HandleMeaning *HandleTable::Find(const void *handle) const {
  const auto found = meanings_.find(reinterpret_cast<std::uintptr_t>(handle));
  return found == meanings_.end() ? nullptr : found->second.meaning;
}

const std::string &HandleTable::KeepValue(const void *handle, std::string_view value) {
  const auto found = meanings_.find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == meanings_.end()) throw StatusError(ZEL_INVALID_HANDLE);
  std::string &kept = found->second.value;
  if (kept != value) kept = value;
  return kept;
}

}  // namespace kestrel::host
