#include "host/core/vlan_table.h"

#include "host/core/bytes.h"
#include "host/core/errors.h"

namespace kestrel::host {

void VlanTable::CountIn(VlanId vlan, TimePoint now) { ++At(vlan, now).frames_in; }

void VlanTable::CountOut(VlanId vlan, TimePoint now) { ++At(vlan, now).frames_out; }

const VlanRuntime *VlanTable::Find(VlanId vlan) const {
  const std::size_t place = vlan < places_.size() ? places_[vlan] : 0;
  return place == 0 ? nullptr : &items_[place - 1];
}

VlanRuntime &VlanTable::At(VlanId vlan, TimePoint now) {
  ++revision_;
  if (places_.empty()) places_.resize(kMaxVlanId + 1);
  std::uint16_t &place = places_.at(vlan);
  if (place == 0) {
    items_.push_back({.vlan = vlan, .first_used = now});
    place = static_cast<std::uint16_t>(items_.size());
  }
  VlanRuntime &item = items_[place - 1];
  item.last_used = now;
  return item;
}

std::string VlanTable::Save() const {
  ByteWriter writer;
  for (const VlanRuntime &item : items_) {
    writer.Put(item.vlan);
    writer.Put(static_cast<std::uint64_t>(item.first_used.count()));
    writer.Put(static_cast<std::uint64_t>(item.last_used.count()));
    writer.Put(item.frames_in);
    writer.Put(item.frames_out);
  }
  return writer.Take();
}

VlanTable VlanTable::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  const auto time = [&reader] { return TimePoint(static_cast<TimePoint::rep>(reader.Get<std::uint64_t>())); };
  VlanTable table;
  while (reader.left() != 0) {
    const auto vlan = reader.Get<VlanId>();
    if (vlan > kMaxVlanId || table.Find(vlan) != nullptr) throw StatusError(ZEL_INVALID_METADATA);
    VlanRuntime &item = table.At(vlan, TimePoint{});
    item.first_used = time();
    item.last_used = time();
    item.frames_in = reader.Get<std::uint64_t>();
    item.frames_out = reader.Get<std::uint64_t>();
  }
  return table;
}

}  // namespace kestrel::host
