/* Runtime state and statistics of switches and ports. */
#pragma once

#include "kestrel/policy_records.h"

/** One entry of a MAC table; `elapsed` is the age in seconds, `macMove` counts moves between ports. */
KESTREL_RECORD(VSMACEntry, 26)
typedef struct VSMACEntry {
  unsigned char macAddress[6];  // @0
  VSMACAddrType macAddrType;    // @6
  zel_SwitchPortID portID;      // @7
  zel_Bool aging;               // @11
  zel_VlanID vid;               // @12
  zel_uint32 vni;               // @14
  zel_uint32 elapsed;           // @18 seconds
  zel_uint32 macMove;           // @22
} KESTREL_PACKED VSMACEntry;

/** A list of up to 25 multicast addresses for the legacy filter. */
KESTREL_RECORD(VSMACEntries, 150)
typedef struct VSMACEntries {
  unsigned char macEntry[25][6];  // @0
} KESTREL_PACKED VSMACEntries;

/** MAC learning defaults of the whole host. */
KESTREL_RECORD(VSMACLearningGlobalProps, 10)
typedef struct VSMACLearningGlobalProps {
  zel_uint32 agingTime;     // @0 seconds
  zel_uint32 macLimit;      // @4
  zel_Bool learnStatic;     // @8
  zel_Bool staticMACAllow;  // @9
} KESTREL_PACKED VSMACLearningGlobalProps;

/* The object selectors for multicast groups and uplinks; scripts see them as opaque records. */
#ifndef SWIG
typedef struct VSIOCtlQuery_mcastFilter {
  zel_SwitchPortID portID;
  VSMcastFilterMode mode;
  union {
    zel_IPv4Address ipv4;
    unsigned char ipv6[16];
  };
} VSIOCtlQuery_mcastFilter;
typedef struct VSIOCtlQuery_uplink {
  zel_Name name;
  zel_LinkState state;
} VSIOCtlQuery_uplink;
#endif

/** A query selector: one switch selector, one port selector and one object selector, each with overlaid
 * views. */
KESTREL_RECORD(VSIOCtlQuery, 212)
typedef struct VSIOCtlQuery {
  union {
    zel_uint8 psName[128];  // @0 zero-terminated text
    char dvsId[64];         // @0
    zel_uint8 dvsName[81];  // @0 zero-terminated text
  };
  union {
    zel_uint8 dvPortID[48];   // @128 zero-terminated text
    zel_SwitchPortID portID;  // @128
  } KESTREL_PACKED;
  union {
    char dvMirrorSID[32];                                     // @176
    zel_VlanID vlanID;                                        // @176
    KESTREL_READ_ONLY(VSIOCtlQuery_mcastFilter mcastFilter);  // @176
    KESTREL_READ_ONLY(VSIOCtlQuery_uplink uplink);            // @176
    VSMACEntry macEntry;                                      // @176
    VSMACLearningGlobalProps globalMACLearningProps;          // @176
  } KESTREL_PACKED;
} KESTREL_PACKED VSIOCtlQuery;

/** A property value that a query fills: `propLen` bytes at `propValue`, which the record owns. */
KESTREL_RECORD(VDSQuery, 12)
typedef struct VDSQuery {
  int propLen;      // @0
  char *propValue;  // @4
} KESTREL_PACKED VDSQuery;

/** Input and output buffers of a request to the switch control device. */
KESTREL_RECORD(VSIOCtlData, 24)
typedef struct VSIOCtlData {
  zel_uint32 dataInLen;   // @0
  zel_uint32 dataOutLen;  // @4
  zel_uint64 dataInPtr;   // @8
  zel_uint64 dataOutPtr;  // @16
} KESTREL_PACKED VSIOCtlData;

/** Identity and limits of a switch; MTU in bytes. */
KESTREL_RECORD(VSInfo, 210)
typedef struct VSInfo {
  zel_uint32 mtu;           // @0 bytes
  zel_VlanID maxValidVlan;  // @4
  zel_VlanID minValidVlan;  // @6
  zel_uint32 activePorts;   // @8
  zel_uint32 maxPorts;      // @12
  zel_uint8 dvsName[128];   // @16 zero-terminated text
  zel_uint8 vdsID[64];      // @144 zero-terminated text
  zel_uint16 numSinkPorts;  // @208
} KESTREL_PACKED VSInfo;

/** Traffic of a switch or port in packets and bytes; Tx is from the port into the switch, Rx from the switch
 * to the port. */
