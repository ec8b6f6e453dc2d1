/* Texts that go to callers who may hold them for as long as they like. */
#pragma once

#include <string_view>

#include "host/export.h"

namespace kestrel::host {

/** The text at an address that is good for the life of the process, the same one at every call. */
KESTREL_HOST_EXPORT const char *KeptText(std::string_view text);

}  // namespace kestrel::host
