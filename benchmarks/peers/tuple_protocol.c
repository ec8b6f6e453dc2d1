/* Peer: the module's own call protocol, by hand.

   Functions take a tuple and parse it with a format that names them. Records travel as pointer objects, which
   carry an address, a type and whether they own the record; a proxy, any object whose `this` is a pointer
   object, serves as well. An owning pointer object releases its record through the destructor of the class
   that is registered for its type. What allocates arms the exception channel first. */
#include <setjmp.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "conversions.h"
#include "kestrel/base_records.h"

/* ---- The exception channel, as far as the module's side of it goes ---- */

#define EXPORT __attribute__((visibility("default")))
EXPORT jmp_buf peer_exception_buffer;
EXPORT int32_t peer_exception_status;
EXPORT PyObject *peer_exception_type;
EXPORT const char *peer_exception_message;

/** Leaves the wrapper with the exception that was stored if the call is aborted. */
#define ARM_CHANNEL()                                             \
  peer_exception_status = setjmp(peer_exception_buffer);          \
  if (peer_exception_status) {                                    \
    PyErr_SetString(peer_exception_type, peer_exception_message); \
    return NULL;                                                  \
  }

/* ---- Pointer objects ---- */

typedef struct {
  const char *name;
  /** The class registered for the type, and its destructor; null before. */
  PyObject *class;
  PyObject *destructor;
} RecordType;

static RecordType name_type = {.name = "struct zel_Name *"};
static RecordType signature_type = {.name = "struct zel_MgmtApiSignature *"};
static RecordType callback_info_type = {.name = "struct zel_MgmtCallbackInfo *"};

typedef struct {
  PyObject_HEAD void *address;
  RecordType *type;
  bool own;
} Pointer;

static PyTypeObject pointer_type;
/** "this", interned. */
static PyObject *this_name;

static PyObject *new_pointer(void *address, RecordType *type, bool own) {
  Pointer *pointer = PyObject_New(Pointer, &pointer_type);
  if (!pointer) return NULL;
  pointer->address = address;
  pointer->type = type;
  pointer->own = own;
  return (PyObject *)pointer;
}

/** Calls the registered destructor with a pointer object that stands in for the dying one. */
static void release_record(Pointer *pointer) {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyObject *stand_in = new_pointer(pointer->address, pointer->type, false);
  PyObject *result = stand_in ? PyObject_CallOneArg(pointer->type->destructor, stand_in) : NULL;
  if (!result) PyErr_WriteUnraisable(pointer->type->destructor);
  Py_XDECREF(result);
  Py_XDECREF(stand_in);
  PyErr_Restore(type, value, traceback);
}

static void pointer_dealloc(PyObject *self) {
  Pointer *pointer = (Pointer *)self;
  if (pointer->own) {
    if (pointer->type->destructor) {
      release_record(pointer);
    } else {
      printf("a record of type '%s' is lost: no destructor\n", pointer->type->name);
    }
  }
  PyObject_Free(self);
}

static PyObject *pointer_repr(PyObject *self) {
  const Pointer *pointer = (Pointer *)self;
  return PyUnicode_FromFormat("<Object of type '%s' at %p>", pointer->type->name, pointer->address);
}

static PyTypeObject pointer_type = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "tuple_protocol.Pointer",
    .tp_basicsize = sizeof(Pointer),
    .tp_dealloc = pointer_dealloc,
    .tp_repr = pointer_repr,
    .tp_flags = Py_TPFLAGS_DEFAULT,
};

/** A member or result: in the class that is registered for its type, or bare. */
static PyObject *wrap(void *address, RecordType *type) {
  if (!address) Py_RETURN_NONE;
  PyObject *pointer = new_pointer(address, type, false);
  if (!pointer || !type->class) return pointer;
  PyTypeObject *class = (PyTypeObject *)type->class;
  PyObject *no_arguments = PyTuple_New(0);
  PyObject *proxy = no_arguments ? class->tp_new(class, no_arguments, NULL) : NULL;
  if (proxy && PyObject_SetAttr(proxy, this_name, pointer) < 0) Py_CLEAR(proxy);
  Py_XDECREF(no_arguments);
  Py_DECREF(pointer);
  return proxy;
}

/** The address that `object` designates; null for None. False, without an exception, for what is no pointer
   to `type`. With `disown` the pointer object does not own the record afterwards. */
