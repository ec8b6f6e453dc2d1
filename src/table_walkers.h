/* Steps through packed tables whose entries vary in length, and copies of embedded records. No step knows where its
   table ends: the caller counts with the table's head. */
#pragma once

#include "kestrel/mirror_records.h"
#include "kestrel/runtime_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The first LAG, right behind the table's head, whatever the count says. */
VSLAGStatus *VSLAGTable_vs_lag_table_first_lag(VSLAGTable *table);
/** The LAG behind this one's uplink names. */
VSLAGStatus *VSLAGStatus_vs_lag_table_next_lag(VSLAGStatus *status);

/** The first mirror session, right behind the table's head, whatever the count says. */
DVMirrorSession *DVMirrorSessionTable_get_first_session(DVMirrorSessionTable *table);
/** Entity number `index` of the whole table's entities, which lie behind its sessions. */
DVMirrorEntity *DVMirrorSessionTable_get_first_session_entity(DVMirrorSessionTable *table, int index);
/** The entity behind this one; there is always one. */
DVMirrorEntity *DVMirrorEntity___next__(DVMirrorEntity *entity);

/** Copies, for the caller to own, of the record behind the port identifier; null when there is no memory. */
VSPMACLearningStats *VSPMACLearningStatsPortInfo_get_mac_learning_stats(VSPMACLearningStatsPortInfo *info);
VSPropSecurity *VSPropSecurityPortInfo_get_port_sec(VSPropSecurityPortInfo *info);
VSPMACLearning *VSPMACLearningInfo_get_mac_learning_config(VSPMACLearningInfo *info);

#ifdef __cplusplus
}
#endif
