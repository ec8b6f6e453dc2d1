// The flat module's pointer objects, seen from outside: SWIG's runtime data version 4, which both sides share.
#pragma once

#include "native/python.h"

struct swig_type_info;

namespace kestrel::records {

/** Learns the flat module's pointer type and types. 0, or -1 with an error. */
int FindPointers(PyObject *flat);

/** The descriptor of pointers to the record `name`; null with an error where the flat module has none. */
swig_type_info *PointerType(const char *name);

/** Whether `object` is a bare pointer object of the flat module. */
bool IsPointer(PyObject *object);

/** What a bare pointer object carries. */
void *AddressOf(PyObject *pointer);
bool Owns(PyObject *pointer);

/** The address as one of type `type`; null with TypeError where the object's type is another, ValueError for null. */
char *AddressAs(PyObject *pointer, swig_type_info *type);

/** A new bare pointer object that owns nothing. */
PyObject *NewPointer(void *address, swig_type_info *type);

/** Moves ownership into a pointer object, or out of it. 0, or -1 with an error. */
int SetOwns(PyObject *pointer, bool owns);

}  // namespace kestrel::records