static inline bool read_pointer(PyObject *object, RecordType *type, void **address, bool disown) {
  PyObject *this = NULL;
  if (!Py_IS_TYPE(object, &pointer_type)) {
    if (object == Py_None) {
      *address = NULL;
      return true;
    }
    this = PyObject_GetAttr(object, this_name);
    if (!this) {
      PyErr_Clear();
      return false;
    }
    object = this;
  }
  Pointer *pointer = (Pointer *)object;
  const bool fits = Py_IS_TYPE(object, &pointer_type) && pointer->type == type;
  if (fits) {
    *address = pointer->address;
    if (disown) pointer->own = false;
  }
  Py_XDECREF(this);
  return fits;
}

/* ---- Functions ---- */

/** Allocates a zeroed record of `size` bytes; `format` refuses all arguments. */
static PyObject *construct(PyObject *arguments, const char *format, size_t size, RecordType *type) {
  if (!PyArg_ParseTuple(arguments, format)) return NULL;
  ARM_CHANNEL();
  return new_pointer(calloc(1, size), type, true);
}

/** Releases the record that is the one argument of `format`; `message` tells of another argument. */
static PyObject *destroy(PyObject *arguments, const char *format, RecordType *type, const char *message) {
  PyObject *record;
  void *address;
  if (!PyArg_ParseTuple(arguments, format, &record)) return NULL;
  if (!read_pointer(record, type, &address, true)) {
    PyErr_SetString(PyExc_TypeError, message);
    return NULL;
  }
  ARM_CHANNEL();
  free(address);
  Py_RETURN_NONE;
}

static PyObject *new_signature(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return construct(arguments, ":new_zel_MgmtApiSignature", sizeof(zel_MgmtApiSignature), &signature_type);
}

static PyObject *delete_signature(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return destroy(arguments, "O:delete_zel_MgmtApiSignature", &signature_type,
                 "in method 'delete_zel_MgmtApiSignature', argument 1 of type 'struct zel_MgmtApiSignature *'");
}

static PyObject *new_callback_info(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return construct(arguments, ":new_zel_MgmtCallbackInfo", sizeof(zel_MgmtCallbackInfo), &callback_info_type);
}

static PyObject *delete_callback_info(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return destroy(arguments, "O:delete_zel_MgmtCallbackInfo", &callback_info_type,
                 "in method 'delete_zel_MgmtCallbackInfo', argument 1 of type 'struct zel_MgmtCallbackInfo *'");
}

/** Registers the one argument as the class of `type`; a destructor of its own is optional. */
static PyObject *register_class(PyObject *arguments, RecordType *type) {
  PyObject *class;
  if (!PyArg_ParseTuple(arguments, "O!:swigregister", &PyType_Type, &class)) return NULL;
  PyObject *destructor = PyObject_GetAttrString(class, "__swig_destroy__");
  if (!destructor) PyErr_Clear();
  Py_INCREF(class);
  Py_XSETREF(type->class, class);
  Py_XSETREF(type->destructor, destructor);
  Py_RETURN_NONE;
}

static PyObject *register_signature(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return register_class(arguments, &signature_type);
}

static PyObject *register_name(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return register_class(arguments, &name_type);
}

static PyObject *register_callback_info(PyObject *Py_UNUSED(self), PyObject *arguments) {
  return register_class(arguments, &callback_info_type);
}

