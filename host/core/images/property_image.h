/* Properties in images: docs/state-image.md. */
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "host/core/base/bytes.h"
#include "host/core/images/image_frame.h"
#include "host/core/properties/property.h"
#include "host/export.h"

namespace kestrel::host {

/** The properties of something, as they are in use and as they are saved. */
struct PropertyLayers {
  PropertySet in_use;
  PropertySet saved;

  bool operator==(const PropertyLayers &) const = default;
};

/** The layers of properties that are in use and of which those that are of a saved type are saved. */
KESTREL_HOST_EXPORT PropertyLayers LayersOf(PropertySet in_use);

/** Which properties an image has. */
struct PropertyForm {
  /** Only those that this version knows. */
  std::uint32_t version;
  /** Only those that go where copies are kept. */
  bool is_replica = false;

  bool Has(std::string_view key, std::uint32_t type) const;
};

/** Writes the sections of one owner's properties. */
void PutProperties(ByteWriter &writer, PropertyLevel level, const PropertySet &in_use, const PropertySet &saved,
                   const PropertyForm &form);

/** Reads such sections, one after the other. Everything throws StatusError ZEL_INVALID_METADATA for what is no property
    of the form or not canonical; whether values fit their keys is left to the caller. */
class PropertySections {
 public:
  explicit PropertySections(PropertyForm form) : form_(form) {}

  void Read(std::string_view payload);
  /** What was read at a level, when everything is read. */
  PropertyLayers Take(PropertyLevel level);
  /** Throws when there was something at a level of which nothing was taken. */
  void RequireAllTaken() const;

 private:
  struct Raw {
    PropertySet in_use;
    PropertySet hidden;
  };

  PropertyForm form_;
  /** The level and the layer that the next section has at least. */
  std::pair<int, int> next_{0, 0};
  std::map<int, Raw> levels_;
};

/** The image of a collection of properties in the form of a version. Throws StatusError ZEL_BAD_PARAM for an unknown
    version, and as FrameImage does. */
KESTREL_HOST_EXPORT std::string ImageOfProperties(const PropertySet &properties, std::uint32_t version);

/** The properties in such an image. Throws StatusError ZEL_BAD_PARAM for an image of another kind, else
    ZEL_INVALID_METADATA. */
KESTREL_HOST_EXPORT PropertySet PropertiesOfImage(const OpenedImage &image);

}  // namespace kestrel::host
