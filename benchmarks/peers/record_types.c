/* Peer: records as types with attributes, by hand: the bytes within the object, a getter and a setter for each
   member that is measured, keywords read by the interpreter's parser. */
#include "conversions.h"
#include "kestrel/base_records.h"
#include "kestrel/runtime_records.h"

typedef struct {
  PyObject_HEAD zel_MgmtApiSignature record;
} Signature;

typedef struct {
  PyObject_HEAD zel_Name record;
} Name;

typedef struct {
  PyObject_HEAD VSMACEntry record;
} Entry;

static void dealloc(PyObject *self) {
  PyTypeObject *type = Py_TYPE(self);
  type->tp_free(self);
  Py_DECREF(type);
}

static PyObject *version_get(PyObject *self, void *Py_UNUSED(closure)) {
  return PyLong_FromUnsignedLong(((Signature *)self)->record.version);
}

/** Packed members have addresses, but no pointers of their type. */
static void *version_of(PyObject *self) {
  return (char *)&((Signature *)self)->record + offsetof(zel_MgmtApiSignature, version);
}

static int set_u32(PyObject *value, void *field) {
  uint32_t number = 0;
  PyObject *error = value ? read_u32(value, &number) : PyExc_AttributeError;
  if (error) {
    PyErr_SetString(error, "0 to 4294967295 is wanted");
    return -1;
  }
  memcpy(field, &number, sizeof number);
  return 0;
}

static int version_set(PyObject *self, PyObject *value, void *Py_UNUSED(closure)) {
  return set_u32(value, version_of(self));
}

static int signature_init(PyObject *self, PyObject *args, PyObject *keywords) {
  static char *names[] = {"version", NULL};
  PyObject *version = NULL;
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "|$O", names, &version)) return -1;
  return version ? set_u32(version, version_of(self)) : 0;
}

static PyObject *string_get(PyObject *self, void *Py_UNUSED(closure)) {
  const zel_Name *name = &((Name *)self)->record;
  return read_text(name->string, sizeof name->string);
}

static int string_set(PyObject *self, PyObject *value, void *Py_UNUSED(closure)) {
  zel_Name *name = &((Name *)self)->record;
  if (value && write_text(value, name->string, sizeof name->string) == 0) return 0;
  PyErr_SetString(PyExc_TypeError, "at most 31 bytes are wanted");
  return -1;
}

static PyObject *aging_get(PyObject *self, void *Py_UNUSED(closure)) {
  return PyBool_FromLong(((Entry *)self)->record.aging);
}

static PyObject *vid_get(PyObject *self, void *Py_UNUSED(closure)) {
  return PyLong_FromLong(((Entry *)self)->record.vid);
}

static PyGetSetDef signature_members[] = {{"version", version_get, version_set, NULL, NULL}, {NULL}};
static PyGetSetDef name_members[] = {{"string", string_get, string_set, NULL, NULL}, {NULL}};
static PyGetSetDef entry_members[] = {
    {"aging", aging_get, NULL, NULL, NULL}, {"vid", vid_get, NULL, NULL, NULL}, {NULL}};

static PyType_Slot signature_slots[] = {{Py_tp_dealloc, (void *)dealloc},
                                        {Py_tp_init, (void *)signature_init},
                                        {Py_tp_getset, signature_members},
                                        {0, NULL}};
static PyType_Slot name_slots[] = {{Py_tp_dealloc, (void *)dealloc}, {Py_tp_getset, name_members}, {0, NULL}};
static PyType_Slot entry_slots[] = {{Py_tp_dealloc, (void *)dealloc}, {Py_tp_getset, entry_members}, {0, NULL}};

static PyType_Spec specs[] = {
    {"record_types.Signature", sizeof(Signature), 0, Py_TPFLAGS_DEFAULT, signature_slots},
    {"record_types.Name", sizeof(Name), 0, Py_TPFLAGS_DEFAULT, name_slots},
    {"record_types.Entry", sizeof(Entry), 0, Py_TPFLAGS_DEFAULT, entry_slots},
};

static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, .m_name = "record_types", .m_size = -1};

PyMODINIT_FUNC PyInit_record_types(void) {
  PyObject *module = PyModule_Create(&definition);
  for (size_t i = 0; module && i < sizeof specs / sizeof *specs; ++i) {
    PyObject *type = PyType_FromSpec(&specs[i]);
    if (!type || PyModule_AddType(module, (PyTypeObject *)type) < 0) return NULL;
  }
  return module;
}
