/* Protocol headers as they stand in a frame: multi-byte members hold network byte order. */
#pragma once

#include "kestrel/base_records.h"

/** Ethernet II header (IEEE 802.3). */
KESTREL_RECORD(zel_EthHdr, 14)
typedef struct zel_EthHdr {
  unsigned char daddr[6];  // @0
  unsigned char saddr[6];  // @6
  zel_uint16 type;         // @12 ZEL_ETH_TYPE_*_NBO
} KESTREL_PACKED zel_EthHdr;

/** VLAN tag after the tag's EtherType (IEEE 802.1Q): priority, drop eligibility, 12-bit identifier, inner
 * EtherType. */
KESTREL_RECORD(zel_VLANHdr, 4)
typedef struct zel_VLANHdr {
  zel_uint8 vlanIDHigh : 4;    // @0:0..3
  zel_uint8 dropEligible : 1;  // @0:4
  zel_uint8 priority : 3;      // @0:5..7
  zel_uint8 vlanIDLow;         // @1
  zel_uint16 type;             // @2
} KESTREL_PACKED zel_VLANHdr;

/** ARP and RARP packet for IPv4 over Ethernet (RFC 826, RFC 903). */
KESTREL_RECORD(zel_ArpHdr, 28)
typedef struct zel_ArpHdr {
  zel_uint16 htype;  // @0
  zel_uint16 ptype;  // @2
  zel_uint8 hlen;    // @4
  zel_uint8 plen;    // @5
  zel_uint16 oper;   // @6
  zel_uint8 sha[6];  // @8
  zel_uint32 spa;    // @14 IPv4 address
  zel_uint8 tha[6];  // @18
  zel_uint32 tpa;    // @24 IPv4 address
} KESTREL_PACKED zel_ArpHdr;

/** IPv4 header without options (RFC 791; DSCP and ECN after RFC 2474 and RFC 3168). */
KESTREL_RECORD(zel_IPv4Hdr, 20)
typedef struct zel_IPv4Hdr {
  zel_uint8 headerLength : 4;  // @0:0..3 32-bit words
  zel_uint8 version : 4;       // @0:4..7
  union {
    struct {
      zel_uint8 tos : 5;         // @1:0..4
      zel_uint8 precedence : 3;  // @1:5..7
    };
    struct {
      zel_uint8 ecn : 2;   // @1:0..1
      zel_uint8 dscp : 6;  // @1:2..7
    };
    zel_uint8 qosFlags;  // @1
  };
  zel_uint16 totalLength;     // @2 bytes
  zel_uint16 identification;  // @4
  union {
    struct {
      zel_uint8 fragmentOffsetHigh : 5;  // @6:0..4
      zel_uint8 moreFragments : 1;       // @6:5
      zel_uint8 dontFragment : 1;        // @6:6
      zel_uint8 zero : 1;                // @6:7
      zel_uint8 fragmentOffsetLow;       // @7
    };
    zel_uint16 fragmentInfo;  // @6
  } KESTREL_PACKED;
  zel_uint8 ttl;          // @8
  zel_uint8 protocol;     // @9 ZEL_IP_PROTO_*
  zel_uint16 checksum;    // @10
  zel_IPv4Address saddr;  // @12
  zel_IPv4Address daddr;  // @16
} KESTREL_PACKED zel_IPv4Hdr;

/** IPv6 header (RFC 8200). */
KESTREL_RECORD(zel_IPv6Hdr, 40)
typedef struct zel_IPv6Hdr {
  zel_uint8 trafficClassHigh : 4;  // @0:0..3
  zel_uint8 version : 4;           // @0:4..7
  zel_uint8 flowLabelHigh : 4;     // @1:0..3
  zel_uint8 trafficClassLow : 4;   // @1:4..7
  zel_uint16 flowLabelLow;         // @2
  zel_uint16 payloadLength;        // @4
  zel_uint8 nextHeader;            // @6
  zel_uint8 hopLimit;              // @7
  unsigned char saddr[16];         // @8
  unsigned char daddr[16];         // @24
} KESTREL_PACKED zel_IPv6Hdr;

