/* CRC-32C (Castagnoli), the checksum of what is kept in files and images. */
#pragma once

#include <cstdint>
#include <string_view>

#include "host/export.h"

namespace kestrel::host {

/** The checksum of some bytes, or of several pieces one behind the other, where `so_far` is that of the pieces before.
 */
KESTREL_HOST_EXPORT std::uint32_t Crc32c(std::string_view bytes, std::uint32_t so_far = 0);

}  // namespace kestrel::host
