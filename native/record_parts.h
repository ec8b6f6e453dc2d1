// What the parts of the record classes know of each other.
#pragma once

#include "native/record.h"

namespace kestrel::records {

inline PyObject *Object(Record *record) { return reinterpret_cast<PyObject *>(record); }

/** A root without memory. */
Record *Blank(PyTypeObject *type);

/** The same as an object; null with TypeError for the base of the record classes. */
PyObject *NewBlank(PyTypeObject *type, PyObject *arguments, PyObject *keywords);

/** Class(...): members by keyword; before them, for what varies in length, how many entries. */
PyObject *Construct(PyObject *type, PyObject *const *args, std::size_t flags, PyObject *names);

/** Lets go of a root's memory, giving it back if it is ours to give. What the releasing function said, or null with
    an error; in any case the memory is gone. */
PyObject *LetGo(Record *root);

/** Lets go of what a root's pointer members were given. */
void DropHeld(Record *root);

/** Addresses within a root's memory are no longer taken for its parts. */
void Forget(Record *root);

/** The pointer object of a record, which owns the memory from then on; null with an error. */
PyObject *GetThis(PyObject *self, void *closure);

/** Makes a root without memory stand for what a pointer object designates. 0, or -1 with an error. */
int SetThis(PyObject *self, PyObject *value, void *closure);

/** from_pointer of all classes. */
PyObject *FromPointer(PyObject *type, PyObject *pointer);

/** int(record): the address, which pointer objects tell the same way, since scripts that ask one for it may be handed
    a record. Null with an error. */
PyObject *Address(PyObject *self);

/** Of all records; each ends with an entry of nulls. */
extern PyMethodDef record_methods[];
extern PyGetSetDef record_properties[];

}  // namespace kestrel::records