/** The first eight bytes of an IPv6 extension header (RFC 8200); `hdrExtLength` counts further units of eight
 * bytes. */
KESTREL_RECORD(zel_IPv6ExtHdr, 8)
typedef struct zel_IPv6ExtHdr {
  zel_uint8 nextHeader;    // @0
  zel_uint8 hdrExtLength;  // @1
  zel_uint16 optPad1;      // @2
  zel_uint32 optPad2;      // @4
} KESTREL_PACKED zel_IPv6ExtHdr;

/** The start of an ICMP or ICMPv6 message (RFC 792, RFC 4443). */
KESTREL_RECORD(zel_ICMPHdr, 4)
typedef struct zel_ICMPHdr {
  zel_uint8 type;       // @0
  zel_uint8 code;       // @1
  zel_uint16 checksum;  // @2
} KESTREL_PACKED zel_ICMPHdr;

/** IGMP version 1 and 2 message (RFC 2236); `maxResponseTime` is in tenths of a second. */
KESTREL_RECORD(zel_IGMPHdr, 8)
typedef struct zel_IGMPHdr {
  zel_uint8 type;             // @0
  zel_uint8 maxResponseTime;  // @1
  zel_uint16 checksum;        // @2
  zel_IPv4Address groupAddr;  // @4
} KESTREL_PACKED zel_IGMPHdr;

/** IGMP version 3 membership query (RFC 3376); `numSources` source addresses follow. */
KESTREL_RECORD(zel_IGMPv3QueryHdr, 12)
typedef struct zel_IGMPv3QueryHdr {
  zel_uint8 type;                                     // @0
  zel_uint8 maxResponseCode;                          // @1
  zel_uint16 checksum;                                // @2
  zel_IPv4Address groupAddr;                          // @4
  zel_uint8 qrv : 3;                                  // @8:0..2
  zel_uint8 sFlag : 1;                                // @8:3
  zel_uint8 reserved : 4;                             // @8:4..7
  zel_uint8 qqic;                                     // @9
  zel_uint16 numSources;                              // @10
  KESTREL_READ_ONLY(zel_IPv4Address sourcesIPv4[0]);  // @12 counted by numSources in network byte order
} KESTREL_PACKED zel_IGMPv3QueryHdr;

/** Group record of an IGMP version 3 report (RFC 3376); sources follow, then `dataLength` words of auxiliary
 * data. */
KESTREL_RECORD(zel_IGMPv3GrpRecord, 8)
typedef struct zel_IGMPv3GrpRecord {
  zel_uint8 type;                                     // @0
  zel_uint8 dataLength;                               // @1
  zel_uint16 numSources;                              // @2
  zel_IPv4Address groupIPv4Addr;                      // @4
  KESTREL_READ_ONLY(zel_IPv4Address sourcesIPv4[0]);  // @8 counted by numSources in network byte order
} KESTREL_PACKED zel_IGMPv3GrpRecord;

/** IGMP version 3 membership report (RFC 3376); `numGroups` group records of varying length follow. */
KESTREL_RECORD(zel_IGMPv3ReportHdr, 8)
typedef struct zel_IGMPv3ReportHdr {
  zel_uint8 type;                                    // @0
  zel_uint8 reserved1;                               // @1
  zel_uint16 checksum;                               // @2
  zel_uint16 reserved2;                              // @4
  zel_uint16 numGroups;                              // @6
  KESTREL_READ_ONLY(zel_IGMPv3GrpRecord record[0]);  // @8 counted by numGroups in network byte order
} KESTREL_PACKED zel_IGMPv3ReportHdr;

/** MLD version 1 message (RFC 2710); `maxResponseTime` is in milliseconds. */
KESTREL_RECORD(zel_MLDHdr, 24)
typedef struct zel_MLDHdr {
  zel_uint8 type;                   // @0
  zel_uint8 code;                   // @1
  zel_uint16 checksum;              // @2
  zel_uint16 maxResponseTime;       // @4
  zel_uint16 reserved;              // @6
  unsigned char groupIPv6Addr[16];  // @8
} KESTREL_PACKED zel_MLDHdr;

