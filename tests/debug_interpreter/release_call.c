/* Calls functions of extension modules as an interpreter without assertions does.

   Some calls of `_libkestrel` come back with a result and an exception, or with neither. The interpreter makes a
   SystemError of that; its debug build ends the process instead. References that such calls take are counted through
   here. */
#include <Python.h>

/** call(function, arguments): what the built-in function gives for that tuple. */
static PyObject *call(PyObject *module, PyObject *arguments) {
  (void)module;
  PyObject *function;
  PyObject *passed;
  if (!PyArg_ParseTuple(arguments, "O!O!:call", &PyCFunction_Type, &function, &PyTuple_Type, &passed)) return NULL;
  const int alone = PyCFunction_GET_FLAGS(function) == METH_O && PyTuple_GET_SIZE(passed) == 1;
  if (!alone && PyCFunction_GET_FLAGS(function) != METH_VARARGS) return PyObject_Call(function, passed, NULL);
  PyObject *result =
      PyCFunction_GET_FUNCTION(function)(PyCFunction_GET_SELF(function), alone ? PyTuple_GET_ITEM(passed, 0) : passed);
  if (result != NULL && PyErr_Occurred()) {
    Py_DECREF(result);
    PyErr_Clear();
    PyErr_SetString(PyExc_SystemError, "a result with an exception set");
    return NULL;
  }
  if (result == NULL && !PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "neither a result nor an exception");
  return result;
}

static PyMethodDef methods[] = {
    {"call", call, METH_VARARGS, NULL},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "release_call", NULL, -1, methods, NULL, NULL, NULL, NULL};

PyMODINIT_FUNC PyInit_release_call(void) { return PyModule_Create(&definition); }
