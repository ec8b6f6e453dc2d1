#include "host/core/nic.h"

#include "host/core/bytes.h"
#include "host/core/team_bytes.h"

namespace kestrel::host {

std::string Nic::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint32_t>(link.state));
  writer.Put(link.speed);
  writer.Put(static_cast<std::uint32_t>(link.duplex));
  Put(writer, is_enabled);
  Put(writer, address);
  Put(writer, has_driver);
  writer.Put(error_percent);
  Put(writer, is_blocked);
  writer.Put(numa_node);
  writer.Put(static_cast<std::uint8_t>(partner.mode));
  writer.Put(partner.system_priority);
  Put(writer, partner.system);
  writer.Put(partner.key);
  Put(writer, partner.collects);
  Put(writer, partner.distributes);
  Put(writer, partner.short_timeout);
  Put(writer, hears_beacons);
  return writer.Take();
}

Nic Nic::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  Nic nic;
  nic.link.state = static_cast<zel_LinkState>(reader.Get<std::uint32_t>());
  nic.link.speed = reader.Get<std::uint32_t>();
  nic.link.duplex = static_cast<zel_LinkDuplex>(reader.Get<std::uint32_t>());
  nic.is_enabled = GetFlag(reader);
  nic.address = GetAddress(reader);
  nic.has_driver = GetFlag(reader);
  nic.error_percent = reader.Get<std::uint8_t>();
  nic.is_blocked = GetFlag(reader);
  nic.numa_node = reader.Get<std::uint32_t>();
  const auto mode = reader.Get<std::uint8_t>();
  if (mode > static_cast<std::uint8_t>(LacpMode::kActive)) throw StatusError(ZEL_INVALID_METADATA);
  nic.partner.mode = static_cast<LacpMode>(mode);
  nic.partner.system_priority = reader.Get<std::uint16_t>();
  nic.partner.system = GetAddress(reader);
  nic.partner.key = reader.Get<std::uint16_t>();
  nic.partner.collects = GetFlag(reader);
  nic.partner.distributes = GetFlag(reader);
  nic.partner.short_timeout = GetFlag(reader);
  nic.hears_beacons = GetFlag(reader);
  reader.RequireEnd();
  return nic;
}

}  // namespace kestrel::host
