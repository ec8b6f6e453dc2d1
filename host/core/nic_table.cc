#include "host/core/nic_table.h"

#include <utility>

#include "host/core/errors.h"
#include "host/core/names.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void NicTable::Add(std::string name, LinkStatus link) {
  CheckName(name, ZEL_DEVICE_NAME_MAX_LENGTH);
  if (!nics_.emplace(std::move(name), Nic{link}).second) throw StatusError(ZEL_EXISTS);
}

void NicTable::SetLink(std::string_view name, LinkStatus link) { Get(name).link = link; }

void NicTable::SetEnabled(std::string_view name, bool enabled) { Get(name).is_enabled = enabled; }

std::optional<LinkStatus> NicTable::FindLink(std::string_view name) const {
  const auto found = nics_.find(name);
  if (found == nics_.end()) return std::nullopt;
  return found->second.is_enabled ? found->second.link : kNoLink;
}

NicTable::Nic &NicTable::Get(std::string_view name) {
  const auto found = nics_.find(name);
  if (found == nics_.end()) throw StatusError(ZEL_NOT_FOUND);
  return found->second;
}

}  // namespace kestrel::host
