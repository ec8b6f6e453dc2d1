/* libkestrel.so: runtime state of switches and ports, as the hypervisor kernel has it (VSZEL_*).

   Every function returns ZEL_OK or a failure of constants.def; when it fails nothing has changed. A `switchName` is a
   portset name or a switch alias, a `portName` a distributed-port id; ZEL_NOT_FOUND for one that is not there. A
   record handed out through a `tableOut` belongs to the caller, who gives it back with VSZEL_FreeMemory; on failure
   the cell is set to null. A `textOut` receives at most as many bytes as it has room for, zero-terminated where the
   text is shorter. */
#pragma once

#include "kestrel/option_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Switches ---- */

/** Lists the switches: portset names for VS_LIST_PS, aliases for VS_LIST_DVS_ALIAS. The list is one block from
    malloc. ZEL_BAD_PARAM for another kind or a null cell. */
ZEL_ReturnStatus VSZEL_GetSwitches(VSListType listType, VSList **listCell);

/** Fills `info` with a switch's MTU, VLAN range, port counts and names. */
ZEL_ReturnStatus VSZEL_GetVSInfo(const char *switchName, VSInfo *info);

/** Writes the id of the distributed switch of an alias, up to 64 bytes, to `switchId`. */
ZEL_ReturnStatus VSZEL_DVSAliasToSwitchId(const char *alias, char *switchId);

/** Reads anew which NUMA node each uplink's device is near to. */
ZEL_ReturnStatus VSZEL_RefreshDevNUMAInfo(const char *switchName);

/* ---- Teaming ---- */

/** The named teaming policies of a switch. */
ZEL_ReturnStatus VSZEL_GetLSTeamingPolicyTable(char *switchName, LSTeamTable **tableOut);

/** The name of the teaming policy that a port refers to. */
ZEL_ReturnStatus VSZEL_GetPortLSTeamingPolicyName(zel_SwitchPortID portID, char textOut[136]);

/** The uplink that the port's team sends its frames through at the moment. */
ZEL_ReturnStatus VSZEL_PortGetTeamUplinkHint(zel_SwitchPortID portID, zel_Name *uplink);

/** Teaming counters of the switch's service port. */
ZEL_ReturnStatus VSZEL_GetServicePortTeamingStats(const char *switchName, VSServicePortTeamingStats *stats);

/** What was announced by RARP after failovers. */
ZEL_ReturnStatus VSZEL_GetRARPStats(const char *switchName, VSRARPStats *stats);

/* ---- MAC addresses and learning ---- */

/** MAC learning of a switch as a whole. */
ZEL_ReturnStatus VSZEL_GetSwitchMACLearningInfo(const char *switchName, VSMACLearningSwitchInfo *info);

/** Security policies of all ports of a switch. */
ZEL_ReturnStatus VSZEL_GetL2Security(const char *switchName, VSL2Security **tableOut);

/** MAC-learning policies of all ports of a switch. */
ZEL_ReturnStatus VSZEL_GetMACLearningAllPorts(const char *switchName, VSMACLearningEntries **tableOut);

/** MAC-learning statistics of all ports of a switch. */
ZEL_ReturnStatus VSZEL_GetSwitchMACLearningStats(const char *switchName, VSMACLearningStats **tableOut);

/** MAC-learning statistics of one port. */
ZEL_ReturnStatus VSZEL_GetPortMACLearningStats(const char *switchName, const char *portName,
                                               VSPMACLearningStats *stats);

/** MAC-learning defaults of the host. */
ZEL_ReturnStatus VSZEL_GetGlobalMACLearningProps(VSMACLearningGlobalProps *props);

/** Sets the MAC-learning defaults of the host. ZEL_BAD_PARAM for an ageing time above VS_MAC_LEARNING_AGING_TIME_MAX.
 */
ZEL_ReturnStatus VSZEL_SetGlobalMACLearningProps(VSMACLearningGlobalProps *props);

/** The MAC table of a switch, entries of one kind or VS_MAC_ADDR_TYPE_ALL, ordered by VLAN and address. */
ZEL_ReturnStatus VSZEL_GetMACTable(const char *switchName, VSMACAddrType addrType, VSMACTable **tableOut);

/** The part of a switch's MAC table that was learned on its uplink team. */
ZEL_ReturnStatus VSZEL_GetTeamMACTable(const char *switchName, VSMACAddrType addrType, VSMACTable **tableOut);

/** The part of a switch's MAC table that belongs to one port. */
ZEL_ReturnStatus VSZEL_GetPortMACTable(const char *switchName, const char *portName, VSMACAddrType addrType,
                                       VSMACTable **tableOut);

