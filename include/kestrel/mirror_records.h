/* Distributed ports and port mirroring. */
#pragma once

#include "kestrel/base_records.h"

/** A distributed port that another controller manages: its id and that controller's id for it. */
KESTREL_RECORD(OpaqueDVPortData, 176)
typedef struct OpaqueDVPortData {
  char dvPortId[48];     // @0
  char externalId[128];  // @48
} KESTREL_PACKED OpaqueDVPortData;

/** A distributed port and the identifier of its connection. */
KESTREL_RECORD(DVPortData, 52)
typedef struct DVPortData {
  char dvPortId[48];     // @0
  zel_uint32 connectId;  // @48
} KESTREL_PACKED DVPortData;

/** The `nports` distributed ports of one type; the array holds one and goes on behind the record. */
KESTREL_RECORD(DVPortList, 60)
typedef struct DVPortList {
  int nports;            // @0
  DVSPortType type;      // @4
  DVPortData dvPort[1];  // @8 counted by nports
} KESTREL_PACKED DVPortList;

/** An IPv4 or IPv6 address, as `isIPv6` says, in network byte order. */
KESTREL_RECORD(DVMirrorIP, 20)
typedef struct DVMirrorIP {
  zel_Bool isIPv6;   // @0
  zel_uint8 pad[3];  // @1
  union {
    zel_SocketIPAddressAddr ipv4;    // @4
    zel_SocketIPv6AddressAddr ipv6;  // @4
  };
} KESTREL_PACKED DVMirrorIP;

/** One source or destination of a mirror session; `type` selects the view of the bytes behind it. */
KESTREL_RECORD(DVMirrorEntity, 52)
typedef struct DVMirrorEntity {
  DVMirrorEntityType type;  // @0
  union {
    char dvPortId[48];     // @4
    zel_Name uplink;       // @4
    zel_uint16 vlan;       // @4
    DVMirrorIP ip;         // @4
    zel_uint32 portId;     // @4
    unsigned char mac[6];  // @4
  } KESTREL_PACKED;
} KESTREL_PACKED DVMirrorEntity;

/** An IPv4 or IPv6 prefix of a mirror filter; `prefix_length` is in bits. */
KESTREL_RECORD(DVMirrorIpPrefix, 20)
typedef struct DVMirrorIpPrefix {
  zel_Bool isIPv6;          // @0
  zel_uint8 prefix_length;  // @1
  zel_uint8 pad[2];         // @2
  union {
    zel_SocketIPAddressAddr ipv4;    // @4
    zel_SocketIPv6AddressAddr ipv6;  // @4
  };
} KESTREL_PACKED DVMirrorIpPrefix;

/** A range of transport ports, both ends included. */
KESTREL_RECORD(DVMirrorPortRanage, 4)
typedef struct DVMirrorPortRanage {
  zel_uint16 begin;  // @0
  zel_uint16 end;    // @2
} KESTREL_PACKED DVMirrorPortRanage;

/** A rule that decides which packets a session mirrors. Its addresses are slots of the table's prefix list,
 * sources first. */
KESTREL_RECORD(DVMirrorFilterRule, 21)
typedef struct DVMirrorFilterRule {
  zel_uint16 startIPIdx;        // @0
  zel_uint16 numSrcIPs;         // @2
  zel_uint16 numDstIPs;         // @4
  zel_uint16 protocol;          // @6
  zel_uint8 has_protocol : 1;   // @8:0
  zel_uint8 has_srcports : 1;   // @8:1
  zel_uint8 has_dstports : 1;   // @8:2
  zel_uint8 reserved : 5;       // @8:3..7
  DVMirrorPortRanage srcPorts;  // @9
  DVMirrorPortRanage dstPorts;  // @13
  DVMirrorFilterAction action;  // @17
} KESTREL_PACKED DVMirrorFilterRule;

/** A mirror session. Its entities are slots of the table's entity list from `startIdx`: destinations, then
 * ingress sources, then egress sources. */
KESTREL_RECORD(DVMirrorSession, 232)
typedef struct DVMirrorSession {
  char sid[32];                     // @0
  char dname[81];                   // @32
  char pad0[3];                     // @113
  DVMirrorSessionType type;         // @116
  zel_uint32 snapLen;               // @120 bytes kept of each packet; all ones: complete
  zel_uint32 flags;                 // @124 VS_DVMIRROR_FLAG_*
  zel_uint16 encapVlan;             // @128
  zel_uint16 wildIn;                // @130
  zel_uint16 wildOut;               // @132
  zel_uint16 pad1;                  // @134
  zel_uint32 samplingRate;          // @136 one packet of so many
  zel_uint32 greKey;                // @140
  DVMirrorFilterType uplinkFilter;  // @144
  zel_Bool stack;                   // @148
  DVMirrorEncapType encapType;      // @149
  zel_uint16 erspanID;              // @153
  zel_uint8 erspanCOS;              // @155
  zel_uint8 erspanGra;              // @156
  zel_uint16 numFilterRules;        // @157
  zel_uint16 startRuleIdx;          // @159
  char pad2[55];                    // @161
  zel_uint32 numDstEntities;        // @216
  zel_uint32 numSrcInEntities;      // @220
  zel_uint32 numSrcOutEntities;     // @224
  zel_uint32 startIdx;              // @228
} KESTREL_PACKED DVMirrorSession;

/** A packed table of mirror sessions: this head, `numSessions` sessions, `numEntities` entities,
 * `numFilterRules` rules, `numFilterIPs` prefixes. */
KESTREL_RECORD(DVMirrorSessionTable, 20)
typedef struct DVMirrorSessionTable {
  zel_uint32 magicNum;          // @0 VS_DVMIRROR_MAGIC_NUM
  DVMirrorVersion version;      // @4
  zel_uint32 numSessions;       // @8
  zel_uint32 numEntities;       // @12 DVMirrorEntity entities follow the sessions
  zel_uint16 numFilterRules;    // @16 DVMirrorFilterRule filterRules follow the entities
  zel_uint16 numFilterIPs;      // @18 DVMirrorIpPrefix filterIPs follow the rules
  DVMirrorSession sessions[0];  // @20 counted by numSessions
} KESTREL_PACKED DVMirrorSessionTable;
