#include "table_walkers.h"

VSLAGStatus *VSLAGTable_vs_lag_table_first_lag(VSLAGTable *table) {
  return reinterpret_cast<VSLAGStatus *>(table + 1);
}

VSLAGStatus *VSLAGStatus_vs_lag_table_next_lag(VSLAGStatus *status) {
  return reinterpret_cast<VSLAGStatus *>(status->uplinkNames + status->numUplinks);
}
