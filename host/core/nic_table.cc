#include "host/core/nic_table.h"

#include <utility>

#include "host/core/errors.h"
#include "host/core/names.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void NicTable::Add(std::string name, LinkStatus link) {
  CheckName(name, ZEL_DEVICE_NAME_MAX_LENGTH);
  if (!links_.emplace(std::move(name), link).second) throw StatusError(ZEL_EXISTS);
}

void NicTable::SetLink(std::string_view name, LinkStatus link) {
  const auto found = links_.find(name);
  if (found == links_.end()) throw StatusError(ZEL_NOT_FOUND);
  found->second = link;
}

const LinkStatus *NicTable::FindLink(std::string_view name) const {
  const auto found = links_.find(name);
  return found == links_.end() ? nullptr : &found->second;
}

}  // namespace kestrel::host
