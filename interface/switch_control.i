/* The platform's runtime queries and configuration functions, and its base library. */

%header %{
#include "kestrel/core.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
%}

/* Panic takes no part in the exception channel: the channel is what it reports through. */
%exception Panic "$action";

%include "kestrel/core.h"
KESTREL_TABLES_GO_BACK_BY(VSZEL_FreeMemory)
%include "kestrel/runtime_queries.h"
KESTREL_TABLES_GO_BACK_BY(VSDVS_FreeMemory)
%include "kestrel/switch_config.h"

/* SWIG spells a type that has two names with the resolved one last; this one reads the other way round. */
%init %{
  SWIGTYPE_p_p_VSUplinks->str = "struct VSUplinks **|VSUplinks **";
%}
