/* Steps through packed tables whose entries vary in length. No step knows where its table ends: the caller
   counts with the table's head. */
#pragma once

#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The first LAG, right behind the table's head, whatever the count says. */
VSLAGStatus *VSLAGTable_vs_lag_table_first_lag(VSLAGTable *table);
/** The LAG behind this one's uplink names. */
VSLAGStatus *VSLAGStatus_vs_lag_table_next_lag(VSLAGStatus *status);

#ifdef __cplusplus
}
#endif
