/* Peer: an extension module with nothing in it, which costs what importing any extension costs. */
#include <Python.h>

static struct PyModuleDef definition = {PyModuleDef_HEAD_INIT, .m_name = "empty_extension", .m_size = -1};

PyMODINIT_FUNC PyInit_empty_extension(void) { return PyModule_Create(&definition); }
