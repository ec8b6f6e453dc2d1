#include "host/core/images/port_image.h"

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/images/image_frame.h"
#include "host/core/port.h"
#include "host/core/switch_config.h"

namespace kestrel::host {
namespace {

PropertyForm FormOf(std::uint32_t version) { return {.version = version, .is_replica = true}; }

PortState ReadPort(const OpenedImage &image) {
  ByteReader reader(image.body);
  PortState port;
  port.external_id = reader.GetText();
  CheckExternalId(port.external_id);
  PropertySections properties(FormOf(image.version));
  while (reader.left() > 0) {
    const Section section = GetSection(reader);
    if (section.kind != SectionKind::kProperties) RefuseImage();
    properties.Read(section.payload);
  }
  port.properties = properties.Take(PropertyLevel::kPort);
  properties.RequireAllTaken();
  return port;
}

}  // namespace

std::string ImageOfPort(const PortState &port, std::uint32_t version) {
  if (!IsPublishedVersion(version)) throw StatusError(ZEL_BAD_PARAM);
  ByteWriter body;
  body.PutText(port.external_id);
  PutProperties(body, PropertyLevel::kPort, port.properties.in_use, port.properties.saved, FormOf(version));
  return FrameImage(ImageKind::kPort, version, body.Take());
}

PortState PortOfImage(std::string_view image) {
  const OpenedImage opened = OpenImage(image);
  if (opened.kind == ImageKind::kProperties)
    return {.external_id = {}, .properties = LayersOf(PropertiesOfImage(opened))};
  if (opened.kind != ImageKind::kPort) throw StatusError(ZEL_BAD_PARAM);
  return OrInvalid([&] { return ReadPort(opened); });
}

}  // namespace kestrel::host
