/* The conveniences of src/: allocation helpers and look-ups as functions, the others as methods of the records. */

%header %{
#include "address_text.h"
#include "allocation.h"
#include "indexed_access.h"
#include "runtime_options.h"
#include "switch_list.h"
#include "table_walkers.h"
%}

/* ---- Results that say more than a plain C type; results.h tells what each means ---- */

%typemap(out,noblock=1,fragment="SWIG_FromCharPtrAndSize",fragment="SWIG_strnlen") kestrel_Text {
  %set_output(SWIG_FromCharPtrAndSize($1.text, $1.text ? SWIG_strnlen($1.text, $1.width) : 0));
}

%typemap(out,noblock=1,fragment="SWIG_FromCharPtr") kestrel_OwnText {
  %set_output(SWIG_FromCharPtr($1.present ? $1.text : NULL));
}

%typemap(out,noblock=1) kestrel_Bytes {
  %set_output($1.data ? PyBytes_FromStringAndSize($1.data, $1.size) : SWIG_Py_Void());
}

%typemap(out,noblock=1) kestrel_SessionId {
  %set_output($1.bytes ? PyBytes_FromStringAndSize($1.bytes, 32) : NULL);
}

%typemap(out,noblock=1) kestrel_OptionValue {
  %set_output($1.text ? PyBytes_FromString($1.text) : PyLong_FromUnsignedLong($1.number));
}

/* ---- Constructors that take a count ---- */

%extend VSUplinkPorts { VSUplinkPorts(int n); }
%extend VSUplinkPortIds { VSUplinkPortIds(int n); }
%extend VSUplinks { VSUplinks(int n); }
%extend VSRuntimeOptions { VSRuntimeOptions(int size); }

/* ---- Functions: allocation, the list of switches, option names ---- */

/** What an allocator made is released when there is no memory for the object that would designate it. */
%define KESTREL_ALLOCATOR(RECORD, NAME)
%typemap(ret,noblock=1) RECORD *alloc_##NAME {
  if (!resultobj) free_##NAME($1);
}
%enddef
KESTREL_ALLOCATOR(VSInfo, vs_info)
KESTREL_ALLOCATOR(RTMIOCtlQuery, rtm_query)
KESTREL_ALLOCATOR(RTMModIOCtlQuery, rtm_mod_query)
KESTREL_ALLOCATOR(VDSQuery, vds_query)
KESTREL_ALLOCATOR(LSTeamTable, ls_team_table)
KESTREL_ALLOCATOR(DVMirrorSessionTable, dvmirror_session_table)

#define KESTREL_EXPORT
%newobject VSZEL_GetSwitchesPy;
%include "allocation.h"
%include "switch_list.h"
%include "runtime_options.h"

/* ---- Indexed access ---- */

%define KESTREL_NAMES(RECORD)
%extend RECORD {
  kestrel_Text __getitem__(int index);
  void __setitem__(int index, const char *name);
}
%enddef
KESTREL_NAMES(VSUplinks)
KESTREL_NAMES(VSUplinkPorts)
KESTREL_NAMES(VSUplinkPortIds)
KESTREL_NAMES(VSLAGStatus)
KESTREL_NAMES(VSTeamPolicy)
KESTREL_NAMES(LSTeamPolicy)

%extend VSUplinks { int __len__(); }
%extend VSUplinkPorts { int __len__(); }
%extend VSUplinkPortIds { int __len__(); }

%extend VSDVMirrorSessionIDs { kestrel_SessionId __getitem__(int index); }
%extend VSList { kestrel_Text __getitem__(int index); }

%extend VSPromiscSessionActiveDsts {
  zel_SwitchPortID __getitem__(int index);
  void __setitem__(int index, zel_SwitchPortID portID);
}

