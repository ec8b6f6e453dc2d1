// The generated tables.
#pragma once

#include "native/layout.h"

namespace kestrel::records {

// clang-format off
#include "record_tables.inc"
// clang-format on

}  // namespace kestrel::records
