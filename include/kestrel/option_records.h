/* Runtime options and runtime-module queries. */
#pragma once

#include "kestrel/base_records.h"

/** Head of one runtime option; `length` counts the head too. */
KESTREL_RECORD(VSRuntimeOptionHeader, 4)
typedef struct VSRuntimeOptionHeader {
  zel_uint16 type;    // @0
  zel_uint16 length;  // @2
  zel_uint8 data[0];  // @4 counted by length, head included
} KESTREL_PACKED VSRuntimeOptionHeader;

/** A packed list of runtime options; `totalLength` is the whole record's length in bytes. */
KESTREL_RECORD(VSRuntimeOptions, 4)
typedef struct VSRuntimeOptions {
  zel_uint32 totalLength;  // @0 bytes of the whole record; VSRuntimeOptionHeader options follow
} VSRuntimeOptions;

/** A portset and its datapath modes. */
KESTREL_RECORD(RTM_Portset, 136)
typedef struct RTM_Portset {
  char psName[128];          // @0
  zel_uint32 ensSwitchMode;  // @128
  zel_uint32 ensPsMode;      // @132
} KESTREL_PACKED RTM_Portset;

/** A request over portsets; `maxAllowedOutage` is in milliseconds. */
KESTREL_RECORD(RTMIOCtlQuery, 9)
typedef struct RTMIOCtlQuery {
  zel_uint32 numPortsets;       // @0
  zel_Bool isTRVV;              // @4
  zel_uint32 maxAllowedOutage;  // @5 milliseconds
  RTM_Portset rtmPs[0];         // @9 counted by numPortsets
} KESTREL_PACKED RTMIOCtlQuery;

/** A module and whether the request comes from it. */
KESTREL_RECORD(RTM_ModInfo, 5)
typedef struct RTM_ModInfo {
  zel_Bool isFromMod;  // @0
  zel_ModuleID ModID;  // @1
} KESTREL_PACKED RTM_ModInfo;

/** A request over the modules of a portset. */
KESTREL_RECORD(RTMModIOCtlQuery, 132)
typedef struct RTMModIOCtlQuery {
  zel_uint32 numMod;        // @0
  char psName[128];         // @4
  RTM_ModInfo rtmModId[0];  // @132 counted by numMod
} KESTREL_PACKED RTMModIOCtlQuery;

/** A request for one port of a world. */
KESTREL_RECORD(RTMPortIOCtlQuery, 9)
typedef struct RTMPortIOCtlQuery {
  zel_WorldID worldID;        // @0
  zel_SwitchPortID portID;    // @4
  zel_Bool isAssociatedPort;  // @8
} KESTREL_PACKED RTMPortIOCtlQuery;

/** Input and output buffers of a request to the runtime-module device. */
KESTREL_RECORD(RTMIOCtlData, 24)
typedef struct RTMIOCtlData {
  zel_uint32 dataInLen;   // @0
  zel_uint32 dataOutLen;  // @4
  zel_uint64 dataInPtr;   // @8
  zel_uint64 dataOutPtr;  // @16
} KESTREL_PACKED RTMIOCtlData;
