/* Taking back the records that were handed out: each is one block from malloc. */
#include <cstdlib>

#include "host/abi/guard.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_FreeMemory(void *memory) {
  return PlainCall([&] { std::free(memory); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_FreeMemory(void *memory) {
  return PlainCall([&] { std::free(memory); });
}
