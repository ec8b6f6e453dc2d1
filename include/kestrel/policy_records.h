/* Configuration of switches, ports and uplinks. */
#pragma once

#include "kestrel/base_records.h"

/** One pair of a private VLAN map; `pvlanType` is VSPORT_PVLAN_TYPE_*. */
KESTREL_RECORD(VSPvlanMapEntry, 8)
typedef struct VSPvlanMapEntry {
  zel_uint16 primaryVID;    // @0
  zel_uint16 secondaryVID;  // @2
  zel_uint8 pvlanType;      // @4
  char pad[3];              // @5
} KESTREL_PACKED VSPvlanMapEntry;

/** Which IP versions a switch forwards. */
KESTREL_RECORD(VSForwardingMode, 4)
typedef struct VSForwardingMode {
  ForwardingMode forwardingMode;  // @0
} KESTREL_PACKED VSForwardingMode;

/** MAC learning of a switch: ageing time in seconds and table limit. */
KESTREL_RECORD(VSPropMACLearning, 8)
typedef struct VSPropMACLearning {
  zel_uint32 agingTime : 24;  // @0:0..23 seconds
  zel_uint32 reserved : 8;    // @0:24..31
  zel_uint32 macLimit;        // @4
} KESTREL_PACKED VSPropMACLearning;

/** VLAN policy of a port: VSPORT_VLAN_* flags, access VLAN, and `numRanges` trunk ranges. */
KESTREL_RECORD(VSPortVlanPolicy, 8)
typedef struct VSPortVlanPolicy {
  zel_uint16 flags;                  // @0 VSPORT_VLAN_*
  zel_uint16 vlanID;                 // @2
  zel_uint16 pad;                    // @4
  zel_uint16 numRanges;              // @6
  zel_VDSPortVIDRange vidRanges[0];  // @8 counted by numRanges
} KESTREL_PACKED VSPortVlanPolicy;

/** Security policy of a port: VSPORT_SECURITY_* flags. */
KESTREL_RECORD(VSPropSecurity, 4)
typedef struct VSPropSecurity {
  zel_uint32 flags;  // @0 VSPORT_SECURITY_*
} KESTREL_PACKED VSPropSecurity;

/** Ethernet addresses that a port accepts besides its own: ZEL_ETH_FILTER_* flags and up to 32 multicast
 * addresses. */
KESTREL_RECORD(VSExtraEthFilter, 200)
typedef struct VSExtraEthFilter {
  zel_uint32 flags;                     // @0 ZEL_ETH_FILTER_*
  zel_uint16 numMulticastAddrs;         // @4
  unsigned char multicastAddrs[32][6];  // @6
  zel_uint16 pad;                       // @198
} KESTREL_PACKED VSExtraEthFilter;

/** The names of a switch's uplink ports, 81 bytes each. */
KESTREL_RECORD(VSUplinkPorts, 4)
typedef struct VSUplinkPorts {
  zel_uint32 nUplinkPorts;     // @0
  char uplinkPortName[0][81];  // @4 counted by nUplinkPorts
} KESTREL_PACKED VSUplinkPorts;

/** The distributed-port ids of a switch's uplink ports, 48 bytes each. */
KESTREL_RECORD(VSUplinkPortIds, 4)
typedef struct VSUplinkPortIds {
  zel_uint32 nUplinkPorts;   // @0
  char uplinkPortId[0][48];  // @4 counted by nUplinkPorts
} KESTREL_PACKED VSUplinkPortIds;

/** Teaming policy: TEAM_FRP_TYPE_* balance, TEAM_FRP_CRIT_* link criteria, TEAM_FRP_FLAG_* flags, active
 * uplinks then standby ones. */
KESTREL_RECORD(VSTeamPolicy, 2616)
typedef struct VSTeamPolicy {
  zel_uint32 loadBalance;       // @0 TEAM_FRP_TYPE_*
  zel_uint32 linkCriteria;      // @4 TEAM_FRP_CRIT_*
  zel_uint8 percentError;       // @8
  zel_uint8 fullDuplex;         // @9
  zel_uint16 speed;             // @10 Mbit/s
  zel_uint32 flags;             // @12 TEAM_FRP_FLAG_*
  zel_uint32 numActive;         // @16
  zel_uint32 numStandby;        // @20
  char uplinkPortName[32][81];  // @24
} KESTREL_PACKED VSTeamPolicy;

/** A named teaming policy that logical-switch ports refer to. */
KESTREL_RECORD(LSTeamPolicy, 2748)
typedef struct LSTeamPolicy {
  // clang-format off
  char name[(32*4) +8]; // @0
  // clang-format on
  zel_uint32 loadBalance;       // @136 TEAM_FRP_TYPE_*
  zel_uint32 linkCriteria;      // @140 TEAM_FRP_CRIT_*
  zel_uint32 flags;             // @144 TEAM_FRP_FLAG_*
  zel_uint32 numActive;         // @148
  zel_uint32 numStandby;        // @152
  char uplinkPortName[32][81];  // @156
} KESTREL_PACKED LSTeamPolicy;

/** The named teaming policies of a switch. */
KESTREL_RECORD(LSTeamTable, 4)
typedef struct LSTeamTable {
  zel_uint32 numLSTeam;          // @0
  LSTeamPolicy lsTeamPolicy[0];  // @4 counted by numLSTeam
} KESTREL_PACKED LSTeamTable;

/** MAC learning of a port: whether it learns, floods unknown unicast, and what happens at the limit. */
KESTREL_RECORD(VSPMACLearning, 10)
typedef struct VSPMACLearning {
  zel_Bool learning;                            // @0
  zel_Bool flooding;                            // @1
  zel_uint32 macLimit;                          // @2
  VSPortMACLearningLimitPolicy macLimitPolicy;  // @6
} KESTREL_PACKED VSPMACLearning;

/** MAC policy of a port: whether its client may change address, and its learning. */
KESTREL_RECORD(VSPMACManagement, 11)
typedef struct VSPMACManagement {
  zel_Bool macChangeAllowed;       // @0
  VSPMACLearning portMACLearning;  // @1
} KESTREL_PACKED VSPMACManagement;

/** Multicast addresses that the user added for legacy filtering, 6 bytes each. */
KESTREL_RECORD(VSUserMcastLegacyKeys, 1)
typedef struct VSUserMcastLegacyKeys {
  zel_uint8 numEntries;                // @0
  unsigned char multicastAddrs[0][6];  // @1 counted by numEntries
} KESTREL_PACKED VSUserMcastLegacyKeys;

/** Tunables of the redundant datapath (IEC 62439-3); times are in milliseconds. */
KESTREL_RECORD(EnsPRPTunablesData, 14)
typedef struct EnsPRPTunablesData {
  zel_uint8 supMcastAddr[6];      // @0
  zel_uint16 lifeCheckInterval;   // @6
  zel_uint16 nodeForgetTime;      // @8
  zel_uint16 entryForgetTime;     // @10
  zel_uint16 nodeRebootInterval;  // @12
} KESTREL_PACKED EnsPRPTunablesData;
