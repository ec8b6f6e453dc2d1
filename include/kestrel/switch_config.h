/* libkestrel.so: configuration of switches, ports and uplinks (VSDVS_*).

   Every function returns ZEL_OK or a failure of constants.def; when it fails nothing has changed. Names are as in
   runtime_queries.h, and ZEL_NOT_FOUND tells one that is not there. A record handed out through a `tableOut` belongs
   to the caller, who gives it back with VSDVS_FreeMemory. Setting functions are saved in the state store; clearing
   ones bring the default back and give ZEL_NOT_FOUND when there was nothing to clear. */
#pragma once

#include "kestrel/mirror_records.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Switches ---- */

/** Creates a switch with an alias, an id and a class name. `numPorts` is how many ports it is going to have: it is
    held against `maxPorts`, and no port is made. `createShadow` asks for a switch that takes no traffic yet.
    ZEL_EXISTS for a name in use, ZEL_BAD_PARAM for a number out of its range. */
ZEL_ReturnStatus VSDVS_CreateVSwitch(const char *alias, const char *switchId, const char *className,
                                     zel_uint32 numPorts, zel_Bool createShadow, zel_uint32 maxPorts, zel_uint32 mtu,
                                     zel_uint32 version);

/** Destroys a switch. ZEL_BUSY while clients are connected to its ports. */
ZEL_ReturnStatus VSDVS_DestroyVSwitch(const char *switchName);

/** Sets the MTU in bytes, 1280 to 9000. ZEL_BAD_PARAM outside. */
ZEL_ReturnStatus VSDVS_SetMTU(const char *switchName, zel_uint32 mtu);

/** Reads the MTU into the caller's cell. */
ZEL_ReturnStatus VSDVS_GetMTU(const char *switchName, zel_uint32 *mtu);

/** Sets the instruction set of the receive filters. */
ZEL_ReturnStatus VSDVS_SetRCFType(const char *switchName, trv_RCFInsnType type);

/** Reads what VSDVS_SetRCFType set, or the default. */
ZEL_ReturnStatus VSDVS_GetRCFType(const char *switchName, trv_RCFInsnType *valueOut);

/** The alias of the switch behind a portset. */
ZEL_ReturnStatus VSDVS_GetAliasFromPortset(const char *portsetName, char textOut[128]);

/* ---- Ports ---- */

/** Adds a distributed port with a connection identifier. ZEL_EXISTS for a port that is there already. */
ZEL_ReturnStatus VSDVS_AddDVPort(const char *switchName, const char *portName, zel_uint32 connectId);

/** Adds a distributed port that another controller manages, with that controller's id for it. */
ZEL_ReturnStatus VSDVS_AddOpaqueDVPort(const char *switchName, const char *portName, const char *externalId);

/** Removes a distributed port. ZEL_BUSY while a client is connected to it. */
ZEL_ReturnStatus VSDVS_RemoveDVPort(const char *switchName, const char *portName);

/** The switch port identifier of a distributed port. */
ZEL_ReturnStatus VSDVS_DvPortIDToPortID(const char *switchName, const char *portName, zel_SwitchPortID *valueOut);

/** The same, by the id of the distributed switch. */
ZEL_ReturnStatus VSDVS_DvPortIDToPortIDFromDVSID(const char *switchId, const char *portName,
                                                 zel_SwitchPortID *valueOut);

/* ---- Uplink ports ---- */

/** Adds an uplink port to a switch. */
ZEL_ReturnStatus VSDVS_AddSwitchUplinkPort(const char *switchName, const char *uplinkName);

/** Removes an uplink port. ZEL_BUSY while a NIC is plugged in. */
ZEL_ReturnStatus VSDVS_RemoveSwitchUplinkPort(const char *switchName, const char *uplinkName);

/** Removes all uplink ports. */
ZEL_ReturnStatus VSDVS_ClearSwitchUplinkPorts(const char *switchName);

