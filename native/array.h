// Sequences over memory: fixed arrays, what follows a record, and the columns of a table.
#pragma once

#include "native/values.h"

namespace kestrel::records {

int AddArray(PyObject *module);

/** A sequence of `count` elements of the place's kind, `stride` bytes from one to the next, within a root's memory. */
PyObject *NewArray(const Place &at, Record *root, char *data, Py_ssize_t count, Py_ssize_t stride);

/** Replaces all elements by those of an iterable, all or none. 0, or -1 with an error. */
int StoreElements(PyObject *array, PyObject *values);

}  // namespace kestrel::records
