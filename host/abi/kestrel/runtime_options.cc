/* The runtime options of the host. */
#include <cstring>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "kestrel/runtime_queries.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetRuntimeOptions(const zel_uint16 *types, zel_uint16 count,
                                                             VSRuntimeOptions **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const auto bytes = BytesArgument(types, static_cast<long long>(count) * static_cast<long long>(sizeof *types));
    std::vector<zel_uint16> codes(count);
    if (count != 0) std::memcpy(codes.data(), bytes.data(), bytes.size());
    SetOutput(tableOut, BlockOf<VSRuntimeOptions>(ReadHost().options().Pack(codes)));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetRuntimeOptions(VSRuntimeOptions *options) {
  return ChangeCall([&] {
    RequirePointer(options);
    zel_uint32 length = 0;
    std::memcpy(&length, options, sizeof length);
    if (length < sizeof length) throw StatusError(ZEL_BAD_PARAM);
    if (length > VS_CHARDEV_MAX_RUNTIME_OPTIONS_LENGTH) throw StatusError(ZEL_LIMIT_EXCEEDED);
    ChangeHost().options().Apply({reinterpret_cast<const char *>(options), length});
  });
}
