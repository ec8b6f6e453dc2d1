// Tables: records that something follows, as sequences of it.
#pragma once

#include "native/record.h"

namespace kestrel::records {

int AddTable(PyObject *module);

/** Bytes of the record itself and of what follows it, without room that a block has behind them; -1 with an error. */
Py_ssize_t LengthInBytes(Record *record);

/** Fills a read-only buffer with a record's bytes. */
int GetRecordBuffer(PyObject *self, Py_buffer *view, int flags);
void ReleaseRecordBuffer(PyObject *self, Py_buffer *view);

}  // namespace kestrel::records
