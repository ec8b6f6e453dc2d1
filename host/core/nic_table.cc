#include "host/core/nic_table.h"

#include <algorithm>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/fnv_hash.h"
#include "host/core/base/names.h"
#include "host/core/frames/mac_address.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

bool IsKnownLink(const LinkStatus &link) {
  const bool has_state = link.state == ZEL_LINK_STATE_UP || link.state == ZEL_LINK_STATE_DOWN;
  const bool has_duplex =
      link.duplex == ZEL_LINK_DUPLEX_AUTO || link.duplex == ZEL_LINK_DUPLEX_HALF || link.duplex == ZEL_LINK_DUPLEX_FULL;
  return has_state && has_duplex;
}

}  // namespace

void NicTable::Add(std::string name, LinkStatus link) {
  if (nics_.contains(name)) throw StatusError(ZEL_EXISTS);
  Nic nic{.link = link};
  const auto is_taken = [&nic](const auto &other) { return other.second.address == nic.address; };
  // Names are many and these addresses are fewer: two names may ask for the same one.
  std::uint32_t hash = FnvHash{}.Add(name).value();
  do {
    nic.address = AddressOfHash(hash++);
  } while (std::ranges::any_of(nics_, is_taken));
  Add(std::move(name), nic);
}

void NicTable::Add(std::string name, const Nic &nic) {
  CheckName(name, ZEL_DEVICE_NAME_MAX_LENGTH);
  if (nics_.contains(name)) throw StatusError(ZEL_EXISTS);
  Check(name, nic);
  nics_.emplace(std::move(name), nic);
  revision_.Renew();
}

void NicTable::Remove(std::string_view name) {
  const auto found = nics_.find(name);
  if (found == nics_.end()) throw StatusError(ZEL_NOT_FOUND);
  nics_.erase(found);
  revision_.Renew();
}

void NicTable::Set(std::string_view name, const Nic &nic) {
  const auto found = nics_.find(name);
  if (found == nics_.end()) throw StatusError(ZEL_NOT_FOUND);
  Check(name, nic);
  found->second = nic;
  revision_.Renew();
}

const Nic *NicTable::Find(std::string_view name) const {
  const auto found = nics_.find(name);
  return found == nics_.end() ? nullptr : &found->second;
}

const Nic &NicTable::Get(std::string_view name) const {
  const Nic *nic = Find(name);
  if (nic == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *nic;
}

std::optional<LinkStatus> NicTable::FindLink(std::string_view name) const {
  const Nic *nic = Find(name);
  return nic == nullptr ? std::nullopt : std::optional(nic->CurrentLink());
}

void NicTable::Check(std::string_view name, const Nic &nic) const {
  if (!IsStation(nic.address) || nic.error_percent > kMaxErrorPercent || !IsKnownLink(nic.link)) {
    throw StatusError(ZEL_BAD_PARAM);
  }
  for (const auto &[other_name, other] : nics_) {
    if (other_name != name && other.address == nic.address) throw StatusError(ZEL_EXISTS);
  }
}

}  // namespace kestrel::host
