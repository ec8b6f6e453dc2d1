#include "host/core/images/state_image.h"

#include <set>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/images/image_frame.h"
#include "host/core/images/property_image.h"
#include "host/core/properties/property_table.h"

namespace kestrel::host {
namespace {

// ---- Writing ----

void PutSpec(ByteWriter &writer, const SwitchSpec &spec) {
  for (const std::string &text : {spec.id, spec.portset, spec.alias, spec.class_name}) writer.PutText(text);
  writer.Put(spec.max_ports);
  writer.Put(spec.version);
  writer.Put(spec.vlans.first);
  writer.Put(spec.vlans.last);
  writer.Put(static_cast<std::uint8_t>(spec.is_member ? 1 : 0));
}

void PutPort(ByteWriter &writer, PortId id, const SwitchConfig &in_use, const SwitchConfig &saved) {
  const PropertyForm form{kNewestVersion};
  const Port &port = *in_use.ports().Find(id);
  const Uplink *uplink = in_use.uplinks().Find(id);
  ByteWriter payload;
  payload.Put(port.id);
  payload.PutText(port.name);
  payload.PutText(port.external_id);
  payload.PutText(uplink == nullptr ? std::string_view() : uplink->name);
  payload.PutText(port.client ? port.client->Save() : std::string());
  PutProperties(payload, PropertyLevel::kPort, port.properties, saved.PropertiesAt({PropertyLevel::kPort, id}), form);
  if (uplink != nullptr) {
    PutProperties(payload, PropertyLevel::kUplink, uplink->properties, saved.PropertiesAt({PropertyLevel::kUplink, id}),
                  form);
  }
  PutSection(writer, SectionKind::kPort, payload.Take());
}

void PutGroup(ByteWriter &writer, const Lag &group) {
  ByteWriter payload;
  payload.Put(group.id);
  payload.PutText(group.name);
  for (const std::string &member : group.members) payload.PutText(member);
  PutSection(writer, SectionKind::kGroup, payload.Take());
}

// ---- Reading ----

SwitchSpec GetSpec(ByteReader &reader) {
  SwitchSpec spec{};
  for (std::string *text : {&spec.id, &spec.portset, &spec.alias, &spec.class_name}) *text = reader.GetText();
  spec.max_ports = reader.Get<std::uint32_t>();
  spec.version = reader.Get<std::uint32_t>();
  spec.vlans.first = reader.Get<VlanId>();
  spec.vlans.last = reader.Get<VlanId>();
  const auto is_member = reader.Get<std::uint8_t>();
  if (is_member > 1) RefuseImage();
  spec.is_member = is_member != 0;
  return spec;
}

/** Reads the body of a switch section. */
class SwitchReader {
 public:
  SwitchReader(ByteReader reader, std::uint32_t version)
      : form_{version}, reader_(reader), state_(BothOf(GetSpec(reader_))) {
    if (state_.in_use.spec().version > version) RefuseImage();
  }

  SwitchState Read() {
    PropertySections properties(form_);
    SectionKind last{};
    while (reader_.left() > 0) {
      const Section section = GetSection(reader_);
      if (section.kind < last) RefuseImage();
      last = section.kind;
      switch (section.kind) {
        case SectionKind::kSwitch:
          RefuseImage();
        case SectionKind::kProperties:
          properties.Read(section.payload);
          break;
        case SectionKind::kPort:
          ReadPort(ByteReader(section.payload));
          break;
        case SectionKind::kGroup:
          ReadGroup(ByteReader(section.payload));
          break;
      }
    }
    SetProperties({PropertyLevel::kSwitch}, properties);
    SetProperties({PropertyLevel::kHost}, properties);
    properties.RequireAllTaken();
    return std::move(state_);
  }

 private:
  static SwitchState BothOf(SwitchSpec spec) {
    SwitchConfig config(std::move(spec));
    return {.in_use = config, .saved = config};
  }

  /** Makes a change of what the switch consists of. */
  template <typename Change>
  void ChangeBoth(Change change) {
    change(state_.in_use);
    change(state_.saved);
  }

  void SetProperties(PropertyPlace place, PropertySections &properties) {
    PropertyLayers layers = properties.Take(place.level);
    for (const PropertySet *set : {&layers.in_use, &layers.saved}) {
      for (const auto &[key, property] : set->Items()) {
        CheckKeptProperty(key, property.value, place.level, state_.in_use);
      }
    }
    state_.in_use.PropertiesAt(place) = std::move(layers.in_use);
    state_.saved.PropertiesAt(place) = std::move(layers.saved);
  }

