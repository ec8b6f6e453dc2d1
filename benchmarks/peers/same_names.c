/* Peer: an extension module that publishes the names of `_libkestrel`, its functions and constants, and does
   nothing else. The difference to the empty extension is what the names cost, by hand. */
#include <Python.h>

static PyObject *nothing(PyObject *Py_UNUSED(self), PyObject *Py_UNUSED(arguments)) { Py_RETURN_NONE; }

#define FUNCTION(name) {#name, nothing, METH_VARARGS, NULL},
#define INTEGER(name, value)
#define TEXT(name, value)
static PyMethodDef methods[] = {
#include PUBLISHED_NAMES
    {NULL, NULL, 0, NULL},
};
#undef FUNCTION
#undef INTEGER
#undef TEXT

typedef struct {
  const char *name;
  /** Null for an integer. */
  const char *text;
  long long integer;
} Constant;

#define FUNCTION(name)
#define INTEGER(name, value) {#name, NULL, value},
#define TEXT(name, value) {#name, value, 0},
static const Constant constants[] = {
#include PUBLISHED_NAMES
};

static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, .m_name = "same_names", .m_size = -1,
                                        .m_methods = methods};

PyMODINIT_FUNC PyInit_same_names(void) {
  PyObject *module = PyModule_Create(&definition);
  for (size_t i = 0; module && i < sizeof constants / sizeof constants[0]; ++i) {
    const Constant *constant = &constants[i];
    PyObject *value = constant->text ? PyUnicode_FromString(constant->text) : PyLong_FromLongLong(constant->integer);
    if (PyModule_AddObjectRef(module, constant->name, value) < 0) Py_CLEAR(module);
    Py_XDECREF(value);
  }
  return module;
}
