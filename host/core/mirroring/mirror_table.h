/* Tables of mirror sessions, which travel packed into one block. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/properties/property_table.h"
#include "host/export.h"
#include "kestrel/mirror_records.h"

namespace kestrel::host {

struct MirrorRule {
  DVMirrorFilterRule head;
  /** Sources, then destinations. */
  std::vector<DVMirrorIpPrefix> prefixes;
};

struct KESTREL_HOST_EXPORT MirrorSession {
  DVMirrorSession head;
  /** Destinations, then sources of both directions. */
  std::vector<DVMirrorEntity> entities;
  std::vector<MirrorRule> rules;

  std::string_view id() const;
};

/** A table taken apart: what the slots of its lists were good for stands where it belongs. */
struct KESTREL_HOST_EXPORT MirrorTable {
  DVMirrorVersion version = VS_DVMIRROR_VERSION_V4;
  std::vector<MirrorSession> sessions;

  const MirrorSession *Find(std::string_view id) const;
};

/** The length in bytes that a packed table has by its counts. */
KESTREL_HOST_EXPORT std::uint64_t SizeOfMirrorTable(const DVMirrorSessionTable &head);

/** Takes a packed table apart and checks it on the way. Throws StatusError ZEL_INVALID_METADATA without the magic
    number, ZEL_VERSION_MISMATCH_MAJOR for an unknown version, ZEL_BAD_PARAM for a length that is not that of the
    counts, a slot outside of its list or a value out of its range, ZEL_INVALID_NAME and ZEL_NAME_TOO_LONG for a session
    identifier or name that is none, ZEL_EXISTS for an identifier that is there twice, ZEL_LIMIT_EXCEEDED for one that
    would be longer than kMaxPropertyValue if its parts shared no slots. */
KESTREL_HOST_EXPORT MirrorTable MirrorTableOf(std::string_view packed);

/** The table with a slot of its own for everything. Throws StatusError ZEL_LIMIT_EXCEEDED when its lists are too long
    for their counts. */
KESTREL_HOST_EXPORT std::string Pack(const MirrorTable &table);

/** Checks a packed table for a port or for the uplinks of a switch. Throws as MirrorTableOf does, and StatusError
    ZEL_EXISTS for a session identifier that is in use elsewhere on the switch. */
void CheckMirrorTable(std::string_view value, const PropertyContext &where);

std::string NoMirrorSessions(const PropertyContext &where);

/** Calls `visit(packed table, port or null)` for each table that a switch has: that of its uplinks, then port by port.
 */
template <typename Visit>
void ForEachMirrorTable(const SwitchConfig &config, Visit visit) {
  if (const Property *table = config.properties().Find(VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS)) {
    visit(std::string_view(table->value), static_cast<const Port *>(nullptr));
  }
  for (const Port &port : config.ports().Items()) {
    if (const Property *table = port.properties.Find(VSPROP_PORT_MIRROR_SESSIONS)) {
      visit(std::string_view(table->value), &port);
    }
  }
}

/** The identifiers of the sessions of a switch, those of its uplinks first and then port by port. */
KESTREL_HOST_EXPORT std::vector<std::string> MirrorSessionsOf(const SwitchConfig &config);

/** The session of that identifier among those of a switch. Throws StatusError ZEL_NOT_FOUND. */
KESTREL_HOST_EXPORT DVMirrorSession MirrorSessionNamed(const SwitchConfig &config, std::string_view id);

/** Whether a switch has a session of that identifier, without taking memory to find out. */
bool HasMirrorSession(const SwitchConfig &config, std::string_view id) noexcept;

}  // namespace kestrel::host
