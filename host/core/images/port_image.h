/* Images of ports: docs/state-image.md. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/images/property_image.h"
#include "host/export.h"

namespace kestrel::host {

/** What of a port goes from place to place: not its name, nor who is plugged in. */
struct PortState {
  /** Empty for none. */
  std::string external_id;
  PropertyLayers properties;

  bool operator==(const PortState &) const = default;
};

/** The image of a port in the form of a version, without what is not replicated. Throws StatusError ZEL_BAD_PARAM for
   an unknown version, and as FrameImage does. */
KESTREL_HOST_EXPORT std::string ImageOfPort(const PortState &port, std::uint32_t version);

/** The port in an image of one, or the properties of an image of those. Throws as OpenImage does, StatusError
    ZEL_BAD_PARAM for an image of another kind, ZEL_INVALID_METADATA. Whether values fit their keys is not looked at:
   that depends on the switch. */
KESTREL_HOST_EXPORT PortState PortOfImage(std::string_view image);

}  // namespace kestrel::host
