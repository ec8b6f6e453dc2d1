// The descriptor that serves an attribute of a record class from what the tables say about it.
#pragma once

#include "native/record.h"

namespace kestrel::records {

int AddField(PyObject *module);

/** A descriptor for a class whose type is there already. */
PyObject *NewField(const RecordClass &cls, const FieldSpec &spec);

/** Sets a field of a record that is being made: read-only ones too, and without regard to what follows. 0, or -1. */
int InitializeField(PyObject *descriptor, PyObject *record, PyObject *value);

}  // namespace kestrel::records
