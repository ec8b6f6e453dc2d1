/* Peer: everything that the module wraps, from the same headers, as SWIG makes it when it is told nothing else. */
%{
#include "kestrel/base_records.h"
#include "kestrel/core.h"
#include "kestrel/mirror_records.h"
#include "kestrel/option_records.h"
#include "kestrel/packet_headers.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/runtime_records.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
%}

#define KESTREL_RECORD(name, size)
#define KESTREL_READ_ONLY(member) member
#define KESTREL_INT(name, value) %constant long long name = value;
#define KESTREL_STR(name, text) %constant char *name = text;
#define KESTREL_STATUS(name, value, text) %constant long long name = value;
%include "kestrel/types.h"
%include "kestrel/constants.def"
%include "kestrel/base_records.h"
%include "kestrel/packet_headers.h"
%include "kestrel/mirror_records.h"
%include "kestrel/policy_records.h"
%include "kestrel/runtime_records.h"
%include "kestrel/option_records.h"
%include "kestrel/core.h"
%include "kestrel/runtime_queries.h"
%include "kestrel/switch_config.h"
%include "kestrel/state_store.h"