/** Replaces the uplink ports by these names and, entry by entry, these distributed-port ids. */
ZEL_ReturnStatus VSDVS_SetSwitchUplinkPorts(const char *switchName, const VSUplinkPorts *ports,
                                            const VSUplinkPortIds *portIds);

/** The uplink ports of a switch and their distributed-port ids. */
ZEL_ReturnStatus VSDVS_GetSwitchUplinkPorts(const char *switchName, VSUplinkPorts **tableOut,
                                            VSUplinkPortIds **secondTableOut);

/* ---- VLANs ---- */

/** Sets the VLAN policy of a port.

    `mode` is 0 for an access port in `vlanID` (0: untagged), VSPORT_VLAN_GUEST_TAGGING for a trunk that carries
    the `numRanges` ranges, VSPORT_VLAN_PVLAN_ENABLED for a private VLAN port in the secondary VLAN `vlanID`.
    `setPriority` lets the port's own priority replace that of its frames. A `runtimeOnly` policy is not written to
    the state store. ZEL_BAD_VLANID for an identifier above 4094 or a range that is empty or overlaps another,
    ZEL_BAD_PARAM for an unknown mode, for a trunk without ranges and for ranges on a port that is no trunk. */
ZEL_ReturnStatus VSDVS_SetPortVLANPolicy(const char *switchName, const char *portName, zel_uint16 vlanID, int mode,
                                         zel_Bool setPriority, zel_Bool runtimeOnly, zel_VDSPortVIDRange *ranges,
                                         zel_uint16 numRanges);

/** The VLAN policy of a port and the length of that record in bytes. A port without one reads as access port 0. */
ZEL_ReturnStatus VSDVS_GetPortVLANPolicy(const char *switchName, const char *portName, VSPortVlanPolicy **tableOut,
                                         int *valueOut);

/** Takes a port's VLAN policy away. */
ZEL_ReturnStatus VSDVS_ClearPortVLANPolicy(const char *switchName, const char *portName);

/** Sets the private VLAN map of a switch: `count` pairs of primary and secondary VLAN. */
ZEL_ReturnStatus VSDVS_SetPrivateVLANMap(const char *switchName, const VSPvlanMapEntry *map, int count);

/** The private VLAN map of a switch and its number of pairs. Scripts see the map under the type of an uplink port
    list. */
ZEL_ReturnStatus VSDVS_GetPrivateVLANMap(const char *switchName, VSPvlanMapEntry **mapOut, int *valueOut);

/** Whether a port's client may tag frames inside the port's VLAN. */
ZEL_ReturnStatus VSDVS_SetPortNestedVLANTagging(const char *switchName, const char *portName, zel_Bool allowed);

/** Reads what VSDVS_SetPortNestedVLANTagging set, or the default. */
ZEL_ReturnStatus VSDVS_GetPortNestedVLANTagging(const char *switchName, const char *portName, zel_Bool *flagOut);

/* ---- Security ---- */

/** Sets a port's security policy. */
ZEL_ReturnStatus VSDVS_SetPortSecurity(const char *switchName, const char *portName, const VSPropSecurity *policy);

/** Reads what VSDVS_SetPortSecurity set, or the default. */
ZEL_ReturnStatus VSDVS_GetPortSecurity(const char *switchName, const char *portName, VSPropSecurity *policy);

/** Turns a port's sink mode on or off: a sink port receives what no other port wants. */
ZEL_ReturnStatus VSDVS_ConfigureSinkPort(const char *switchName, const char *portName, zel_Bool enabled);

/** Reads what VSDVS_ConfigureSinkPort set, or the default. */
ZEL_ReturnStatus VSDVS_IsSinkPortEnabled(const char *switchName, const char *portName, zel_Bool *flagOut);

/* ---- MAC learning ---- */

/** Sets a switch's ageing time and table limit. ZEL_BAD_PARAM for an ageing time of 0 or above
    VS_MAC_LEARNING_AGING_TIME_MAX. */
