/* The life of the configuration as a whole. */
#include "host/abi/guard.h"
#include "host/core/process_host.h"
#include "kestrel/state_store.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSLoadConfig(void) {
  return ChangeCall([] { ChangeHost().LoadConfig(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_StateSanitize(void) {
  return ChangeCall([] { ChangeHost().Sanitize(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_StateCleanup(void) {
  return ChangeCall([] { ChangeHost().Cleanup(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_ConfigReset(void) {
  return ChangeCall([] { ChangeHost().ResetConfig(); });
}