KESTREL_RECORD(VSStats, 112)
typedef struct VSStats {
  zel_uint64 pktsTx;            // @0
  zel_uint64 pktsTxMulticast;   // @8
  zel_uint64 pktsTxBroadcast;   // @16
  zel_uint64 pktsRx;            // @24
  zel_uint64 pktsRxMulticast;   // @32
  zel_uint64 pktsRxBroadcast;   // @40
  zel_uint64 bytesTx;           // @48
  zel_uint64 bytesTxMulticast;  // @56
  zel_uint64 bytesTxBroadcast;  // @64
  zel_uint64 bytesRx;           // @72
  zel_uint64 bytesRxMulticast;  // @80
  zel_uint64 bytesRxBroadcast;  // @88
  zel_uint64 droppedTx;         // @96
  zel_uint64 droppedRx;         // @104
} KESTREL_PACKED VSStats;

/** The identifiers of a switch's ports. */
KESTREL_RECORD(VSPortList, 4)
typedef struct VSPortList {
  zel_uint32 numPorts;        // @0
  zel_SwitchPortID ports[0];  // @4 counted by numPorts
} KESTREL_PACKED VSPortList;

/** The multicast addresses that a port accepts. */
KESTREL_RECORD(VSPortInfo_ethFrpAccepted, 194)
typedef struct {
  zel_uint16 numMulticastAddrs;         // @0
  unsigned char multicastAddrs[32][6];  // @2
} KESTREL_PACKED VSPortInfo_ethFrpAccepted;

/** The VLAN state of a port. */
KESTREL_RECORD(VSPortInfo_vlan, 12)
typedef struct {
  zel_VlanID defaultVID;  // @0
  zel_VlanID primaryVID;  // @2
  VSVlanTPFlags flags;    // @4
  zel_Bool statsEnabled;  // @8
} VSPortInfo_vlan;

/** State of a port: client, hardware address, accepted addresses, traffic, VLAN. */
KESTREL_RECORD(VSPortInfo, 1420)
typedef struct VSPortInfo {
  zel_uint32 portIdx;                                           // @0
  char clientName[1040];                                        // @4
  VS_PortClientType clientType;                                 // @1044
  unsigned char fixedHwID[6];                                   // @1048 MAC address of the client
  zel_uint8 dvPortId[48];                                       // @1054 zero-terminated text
  KESTREL_READ_ONLY(VSPortInfo_ethFrpAccepted ethFrpAccepted);  // @1102
  VSStats stats;                                                // @1296
  KESTREL_READ_ONLY(VSPortInfo_vlan vlan);                      // @1408
} KESTREL_PACKED VSPortInfo;

/** A set of VLAN identifiers: identifier v is bit v % 64 of word v / 64. */
KESTREL_RECORD(VSVLANBitmap, 512)
typedef struct VSVLANBitmap {
  zel_uint64 bits[64];  // @0
} KESTREL_PACKED VSVLANBitmap;

/** A static forwarding entry with the VLANs in whose context it holds. */
KESTREL_RECORD(VSStaticLEEntry, 529)
typedef struct VSStaticLEEntry {
  VSVLANBitmap vlanBitmap;      // @0
  zel_Bool isTrunkVNI;          // @512
  zel_Bool isVdrMac;            // @513
  zel_uint32 vni;               // @514
  unsigned char macAddress[6];  // @518
  VSMACAddrType macAddrType;    // @524
  zel_SwitchPortID portID;      // @525
} KESTREL_PACKED VSStaticLEEntry;