  void ReadPort(ByteReader reader) {
    Port port{};
    port.id = reader.Get<std::uint32_t>();
    if (port.id < kFirstPortId || port.id > kLastKeptPortId || port.id <= last_port_) RefuseImage();
    last_port_ = port.id;
    port.name = reader.GetText();
    port.external_id = reader.GetText();
    CheckExternalId(port.external_id);
    const std::string uplink(reader.GetText());
    const std::string_view client = reader.GetText();

    const PortId id = port.id;
    if (uplink.empty()) {
      ChangeBoth([&](SwitchConfig &config) { config.AddPort(port); });
    } else {
      ChangeBoth([&](SwitchConfig &config) { config.AddUplink(uplink, port); });
    }
    if (!client.empty()) {
      const Client plugged = Client::Load(client);
      if (!IsStation(plugged.address)) RefuseImage();
      ChangeBoth([&](SwitchConfig &config) { config.Connect(id, plugged); });
    }

    PropertySections properties(form_);
    while (reader.left() > 0) {
      const Section section = GetSection(reader);
      if (section.kind != SectionKind::kProperties) RefuseImage();
      properties.Read(section.payload);
    }
    SetProperties({PropertyLevel::kPort, id}, properties);
    if (!uplink.empty()) SetProperties({PropertyLevel::kUplink, id}, properties);
    properties.RequireAllTaken();
  }

  void ReadGroup(ByteReader reader) {
    Lag group{};
    group.id = reader.Get<std::uint32_t>();
    if (!state_.in_use.lags().Items().empty() && group.id <= last_group_) RefuseImage();
    last_group_ = group.id;
    group.name = reader.GetText();
    while (reader.left() > 0) group.members.emplace_back(reader.GetText());
    ChangeBoth([&](SwitchConfig &config) { config.AddKeptLag(group); });
  }

  PropertyForm form_;
  ByteReader reader_;
  SwitchState state_;
  PortId last_port_ = 0;
  std::uint32_t last_group_ = 0;
};

/** What no two switches of a host have in common. */
class Uniqueness {
 public:
  void Add(const SwitchConfig &config) {
    const SwitchSpec &spec = config.spec();
    const bool is_new = ids_.insert(spec.id).second && names_.insert(spec.portset).second &&
                        (spec.alias == spec.portset || names_.insert(spec.alias).second);
    if (!is_new) RefuseImage();
    for (const Port &port : config.ports().Items()) {
      if (!ports_.insert(port.id).second) RefuseImage();
    }
    for (const Uplink &uplink : config.uplinks().Items()) {
      const std::string *nic = config.NicOf(uplink.id);
      if (nic != nullptr && !nics_.insert(*nic).second) RefuseImage();
    }
  }

 private:
  std::set<std::string> ids_, names_, nics_;
  std::set<PortId> ports_;
};

std::vector<SwitchState> ReadSwitches(const OpenedImage &image) {
  std::vector<SwitchState> switches;
  Uniqueness uniqueness;
  ByteReader reader(image.body);
  while (reader.left() > 0) {
    const Section section = GetSection(reader);
    if (section.kind != SectionKind::kSwitch) RefuseImage();
    switches.push_back(SwitchReader(ByteReader(section.payload), image.version).Read());
    uniqueness.Add(switches.back().in_use);
  }
  return switches;
}

}  // namespace

void StateImageWriter::Add(const SwitchConfig &in_use, const SwitchConfig &saved) {
  const PropertyForm form{kNewestVersion};
  ByteWriter payload;
  PutSpec(payload, in_use.spec());
  for (const PropertyLevel level : {PropertyLevel::kSwitch, PropertyLevel::kHost}) {
    PutProperties(payload, level, in_use.PropertiesAt({level}), saved.PropertiesAt({level}), form);
  }
  for (const Port &port : in_use.ports().Items()) PutPort(payload, port.id, in_use, saved);
  for (const Lag &group : in_use.lags().Items()) PutGroup(payload, group);
  PutSection(body_, SectionKind::kSwitch, payload.Take());
}

std::string StateImageWriter::Take() { return FrameImage(ImageKind::kState, kNewestVersion, body_.Take()); }

std::vector<SwitchState> StateOfImage(std::string_view image) {
  const OpenedImage opened = OpenImage(image);
  if (opened.kind != ImageKind::kState) throw StatusError(ZEL_BAD_PARAM);
  return OrInvalid([&] { return ReadSwitches(opened); });
}

}  // namespace kestrel::host
