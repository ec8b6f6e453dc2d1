// Values in memory and what they are in Python.
//
// Writing has two steps, since reading a Python value may run anything, which may take the memory away: first the value
// is converted, then, with nothing of Python's in between, the memory looked up and the bytes stored.
#pragma once

#include "native/record.h"

namespace kestrel::records {

/** The value at `place`, within `root`'s memory. Not for pointers. */
PyObject *Load(const Element &element, Record *root, char *place);

/** A converted value. */
struct Converted {
  std::uint64_t number = 0;
  char address[16] = {};
  /** Text of `length` bytes, or the record to copy; in `keep`. */
  const char *text = nullptr;
  Py_ssize_t length = 0;
  Ref keep;
};

/** Where an error belongs: the record and the field. */
struct Place {
  const RecordClass &cls;
  const FieldSpec &field;
};

/** Converts a value. 0, or -1 with TypeError, OverflowError or ValueError. Not for pointers. */
int Convert(const Place &at, const Element &element, PyObject *value, Converted *converted);

/** Whether what was converted is still there; false with ReferenceError for a record whose memory has gone. */
bool StillThere(const Element &element, const Converted &converted);

/** Stores what was converted and is still there. Runs nothing of Python's. */
void Store(const Element &element, const Converted &converted, char *place);

/** Text up to the first zero or the end. */
PyObject *LoadText(const char *text, std::size_t width);

}  // namespace kestrel::records
