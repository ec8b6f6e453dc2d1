// The tables of configurations, saved and running: switches, ports, aggregation groups and properties.
#include <algorithm>
#include <array>

#include "host/core/base/errors.h"
#include "host/core/storage/host_file_parts.h"
#include "kestrel/constants.h"

namespace kestrel::host {

namespace {

constexpr std::array<std::string_view, 4> kLevelNames{"switch", "host", "port", "uplink"};

std::string_view NameOf(PropertyLevel level) { return kLevelNames.at(static_cast<std::size_t>(level)); }

PropertyLevel LevelOf(std::string_view name) {
  const auto found = std::ranges::find(kLevelNames, name);
  if (found == kLevelNames.end()) throw StatusError(ZEL_INVALID_METADATA);
  return static_cast<PropertyLevel>(found - kLevelNames.begin());
}

/** The properties of an owner; null when it is gone. */
const PropertySet *FindProperties(const SwitchConfig &config, PropertyPlace place) {
  const bool is_gone = (place.level == PropertyLevel::kPort && config.ports().Find(place.port) == nullptr) ||
                       (place.level == PropertyLevel::kUplink && config.uplinks().Find(place.port) == nullptr);
  return is_gone ? nullptr : &config.PropertiesAt(place);
}

}  // namespace

void HostFileTables::WriteSpec(const SwitchSpec &spec, std::uint64_t number, Side side) {
  statements_->put_switch.Run(number, NameOf(side), spec.id, spec.portset, spec.alias, spec.class_name, spec.version,
                              spec.max_ports, spec.vlans.first, spec.vlans.last, spec.is_member ? 1 : 0);
}

void HostFileTables::WritePort(const SwitchConfig &config, const Port &port, std::uint64_t number, Side side) {
  const Uplink *uplink = config.uplinks().Find(port.id);
  // Null, where there is nothing, is another type than what there else is.
  const auto put = [&](const auto &uplink_name, const auto &...client) {
    statements_->put_port.Run(number, port.id, NameOf(side), port.name, port.external_id, uplink_name, client...);
  };
  const auto with_client = [&](const auto &uplink_name) {
    if (!port.client) return put(uplink_name, nullptr, nullptr, nullptr);
    const std::string state = port.client->Save();
    put(uplink_name, static_cast<int>(port.client->type), port.client->name, Blob{state});
  };
  if (uplink == nullptr) {
    with_client(nullptr);
  } else {
    with_client(uplink->name);
  }
}

void HostFileTables::WriteLag(const Lag &lag, std::uint64_t number, Side side) {
  statements_->put_lag.Run(number, lag.id, NameOf(side), lag.name);
  int place = 0;
  for (const std::string &member : lag.members) {
    statements_->put_member.Run(number, lag.id, NameOf(side), place++, member);
  }
}

void HostFileTables::WriteProperty(PropertyPlace place, std::string_view key, const Property &property,
                                   std::uint64_t number, Side side) {
  statements_->put_property.Run(number, kestrel::host::NameOf(place.level), place.port, key, NameOf(side),
                                property.type, Blob{property.value});
}

void HostFileTables::WriteProperties(const PropertySet &properties, PropertyPlace place, std::uint64_t number,
                                     Side side) {
  for (const auto &[key, property] : properties.Items()) WriteProperty(place, key, property, number, side);
}

void HostFileTables::RemoveConfig(std::uint64_t number, Side side) {
  for (Statement *remove : {&statements_->remove_switch, &statements_->remove_ports, &statements_->remove_lags,
                            &statements_->remove_all_members, &statements_->remove_all_properties}) {
    remove->Run(number, NameOf(side));
  }
}

void HostFileTables::WriteConfig(const SwitchConfig &config, std::uint64_t number, Side side) {
  RemoveConfig(number, side);
  WriteSpec(config.spec(), number, side);
  WriteProperties(config.PropertiesAt({PropertyLevel::kSwitch}), {PropertyLevel::kSwitch}, number, side);
  WriteProperties(config.PropertiesAt({PropertyLevel::kHost}), {PropertyLevel::kHost}, number, side);
  for (const Port &port : config.ports().Items()) {
    WritePort(config, port, number, side);
    WriteProperties(port.properties, {PropertyLevel::kPort, port.id}, number, side);
  }
  for (const Uplink &uplink : config.uplinks().Items()) {
    WriteProperties(uplink.properties, {PropertyLevel::kUplink, uplink.id}, number, side);
  }
  for (const Lag &lag : config.lags().Items()) WriteLag(lag, number, side);
}

void HostFileTables::WritePart(const SwitchConfig &config, const ConfigPart &part, std::uint64_t number, Side side) {
  switch (part.kind) {
    case ConfigPart::Kind::kSpec:
      return WriteSpec(config.spec(), number, side);
    case ConfigPart::Kind::kPort:
      if (const Port *port = config.ports().Find(part.id)) return WritePort(config, *port, number, side);
      return statements_->remove_port.Run(number, part.id, NameOf(side));
    case ConfigPart::Kind::kLag:
      statements_->remove_members.Run(number, part.id, NameOf(side));
      if (const Lag *lag = config.lags().Find(part.id)) return WriteLag(*lag, number, side);
      return statements_->remove_lag.Run(number, part.id, NameOf(side));
    case ConfigPart::Kind::kProperty: {
      const PropertySet *properties = FindProperties(config, part.place);
      const Property *property = properties == nullptr ? nullptr : properties->Find(part.key);
      if (property != nullptr) return WriteProperty(part.place, part.key, *property, number, side);
      return statements_->remove_property.Run(number, kestrel::host::NameOf(part.place.level), part.place.port,
                                              part.key, NameOf(side));
    }
    case ConfigPart::Kind::kProperties:
      statements_->remove_properties.Run(number, kestrel::host::NameOf(part.place.level), part.place.port,
                                         NameOf(side));
      if (const PropertySet *properties = FindProperties(config, part.place)) {
        WriteProperties(*properties, part.place, number, side);
      }
      return;
  }
}

void HostFileTables::ReadConfig(SwitchConfig &config, std::uint64_t number, Side side) {
  Statement &ports = statements_->get_ports;
  ports.Begin(number, NameOf(side));
  while (ports.Next()) {
    Port port{.id = ports.Get<PortId>(0), .name = ports.Text(1), .external_id = ports.Text(2)};
    const PortId id = port.id;
    if (ports.IsNull(3)) {
      config.AddPort(std::move(port));
    } else {
      config.AddUplink(ports.Text(3), std::move(port));
    }
    if (!ports.IsNull(4)) config.Connect(id, Client::Load(ports.Bytes(4)));
  }

  Statement &lags = statements_->get_lags;
  lags.Begin(number, NameOf(side));
  while (lags.Next()) {
    Lag lag{.id = lags.Get<std::uint32_t>(0), .name = lags.Text(1), .members = {}};
    Statement &members = statements_->get_members;
    members.Begin(number, lag.id, NameOf(side));
    while (members.Next()) lag.members.push_back(members.Text(0));
    config.AddKeptLag(std::move(lag));
  }

  Statement &properties = statements_->get_properties;
  properties.Begin(number, NameOf(side));
  while (properties.Next()) {
    const PropertyPlace place{LevelOf(properties.Bytes(0)), properties.Get<PortId>(1)};
    config.PutProperty(place,
                       PropertySet::Ready(properties.Bytes(2), {properties.Text(4), properties.Get<std::uint32_t>(3)}));
  }
}

}  // namespace kestrel::host
