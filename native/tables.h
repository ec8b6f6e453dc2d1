// The generated tables.
#pragma once

#include "native/spec.h"

namespace kestrel::records {

// clang-format off
#include "record_tables.inc"
// clang-format on

}  // namespace kestrel::records