%define KESTREL_ELEMENTS(RECORD, ELEMENT)
%extend RECORD {
  ELEMENT *__getitem__(int index);
  void __setitem__(int index, const ELEMENT *value);
}
%enddef
KESTREL_ELEMENTS(LSTeamTable, LSTeamPolicy)
KESTREL_ELEMENTS(DVMirrorSessionTable, DVMirrorSession)
KESTREL_ELEMENTS(RTMIOCtlQuery, RTM_Portset)
KESTREL_ELEMENTS(RTMModIOCtlQuery, RTM_ModInfo)

/* A record that may be the first of a run. */
%define KESTREL_RUN(RECORD)
%newobject RECORD::__getitem__;
%extend RECORD { RECORD *__getitem__(int index); }
%enddef
KESTREL_RUN(VSPvlanMapEntry)
KESTREL_RUN(VSMACEntry)
KESTREL_RUN(VSStaticLEEntry)
KESTREL_RUN(VSPMACLearningStatsPortInfo)
KESTREL_RUN(VSPropSecurityPortInfo)
KESTREL_RUN(VSPMACLearningInfo)

%extend VSStaticLEEntry { zel_uint64 vlan_get_values(int index); }
%newobject VSPortVlanPolicy::get_vid_range;
%extend VSPortVlanPolicy { zel_VDSPortVIDRange *get_vid_range(int index); }
%extend VDSQuery { kestrel_Bytes get_val_in_bytes(); }

/* ---- Table walkers and copies of embedded records ---- */

%extend VSLAGTable { VSLAGStatus *vs_lag_table_first_lag(); }
%extend VSLAGStatus { VSLAGStatus *vs_lag_table_next_lag(); }
%extend DVMirrorSessionTable {
  DVMirrorSession *get_first_session();
  DVMirrorEntity *get_first_session_entity(int index);
}
%extend DVMirrorEntity { DVMirrorEntity *__next__(); }

%newobject VSPMACLearningStatsPortInfo::get_mac_learning_stats;
%extend VSPMACLearningStatsPortInfo { VSPMACLearningStats *get_mac_learning_stats(); }
%newobject VSPropSecurityPortInfo::get_port_sec;
%extend VSPropSecurityPortInfo { VSPropSecurity *get_port_sec(); }
%newobject VSPMACLearningInfo::get_mac_learning_config;
%extend VSPMACLearningInfo { VSPMACLearning *get_mac_learning_config(); }

/* ---- Addresses and names as text ---- */

%extend VSMACEntry { void set_mac_address(unsigned char const *mac, size_t size); }
%extend VSMACEntries { void set_mac_address(int index, unsigned char const *mac, size_t size); }
%extend VSStaticLEEntry { void set_mac_address(unsigned char const *mac, size_t size); }

%extend VSMcastFilters {
  kestrel_OwnText get_ip_entry(int index);
  kestrel_OwnText get_ipv6_entry(int index);
  kestrel_OwnText get_mac_entry(int index);
}
%extend VSMcastFilterStats {
  kestrel_OwnText get_ip_entry(int index);
  kestrel_OwnText get_ipv6_entry(int index);
}
%extend VSUserMcastLegacyKeys { kestrel_OwnText get_mac_entry(int index); }

%extend DVMirrorEntity {
  kestrel_OwnText get_entity();
  void set_entity(const char *text);
}

%extend zel_Name { kestrel_Text __repr__(); }
%extend VSLAGStatus {
  kestrel_Text get_name();
  kestrel_Text get_uplink_name(int index);
}

/* ---- Runtime option lists ---- */

%extend VSRuntimeOptions {
  void set_options_length(int length);
  VSRuntimeOptionHeader *get_first_option();
  VSRuntimeOptionHeader *get_next_option(VSRuntimeOptionHeader *entry);
  VSRuntimeOptionHeader *add_int_option(VSRuntimeOptionHeader *entry, char *name, int type, int value);
  VSRuntimeOptionHeader *add_str_option(VSRuntimeOptionHeader *entry, char *name, int type, char *value);
}
%extend VSRuntimeOptionHeader {
  const char *get_option_name();
  kestrel_OptionValue get_option_value();
}
