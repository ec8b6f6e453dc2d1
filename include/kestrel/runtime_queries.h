/* libkestrel.so: runtime state of switches and ports, as the hypervisor kernel has it (VSZEL_*).

   Every function returns ZEL_OK or a failure of constants.def. A `switchName` is a portset name or a switch
   alias. A record handed out through a `tableOut` belongs to the caller, who gives it back with
   VSZEL_FreeMemory; on failure the cell is set to null. */
#pragma once

#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Lists the switches: portset names for VS_LIST_PS, aliases for VS_LIST_DVS_ALIAS. The list is one block
   from malloc. ZEL_BAD_PARAM for another kind or a null cell. */
ZEL_ReturnStatus VSZEL_GetSwitches(VSListType listType, VSList **listCell);

/** Fills `info` with a switch's MTU, VLAN range, port counts and names. ZEL_NOT_FOUND for an unknown switch.
 */
ZEL_ReturnStatus VSZEL_GetVSInfo(const char *switchName, VSInfo *info);

/** The MAC table of a switch, entries of one kind or VS_MAC_ADDR_TYPE_ALL, ordered by VLAN and address. */
ZEL_ReturnStatus VSZEL_GetMACTable(const char *switchName, VSMACAddrType addrType, VSMACTable **tableOut);

/** The link aggregation groups of a switch, ordered by identifier. */
ZEL_ReturnStatus VSZEL_GetLAGTable(const char *switchName, VSLAGTable **tableOut);

/** The uplinks of a switch: the NIC behind each uplink port and the port's identifier. */
ZEL_ReturnStatus VSZEL_GetUplinks(const char *switchName, VSUplinks **tableOut);

/** The link state of one uplink, named by its NIC. ZEL_NOT_FOUND for an unknown uplink. */
ZEL_ReturnStatus VSZEL_GetUplinkLinkState(const char *switchName, const char *uplinkName,
                                          zel_LinkState *valueOut);

/** Takes back a record that a function of this library handed out; null is accepted. */
ZEL_ReturnStatus VSZEL_FreeMemory(void *memory);

#ifdef __cplusplus
}
#endif
