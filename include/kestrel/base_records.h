/* Records of the hypervisor kernel that the other families use: names, links, attributes, link
   status, resource pools, distributed-port status and socket addresses. */
#pragma once

#include "kestrel/types.h"

/** A counted byte string: `stringLength` of `bufferSize` bytes are in use. */
KESTREL_RECORD(zel_String, 16)
typedef struct {
  zel_ByteCountSmall bufferSize;    // @0
  zel_ByteCountSmall stringLength;  // @4
  zel_uint8 *buffer;                // @8
} KESTREL_PACKED zel_String;

/** The two links of a member of the kernel's circular doubly linked lists. */
KESTREL_RECORD(zel_ListLinks, 16)
typedef struct zel_ListLinks {
  struct zel_ListLinks *prevPtr;  // @0
  struct zel_ListLinks *nextPtr;  // @8
} KESTREL_PACKED zel_ListLinks;

/** A fixed name: at most 31 bytes of UTF-8 text and a terminating zero. */
KESTREL_RECORD(zel_Name, 32)
typedef struct zel_Name {
  char string[32];  // @0
} KESTREL_PACKED zel_Name;

/** One callback of a management interface: where it runs and what its parameters are. */
KESTREL_RECORD(zel_MgmtCallbackInfo, 64)
typedef struct zel_MgmtCallbackInfo {
  zel_MgmtCallbackLocation location;  // @0
  void *callback;                     // @8
  zel_Bool synchronous;               // @16
  zel_uint8 numParms;                 // @17
  zel_uint32 parmSizes[4];            // @20
  zel_MgmtParmType parmTypes[4];      // @36
  zel_uint64 callbackId;              // @56
} zel_MgmtCallbackInfo;

/** The signature of a management interface: version, name, vendor and callbacks. */
KESTREL_RECORD(zel_MgmtApiSignature, 80)
typedef struct zel_MgmtApiSignature {
  zel_revnum version;               // @0
  zel_Name name;                    // @4
  zel_Name vendor;                  // @36
  int numCallbacks;                 // @68
  zel_MgmtCallbackInfo *callbacks;  // @72
} KESTREL_PACKED zel_MgmtApiSignature;

/** A vector parameter of a management callback: `length` bytes at `dataPtr`. */
KESTREL_RECORD(zel_MgmtVectorParm, 16)
typedef struct zel_MgmtVectorParm {
  zel_ByteCount length;  // @0
  void *dataPtr;         // @8
} KESTREL_PACKED zel_MgmtVectorParm;

/** The instances of a management interface that exist at the moment. */
KESTREL_RECORD(zel_MgmtInstances, 1288)
typedef struct zel_MgmtInstances {
  zel_uint8 numInstances;      // @0
  zel_uint64 instanceIds[32];  // @8
  zel_Name instanceNames[32];  // @264
} zel_MgmtInstances;

/** How an interrupt line signals: trigger and polarity. */
KESTREL_RECORD(zel_IntrInfo, 8)
typedef struct zel_IntrInfo {
  zel_IntrTriggerType trigger;    // @0
  zel_IntrPolarityType polarity;  // @4
} KESTREL_PACKED zel_IntrInfo;

/** A named, typed attribute whose value travels as text. */
KESTREL_RECORD(zel_Attribute, 100)
typedef struct zel_Attribute {
  zel_Name name;          // @0
  char value[64];         // @32
  zel_AttrType attrType;  // @96
} KESTREL_PACKED zel_Attribute;

/** State, speed (Mbit/s) and duplex of a link. */
KESTREL_RECORD(zel_LinkStatus, 12)
typedef struct {
  zel_LinkState state;    // @0
  zel_LinkSpeed speed;    // @4 Mbit/s
  zel_LinkDuplex duplex;  // @8
} KESTREL_PACKED zel_LinkStatus;

/** Configuration of a portset's resource pool: shares (0 to 100), limit and reservation in Mbit/s (-1: none).
 */
KESTREL_RECORD(zel_PortsetResPoolCfg, 20)
typedef struct zel_PortsetResPoolCfg {
  zel_PortsetResPoolShares shares;            // @0
  zel_PortsetResPoolLimit limit;              // @4
  zel_PortsetResPoolReservation reservation;  // @8
  zel_PortsetResPoolPriorityTag pTag;         // @12
  zel_PortsetResPoolQueueDepth queueDepth;    // @16
} zel_PortsetResPoolCfg;

/** Traffic through a portset's resource pool, in packets and bytes since the pool was made. */
KESTREL_RECORD(zel_PortsetResPoolStats, 48)
typedef struct zel_PortsetResPoolStats {
  zel_uint64 pktsIn;        // @0
  zel_uint64 bytesIn;       // @8
  zel_uint64 pktsOut;       // @16
  zel_uint64 bytesOut;      // @24
  zel_uint64 pktsDropped;   // @32
  zel_uint64 bytesDropped;  // @40
} KESTREL_PACKED zel_PortsetResPoolStats;

