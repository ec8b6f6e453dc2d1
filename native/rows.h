// Many values at once.
#pragma once

#include "native/values.h"

namespace kestrel::records {

int AddRows(PyObject *module);

/** A sequence of tuples, one for each element: its columns for records, else the value alone. */
PyObject *NewRows(const Place &at, Record *root, char *data, Py_ssize_t count, Py_ssize_t stride);

}  // namespace kestrel::records
