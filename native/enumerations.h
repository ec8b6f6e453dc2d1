// The enumerations as IntEnum classes, each made when it is first needed.
#pragma once

#include "native/python.h"

namespace kestrel::records {

/** Index of the enumeration of this name; negative for none. */
int FindEnumeration(const char *name);

/** The names of all enumerations, as a tuple. */
PyObject *EnumerationNames();

/** The class of an enumeration, a new reference. */
PyObject *EnumerationClass(int index);

/** The enumerator of this value, or an int where there is none of it. */
PyObject *NewEnumerator(int index, long value);

}  // namespace kestrel::records