ZEL_ReturnStatus VSDVS_SetMACLearning(const char *switchName, const VSPropMACLearning *policy);

/** Reads what VSDVS_SetMACLearning set, or the default. */
ZEL_ReturnStatus VSDVS_GetMACLearning(const char *switchName, VSPropMACLearning *policy);

/** Brings the host's defaults back. */
ZEL_ReturnStatus VSDVS_ClearMACLearning(const char *switchName);

/** Sets a port's MAC learning. */
ZEL_ReturnStatus VSDVS_SetPortMACLearning(const char *switchName, const char *portName, const VSPMACLearning *policy);

/** Reads what VSDVS_SetPortMACLearning set, or the default. */
ZEL_ReturnStatus VSDVS_GetPortMACLearning(const char *switchName, const char *portName, VSPMACLearning *policy);

/** Whether a port may learn an address that is static on another. */
ZEL_ReturnStatus VSDVS_SetStaticMACAllow(const char *switchName, zel_Bool allowed);

/** Reads what VSDVS_SetStaticMACAllow set, or the default. */
ZEL_ReturnStatus VSDVS_GetStaticMACAllow(const char *switchName, zel_Bool *flagOut);

/** Brings the host's default back. */
ZEL_ReturnStatus VSDVS_ClearStaticMACAllow(const char *switchName);

/** Whether addresses of virtual machines, known without learning, are learned on uplinks too. */
ZEL_ReturnStatus VSDVS_SetLearnStatic(const char *switchName, zel_Bool learn);

/** Reads what VSDVS_SetLearnStatic set, or the default. */
ZEL_ReturnStatus VSDVS_GetLearnStatic(const char *switchName, zel_Bool *flagOut);

/** Brings the host's default back. */
ZEL_ReturnStatus VSDVS_ClearLearnStatic(const char *switchName);

/* ---- Multicast ---- */

/** Sets the multicast filter mode: VS_MCAST_FILTER_MODE_LEGACY or _SNOOPING. */
ZEL_ReturnStatus VSDVS_SetMcastFilterMode(const char *switchName, VSMcastFilterMode mode);

/** Reads what VSDVS_SetMcastFilterMode set, or the default. */
ZEL_ReturnStatus VSDVS_GetMcastFilterMode(const char *switchName, VSMcastFilterMode *valueOut);

/** Sets the multicast addresses, at most VS_MULTICAST_USER_ENTRIES_MAX, that legacy filtering lets through to every
    port. */
ZEL_ReturnStatus VSDVS_SetMcastUserLegacyEntries(const char *switchName, int count, VSMACEntries *entries);

/** Reads what VSDVS_SetMcastUserLegacyEntries set, or the default. */
ZEL_ReturnStatus VSDVS_GetMcastUserLegacyEntries(const char *switchName, VSUserMcastLegacyKeys **tableOut);

/** Clears what VSDVS_SetMcastUserLegacyEntries set. */
ZEL_ReturnStatus VSDVS_ClearMcastUserLegacyEntries(const char *switchName);

/** The same for one port. */
ZEL_ReturnStatus VSDVS_SetPortMcastUserLegacyEntries(const char *switchName, const char *portName, int count,
                                                     VSMACEntries *entries);

/** Reads what VSDVS_SetPortMcastUserLegacyEntries set, or the default. */
ZEL_ReturnStatus VSDVS_GetPortMcastUserLegacyEntries(const char *switchName, const char *portName,
                                                     VSUserMcastLegacyKeys **tableOut);

/** Clears what VSDVS_SetPortMcastUserLegacyEntries set. */
ZEL_ReturnStatus VSDVS_ClearPortMcastUserLegacyEntries(const char *switchName, const char *portName);

/* ---- Ethernet filters ---- */

/** Sets the addresses that a port accepts besides its own. */
ZEL_ReturnStatus VSDVS_SetExtraEthFilter(const char *switchName, const char *portName, const VSExtraEthFilter *filter);

