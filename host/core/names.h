/* What a name in the model must be. */
#pragma once

#include <cstddef>
#include <string_view>

namespace kestrel::host {

/** Checks that `name` fits a zero-terminated field of `width` bytes. Throws StatusError ZEL_INVALID_NAME for an empty
    name and one with a zero byte in it, ZEL_NAME_TOO_LONG for one of `width` bytes or more. */
void CheckName(std::string_view name, std::size_t width);

}  // namespace kestrel::host
