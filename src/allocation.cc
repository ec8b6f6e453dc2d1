#include "allocation.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/** `head + width * count` in 32-bit arithmetic that wraps. */
std::int32_t size_of(std::uint32_t head, std::uint32_t width, int count) {
  return static_cast<std::int32_t>(head + width * static_cast<std::uint32_t>(count));
}

/** A block of that size whose count field, at `count_offset`, holds `count`; null where it has no room for that. */
void *make_counted(std::uint32_t head, std::uint32_t width, int count, std::size_t count_offset) {
  const std::int32_t size = size_of(head, width, count);
  if (size < static_cast<std::int32_t>(count_offset + sizeof count)) return nullptr;
  void *block = std::malloc(static_cast<std::size_t>(size));
  if (block) std::memcpy(static_cast<char *>(block) + count_offset, &count, sizeof count);
  return block;
}

/** A zeroed record of `size` bytes, null where that is less than its head. */
template <class Record>
Record *make_zeroed(std::int32_t size) {
  if (size < static_cast<std::int32_t>(sizeof(Record))) return nullptr;
  return static_cast<Record *>(std::calloc(1, static_cast<std::size_t>(size)));
}

/** Tells on standard output that a block could not be had. */
void report(const char *text) { std::fputs(text, stdout); }

}  // namespace

VSInfo *alloc_vs_info() {
  auto *info = static_cast<VSInfo *>(std::malloc(sizeof(VSInfo)));
  if (!info) report("malloc failed for VSInfo");
  return info;
}

RTMIOCtlQuery *alloc_rtm_query(int count) {
  auto *query = make_zeroed<RTMIOCtlQuery>(size_of(sizeof(RTMIOCtlQuery), sizeof(RTM_Portset), count));
  if (query) {
    query->numPortsets = static_cast<zel_uint32>(count);
  } else {
    report("Calloc failed for RTMIOCtlQuery");
  }
  return query;
}

RTMModIOCtlQuery *alloc_rtm_mod_query(int count) {
  auto *query = make_zeroed<RTMModIOCtlQuery>(size_of(sizeof(RTMModIOCtlQuery), sizeof(RTM_ModInfo), count));
  if (query) {
    query->numMod = static_cast<zel_uint32>(count);
  } else {
    report("Calloc failed for RTMModIOCtlQuery");
  }
  return query;
}

VDSQuery *alloc_vds_query(int size) {
  auto *query = make_zeroed<VDSQuery>(sizeof(VDSQuery));
  if (!query) {
    report("Calloc failed for VDSQuery");
    return nullptr;
  }
  query->propLen = size;
  if (size >= 0) query->propValue = static_cast<char *>(std::calloc(1, static_cast<std::size_t>(size)));
  if (size > 0 && !query->propValue) {
    report("Calloc failed for property value");
    std::free(query);
    return nullptr;
  }
  return query;
}

LSTeamTable *alloc_ls_team_table(int count) {
  auto *table = make_zeroed<LSTeamTable>(size_of(sizeof(LSTeamTable), sizeof(LSTeamPolicy), count));
  if (table) table->numLSTeam = static_cast<zel_uint32>(count);
  return table;
}

DVMirrorSessionTable *alloc_dvmirror_session_table(int numSessions, int numEntities) {
  const auto sessions =
      static_cast<std::uint32_t>(size_of(sizeof(DVMirrorSessionTable), sizeof(DVMirrorSession), numSessions));
  auto *table = make_zeroed<DVMirrorSessionTable>(size_of(sessions, sizeof(DVMirrorEntity), numEntities));
  if (table) {
    table->magicNum = static_cast<zel_uint32>(VS_DVMIRROR_MAGIC_NUM);
    table->numSessions = static_cast<zel_uint32>(numSessions);
    table->numEntities = static_cast<zel_uint32>(numEntities);
  }
  return table;
}

void free_vs_info(VSInfo *info) { std::free(info); }

void free_rtm_query(RTMIOCtlQuery *query) { std::free(query); }

void free_rtm_mod_query(RTMModIOCtlQuery *query) { std::free(query); }

void free_vds_query(VDSQuery *query) {
  if (!query) return;
  std::free(query->propValue);
  std::free(query);
}

void free_ls_team_table(LSTeamTable *table) { std::free(table); }

void free_dvmirror_session_table(DVMirrorSessionTable *table) { std::free(table); }

VSUplinkPorts *new_VSUplinkPorts(int n) {
  return static_cast<VSUplinkPorts *>(
      make_counted(sizeof(VSUplinkPorts), sizeof VSUplinkPorts{}.uplinkPortName[0], n, 0));
}

VSUplinkPortIds *new_VSUplinkPortIds(int n) {
  return static_cast<VSUplinkPortIds *>(
      make_counted(sizeof(VSUplinkPortIds), sizeof VSUplinkPortIds{}.uplinkPortId[0], n, 0));
}

VSUplinks *new_VSUplinks(int n) {
  return static_cast<VSUplinks *>(
      make_counted(sizeof(VSUplinks), sizeof(zel_Name), n, offsetof(VSUplinks, numEntries)));
}

VSRuntimeOptions *new_VSRuntimeOptions(int size) {
  return static_cast<VSRuntimeOptions *>(make_counted(0, 1, size, 0));
}