/** Reads what VSDVS_SetExtraEthFilter set, or the default. */
ZEL_ReturnStatus VSDVS_GetExtraEthFilter(const char *switchName, const char *portName, VSExtraEthFilter *filter);

/** Clears what VSDVS_SetExtraEthFilter set. */
ZEL_ReturnStatus VSDVS_ClearExtraEthFilter(const char *switchName, const char *portName);

/* ---- Teaming ---- */

/** Sets the teaming policy of a switch. */
ZEL_ReturnStatus VSDVS_SetTeamingPolicy(const char *switchName, const VSTeamPolicy *policy);

/** Reads what VSDVS_SetTeamingPolicy set, or the default. */
ZEL_ReturnStatus VSDVS_GetTeamingPolicy(const char *switchName, VSTeamPolicy *policy);

/** Clears what VSDVS_SetTeamingPolicy set. */
ZEL_ReturnStatus VSDVS_ClearTeamingPolicy(const char *switchName);

/** Reads it by the id of the distributed switch. */
ZEL_ReturnStatus VSDVS_GetTeamingPolicyFromDVSID(const char *switchId, VSTeamPolicy *policy);

/** Sets the teaming policy of a port. */
ZEL_ReturnStatus VSDVS_SetPortTeamingPolicy(const char *switchName, const char *portName, const VSTeamPolicy *policy);

/** Reads what VSDVS_SetPortTeamingPolicy set, or the default. */
ZEL_ReturnStatus VSDVS_GetPortTeamingPolicy(const char *switchName, const char *portName, VSTeamPolicy *policy);

/** Clears what VSDVS_SetPortTeamingPolicy set. */
ZEL_ReturnStatus VSDVS_ClearPortTeamingPolicy(const char *switchName, const char *portName);

/** Ties a port to one uplink port, whatever its team says. */
ZEL_ReturnStatus VSDVS_SetPortTeamingOverride(const char *switchName, const char *portName, const char *uplinkName);

/** The uplink port that a port is tied to. */
ZEL_ReturnStatus VSDVS_GetPortTeamingOverride(const char *switchName, const char *portName, char textOut[81]);

/** Unties a port from its uplink port. */
ZEL_ReturnStatus VSDVS_ClearPortTeamingOverride(const char *switchName, const char *portName);

/** Whether a port's frames leave through an uplink even where the switch could deliver them itself. */
ZEL_ReturnStatus VSDVS_SetTxUplinkAlways(const char *switchName, const char *portName, zel_Bool always);

/** Reads what VSDVS_SetTxUplinkAlways set, or the default. */
ZEL_ReturnStatus VSDVS_GetTxUplinkAlways(const char *switchName, const char *portName, zel_Bool *flagOut);

/** Sets the named teaming policies of a switch. */
ZEL_ReturnStatus VSDVS_SetLSTeamingPolicy(const char *switchName, const LSTeamTable *table);

/** Reads what VSDVS_SetLSTeamingPolicy set, or the default. */
ZEL_ReturnStatus VSDVS_GetLSTeamingPolicyTable(const char *switchName, LSTeamTable **tableOut);

/** Clears what VSDVS_SetLSTeamingPolicy set. */
ZEL_ReturnStatus VSDVS_ClearLSTeamingPolicy(const char *switchName);

/** Makes a port follow a named teaming policy. */
ZEL_ReturnStatus VSDVS_SetPortLSTeamingPolicy(const char *switchName, const char *portName, const char *policyName);

/** The name of the policy that a port follows. */
ZEL_ReturnStatus VSDVS_GetPortLSTeamingPolicyName(const char *switchName, const char *portName, char textOut[136]);

/** Ends what VSDVS_SetPortLSTeamingPolicy began. */
ZEL_ReturnStatus VSDVS_ClearPortLSTeamingPolicy(const char *switchName, const char *portName);