/** MLD version 2 query (RFC 3810); `numSources` source addresses follow. */
KESTREL_RECORD(zel_MLDv2QueryHdr, 28)
typedef struct zel_MLDv2QueryHdr {
  zel_uint8 type;                                       // @0
  zel_uint8 code;                                       // @1
  zel_uint16 checksum;                                  // @2
  zel_uint16 maxResponseCode;                           // @4
  zel_uint16 reserved1;                                 // @6
  unsigned char groupIPv6Addr[16];                      // @8
  zel_uint8 qrv : 3;                                    // @24:0..2
  zel_uint8 sFlag : 1;                                  // @24:3
  zel_uint8 reserved2 : 4;                              // @24:4..7
  zel_uint8 qqic;                                       // @25
  zel_uint16 numSources;                                // @26
  KESTREL_READ_ONLY(unsigned char sourcesIPv6[0][16]);  // @28 counted by numSources in network byte order
} KESTREL_PACKED zel_MLDv2QueryHdr;

/** Address record of an MLD version 2 report (RFC 3810); sources follow, then `dataLength` words of auxiliary
 * data. */
KESTREL_RECORD(zel_MLDv2GrpRecord, 20)
typedef struct zel_MLDv2GrpRecord {
  zel_uint8 type;                                       // @0
  zel_uint8 dataLength;                                 // @1
  zel_uint16 numSources;                                // @2
  unsigned char groupIPv6Addr[16];                      // @4
  KESTREL_READ_ONLY(unsigned char sourcesIPv6[0][16]);  // @20 counted by numSources in network byte order
} KESTREL_PACKED zel_MLDv2GrpRecord;

/** MLD version 2 report (RFC 3810); `numGroups` address records of varying length follow. */
KESTREL_RECORD(zel_MLDv2ReportHdr, 8)
typedef struct zel_MLDv2ReportHdr {
  zel_uint8 type;                                   // @0
  zel_uint8 reserved1;                              // @1
  zel_uint16 checksum;                              // @2
  zel_uint16 reserved2;                             // @4
  zel_uint16 numGroups;                             // @6
  KESTREL_READ_ONLY(zel_MLDv2GrpRecord record[0]);  // @8 counted by numGroups in network byte order
} KESTREL_PACKED zel_MLDv2ReportHdr;

/** UDP header (RFC 768). */
KESTREL_RECORD(zel_UDPHdr, 8)
typedef struct zel_UDPHdr {
  zel_uint16 srcPort;   // @0
  zel_uint16 dstPort;   // @2
  zel_uint16 length;    // @4
  zel_uint16 checksum;  // @6
} KESTREL_PACKED zel_UDPHdr;

/** TCP header without options (RFC 9293). */
KESTREL_RECORD(zel_TCPHdr, 20)
typedef struct zel_TCPHdr {
  zel_uint16 srcPort;        // @0
  zel_uint16 dstPort;        // @2
  zel_uint32 seq;            // @4
  zel_uint32 ackSeq;         // @8
  zel_uint8 reserved : 4;    // @12:0..3
  zel_uint8 dataOffset : 4;  // @12:4..7 32-bit words
  union {
    struct {
      zel_uint8 fin : 1;  // @13:0
      zel_uint8 syn : 1;  // @13:1
      zel_uint8 rst : 1;  // @13:2
      zel_uint8 psh : 1;  // @13:3
      zel_uint8 ack : 1;  // @13:4
      zel_uint8 urg : 1;  // @13:5
      zel_uint8 ece : 1;  // @13:6
      zel_uint8 cwr : 1;  // @13:7
    };
    zel_uint8 flags;  // @13
  };
  zel_uint16 window;    // @14
  zel_uint16 checksum;  // @16
  zel_uint16 urgPtr;    // @18
} KESTREL_PACKED zel_TCPHdr;

/** ESP header (RFC 4303). */
KESTREL_RECORD(zel_ESPHdr, 8)
typedef struct zel_ESPHdr {
  zel_uint32 spi;  // @0
  zel_uint32 seq;  // @4
} KESTREL_PACKED zel_ESPHdr;

