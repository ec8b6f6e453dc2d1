/* The platform's base types, and the macros that mark records and callbacks.

   Layout is fixed: the same bytes on x86-64 and 64-bit Arm, little-endian, whatever the compiler's sign of
   char. Each record member carries its offset, and its bits where it is a bit-field, in the comment behind it
   ("@8", "@8:0..3"); the build turns these into compile-time assertions. */
#pragma once

#include <stddef.h>

#include "kestrel/constants.h"

#ifdef SWIG
#define KESTREL_PACKED
#else
#define KESTREL_PACKED __attribute__((packed))
/** Announces the record that follows, with its size in bytes; everything derived from the headers starts
 * here. */
#define KESTREL_RECORD(name, size)
/** A member that scripts may read and not replace. */
#define KESTREL_READ_ONLY(member) member
#endif

typedef unsigned char zel_uint8;
typedef unsigned short zel_uint16;
typedef unsigned int zel_uint32;
typedef unsigned long long zel_uint64;
typedef int zel_int32;

/** One byte, 0 for false. A character and not an integer type at the boundary to scripts. */
typedef char zel_Bool;

/** A status code of constants.def: ZEL_OK or a failure. */
typedef int ZEL_ReturnStatus;

typedef zel_uint64 zel_ByteCount;
typedef zel_uint32 zel_ByteCountSmall;
typedef zel_uint32 zel_revnum;
/** In network byte order. */
typedef zel_uint32 zel_IPv4Address;
/** In Mbit/s. */
typedef zel_uint32 zel_LinkSpeed;
typedef zel_uint16 zel_VlanID;
typedef zel_uint32 zel_SwitchPortID;
typedef zel_int32 zel_ModuleID;
typedef zel_int32 zel_WorldID;
typedef zel_uint32 zel_PortsetResPoolShares;
typedef zel_int32 zel_PortsetResPoolLimit;
typedef zel_int32 zel_PortsetResPoolReservation;
typedef zel_uint8 zel_PortsetResPoolPriorityTag;
typedef zel_int32 zel_PortsetResPoolQueueDepth;
/** A version of the distributed switch: DVS_VERSION_*. */
typedef zel_uint32 VDSVersion;
