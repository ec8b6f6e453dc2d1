/* Which properties the host knows: the level, the value record, the default and the check of each key. */
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/core/properties/property.h"
#include "host/core/switch_config.h"
#include "host/export.h"
#include "kestrel/runtime_records.h"

namespace kestrel::host {

/** Where a value is read or meant to be set. */
struct PropertyContext {
  const VSMACLearningGlobalProps &defaults;
  const SwitchConfig &config;
  /** Null but at the level of ports. */
  const Port *port;
  /** What the value refers to may be missing, as it may also go after the value was set. */
  bool may_dangle = false;
};

struct PropertyRow {
  std::string_view key;
  PropertyLevel level;
  /** Throws StatusError for a value that the key does not take; null for a key that cannot be set: its value is what
      the host made of itself. */
  void (*check)(std::string_view value, const PropertyContext &where);
  /** What is read while nothing is set; null where there is nothing to read then. */
  std::string (*fallback)(const PropertyContext &where);
  /** The version of distributed switches that brought it. */
  std::uint32_t since = DVS_VERSION_60;
};

/** All of them, in the order of their keys. */
KESTREL_HOST_EXPORT std::span<const PropertyRow> PropertyRows();

/** Whether a switch of that version knows a key; what the host does not know is left to the versions to come. */
KESTREL_HOST_EXPORT bool IsKnownIn(std::uint32_t version, std::string_view key);

/** Null for a key that the host does not know; it is kept as plain bytes, at any level. */
const PropertyRow *FindPropertyRow(std::string_view key);

/** Throws StatusError ZEL_INVALID_NAME for an empty key and one with a zero byte in it, ZEL_NAME_TOO_LONG for one
    longer than kMaxPropertyKey, ZEL_BAD_PARAM for a key that the host knows at another level. */
void CheckPropertyKey(std::string_view key, PropertyLevel level);

/** Checks a value that is to be set. Throws as CheckPropertyKey does, StatusError ZEL_LIMIT_EXCEEDED for a value longer
    than kMaxPropertyValue, ZEL_READ_ONLY for a key that cannot be set, and what the key's own check finds. */
KESTREL_HOST_EXPORT void CheckProperty(std::string_view key, std::string_view value, PropertyPlace place,
                                       const VSMACLearningGlobalProps &defaults, const SwitchConfig &config);

/** Checks a value that was set before, wherever it comes from: as CheckProperty does, but that what it refers to may
    have gone since. */
KESTREL_HOST_EXPORT void CheckKeptProperty(std::string_view key, std::string_view value, PropertyLevel level,
                                           const SwitchConfig &config);

/** Checks a value that comes with a port which is not among the ports of its switch yet: as CheckProperty does, but
   that what the value refers to may be missing. */
KESTREL_HOST_EXPORT void CheckArrivingProperty(std::string_view key, std::string_view value, const Port &port,
                                               const SwitchConfig &config);

/** Checks that a key can be cleared. Throws as CheckPropertyKey does, StatusError ZEL_READ_ONLY for a key that cannot
   be set, and for a key of a switch what its check finds in the default: ports build on what their switch has. */
void CheckClearing(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                   const SwitchConfig &config);

/** The value of a property: the one that is set, else the key's default. Throws as CheckPropertyKey does, and
    StatusError ZEL_NOT_FOUND when there is neither. */
std::string ReadProperty(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                         const SwitchConfig &config);
/** The same for a reader that does not see a set value for which `is_seen(property)` is false. */
std::string ReadProperty(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                         const SwitchConfig &config, bool (*is_seen)(const Property &));

}  // namespace kestrel::host
