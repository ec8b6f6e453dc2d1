// Members that are pointers: what they point to is kept alive by the record.
#pragma once

#include "native/values.h"

namespace kestrel::records {

/** What a pointer member at `place` of a record points to, or the text that it owns; None for null. */
PyObject *LoadPointer(const Place &at, Record *record, char *place);

/** Sets a pointer member. 0, or -1 with an error. */
int StorePointer(const Place &at, Record *record, PyObject *value);

}  // namespace kestrel::records
