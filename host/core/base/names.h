/* What a name in the model must be. */
#pragma once

#include <cstddef>
#include <string_view>

#include "host/export.h"

namespace kestrel::host {

/** Checks that `name` fits a zero-terminated field of `width` bytes. Throws StatusError ZEL_INVALID_NAME for an empty
    name and one with a zero byte in it, ZEL_NAME_TOO_LONG for one of `width` bytes or more. */
KESTREL_HOST_EXPORT void CheckName(std::string_view name, std::size_t width);

/** Checks the name that another controller has for a port; an empty one is none. Throws as CheckName does. */
void CheckExternalId(std::string_view id);

}  // namespace kestrel::host
