/* The distributed-switch state store. */

%header %{
#include "kestrel/state_store.h"
%}

/* The one overloaded function: with an alias alone it hands back the portset's name, with a second argument it works
   like the other alias functions. The first form takes no part in the exception channel. */
%native(DVSAliasToPortsetName) PyObject *kestrel_alias_to_portset_name(PyObject *self, PyObject *args);
%ignore DVSAliasToPortsetName; /* the declaration in the header, from here on */
%fragment("SWIG_AsCharPtrAndSize");
%fragment("SWIG_FromCharPtr");
%fragment("kestrel_exact_text");
%fragment(SWIG_From_frag(int));
%wrapper %{
SWIGINTERN PyObject *kestrel_alias_to_portset_name(PyObject *SWIGUNUSEDPARM(self), PyObject *args) {
  const Py_ssize_t count = PyTuple_GET_SIZE(args);
  char *alias = NULL;
  char name[PORTSET_NAME_MAX + 1] = {0};
  int alloc = SWIG_OLDOBJ;
  PyObject *result = NULL;
  int res = count == 1 || count == 2 ? SWIG_OK : SWIG_TypeError;
  if (SWIG_IsOK(res)) res = SWIG_AsCharPtrAndSize(PyTuple_GET_ITEM(args, 0), &alias, NULL, &alloc);
  if (SWIG_IsOK(res) && count == 2) res = kestrel_exact_text(PyTuple_GET_ITEM(args, 1), name, PORTSET_NAME_MAX);
  if (res == SWIG_MemoryError) {
    PyErr_NoMemory();
  } else if (!SWIG_IsOK(res)) {
    PyErr_SetString(PyExc_NotImplementedError,
                    "Wrong number or type of arguments for overloaded function 'DVSAliasToPortsetName'.\n"
                    "  Possible C/C++ prototypes are:\n"
                    "    DVSAliasToPortsetName(char const *,char *)\n"
                    "    DVSAliasToPortsetName(char const *,char [128])\n");
  } else if (count == 1) {
    result = SWIG_From_int(DVSAliasToPortsetName(alias, name));
    name[PORTSET_NAME_MAX] = 0;
    result = SWIG_Python_AppendOutput(result, SWIG_FromCharPtr(name));
  } else {
    exception_status = setjmp(exception_buffer);
    if (exception_status) {
      PyErr_SetString(exceptionType, exceptionMsg);
      return NULL;
    }
    result = SWIG_From_int(DVSAliasToPortsetName(alias, name));
  }
  if (alloc == SWIG_NEWOBJ) free(alias);
  return result;
}
%}

%include "kestrel/state_store.h"
