#include "host/core/images/property_image.h"

#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/properties/property_table.h"
#include "host/core/properties/property_types.h"
#include "host/core/switch_config.h"

namespace kestrel::host {
namespace {

enum Layer : std::uint8_t { kInUse = 0, kHidden = 1 };

void PutProperty(ByteWriter &writer, const std::string &key, const Property &property) {
  writer.PutText(key);
  writer.Put(property.type);
  writer.PutText(property.value);
}

/** All that is left, by ascending key. */
PropertySet GetProperties(ByteReader &reader, const PropertyForm &form) {
  PropertySet properties;
  std::string_view last;
  while (reader.left() > 0) {
    const std::string_view key = reader.GetText();
    if (key <= last) RefuseImage();  // which no key is before the first one, being empty
    CheckName(key, kMaxPropertyKey + 1);
    const auto type = reader.Get<std::uint32_t>();
    const std::string_view value = reader.GetText();
    if (value.size() > kMaxPropertyValue || !IsPropertyType(type) || !form.Has(key, type)) RefuseImage();
    properties.Append(key, {std::string(value), type});
    last = key;
  }
  return properties;
}

void PutLayer(ByteWriter &writer, PropertyLevel level, Layer layer, std::string_view properties) {
  if (properties.empty()) return;
  ByteWriter payload;
  payload.Put(static_cast<std::uint8_t>(level));
  payload.Put(static_cast<std::uint8_t>(layer));
  payload.PutRaw(properties);
  PutSection(writer, SectionKind::kProperties, payload.Take());
}

bool IsHidden(std::string_view key, const PropertySet &in_use) {
  const Property *shown = in_use.Find(key);
  return shown == nullptr || !IsSaved(shown->type);
}

}  // namespace

PropertyLayers LayersOf(PropertySet in_use) {
  PropertyLayers layers;
  for (const auto &[key, property] : in_use.Items()) {
    if (IsSaved(property.type)) layers.saved.Append(key, property);
  }
  layers.in_use = std::move(in_use);
  return layers;
}

bool PropertyForm::Has(std::string_view key, std::uint32_t type) const {
  return IsKnownIn(version, key) && (!is_replica || IsReplicated(type));
}

void PutProperties(ByteWriter &writer, PropertyLevel level, const PropertySet &in_use, const PropertySet &saved,
                   const PropertyForm &form) {
  ByteWriter shown, hidden;
  for (const auto &[key, property] : in_use.Items()) {
    if (form.Has(key, property.type)) PutProperty(shown, key, property);
  }
  for (const auto &[key, property] : saved.Items()) {
    if (form.Has(key, property.type) && IsHidden(key, in_use)) PutProperty(hidden, key, property);
  }
  PutLayer(writer, level, kInUse, shown.Take());
  PutLayer(writer, level, kHidden, hidden.Take());
}

void PropertySections::Read(std::string_view payload) {
  ByteReader reader(payload);
  const int level = reader.Get<std::uint8_t>();
  const int layer = reader.Get<std::uint8_t>();
  if (std::pair(level, layer) < next_ || layer > kHidden || reader.left() == 0) RefuseImage();
  next_ = {level, layer + 1};
  Raw &raw = levels_[level];
  (layer == kInUse ? raw.in_use : raw.hidden) = GetProperties(reader, form_);
}

PropertyLayers PropertySections::Take(PropertyLevel level) {
  const auto found = levels_.find(static_cast<int>(level));
  if (found == levels_.end()) return {};
  const Raw raw = std::move(found->second);
  levels_.erase(found);
  PropertyLayers layers = LayersOf(raw.in_use);
  for (const auto &[key, property] : raw.hidden.Items()) {
    if (!IsSaved(property.type) || !IsHidden(key, layers.in_use)) RefuseImage();
    layers.saved.Put(PropertySet::Ready(key, property));
  }
  return layers;
}

void PropertySections::RequireAllTaken() const {
  if (!levels_.empty()) RefuseImage();
}

std::string ImageOfProperties(const PropertySet &properties, std::uint32_t version) {
  if (!IsPublishedVersion(version)) throw StatusError(ZEL_BAD_PARAM);
  ByteWriter body;
  for (const auto &[key, property] : properties.Items()) {
    if (PropertyForm{version}.Has(key, property.type)) PutProperty(body, key, property);
  }
  return FrameImage(ImageKind::kProperties, version, body.Take());
}

PropertySet PropertiesOfImage(const OpenedImage &image) {
  if (image.kind != ImageKind::kProperties) throw StatusError(ZEL_BAD_PARAM);
  ByteReader reader(image.body);
  return OrInvalid([&] { return GetProperties(reader, {image.version}); });
}

}  // namespace kestrel::host