/** The platform's fence header: fragment marks and a 24-bit fence identifier. */
KESTREL_RECORD(zel_FenceHdr, 4)
typedef struct zel_FenceHdr {
  zel_uint8 version : 2;     // @0:0..1
  zel_uint8 frag : 1;        // @0:2
  zel_uint8 fragmentID : 5;  // @0:3..7
  zel_uint32 fenceID : 24;   // @0:8..31
} KESTREL_PACKED zel_FenceHdr;

/** VXLAN header (RFC 7348); the identifier is the low 24 bits of its word. */
KESTREL_RECORD(zel_VXLANHdr, 8)
typedef struct zel_VXLANHdr {
  zel_uint8 flags1 : 1;            // @0:0
  zel_uint8 locallyReplicate : 1;  // @0:1
  zel_uint8 flags1b : 1;           // @0:2
  zel_uint8 instanceID : 1;        // @0:3
  zel_uint8 flags2 : 4;            // @0:4..7
  zel_uint32 reserved1 : 24;       // @0:8..31
  zel_uint32 vxlanID : 24;         // @4:0..23
  zel_uint8 reserved2;             // @7
} KESTREL_PACKED zel_VXLANHdr;

/** GRE header (RFC 1701, RFC 2784, RFC 2890); optional words follow as the flags say. */
KESTREL_RECORD(zel_GREHdr, 4)
typedef struct zel_GREHdr {
  union {
    struct {
      zel_uint8 reserved1 : 3;          // @0:0..2
      zel_uint8 strictSourceRoute : 1;  // @0:3
      zel_uint8 sequencePresent : 1;    // @0:4
      zel_uint8 keyPresent : 1;         // @0:5
      zel_uint8 routingPresent : 1;     // @0:6
      zel_uint8 checksumPresent : 1;    // @0:7
      zel_uint8 version : 3;            // @1:0..2
      zel_uint8 reserved2 : 4;          // @1:3..6
      zel_uint8 ackPresent : 1;         // @1:7
    };
    zel_uint16 flags;  // @0
  } KESTREL_PACKED;
  zel_uint16 protocol;    // @2 ZEL_ETH_TYPE_*_NBO
  zel_uint32 options[0];  // @4 counted by flags: a word each for checksum or routing, key, sequence and ack
} KESTREL_PACKED zel_GREHdr;

/** Geneve header (RFC 8926); `optionsLength` counts the option words that follow. */
KESTREL_RECORD(zel_GeneveHdr, 8)
typedef struct zel_GeneveHdr {
  zel_uint8 optionsLength : 6;       // @0:0..5
  zel_uint8 version : 2;             // @0:6..7
  zel_uint8 reserved1 : 6;           // @1:0..5
  zel_uint8 criticalOptions : 1;     // @1:6
  zel_uint8 oamFrame : 1;            // @1:7
  zel_uint16 protocolType;           // @2
  zel_uint32 virtualNetworkId : 24;  // @4:0..23
  zel_uint32 reserved2 : 8;          // @4:24..31
  zel_uint32 options[0];             // @8 counted by optionsLength
} KESTREL_PACKED zel_GeneveHdr;

/** Header of one Geneve option (RFC 8926); `optLength` counts the data words that follow. */
KESTREL_RECORD(zel_GeneveOptionHdr, 4)
typedef struct zel_GeneveOptionHdr {
  zel_uint16 optClass;      // @0
  zel_uint8 optType;        // @2
  zel_uint8 optLength : 5;  // @3:0..4
  zel_uint8 reserved : 3;   // @3:5..7
} KESTREL_PACKED zel_GeneveOptionHdr;

/** PIM version 2 header (RFC 7761). */
KESTREL_RECORD(zel_PIMHdr, 4)
typedef struct zel_PIMHdr {
  zel_uint8 type : 4;     // @0:0..3
  zel_uint8 version : 4;  // @0:4..7
  zel_uint8 reserved;     // @1
  zel_uint16 checksum;    // @2
} KESTREL_PACKED zel_PIMHdr;