/** A list of static forwarding entries. */
KESTREL_RECORD(VSStaticLeCtxEntries, 8)
typedef struct VSStaticLeCtxEntries {
  zel_uint32 totalEntries;                // @0
  zel_uint32 numEntries;                  // @4
  VSStaticLEEntry staticLECtxEntries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSStaticLeCtxEntries;

/** Life and traffic of a VLAN; times in seconds since the epoch. */
KESTREL_RECORD(VSVLAN, 32)
typedef struct VSVLAN {
  zel_uint64 creationTime;      // @0 seconds since the epoch
  zel_uint64 modificationTime;  // @8 seconds since the epoch
  zel_uint64 pktsTx;            // @16
  zel_uint64 pktsRx;            // @24
} KESTREL_PACKED VSVLAN;

/** RARP announcements after failover; times in milliseconds. */
KESTREL_RECORD(VSRARPStats, 16)
typedef struct VSRARPStats {
  zel_uint32 rarpPktsSent;  // @0
  zel_uint32 maxRARPTime;   // @4 milliseconds
  zel_uint64 rarpTime;      // @8 milliseconds
} KESTREL_PACKED VSRARPStats;

/** Teaming of a service port, in packets. */
KESTREL_RECORD(VSServicePortTeamingStats, 48)
typedef struct VSServicePortTeamingStats {
  zel_uint64 txFromSrvPort;         // @0
  zel_uint64 txUsingSrvPortFRP;     // @8
  zel_uint64 txUsingPktSrcPortFRP;  // @16
  zel_uint64 txErrors;              // @24
  zel_uint64 rxToSrvPort;           // @32
  zel_uint64 rxRpfOverride;         // @40
} KESTREL_PACKED VSServicePortTeamingStats;

/** The ports that receive promiscuous traffic at the moment. */
KESTREL_RECORD(VSPromiscSessionActiveDsts, 8)
typedef struct VSPromiscSessionActiveDsts {
  zel_uint32 totalEntries;      // @0
  zel_uint32 numEntries;        // @4
  zel_SwitchPortID entries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSPromiscSessionActiveDsts;

/** The identifiers of a switch's mirror sessions, 32 bytes each. */
KESTREL_RECORD(VSDVMirrorSessionIDs, 8)
typedef struct VSDVMirrorSessionIDs {
  zel_uint32 totalEntries;  // @0
  zel_uint32 numEntries;    // @4
  char entries[0][32];      // @8 counted by numEntries
} KESTREL_PACKED VSDVMirrorSessionIDs;

/** Traffic of a mirror session, in packets. */
KESTREL_RECORD(VSDVMirrorSessionStats, 121)
typedef struct VSDVMirrorSessionStats {
  zel_uint64 mirrorPktCnt;      // @0
  zel_uint64 mirrorPktFailCnt;  // @8
  zel_uint64 mirroredPkts;      // @16
  zel_uint64 discardedPkts;     // @24
  zel_uint64 failedPkts;        // @32
  char name[81];                // @40
} KESTREL_PACKED VSDVMirrorSessionStats;

/** Multicast filters: MAC, IPv4 or IPv6 entries, as the filter mode of the query says. */
KESTREL_RECORD(VSMcastFilters, 8)
typedef struct VSMcastFilters {
  zel_uint32 totalEntries;  // @0
  zel_uint32 numEntries;    // @4
  union {
    unsigned char macEntries[0][6];    // @8 counted by numEntries
    zel_IPv4Address ipv4Entries[0];    // @8 network byte order; counted by numEntries
    unsigned char ipv6Entries[0][16];  // @8 counted by numEntries
  } KESTREL_PACKED;
} KESTREL_PACKED VSMcastFilters;

/** State of one multicast group: protocol version, source filter mode (VS_MCAST_SRC_IP_FILTER_MODE_*) and
 * sources. */
KESTREL_RECORD(VSMcastFilterStats, 28)
typedef struct VSMcastFilterStats {
  zel_uint32 version;          // @0
  zel_uint32 srcIPFilterMode;  // @4
  zel_uint64 updateTime;       // @8 seconds
  zel_uint32 vni;              // @16
  zel_uint32 totalEntries;     // @20
  zel_uint32 numEntries;       // @24
  union {
    zel_IPv4Address ipv4Entries[0];    // @28 network byte order; counted by numEntries
    unsigned char ipv6Entries[0][16];  // @28 counted by numEntries
  } KESTREL_PACKED;
} KESTREL_PACKED VSMcastFilterStats;

/** An uplink of a switch: NIC name and port. */
KESTREL_RECORD(VSUplinks_entries, 36)
typedef struct {
  zel_Name name;            // @0
  zel_SwitchPortID portID;  // @32
} KESTREL_PACKED VSUplinks_entries;

/** The uplinks of a switch. */
KESTREL_RECORD(VSUplinks, 8)
typedef struct VSUplinks {
  zel_uint32 totalEntries;                          // @0
  zel_uint32 numEntries;                            // @4
  KESTREL_READ_ONLY(VSUplinks_entries entries[0]);  // @8 counted by numEntries
} KESTREL_PACKED VSUplinks;

/** State of a link aggregation group and the names of its uplinks; bit i of the bitmap is uplink i. */
KESTREL_RECORD(VSLAGStatus, 88)
typedef struct VSLAGStatus {
  zel_LinkState state;            // @0
  zel_uint32 id;                  // @4
  zel_uint8 name[68];             // @8 zero-terminated text
  zel_uint64 uplinkLinkupBitmap;  // @76
  zel_uint32 numUplinks;          // @84
  zel_Name uplinkNames[0];        // @88 counted by numUplinks
} KESTREL_PACKED VSLAGStatus;

/** The link aggregation groups of a switch: `numLAGs` VSLAGStatus records of varying length follow directly.
 */
KESTREL_RECORD(VSLAGTable, 4)
typedef struct VSLAGTable {
  zel_uint32 numLAGs;  // @0 VSLAGStatus lags follow
} KESTREL_PACKED VSLAGTable;

/** A MAC table: `numEntries` of the table's `totalEntries` entries. */
KESTREL_RECORD(VSMACTable, 8)
typedef struct VSMACTable {
  zel_uint32 totalEntries;   // @0 entries the table holds
  zel_uint32 numEntries;     // @4 entries that follow
  VSMACEntry macEntries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSMACTable;

/** MAC learning of a port: addresses learned, packets over the limit, moves. */
KESTREL_RECORD(VSPMACLearningStats, 28)
typedef struct VSPMACLearningStats {
  zel_uint32 numMACsLearned;         // @0
  zel_uint64 noLearningAllowedPkts;  // @4
  zel_uint64 noLearningDroppedPkts;  // @12
  zel_uint64 numMACsMoved;           // @20
} KESTREL_PACKED VSPMACLearningStats;

/** A port and its MAC-learning statistics. */
KESTREL_RECORD(VSPMACLearningStatsPortInfo, 32)
typedef struct VSPMACLearningStatsPortInfo {
  zel_SwitchPortID portID;        // @0
  VSPMACLearningStats portStats;  // @4
} KESTREL_PACKED VSPMACLearningStatsPortInfo;

/** MAC-learning statistics of a switch's ports. */
KESTREL_RECORD(VSMACLearningStats, 8)
typedef struct VSMACLearningStats {
  zel_uint32 totalEntries;                            // @0
  zel_uint32 numEntries;                              // @4
  VSPMACLearningStatsPortInfo macLearningEntries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSMACLearningStats;

/** MAC learning of a switch as a whole, the uplink team apart. */
KESTREL_RECORD(VSMACLearningSwitchInfo, 88)
typedef struct VSMACLearningSwitchInfo {
  zel_uint32 agingTime;                      // @0 seconds
  zel_uint32 macLimit;                       // @4
  zel_uint32 numLearningPorts;               // @8
  zel_uint32 numMACsLearned;                 // @12
  zel_uint32 teamNumMACsLearned;             // @16
  VSPMACLearning teamMACLearning;            // @20
  VSPMACLearningStats teamMACLearningStats;  // @30
  zel_uint64 teamAllowedPktsWithPortLimit;   // @64
  zel_uint32 noOfPortsMACLimitHit;           // @72
  zel_uint32 numSinkPorts;                   // @76
  zel_uint32 numSinkAndFloodingPorts;        // @80
} VSMACLearningSwitchInfo;

/** A port and its security policy. */
KESTREL_RECORD(VSPropSecurityPortInfo, 8)
typedef struct VSPropSecurityPortInfo {
  zel_SwitchPortID portID;       // @0
  VSPropSecurity l2SecPortInfo;  // @4
} KESTREL_PACKED VSPropSecurityPortInfo;

/** Security policies of a switch's ports. */
KESTREL_RECORD(VSL2Security, 8)
typedef struct VSL2Security {
  zel_uint32 totalEntries;                   // @0
  zel_uint32 numEntries;                     // @4
  VSPropSecurityPortInfo portSecEntries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSL2Security;

/** A port and its MAC-learning policy. */
KESTREL_RECORD(VSPMACLearningInfo, 14)
typedef struct VSPMACLearningInfo {
  zel_SwitchPortID portID;         // @0
  VSPMACLearning portMACLearning;  // @4
} KESTREL_PACKED VSPMACLearningInfo;

/** MAC-learning policies of a switch's ports. */
KESTREL_RECORD(VSMACLearningEntries, 8)
typedef struct VSMACLearningEntries {
  zel_uint32 totalEntries;                       // @0
  zel_uint32 numEntries;                         // @4
  VSPMACLearningInfo portMACLearningEntries[0];  // @8 counted by numEntries
} KESTREL_PACKED VSMACLearningEntries;

/** A request for part of a MAC table. */
KESTREL_RECORD(VSMACGetDynamic, 24)
typedef struct VSMACGetDynamic {
  VSMACTable *macTable;         // @0
  zel_uint32 count;             // @8
  VSMACAddrType macAddrType;    // @12
  zel_uint32 numEntriesToCopy;  // @16
  zel_Bool getTeamMacs;         // @20
} VSMACGetDynamic;

/** A list of switch names: 128 bytes each when `listType` is VS_LIST_PS, else 81. */
KESTREL_RECORD(VSList, 8)
typedef struct VSList {
  zel_int32 count;      // @0
  VSListType listType;  // @4
  char switches[0];     // @8 counted by count, their width told by listType
} KESTREL_PACKED VSList;
