/* Peer: the fastest calls that CPython offers, by hand.

   Functions take their arguments without a tuple (METH_O, METH_FASTCALL, METH_NOARGS). A record is an object
   of a native type, told by its type alone, with the bytes inside the object or, for a nested one, inside its
   owner. */
#include <stdlib.h>

#include "conversions.h"
#include "kestrel/base_records.h"

typedef struct {
  PyObject_HEAD zel_MgmtApiSignature record;
} Signature;

typedef struct {
  PyObject_HEAD zel_Name *record;
  /** The object that holds the record. */
  PyObject *owner;
} Name;

static void signature_dealloc(PyObject *self) { PyObject_Free(self); }

static void name_dealloc(PyObject *self) {
  Py_DECREF(((Name *)self)->owner);
  PyObject_Free(self);
}

static PyTypeObject signature_type = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "fastest_protocol.Signature",
    .tp_basicsize = sizeof(Signature),
    .tp_dealloc = signature_dealloc,
    .tp_flags = Py_TPFLAGS_DEFAULT,
};

static PyTypeObject name_type = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "fastest_protocol.Name",
    .tp_basicsize = sizeof(Name),
    .tp_dealloc = name_dealloc,
    .tp_flags = Py_TPFLAGS_DEFAULT,
};

static PyObject *new_signature(PyObject *Py_UNUSED(self), PyObject *Py_UNUSED(none)) {
  Signature *signature = PyObject_New(Signature, &signature_type);
  if (signature) memset(&signature->record, 0, sizeof signature->record);
  return (PyObject *)signature;
}

static PyObject *version_get(PyObject *Py_UNUSED(self), PyObject *record) {
  if (!Py_IS_TYPE(record, &signature_type)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "version_get", 1, "Signature");
  }
  return PyLong_FromUnsignedLong(((Signature *)record)->record.version);
}

static PyObject *version_set(PyObject *Py_UNUSED(self), PyObject *const *arguments, Py_ssize_t count) {
  if (count != 2 || !Py_IS_TYPE(arguments[0], &signature_type)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "version_set", 1, "Signature");
  }
  uint32_t version = 0;
  PyObject *error = read_u32(arguments[1], &version);
  if (error) return ARGUMENT_ERROR(error, "version_set", 2, "zel_revnum");
  ((Signature *)arguments[0])->record.version = version;
  Py_RETURN_NONE;
}

static PyObject *name_get(PyObject *Py_UNUSED(self), PyObject *record) {
  if (!Py_IS_TYPE(record, &signature_type)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "name_get", 1, "Signature");
  }
  Name *name = PyObject_New(Name, &name_type);
  if (!name) return NULL;
  name->record = &((Signature *)record)->record.name;
  name->owner = Py_NewRef(record);
  return (PyObject *)name;
}

static PyObject *string_get(PyObject *Py_UNUSED(self), PyObject *record) {
  if (!Py_IS_TYPE(record, &name_type)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "string_get", 1, "Name");
  }
  const zel_Name *name = ((Name *)record)->record;
  return read_text(name->string, sizeof name->string);
}

static PyObject *string_set(PyObject *Py_UNUSED(self), PyObject *const *arguments, Py_ssize_t count) {
  if (count != 2 || !Py_IS_TYPE(arguments[0], &name_type)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "string_set", 1, "Name");
  }
  zel_Name *name = ((Name *)arguments[0])->record;
  if (write_text(arguments[1], name->string, sizeof name->string) < 0) {
    return ARGUMENT_ERROR(PyExc_TypeError, "string_set", 2, "char [32]");
  }
  Py_RETURN_NONE;
}

/** Functions called with an array of arguments have a type of their own, which the table's type stands for.
 */
#define FAST(function) ((PyCFunction)(void (*)(void))(function))

static PyMethodDef methods[] = {
    {"new_signature", new_signature, METH_NOARGS, NULL},
    {"version_get", version_get, METH_O, NULL},
    {"version_set", FAST(version_set), METH_FASTCALL, NULL},
    {"name_get", name_get, METH_O, NULL},
    {"string_get", string_get, METH_O, NULL},
    {"string_set", FAST(string_set), METH_FASTCALL, NULL},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, .m_name = "fastest_protocol", .m_size = -1,
                                        .m_methods = methods};

PyMODINIT_FUNC PyInit_fastest_protocol(void) {
  if (PyType_Ready(&signature_type) < 0 || PyType_Ready(&name_type) < 0) return NULL;
  return PyModule_Create(&definition);
}
