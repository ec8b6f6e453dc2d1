/* The records, in the order of the headers that declare them, and the arrays of records. */

%header %{
#include "kestrel/base_records.h"
#include "kestrel/mirror_records.h"
#include "kestrel/option_records.h"
#include "kestrel/packet_headers.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"
%}

/* Records that scripts hold and pass on without seeing into them. */
%nodefaultctor VSIOCtlQuery_mcastFilter;
%nodefaultdtor VSIOCtlQuery_mcastFilter;
typedef struct {
} VSIOCtlQuery_mcastFilter;
%nodefaultctor VSIOCtlQuery_uplink;
%nodefaultdtor VSIOCtlQuery_uplink;
typedef struct {
} VSIOCtlQuery_uplink;

%include "kestrel/base_records.h"
%include "kestrel/packet_headers.h"
%include "kestrel/mirror_records.h"
%include "kestrel/policy_records.h"
%include "kestrel/runtime_records.h"
%include "kestrel/option_records.h"

/** A plain array of records: no class registration and no member accessors; a pointer to it is one to its first
    element. */
%define KESTREL_ARRAY(NAME, ELEMENT)
typedef struct {} NAME;
%extend NAME {
  NAME(size_t n);
  ELEMENT getitem(size_t index);
  void setitem(size_t index, ELEMENT value);
}
%types(NAME = struct ELEMENT);
%enddef
KESTREL_ARRAY(vidrangeArray, zel_VDSPortVIDRange)
KESTREL_ARRAY(pvlanmapentryArray, VSPvlanMapEntry)
