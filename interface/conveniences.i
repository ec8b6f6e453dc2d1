/* The conveniences of src/: allocation helpers as functions, the others as methods of the records. */

%header %{
#include "address_text.h"
#include "allocation.h"
#include "indexed_access.h"
#include "switch_list.h"
#include "table_walkers.h"
%}

/** Text in a field of fixed width: str, or None. */
%typemap(out,noblock=1,fragment="SWIG_FromCharPtrAndSize",fragment="SWIG_strnlen") kestrel_Text {
  %set_output(SWIG_FromCharPtrAndSize($1.text, $1.text ? SWIG_strnlen($1.text, $1.width) : 0));
}

/* ---- Constructors that take a count ---- */

%extend VSUplinkPorts { VSUplinkPorts(int n); }
%extend VSUplinkPortIds { VSUplinkPortIds(int n); }
%extend VSUplinks { VSUplinks(int n); }
%extend VSRuntimeOptions { VSRuntimeOptions(int size); }

/* ---- Allocation helpers and the switch list ---- */

#define KESTREL_EXPORT
%newobject VSZEL_GetSwitchesPy;
%include "allocation.h"
%include "switch_list.h"

%extend VSList { kestrel_Text __getitem__(int index); }

/* ---- Table walkers ---- */

%extend VSLAGTable { VSLAGStatus *vs_lag_table_first_lag(); }
%extend VSLAGStatus { VSLAGStatus *vs_lag_table_next_lag(); }

/* ---- Names and addresses as text ---- */

%extend zel_Name { kestrel_Text __repr__(); }
%extend VSLAGStatus {
  kestrel_Text get_name();
  kestrel_Text get_uplink_name(int index);
}

/* ---- Indexed access ---- */

%extend VSUplinks {
  int __len__();
  kestrel_Text __getitem__(int index);
}

%newobject VSMACEntry::__getitem__;
%extend VSMACEntry { VSMACEntry *__getitem__(int index); }
