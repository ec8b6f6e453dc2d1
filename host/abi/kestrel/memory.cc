/* Taking back the records that were handed out: each is one block from malloc. */
#include <cstdlib>

#include "host/export.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_FreeMemory(void *memory) {
  std::free(memory);
  return ZEL_OK;
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_FreeMemory(void *memory) {
  std::free(memory);
  return ZEL_OK;
}
