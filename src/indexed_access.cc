#include "indexed_access.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "record_copy.hh"

namespace {

void report_bad_index() { std::fputs("Invalid array index.", stdout); }

/** Element `index` of a tail of `count` elements, the index compared as an unsigned number; reports and gives null
    outside. */
template <class Element>
Element *counted(Element *first, int index, std::uint32_t count) {
  const auto i = static_cast<std::uint32_t>(index);
  if (i < count) return first + i;
  report_bad_index();
  return nullptr;
}

/** Element `index` of an array of `Count`, the index compared as a signed number; only one above is reported. */
template <class Element, int Count>
Element *fixed(Element (&array)[Count], int index) {
  if (index >= Count) report_bad_index();
  return index >= 0 && index < Count ? &array[index] : nullptr;
}

template <std::size_t Width>
kestrel_Text text_of(const char (*name)[Width]) {
  return name ? kestrel_Text{*name, Width} : kestrel_Text{nullptr, 0};
}

template <std::size_t Width>
void store_text(char (*name)[Width], const char *text) {
  if (!name || !text) return;
  const std::size_t length = strnlen(text, Width);
  std::memcpy(*name, text, length);
  std::memset(*name + length, 0, Width - length);
}

kestrel_Text text_of(const zel_Name *name) { return name ? text_of(&name->string) : kestrel_Text{nullptr, 0}; }

void store_text(zel_Name *name, const char *text) {
  if (name) store_text(&name->string, text);
}

/** The name of uplink entry `index`, reported and null outside. */
zel_Name *uplink_name(VSUplinks *uplinks, int index) {
  VSUplinks_entries *entry = counted(uplinks->entries, index, uplinks->numEntries);
  return entry ? &entry->name : nullptr;
}

template <class Record>
void store_record(Record *slot, const Record *value) {
  if (slot && value) std::memmove(slot, value, sizeof(Record));
}

/** A copy of element `index` of the run that starts at `first`. */
template <class Record>
Record *element_of_run(const Record *first, int index) {
  return index < 0 ? nullptr : copy_of(first + index);
}

/** `n` elements, or null where that many bytes cannot be counted. */
template <class Record>
Record *make_array(std::size_t n) {
  std::size_t size = 0;
  if (__builtin_mul_overflow(n, sizeof(Record), &size)) return nullptr;
  return static_cast<Record *>(std::malloc(size));
}

}  // namespace

// ---- Members with a count ----

int VSUplinks___len__(VSUplinks *uplinks) { return static_cast<int>(uplinks->numEntries); }

int VSUplinkPorts___len__(VSUplinkPorts *ports) { return static_cast<int>(ports->nUplinkPorts); }

int VSUplinkPortIds___len__(VSUplinkPortIds *ids) { return static_cast<int>(ids->nUplinkPorts); }

kestrel_Text VSUplinks___getitem__(VSUplinks *uplinks, int index) { return text_of(uplink_name(uplinks, index)); }

void VSUplinks___setitem__(VSUplinks *uplinks, int index, const char *name) {
  store_text(uplink_name(uplinks, index), name);
}

kestrel_Text VSUplinkPorts___getitem__(VSUplinkPorts *ports, int index) {
  return text_of(counted(ports->uplinkPortName, index, ports->nUplinkPorts));
}

void VSUplinkPorts___setitem__(VSUplinkPorts *ports, int index, const char *name) {
  store_text(counted(ports->uplinkPortName, index, ports->nUplinkPorts), name);
}

kestrel_Text VSUplinkPortIds___getitem__(VSUplinkPortIds *ids, int index) {
  return text_of(counted(ids->uplinkPortId, index, ids->nUplinkPorts));
}

void VSUplinkPortIds___setitem__(VSUplinkPortIds *ids, int index, const char *name) {
  store_text(counted(ids->uplinkPortId, index, ids->nUplinkPorts), name);
}

kestrel_Text VSLAGStatus___getitem__(VSLAGStatus *status, int index) {
  return text_of(counted(status->uplinkNames, index, status->numUplinks));
}

void VSLAGStatus___setitem__(VSLAGStatus *status, int index, const char *name) {
  store_text(counted(status->uplinkNames, index, status->numUplinks), name);
}

kestrel_Text VSTeamPolicy___getitem__(VSTeamPolicy *policy, int index) {
  return text_of(fixed(policy->uplinkPortName, index));
}

void VSTeamPolicy___setitem__(VSTeamPolicy *policy, int index, const char *name) {
  store_text(fixed(policy->uplinkPortName, index), name);
}

kestrel_Text LSTeamPolicy___getitem__(LSTeamPolicy *policy, int index) {
  return text_of(fixed(policy->uplinkPortName, index));
}

void LSTeamPolicy___setitem__(LSTeamPolicy *policy, int index, const char *name) {
  store_text(fixed(policy->uplinkPortName, index), name);
}

