/* The mirror sessions of ports. */
#include <utility>

#include "host/abi/property_access.h"
#include "host/core/mirroring/mirror_table.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

/** The table that a caller handed in, as long as its counts say. */
std::string_view BytesOfTable(const DVMirrorSessionTable *table) {
  RequirePointer(table);
  if (table->magicNum != static_cast<zel_uint32>(VS_DVMIRROR_MAGIC_NUM)) throw StatusError(ZEL_INVALID_METADATA);
  const std::uint64_t size = SizeOfMirrorTable(*table);
  if (size > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  return {reinterpret_cast<const char *>(table), size};
}

/** Sets what is left of a table; none at all is the default. */
void SetSessions(const PortProperty &where, const MirrorTable &table) {
  if (table.sessions.empty()) {
    ChangeHost().ClearProperty(where.Owner(), where.key, Persistence::kSaved);
  } else {
    SetValue(where, Pack(table));
  }
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetDVMirrorSessions(const char *switchName, const char *portName,
                                                               DVMirrorSessionTable *table) {
  return ChangeCall([&] {
    SetValue(PortProperty{switchName, portName, VSPROP_PORT_MIRROR_SESSIONS}, std::string(BytesOfTable(table)));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_AppendDVMirrorSessions(const char *switchName, const char *portName,
                                                                  DVMirrorSessionTable *table) {
  return ChangeCall([&] {
    const PortProperty where{switchName, portName, VSPROP_PORT_MIRROR_SESSIONS};
    MirrorTable added = MirrorTableOf(BytesOfTable(table));
    MirrorTable sessions = MirrorTableOf(ValueOf(where));
    sessions.version = std::max(sessions.version, added.version);
    for (MirrorSession &session : added.sessions) {
      if (sessions.Find(session.id()) != nullptr) throw StatusError(ZEL_EXISTS);
      sessions.sessions.push_back(std::move(session));
    }
    SetValue(where, Pack(sessions));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetDVMirrorSessions(const char *switchName, const char *portName,
                                                               DVMirrorSessionTable **tableOut) {
  return GetBlock(PortProperty{switchName, portName, VSPROP_PORT_MIRROR_SESSIONS}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_RemoveDVMirrorSession(const char *switchName, const char *portName,
                                                                 const char sessionId[32]) {
  return ChangeCall([&] {
    const PortProperty where{switchName, portName, VSPROP_PORT_MIRROR_SESSIONS};
    const auto id = NameArgument(sessionId, sizeof(DVMirrorSession::sid));
    MirrorTable sessions = MirrorTableOf(ValueOf(where));
    const auto is_meant = [id](const MirrorSession &session) { return session.id() == id; };
    if (std::erase_if(sessions.sessions, is_meant) == 0) throw StatusError(ZEL_NOT_FOUND);
    SetSessions(where, sessions);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearDVMirrorSessions(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_MIRROR_SESSIONS});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetDVMirrorSessionIDs(const char *switchName,
                                                                 VSDVMirrorSessionIDs **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const auto ids = MirrorSessionsOf(ReadHost().FindSwitch(SwitchName(switchName)).config);
    const auto count = static_cast<zel_uint32>(ids.size());
    RecordBlock block(sizeof(VSDVMirrorSessionIDs) + count * sizeof(DVMirrorSession::sid));
    block.Append(VSDVMirrorSessionIDs{.totalEntries = count, .numEntries = count, .entries = {}});
    for (const std::string &id : ids) block.AppendText(id, sizeof(DVMirrorSession::sid));
    SetOutput(tableOut, block.Release<VSDVMirrorSessionIDs>());
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetDVMirrorSessionStats(const char *switchName, const char sessionId[32],
                                                                   VSDVMirrorSessionStats *stats) {
  return ReadCall([&] {
    ClearOutputs(stats);
    const Switch &owner = ReadHost().FindSwitch(SwitchName(switchName));
    const auto id = NameArgument(sessionId, sizeof(DVMirrorSession::sid));
    const DVMirrorSession session = MirrorSessionNamed(owner.config, id);
    VSDVMirrorSessionStats record{};
    if (const MirrorProgress *progress = owner.runtime.mirrors.Find(id)) {
      record.mirrorPktCnt = progress->counters.copies;
      record.mirrorPktFailCnt = progress->counters.failed_copies;
      record.mirroredPkts = progress->counters.mirrored;
      record.discardedPkts = progress->counters.discarded;
      record.failedPkts = progress->counters.failed;
    }
    SetText(record.name, TextOf(session.dname));
    SetOutput(stats, record);
  });
}