static PyObject *version_get(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record;
  void *address;
  if (!PyArg_ParseTuple(arguments, "O:zel_MgmtApiSignature_version_get", &record)) return NULL;
  if (!read_pointer(record, &signature_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_MgmtApiSignature_version_get", 1, "struct zel_MgmtApiSignature *");
  }
  return PyLong_FromUnsignedLong(((zel_MgmtApiSignature *)address)->version);
}

static PyObject *version_set(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record, *value;
  void *address;
  uint32_t version = 0;
  if (!PyArg_ParseTuple(arguments, "OO:zel_MgmtApiSignature_version_set", &record, &value)) return NULL;
  if (!read_pointer(record, &signature_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_MgmtApiSignature_version_set", 1, "struct zel_MgmtApiSignature *");
  }
  PyObject *error = read_u32(value, &version);
  if (error) return ARGUMENT_ERROR(error, "zel_MgmtApiSignature_version_set", 2, "zel_revnum");
  if (address) ((zel_MgmtApiSignature *)address)->version = version;
  Py_RETURN_NONE;
}

static PyObject *name_get(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record;
  void *address;
  if (!PyArg_ParseTuple(arguments, "O:zel_MgmtApiSignature_name_get", &record)) return NULL;
  if (!read_pointer(record, &signature_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_MgmtApiSignature_name_get", 1, "struct zel_MgmtApiSignature *");
  }
  return wrap(&((zel_MgmtApiSignature *)address)->name, &name_type);
}

static PyObject *string_get(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record;
  void *address;
  if (!PyArg_ParseTuple(arguments, "O:zel_Name_string_get", &record)) return NULL;
  if (!read_pointer(record, &name_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_Name_string_get", 1, "struct zel_Name *");
  }
  const zel_Name *name = address;
  return read_text(name->string, sizeof name->string);
}

static PyObject *string_set(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record, *value;
  void *address;
  if (!PyArg_ParseTuple(arguments, "OO:zel_Name_string_set", &record, &value)) return NULL;
  if (!read_pointer(record, &name_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_Name_string_set", 1, "struct zel_Name *");
  }
  zel_Name *name = address;
  if (write_text(value, name->string, sizeof name->string) < 0) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_Name_string_set", 2, "char [32]");
  }
  Py_RETURN_NONE;
}

static PyObject *synchronous_get(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record;
  void *address;
  if (!PyArg_ParseTuple(arguments, "O:zel_MgmtCallbackInfo_synchronous_get", &record)) return NULL;
  if (!read_pointer(record, &callback_info_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_MgmtCallbackInfo_synchronous_get", 1, "struct zel_MgmtCallbackInfo *");
  }
  return PyUnicode_DecodeUTF8(&((zel_MgmtCallbackInfo *)address)->synchronous, 1, "surrogateescape");
}

static PyObject *synchronous_set(PyObject *Py_UNUSED(self), PyObject *arguments) {
  PyObject *record, *value;
  void *address;
  zel_Bool flag = 0;
  if (!PyArg_ParseTuple(arguments, "OO:zel_MgmtCallbackInfo_synchronous_set", &record, &value)) return NULL;
  if (!read_pointer(record, &callback_info_type, &address, false)) {
    return ARGUMENT_ERROR(PyExc_TypeError, "zel_MgmtCallbackInfo_synchronous_set", 1, "struct zel_MgmtCallbackInfo *");
  }
  PyObject *error = read_flag(value, &flag);
  if (error) return ARGUMENT_ERROR(error, "zel_MgmtCallbackInfo_synchronous_set", 2, "zel_Bool");
  if (address) ((zel_MgmtCallbackInfo *)address)->synchronous = flag;
  Py_RETURN_NONE;
}

static PyMethodDef methods[] = {
    {"new_zel_MgmtApiSignature", new_signature, METH_VARARGS, NULL},
    {"delete_zel_MgmtApiSignature", delete_signature, METH_VARARGS, NULL},
    {"zel_MgmtApiSignature_swigregister", register_signature, METH_VARARGS, NULL},
    {"zel_Name_swigregister", register_name, METH_VARARGS, NULL},
    {"new_zel_MgmtCallbackInfo", new_callback_info, METH_VARARGS, NULL},
    {"delete_zel_MgmtCallbackInfo", delete_callback_info, METH_VARARGS, NULL},
    {"zel_MgmtCallbackInfo_swigregister", register_callback_info, METH_VARARGS, NULL},
    {"zel_MgmtCallbackInfo_synchronous_get", synchronous_get, METH_VARARGS, NULL},
    {"zel_MgmtCallbackInfo_synchronous_set", synchronous_set, METH_VARARGS, NULL},
    {"zel_MgmtApiSignature_version_get", version_get, METH_VARARGS, NULL},
    {"zel_MgmtApiSignature_version_set", version_set, METH_VARARGS, NULL},
    {"zel_MgmtApiSignature_name_get", name_get, METH_VARARGS, NULL},
    {"zel_Name_string_get", string_get, METH_VARARGS, NULL},
    {"zel_Name_string_set", string_set, METH_VARARGS, NULL},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, .m_name = "tuple_protocol", .m_size = -1,
                                        .m_methods = methods};

PyMODINIT_FUNC PyInit_tuple_protocol(void) {
  if (PyType_Ready(&pointer_type) < 0) return NULL;
  this_name = PyUnicode_InternFromString("this");
  return this_name ? PyModule_Create(&definition) : NULL;
}