kestrel_SessionId VSDVMirrorSessionIDs___getitem__(VSDVMirrorSessionIDs *ids, int index) {
  const auto *id = counted(ids->entries, index, ids->numEntries);
  return {id ? *id : nullptr};
}

zel_SwitchPortID VSPromiscSessionActiveDsts___getitem__(VSPromiscSessionActiveDsts *destinations, int index) {
  const auto i = static_cast<std::uint32_t>(index);
  if (i < destinations->numEntries) return destinations->entries[i];
  report_bad_index();
  return 0;
}

void VSPromiscSessionActiveDsts___setitem__(VSPromiscSessionActiveDsts *destinations, int index,
                                            zel_SwitchPortID portID) {
  const auto i = static_cast<std::uint32_t>(index);
  if (i < destinations->numEntries) {
    destinations->entries[i] = portID;
  } else {
    report_bad_index();
  }
}

LSTeamPolicy *LSTeamTable___getitem__(LSTeamTable *table, int index) {
  return counted(table->lsTeamPolicy, index, table->numLSTeam);
}

void LSTeamTable___setitem__(LSTeamTable *table, int index, const LSTeamPolicy *policy) {
  store_record(LSTeamTable___getitem__(table, index), policy);
}

DVMirrorSession *DVMirrorSessionTable___getitem__(DVMirrorSessionTable *table, int index) {
  return counted(table->sessions, index, table->numSessions);
}

void DVMirrorSessionTable___setitem__(DVMirrorSessionTable *table, int index, const DVMirrorSession *session) {
  store_record(DVMirrorSessionTable___getitem__(table, index), session);
}

RTM_Portset *RTMIOCtlQuery___getitem__(RTMIOCtlQuery *query, int index) {
  return counted(query->rtmPs, index, query->numPortsets);
}

void RTMIOCtlQuery___setitem__(RTMIOCtlQuery *query, int index, const RTM_Portset *portset) {
  store_record(RTMIOCtlQuery___getitem__(query, index), portset);
}

RTM_ModInfo *RTMModIOCtlQuery___getitem__(RTMModIOCtlQuery *query, int index) {
  return counted(query->rtmModId, index, query->numMod);
}

void RTMModIOCtlQuery___setitem__(RTMModIOCtlQuery *query, int index, const RTM_ModInfo *module) {
  store_record(RTMModIOCtlQuery___getitem__(query, index), module);
}

// ---- Runs of records ----

VSPvlanMapEntry *VSPvlanMapEntry___getitem__(VSPvlanMapEntry *entry, int index) { return element_of_run(entry, index); }

VSMACEntry *VSMACEntry___getitem__(VSMACEntry *entry, int index) { return element_of_run(entry, index); }

VSStaticLEEntry *VSStaticLEEntry___getitem__(VSStaticLEEntry *entry, int index) { return element_of_run(entry, index); }

VSPMACLearningStatsPortInfo *VSPMACLearningStatsPortInfo___getitem__(VSPMACLearningStatsPortInfo *info, int index) {
  return element_of_run(info, index);
}

VSPropSecurityPortInfo *VSPropSecurityPortInfo___getitem__(VSPropSecurityPortInfo *info, int index) {
  return element_of_run(info, index);
}

VSPMACLearningInfo *VSPMACLearningInfo___getitem__(VSPMACLearningInfo *info, int index) {
  return element_of_run(info, index);
}

// ---- Single elements ----

zel_uint64 VSStaticLEEntry_vlan_get_values(VSStaticLEEntry *entry, int index) {
  zel_uint64 word;
  std::memcpy(&word, reinterpret_cast<const char *>(entry) + std::ptrdiff_t{index} * 8, sizeof word);
  return word;
}

zel_VDSPortVIDRange *VSPortVlanPolicy_get_vid_range(VSPortVlanPolicy *policy, int index) {
  return copy_of(reinterpret_cast<const zel_VDSPortVIDRange *>(policy + 1) + index);
}

kestrel_Bytes VDSQuery_get_val_in_bytes(VDSQuery *query) { return {query->propValue, query->propLen}; }

// ---- Arrays of records ----

vidrangeArray *new_vidrangeArray(size_t n) { return make_array<zel_VDSPortVIDRange>(n); }

zel_VDSPortVIDRange vidrangeArray_getitem(vidrangeArray *array, size_t index) { return array[index]; }

void vidrangeArray_setitem(vidrangeArray *array, size_t index, zel_VDSPortVIDRange value) { array[index] = value; }

pvlanmapentryArray *new_pvlanmapentryArray(size_t n) { return make_array<VSPvlanMapEntry>(n); }

VSPvlanMapEntry pvlanmapentryArray_getitem(pvlanmapentryArray *array, size_t index) { return array[index]; }

void pvlanmapentryArray_setitem(pvlanmapentryArray *array, size_t index, VSPvlanMapEntry value) {
  array[index] = value;
}
