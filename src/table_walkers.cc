#include "table_walkers.h"

#include "record_copy.hh"

VSLAGStatus *VSLAGTable_vs_lag_table_first_lag(VSLAGTable *table) { return reinterpret_cast<VSLAGStatus *>(table + 1); }

VSLAGStatus *VSLAGStatus_vs_lag_table_next_lag(VSLAGStatus *status) {
  return reinterpret_cast<VSLAGStatus *>(status->uplinkNames + status->numUplinks);
}

DVMirrorSession *DVMirrorSessionTable_get_first_session(DVMirrorSessionTable *table) { return table->sessions; }

DVMirrorEntity *DVMirrorSessionTable_get_first_session_entity(DVMirrorSessionTable *table, int index) {
  return reinterpret_cast<DVMirrorEntity *>(table->sessions + table->numSessions) + index;
}

DVMirrorEntity *DVMirrorEntity___next__(DVMirrorEntity *entity) { return entity + 1; }

VSPMACLearningStats *VSPMACLearningStatsPortInfo_get_mac_learning_stats(VSPMACLearningStatsPortInfo *info) {
  return copy_of(&info->portStats);
}

VSPropSecurity *VSPropSecurityPortInfo_get_port_sec(VSPropSecurityPortInfo *info) {
  return copy_of(&info->l2SecPortInfo);
}

VSPMACLearning *VSPMACLearningInfo_get_mac_learning_config(VSPMACLearningInfo *info) {
  return copy_of(&info->portMACLearning);
}
