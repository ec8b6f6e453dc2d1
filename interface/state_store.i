/* The distributed-switch state store. */

%header %{
#include "kestrel/state_store.h"
%}

%include "kestrel/state_store.h"
