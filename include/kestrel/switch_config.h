/* libkestrel.so: configuration of switches, ports and uplinks (VSDVS_*).

   Every function returns ZEL_OK or a failure of constants.def; when it fails nothing has changed. Names are
   as in runtime_queries.h; a `portName` is a distributed-port id. A record handed out through a `tableOut`
   belongs to the caller, who gives it back with VSDVS_FreeMemory. */
#pragma once

#include "kestrel/policy_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The switch port identifier of a distributed port. ZEL_NOT_FOUND for an unknown switch or port. */
ZEL_ReturnStatus VSDVS_DvPortIDToPortID(const char *switchName, const char *portName,
                                        zel_SwitchPortID *valueOut);

/** Sets the VLAN policy of a port.

    `mode` is 0 for an access port in `vlanID` (0: untagged), VSPORT_VLAN_GUEST_TAGGING for a trunk that
   carries the `numRanges` ranges, VSPORT_VLAN_PVLAN_ENABLED for a private VLAN port in the secondary VLAN
   `vlanID`. `setPriority` lets the port's own priority replace that of its frames. A `runtimeOnly` policy is
   not written to the state store. ZEL_BAD_VLANID for an identifier above 4094 or a range that is empty or
   overlaps another, ZEL_BAD_PARAM for an unknown mode, for a trunk without ranges and for ranges on a port
   that is no trunk. */
ZEL_ReturnStatus VSDVS_SetPortVLANPolicy(const char *switchName, const char *portName, zel_uint16 vlanID,
                                         int mode, zel_Bool setPriority, zel_Bool runtimeOnly,
                                         zel_VDSPortVIDRange *ranges, zel_uint16 numRanges);

/** The VLAN policy of a port and the length of that record in bytes. A port without one reads as access port
 * 0. */
ZEL_ReturnStatus VSDVS_GetPortVLANPolicy(const char *switchName, const char *portName,
                                         VSPortVlanPolicy **tableOut, int *valueOut);

/** Takes a port's VLAN policy away. ZEL_NOT_FOUND when it has none. */
ZEL_ReturnStatus VSDVS_ClearPortVLANPolicy(const char *switchName, const char *portName);

/** Takes back a record that a function of this library handed out; null is accepted. */
ZEL_ReturnStatus VSDVS_FreeMemory(void *memory);

#ifdef __cplusplus
}
#endif
