/* What the types of a property, *_PROP_TYPE, mean for it. */
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "host/export.h"
#include "kestrel/constants.h"

namespace kestrel::host {

struct PropertyTypeRow {
  /** One bit. */
  std::uint32_t type;
  /** As people read it. */
  std::string_view name;
  /** Is part of the saved configuration: it outlasts DVSLoadConfig and a restart. */
  bool is_saved;
  /** Goes with its port or switch to where copies are kept: into images of ports, and to an offload device. */
  bool is_replicated;
  /** Is taken over from an image that replaces the configuration, and yields to it. */
  bool is_synchronised;
  /** Is shown by walks, and by lists that do not ask for its type. */
  bool is_public;
};

/** In the order of their bits. A property of several types is what all of them let it be. */
KESTREL_HOST_EXPORT std::span<const PropertyTypeRow> PropertyTypeRows();

/** All types together. */
inline constexpr auto kAllPropertyTypes = static_cast<std::uint32_t>(ALL_PROP_TYPE);

/** Whether a mask is that of a property: at least one type, and no unknown one. */
KESTREL_HOST_EXPORT bool IsPropertyType(std::uint32_t type);

/** The type that a caller asks for: CONFIG_PROP_TYPE where none is named. Throws StatusError ZEL_BAD_PARAM for an
   unknown one. */
KESTREL_HOST_EXPORT std::uint32_t PropertyTypeOfRequest(std::uint32_t type);

KESTREL_HOST_EXPORT bool IsSaved(std::uint32_t type);
KESTREL_HOST_EXPORT bool IsReplicated(std::uint32_t type);
KESTREL_HOST_EXPORT bool IsSynchronised(std::uint32_t type);

/** Whether a property of some types is among those that a mask asks for: it has one of them, and what is not public is
    asked for by name. */
KESTREL_HOST_EXPORT bool IsListed(std::uint32_t type, std::uint32_t mask);

}  // namespace kestrel::host
