/* libpraxa.so: the distributed-switch state store (DVS*). */
#pragma once

#include "kestrel/mirror_records.h"

/* Two markers that the platform's headers define as nothing. Scripts call them as functions without effect.
 */
#ifdef SWIG
void MIRROR_ENCAP_TYPE(void);
void MIRROR_ASSERT(void);
#else
#define MIRROR_ENCAP_TYPE()
#define MIRROR_ASSERT()
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Loads the configuration that the store keeps, in place of the one in use. */
ZEL_ReturnStatus DVSLoadConfig(void);

/** Drops from the state what nothing refers to any more. */
ZEL_ReturnStatus DVSZEL_StateSanitize(void);

/** Releases the state; ports and switches are gone until the configuration is loaded anew. */
ZEL_ReturnStatus DVSZEL_StateCleanup(void);

/** Empties the configuration: every property of every switch and port goes back to its default. */
ZEL_ReturnStatus DVSState_ConfigReset(void);

#ifdef __cplusplus
}
#endif
