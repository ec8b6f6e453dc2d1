/* Names and addresses in records as text. */
#pragma once

#include "bounded_text.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The name's text. */
kestrel_Text zel_Name___repr__(zel_Name *name);
/** The LAG's name. */
kestrel_Text VSLAGStatus_get_name(VSLAGStatus *status);
/** The name of uplink number `index`; no text, and no message, for an index outside the list. */
kestrel_Text VSLAGStatus_get_uplink_name(VSLAGStatus *status, int index);

#ifdef __cplusplus
}
#endif