/* ---- Mirroring ---- */

/** Replaces the mirror sessions of a port by those of a table. */
ZEL_ReturnStatus VSDVS_SetDVMirrorSessions(const char *switchName, const char *portName, DVMirrorSessionTable *table);

/** Adds the sessions of a table. ZEL_EXISTS for a session identifier in use. */
ZEL_ReturnStatus VSDVS_AppendDVMirrorSessions(const char *switchName, const char *portName,
                                              DVMirrorSessionTable *table);

/** The mirror sessions of a port. */
ZEL_ReturnStatus VSDVS_GetDVMirrorSessions(const char *switchName, const char *portName,
                                           DVMirrorSessionTable **tableOut);

/** Removes one mirror session of a port. */
ZEL_ReturnStatus VSDVS_RemoveDVMirrorSession(const char *switchName, const char *portName, const char sessionId[32]);

/** Removes all mirror sessions of a port. */
ZEL_ReturnStatus VSDVS_ClearDVMirrorSessions(const char *switchName, const char *portName);

/* ---- Properties: `length` bytes under a key, at the level of the switch, of this host's part of it, or of a port.
   `component` names the component that the property is meant for, or is null; the key alone decides. What is set
   or cleared with `runtimeOnly` does not reach the state store; reading gives the value in use either way. ---- */

/** Sets a property of a switch. */
ZEL_ReturnStatus VSDVS_SetGlobProp(const char *switchName, const char *key, const void *propertyValue, int length,
                                   const char *component, zel_Bool runtimeOnly);

/** Sets a property of this host's part of a switch. */
ZEL_ReturnStatus VSDVS_SetHostProp(const char *switchName, const char *key, const void *propertyValue, int length,
                                   const char *component, zel_Bool runtimeOnly);

/** Sets a property of this host's part that lasts as long as the running state. */
ZEL_ReturnStatus VSDVS_SetRuntimeHostProp(const char *switchName, const char *key, const void *propertyValue,
                                          int length, const char *component, zel_Bool runtimeOnly);

/** Sets a property of a port. */
ZEL_ReturnStatus VSDVS_SetPortProp(const char *switchName, const char *portName, const char *key,
                                   const void *propertyValue, int length, const char *component, zel_Bool runtimeOnly);

/** Reads a property of a switch into the query's buffer; `propLen` is the buffer's length before and the value's
    after. ZEL_BUF_TOO_SMALL when it does not fit. */
ZEL_ReturnStatus VSDVS_GetGlobProp(const char *switchName, const char *key, VDSQuery *query, const char *component,
                                   zel_Bool runtimeOnly);

/** Reads a property of this host's part of a switch. */
ZEL_ReturnStatus VSDVS_GetHostProp(const char *switchName, const char *key, VDSQuery *query, const char *component,
                                   zel_Bool runtimeOnly);

/** Reads a property of a port. */
ZEL_ReturnStatus VSDVS_GetPortProp(const char *switchName, const char *portName, const char *key, VDSQuery *query,
                                   const char *component, zel_Bool runtimeOnly);

/** Clears a property of a switch. */
ZEL_ReturnStatus VSDVS_ClearGlobProp(const char *switchName, const char *key, const char *component,
                                     zel_Bool runtimeOnly);

/** Clears a property of this host's part of a switch. */
ZEL_ReturnStatus VSDVS_ClearHostProp(const char *switchName, const char *key, const char *component,
                                     zel_Bool runtimeOnly);

/** Clears a property of a port. */
ZEL_ReturnStatus VSDVS_ClearPortProp(const char *switchName, const char *portName, const char *key,
                                     const char *component, zel_Bool runtimeOnly);

/* ---- Memory ---- */

/** Takes back a record that a function of this library handed out; null is accepted. */
ZEL_ReturnStatus VSDVS_FreeMemory(void *memory);

#ifdef __cplusplus
}
#endif
