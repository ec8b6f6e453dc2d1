/* Files, read and written whole. */
#pragma once

#include <string>
#include <string_view>

namespace kestrel::host::lab {

/** In bytes; a longer file is refused. */
inline constexpr std::size_t kMaxFileSize = std::size_t{1} << 30;

/** What is in a regular file. Throws Refusal: ZEL_NOT_FOUND, ZEL_NO_PERMISSION, ZEL_IS_A_DIRECTORY, ZEL_LIMIT_EXCEEDED,
    or ZEL_READ_ERROR for what else can go wrong. */
std::string ReadFile(const std::string &path);

/** Writes a file, in place of one that is there. Throws Refusal: ZEL_NOT_FOUND for a folder that is not there,
    ZEL_NO_PERMISSION, ZEL_IS_A_DIRECTORY, ZEL_NO_SPACE, or ZEL_WRITE_ERROR for what else can go wrong; what of a
    regular file was written by then is removed. */
void WriteFile(const std::string &path, std::string_view bytes);

}  // namespace kestrel::host::lab
