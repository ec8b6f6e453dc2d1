/* Whose a property is, by the form of its key. */
#pragma once

#include <string_view>

#include "host/export.h"

namespace kestrel::host {

/** Whether a key is one of the platform's own, whether or not the host knows it. */
KESTREL_HOST_EXPORT bool IsPlatformKey(std::string_view key);

/** Whether a key is another vendor's: it has the form of a reversed domain name with something behind, such as
    com.example.feature, and is not the platform's own. */
KESTREL_HOST_EXPORT bool IsVendorKey(std::string_view key);

}  // namespace kestrel::host
