#include "host/core/nic.h"

#include "host/core/base/kept_values.h"

namespace kestrel::host {

template <Is<Nic> AnyNic, typename Visit>
void VisitMembers(AnyNic &nic, Visit visit) {
  visit(nic.link.state);
  visit(nic.link.speed);
  visit(nic.link.duplex);
  visit(nic.is_enabled);
  visit(nic.address);
  visit(nic.has_driver);
  visit(nic.error_percent);
  visit(nic.is_blocked);
  visit(nic.numa_node);
  visit(nic.partner.mode);
  visit(nic.partner.system_priority);
  visit(nic.partner.system);
  visit(nic.partner.key);
  visit(nic.partner.collects);
  visit(nic.partner.distributes);
  visit(nic.partner.short_timeout);
  visit(nic.hears_beacons);
}

std::string Nic::Save() const {
  ByteWriter writer;
  Put(writer, *this);
  return writer.Take();
}

Nic Nic::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  const Nic nic = Next<Nic>(reader);
  RequireSound(nic.partner.mode <= LacpMode::kActive);
  reader.RequireEnd();
  return nic;
}

}  // namespace kestrel::host