/** Status of a distributed port: ZEL_VDSPORT_STATUS_* flags and a line for display. */
KESTREL_RECORD(zel_VDSPortStatus, 100)
typedef struct zel_VDSPortStatus {
  zel_uint64 flags;             // @0 ZEL_VDSPORT_STATUS_*
  zel_uint64 noPassthruReason;  // @8
  zel_uint32 portID;            // @16
  char displayStr[80];          // @20
} KESTREL_PACKED zel_VDSPortStatus;

/** Traffic of a distributed port since it was connected. In is towards the switch, out is from it. */
KESTREL_RECORD(zel_VDSPortStatistics, 128)
typedef struct zel_VDSPortStatistics {
  zel_uint64 pktsInUnicast;      // @0
  zel_uint64 bytesInUnicast;     // @8
  zel_uint64 pktsInMulticast;    // @16
  zel_uint64 bytesInMulticast;   // @24
  zel_uint64 pktsInBroadcast;    // @32
  zel_uint64 bytesInBroadcast;   // @40
  zel_uint64 pktsOutUnicast;     // @48
  zel_uint64 bytesOutUnicast;    // @56
  zel_uint64 pktsOutMulticast;   // @64
  zel_uint64 bytesOutMulticast;  // @72
  zel_uint64 pktsOutBroadcast;   // @80
  zel_uint64 bytesOutBroadcast;  // @88
  zel_uint64 pktsInDropped;      // @96
  zel_uint64 pktsOutDropped;     // @104
  zel_uint64 pktsInException;    // @112
  zel_uint64 pktsOutException;   // @120
} KESTREL_PACKED zel_VDSPortStatistics;

/** A range of VLAN identifiers, both ends included. */
KESTREL_RECORD(zel_VDSPortVIDRange, 4)
typedef struct zel_VDSPortVIDRange {
  zel_uint16 minVID;  // @0
  zel_uint16 maxVID;  // @2
} KESTREL_PACKED zel_VDSPortVIDRange;

/** The VLANs of a distributed port: one access VLAN and `numRanges` trunk ranges. */
KESTREL_RECORD(zel_VDSPortVlanInfo, 4)
typedef struct zel_VDSPortVlanInfo {
  zel_uint16 vlanID;                 // @0
  zel_uint16 numRanges;              // @2
  zel_VDSPortVIDRange vidRanges[0];  // @4 counted by numRanges
} KESTREL_PACKED zel_VDSPortVlanInfo;

/** A socket address of any family; `sa_family` is ZEL_SOCKET_AF_*. */
KESTREL_RECORD(zel_SocketAddress, 256)
typedef struct zel_SocketAddress {
  zel_uint8 sa_len;        // @0
  zel_uint8 sa_family;     // @1
  zel_uint8 sa_data[254];  // @2
} KESTREL_PACKED zel_SocketAddress;

/** An IPv4 address in network byte order. */
KESTREL_RECORD(zel_SocketIPAddressAddr, 4)
typedef struct zel_SocketIPAddressAddr {
  zel_uint32 s_addr;  // @0 IPv4 address
} KESTREL_PACKED zel_SocketIPAddressAddr;

/** An IPv4 socket address; port and address are in network byte order. */
KESTREL_RECORD(zel_SocketIPAddress, 16)
typedef struct zel_SocketIPAddress {
  zel_uint8 sin_len;                 // @0
  zel_uint8 sin_family;              // @1
  zel_uint16 sin_port;               // @2
  zel_SocketIPAddressAddr sin_addr;  // @4
  zel_uint8 sin_zero[8];             // @8
} KESTREL_PACKED zel_SocketIPAddress;

/** The 16 bytes of an IPv6 address as bytes, words of 16 bits or words of 32 bits. */
KESTREL_RECORD(zel_SocketIPv6AddressAddr___u6_addr, 16)
typedef union {
  zel_uint8 __u6_addr8[16];   // @0
  zel_uint16 __u6_addr16[8];  // @0
  zel_uint32 __u6_addr32[4];  // @0
} zel_SocketIPv6AddressAddr___u6_addr;

/** An IPv6 address in network byte order. */
KESTREL_RECORD(zel_SocketIPv6AddressAddr, 16)
typedef struct zel_SocketIPv6AddressAddr {
  KESTREL_READ_ONLY(zel_SocketIPv6AddressAddr___u6_addr __u6_addr);  // @0
} KESTREL_PACKED zel_SocketIPv6AddressAddr;

/** An IPv6 socket address; port and address are in network byte order. */
KESTREL_RECORD(zel_SocketIPv6Address, 28)
typedef struct zel_SocketIPv6Address {
  zel_uint8 sin6_len;                   // @0
  zel_uint8 sin6_family;                // @1
  zel_uint16 sin6_port;                 // @2
  zel_uint32 sin6_flowinfo;             // @4
  zel_SocketIPv6AddressAddr sin6_addr;  // @8
  zel_uint32 sin6_scopeid;              // @24
} KESTREL_PACKED zel_SocketIPv6Address;
