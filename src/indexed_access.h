/* Indexed access to variable-length members, to arrays of names and to runs of records. */
#pragma once

#include "kestrel/mirror_records.h"
#include "kestrel/option_records.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"
#include "results.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Members with a count. The index is compared as an unsigned number, so a negative one is always outside.
   Outside, "Invalid array index." goes to standard output, without a newline; nothing is read or written. A name is
   stored with zeros behind it and without a terminator where it fills its width; null stores nothing. ---- */

/** Counts, as signed numbers. */
int VSUplinks___len__(VSUplinks *uplinks);
int VSUplinkPorts___len__(VSUplinkPorts *ports);
int VSUplinkPortIds___len__(VSUplinkPortIds *ids);

/** Names: 32 bytes at the start of each 36-byte entry, 81, 48 and 32 bytes. */
kestrel_Text VSUplinks___getitem__(VSUplinks *uplinks, int index);
void VSUplinks___setitem__(VSUplinks *uplinks, int index, const char *name);
kestrel_Text VSUplinkPorts___getitem__(VSUplinkPorts *ports, int index);
void VSUplinkPorts___setitem__(VSUplinkPorts *ports, int index, const char *name);
kestrel_Text VSUplinkPortIds___getitem__(VSUplinkPortIds *ids, int index);
void VSUplinkPortIds___setitem__(VSUplinkPortIds *ids, int index, const char *name);
kestrel_Text VSLAGStatus___getitem__(VSLAGStatus *status, int index);
void VSLAGStatus___setitem__(VSLAGStatus *status, int index, const char *name);

/** Names of 81 bytes in an array of 32. Only an index above 31 is reported; a negative one has no element either. */
kestrel_Text VSTeamPolicy___getitem__(VSTeamPolicy *policy, int index);
void VSTeamPolicy___setitem__(VSTeamPolicy *policy, int index, const char *name);
kestrel_Text LSTeamPolicy___getitem__(LSTeamPolicy *policy, int index);
void LSTeamPolicy___setitem__(LSTeamPolicy *policy, int index, const char *name);

/** Session identifiers, always all 32 bytes; null outside. */
kestrel_SessionId VSDVMirrorSessionIDs___getitem__(VSDVMirrorSessionIDs *ids, int index);

/** Port identifiers; 0 outside. */
zel_SwitchPortID VSPromiscSessionActiveDsts___getitem__(VSPromiscSessionActiveDsts *destinations, int index);
void VSPromiscSessionActiveDsts___setitem__(VSPromiscSessionActiveDsts *destinations, int index,
                                            zel_SwitchPortID portID);

/** Records in place, null outside; storing copies the whole record, and null stores nothing. */
LSTeamPolicy *LSTeamTable___getitem__(LSTeamTable *table, int index);
void LSTeamTable___setitem__(LSTeamTable *table, int index, const LSTeamPolicy *policy);
DVMirrorSession *DVMirrorSessionTable___getitem__(DVMirrorSessionTable *table, int index);
void DVMirrorSessionTable___setitem__(DVMirrorSessionTable *table, int index, const DVMirrorSession *session);
RTM_Portset *RTMIOCtlQuery___getitem__(RTMIOCtlQuery *query, int index);
void RTMIOCtlQuery___setitem__(RTMIOCtlQuery *query, int index, const RTM_Portset *portset);
RTM_ModInfo *RTMModIOCtlQuery___getitem__(RTMModIOCtlQuery *query, int index);
void RTMModIOCtlQuery___setitem__(RTMModIOCtlQuery *query, int index, const RTM_ModInfo *module);

/* ---- Runs of records, as the platform returns them; no upper bound. ---- */

/** Record number `index` of the run that starts with this one, as a copy for the caller to own; null for a negative
    index and when there is no memory. Otherwise the index is not checked. */
VSPvlanMapEntry *VSPvlanMapEntry___getitem__(VSPvlanMapEntry *entry, int index);
VSMACEntry *VSMACEntry___getitem__(VSMACEntry *entry, int index);
VSStaticLEEntry *VSStaticLEEntry___getitem__(VSStaticLEEntry *entry, int index);
VSPMACLearningStatsPortInfo *VSPMACLearningStatsPortInfo___getitem__(VSPMACLearningStatsPortInfo *info, int index);
VSPropSecurityPortInfo *VSPropSecurityPortInfo___getitem__(VSPropSecurityPortInfo *info, int index);
VSPMACLearningInfo *VSPMACLearningInfo___getitem__(VSPMACLearningInfo *info, int index);

/* ---- Single elements; the index is the caller's business. ---- */

/** Word number `index` of the entry's VLAN bitmap; the index is not checked. */
zel_uint64 VSStaticLEEntry_vlan_get_values(VSStaticLEEntry *entry, int index);
/** A copy, for the caller to own, of VLAN range number `index`; the index is not checked. */
zel_VDSPortVIDRange *VSPortVlanPolicy_get_vid_range(VSPortVlanPolicy *policy, int index);
/** The query's value: `propLen` bytes. */
kestrel_Bytes VDSQuery_get_val_in_bytes(VDSQuery *query);

/* ---- Arrays of records without a bound ---- */

typedef zel_VDSPortVIDRange vidrangeArray;
typedef VSPvlanMapEntry pvlanmapentryArray;

/** `n` uninitialised elements from malloc; null when there is no memory. */
vidrangeArray *new_vidrangeArray(size_t n);
/** A copy of an element; the index is not checked. */
zel_VDSPortVIDRange vidrangeArray_getitem(vidrangeArray *array, size_t index);
/** Replaces an element; the index is not checked. */
void vidrangeArray_setitem(vidrangeArray *array, size_t index, zel_VDSPortVIDRange value);

/** `n` uninitialised elements from malloc; null when there is no memory. */
pvlanmapentryArray *new_pvlanmapentryArray(size_t n);
/** A copy of an element; the index is not checked. */
VSPvlanMapEntry pvlanmapentryArray_getitem(pvlanmapentryArray *array, size_t index);
/** Replaces an element; the index is not checked. */
void pvlanmapentryArray_setitem(pvlanmapentryArray *array, size_t index, VSPvlanMapEntry value);

#ifdef __cplusplus
}
#endif