/** Adds a user entry to a port's part of the MAC table. ZEL_LIMIT_EXCEEDED when the table is full. */
ZEL_ReturnStatus VSZEL_SetPortMACTable(const char *switchName, const char *portName, const VSMACEntry *entry);

/** Removes an entry from a port's part of the MAC table. */
ZEL_ReturnStatus VSZEL_ClearPortMACTable(const char *switchName, const char *portName, const VSMACEntry *entry);

/** The static forwarding entries of a switch with the VLANs they hold in. */
ZEL_ReturnStatus VSZEL_GetStaticLectx(const char *switchName, VSStaticLeCtxEntries **tableOut);

/** The static forwarding entries of one port. */
ZEL_ReturnStatus VSZEL_GetPortStaticLectx(const char *switchName, const char *portName,
                                          VSStaticLeCtxEntries **tableOut);

/* ---- Uplinks and link aggregation ---- */

/** The link aggregation groups of a switch, ordered by identifier. */
ZEL_ReturnStatus VSZEL_GetLAGTable(const char *switchName, VSLAGTable **tableOut);

/** The uplinks of a switch: the NIC behind each uplink port and the port's identifier. */
ZEL_ReturnStatus VSZEL_GetUplinks(const char *switchName, VSUplinks **tableOut);

/** The link state of one uplink, named by its NIC. */
ZEL_ReturnStatus VSZEL_GetUplinkLinkState(const char *switchName, const char *uplinkName, zel_LinkState *valueOut);

/** Whether LACP has taken an uplink into its group's service. */
ZEL_ReturnStatus VSZEL_GetUplinkLACPLinkState(const char *switchName, const char *uplinkName, zel_LinkState *valueOut);

/** Takes an uplink's link up or down by hand. */
ZEL_ReturnStatus VSZEL_SetUplinkAdminLinkState(const char *switchName, const char *uplinkName, zel_LinkState state);

/** The distributed-port id of an uplink, named by its NIC. */
ZEL_ReturnStatus VSZEL_GetUplinkDVPortID(const char *uplinkName, char textOut[48]);

/* ---- Multicast ---- */

/** The multicast filter mode in force on a switch. */
ZEL_ReturnStatus VSZEL_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut);

/** The multicast filters of a port: MAC entries in legacy mode, groups in IGMP or MLD mode. */
ZEL_ReturnStatus VSZEL_GetMcastFilters(const char *switchName, zel_SwitchPortID portID, VSMcastFilterMode mode,
                                       VSMcastFilters **tableOut);

/** The state of one multicast group on a port. `bytesIn` is the group's address: 4 bytes in IGMP mode, 16 in MLD
    mode. */
ZEL_ReturnStatus VSZEL_GetMcastFilterStats(const char *switchName, zel_SwitchPortID portID, VSMcastFilterMode mode,
                                           const void *bytesIn, VSMcastFilterStats **tableOut);

/* ---- Mirroring ---- */

/** The identifiers of a switch's mirror sessions. */
ZEL_ReturnStatus VSZEL_GetDVMirrorSessionIDs(const char *switchName, VSDVMirrorSessionIDs **tableOut);

/** Counters of one mirror session. */
ZEL_ReturnStatus VSZEL_GetDVMirrorSessionStats(const char *switchName, const char sessionId[32],
                                               VSDVMirrorSessionStats *stats);

/** The ports that receive promiscuous traffic at the moment. */
ZEL_ReturnStatus VSZEL_GetPromiscSessionActiveDsts(const char *switchName, VSPromiscSessionActiveDsts **tableOut);

/* ---- Runtime options and modules ---- */

/** The values of `count` runtime options, named by their type codes (VS_RT_OPT_*). ZEL_BAD_PARAM for an unknown
    code. */
ZEL_ReturnStatus VSZEL_GetRuntimeOptions(const zel_uint16 *types, zel_uint16 count, VSRuntimeOptions **tableOut);

/** Applies a list of runtime options, all or none. */
ZEL_ReturnStatus VSZEL_SetRuntimeOptions(VSRuntimeOptions *options);

/** Activates or deactivates the enhanced datapath on portsets. */
ZEL_ReturnStatus VSZEL_RTMOp(RTMIOCtlQuery *query, RTMIOCtlMode mode);

/** Activates or deactivates the enhanced datapath for modules of a portset. */
ZEL_ReturnStatus VSZEL_RTMModOp(RTMModIOCtlQuery *query, RTMIOCtlMode mode);

/** Associates a port with a world, or dissociates it. */
ZEL_ReturnStatus VSZEL_RTMPortOp(zel_WorldID worldID, zel_SwitchPortID portID, zel_Bool associate);

/* ---- Memory ---- */

/** Takes back a record that a function of this library handed out; null is accepted. */
ZEL_ReturnStatus VSZEL_FreeMemory(void *memory);

#ifdef __cplusplus
}
#endif
