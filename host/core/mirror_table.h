/* Tables of mirror sessions, which travel packed into one block. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/property_table.h"
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
    identifier or name that is none, ZEL_EXISTS for an identifier that is there twice. */
KESTREL_HOST_EXPORT MirrorTable MirrorTableOf(std::string_view packed);

/** The table with a slot of its own for everything. Throws StatusError ZEL_LIMIT_EXCEEDED when its lists are too long
    for their counts. */
KESTREL_HOST_EXPORT std::string Pack(const MirrorTable &table);

/** Checks a packed table for a port or for the uplinks of a switch. Throws as MirrorTableOf does, and StatusError
    ZEL_EXISTS for a session identifier that is in use elsewhere on the switch. */
void CheckMirrorTable(std::string_view value, const PropertyContext &where);

std::string NoMirrorSessions(const PropertyContext &where);

/** The identifiers of the sessions of a switch, those of its uplinks first and then port by port. */
KESTREL_HOST_EXPORT std::vector<std::string> MirrorSessionsOf(const SwitchConfig &config);

}  // namespace kestrel::host
