/* The frame: how every wrapper parses, converts, calls and reports; the exception channel; the pointer object's
   methods; records and their classes. Everything here is stock SWIG with its documented hooks. */

#ifndef KESTREL_PYFRAGMENTS
#error "pyfragments.swg was not found: put the interface directory on SWIG's search path"
#endif

#if SWIG_VERSION < 0x040100 || SWIG_VERSION >= 0x040300
#error "SWIG 4.1 or 4.2 is needed: other versions share types under another runtime data version"
#endif

%header %{
#if PY_VERSION_HEX < 0x030B0000 || PY_VERSION_HEX >= 0x030C0000
#error "the module is built for Python 3.11"
#endif
#include "exception_channel.h"
%}

/* ---- Parsing ---------------------------------------------------------------------------------------------------
   Every wrapper parses with "O" for each argument, a colon and its name. SWIG writes PyArg_UnpackTuple calls; this
   macro stands behind the runtime, which keeps the real function, and before the wrappers. No wrapper has optional
   arguments: one that had would not compile, for want of a FORMAT_1_2. */
%header %{
#define KESTREL_FORMAT_0_0 ""
#define KESTREL_FORMAT_1_1 "O"
#define KESTREL_FORMAT_2_2 "OO"
#define KESTREL_FORMAT_3_3 "OOO"
#define KESTREL_FORMAT_4_4 "OOOO"
#define KESTREL_FORMAT_5_5 "OOOOO"
#define KESTREL_FORMAT_6_6 "OOOOOO"
#define KESTREL_FORMAT_7_7 "OOOOOOO"
#define KESTREL_FORMAT_8_8 "OOOOOOOO"
#define PyArg_UnpackTuple(args, name, min, max, ...) \
  PyArg_ParseTuple(args, KESTREL_FORMAT_##min##_##max ":" name, ##__VA_ARGS__)
%}

/* ---- Exception channel -----------------------------------------------------------------------------------------
   Armed after the arguments are converted. On a jump the wrapper returns at once and releases nothing: the
   abandoned call may still hold the buffers. Member accessors are not reached by this and do not arm. */
%exception {
  exception_status = setjmp(exception_buffer);
  if (exception_status) {
    PyErr_SetString(exceptionType, exceptionMsg);
    return NULL;
  }
  $action
}

/* ---- Pointer objects -------------------------------------------------------------------------------------------
   `append` with something else returns null and sets no exception, so that the interpreter reports it. The owner
   flag is tied to a reference on the type table's capsule, which the runtime takes only for objects that are made
   owning and drops whenever an owning object goes: every change of the flag has to keep the two in step. */
%header %{
SWIGINTERN void kestrel_set_own(SwigPyObject *object, int own) {
  if (own && !object->own) Py_XINCREF(Swig_Capsule_global);
  if (!own && object->own) Py_XDECREF(Swig_Capsule_global);
  object->own = own;
}

/* Whether an object is a pointer object, this module's or that of another one; a class of the same name is none. */
SWIGINTERNINLINE int kestrel_is_pointer(PyObject *object) {
  PyTypeObject *type = Py_TYPE(object);
  return type == SwigPyObject_type() ||
         (!(type->tp_flags & Py_TPFLAGS_HEAPTYPE) && strcmp(type->tp_name, "SwigPyObject") == 0);
}

/* What is behind `next` is let go. Chains are walked by recursion, so they neither close nor grow without end. */
SWIGINTERN PyObject *kestrel_append(PyObject *self, PyObject *next) {
  enum { kLongest = 1000 };
  PyObject *link, *behind, *result;
  int length = 0;
  if (!kestrel_is_pointer(next)) return NULL;
  for (link = self; link; link = ((SwigPyObject *)link)->next) {
    if (link == next || ++length == kLongest) {
      PyErr_SetString(PyExc_ValueError, link == next ? "the pointer is in the chain already" : "the chain is too long");
      return NULL;
    }
  }
  behind = ((SwigPyObject *)next)->next;
  result = SwigPyObject_append(self, next);
  Py_XDECREF(behind);
  return result;
}

SWIGINTERN PyObject *kestrel_acquire(PyObject *self, PyObject *SWIGUNUSEDPARM(args)) {
  kestrel_set_own((SwigPyObject *)self, SWIG_POINTER_OWN);
  return SWIG_Py_Void();
}

SWIGINTERN PyObject *kestrel_disown(PyObject *self, PyObject *SWIGUNUSEDPARM(args)) {
  kestrel_set_own((SwigPyObject *)self, 0);
  return SWIG_Py_Void();
}

SWIGINTERN PyObject *kestrel_own(PyObject *self, PyObject *args) {
  PyObject *flag = NULL, *before;
  int on = 0;
  /* In parentheses the name is the function and not the macro above. */
  if (!(PyArg_UnpackTuple)(args, "own", 0, 1, &flag)) return NULL;
  if (flag && (on = PyObject_IsTrue(flag)) < 0) return NULL;
  before = PyBool_FromLong(((SwigPyObject *)self)->own);
  if (flag) kestrel_set_own((SwigPyObject *)self, on ? SWIG_POINTER_OWN : 0);
  return before;
}

/* The pointer object that an object is or carries as `this`, as a new reference; null, and no error, where there is
   none, or no memory to tell. Whoever wrote the object's class is not trusted: `this` may run code, and lead back to
   the object. */
SWIGINTERN PyObject *kestrel_pointer_of(PyObject *object, int *no_memory) {
  enum { kDeepest = 8 };
  PyObject *type, *value, *traceback, *next, **dict;
  int depth = 0;
  *no_memory = 0;
  PyErr_Fetch(&type, &value, &traceback);
  Py_INCREF(object);
  while (object && !kestrel_is_pointer(object)) {
    if (++depth > kDeepest) {
      next = NULL;
    } else if ((dict = _PyObject_GetDictPtr(object))) {
      next = *dict ? PyDict_GetItem(*dict, SWIG_This()) : NULL;
      Py_XINCREF(next);
    } else if (PyWeakref_CheckProxy(object)) {
      next = PyWeakref_GetObject(object);
      Py_XINCREF(next);
    } else {
      next = PyObject_GetAttr(object, SWIG_This());
      *no_memory = !next && PyErr_ExceptionMatches(PyExc_MemoryError);
    }
    Py_DECREF(object);
    object = next;
  }
  PyErr_Restore(type, value, traceback);
  return object;
}

/* Converts a pointer; with SWIG_POINTER_DISOWN the object no longer owns it afterwards. Wrappers come here through
   the macro; a bare pointer object of just the type asked for, by far the most frequent case, is told at once. */
SWIGINTERNINLINE int kestrel_convert(PyObject *object, void **pointer, swig_type_info *type, int flags) {
  int own = 0, no_memory, res;
  PyTypeObject *pointer_type = SwigPyObject_type();
  PyObject *self = object, **dict;
  if (Py_TYPE(object) != pointer_type && (dict = _PyObject_GetDictPtr(object)) && *dict) {
    self = PyDict_GetItem(*dict, SWIG_This());
  }
  if (self && type && Py_TYPE(self) == pointer_type && ((SwigPyObject *)self)->ty == type) {
    *pointer = ((SwigPyObject *)self)->ptr;
    if (flags & SWIG_POINTER_DISOWN) kestrel_set_own((SwigPyObject *)self, 0);
    return SWIG_OK;
  }
  if (object == Py_None) return SWIG_ConvertPtrAndOwn(object, pointer, type, flags, &own);
  if (!(self = kestrel_pointer_of(object, &no_memory))) return no_memory ? SWIG_MemoryError : SWIG_ERROR;
  res = SWIG_ConvertPtrAndOwn(self, pointer, type, flags, &own);
  if (SWIG_IsOK(res) && own && (flags & SWIG_POINTER_DISOWN)) Py_XDECREF(Swig_Capsule_global);
  Py_DECREF(self);
  return res;
}
#undef SWIG_ConvertPtr
#define SWIG_ConvertPtr(object, pointer, type, flags) kestrel_convert(object, pointer, type, flags)

/* A pointer to a function: of a built-in function's documentation, or a pointer object. */
SWIGINTERN int kestrel_convert_function(PyObject *object, void **pointer, swig_type_info *type) {
  if (PyCFunction_Check(object)) return SWIG_Python_ConvertFunctionPtr(object, pointer, type);
  return kestrel_convert(object, pointer, type, 0);
}
#undef SWIG_ConvertFunctionPtr
#define SWIG_ConvertFunctionPtr(object, pointer, type) kestrel_convert_function(object, pointer, type)

/* A new pointer object, within an instance of the class that is registered for its type. The runtime would declare
   that class modified for each instance, and the interpreter forget what it has learnt about the class. An error left
   pending by an argument is put aside meanwhile: looking a class's attributes up may clear it. */
SWIGINTERN PyObject *kestrel_new_instance(void *pointer, swig_type_info *type, int flags) {
  SwigPyClientData *data = type ? (SwigPyClientData *)type->clientdata : NULL;
  PyObject *error, *value, *traceback, *object, *nothing, *proxy = NULL;
  if (!pointer || !data || data->newraw || (flags & SWIG_POINTER_NOSHADOW)) {
    return SWIG_Python_NewPointerObj(NULL, pointer, type, flags);
  }
  if (!((PyTypeObject *)data->newargs)->tp_new) {
    return PyErr_Format(PyExc_TypeError, "cannot create '%s' instances", ((PyTypeObject *)data->newargs)->tp_name);
  }
  PyErr_Fetch(&error, &value, &traceback);
  object = SWIG_Python_NewPointerObj(NULL, pointer, type, flags | SWIG_POINTER_NOSHADOW);
  nothing = PyTuple_New(0);
  if (object && nothing) {
    PyTypeObject *cls = (PyTypeObject *)data->newargs;
    proxy = cls->tp_new(cls, nothing, NULL);
    if (proxy && PyObject_SetAttr(proxy, SWIG_This(), object) < 0) Py_CLEAR(proxy);
  }
  Py_XDECREF(nothing);
  if (object && !proxy) kestrel_set_own((SwigPyObject *)object, 0);
  Py_XDECREF(object);
  if (error) PyErr_Restore(error, value, traceback);
  return proxy;
}

/* The same. What the object was to own is released when there is no memory for the object. */
SWIGINTERN PyObject *kestrel_new_pointer(void *pointer, swig_type_info *type, int flags) {
  PyObject *object = kestrel_new_instance(pointer, type, flags);
  if (!object && (flags & SWIG_POINTER_OWN)) free(pointer);
  return object;
}
#undef SWIG_NewPointerObj
#define SWIG_NewPointerObj(pointer, type, flags) kestrel_new_pointer(pointer, type, flags)

/* The flags of a pointer whose type is not that of the memory it leads to: a class that makes itself a picture of the
   memory would read beyond its end, so that such a class gets no instance and the caller the bare pointer object. */
SWIGINTERN int kestrel_mistyped(swig_type_info *type) {
  static PyObject *name;  /* made once: the interpreter's cache of attributes keeps each one that it is asked for */
  SwigPyClientData *data = (SwigPyClientData *)type->clientdata;
  PyObject *error, *value, *traceback;
  int reads;
  if (!data || !data->newargs) return 0;
  PyErr_Fetch(&error, &value, &traceback);
  if (!name) name = PyUnicode_InternFromString("from_pointer");
  reads = !name || PyObject_HasAttr(data->newargs, name);
  PyErr_Restore(error, value, traceback);
  return reads ? SWIG_POINTER_NOSHADOW : 0;
}

/* An output behind the status, as the list [status, output...]; null when one of them could not be made. The runtime
   does not expect that. */
SWIGINTERN PyObject *kestrel_append_output(PyObject *result, PyObject *output) {
  PyObject *list = result;
  if (result && output && !PyList_Check(result) && (list = PyList_New(1))) {
    Py_INCREF(result);
    PyList_SET_ITEM(list, 0, result);
  }
  if (!result || !output || !list || PyList_Append(list, output) < 0) {
    if (list != result) Py_XDECREF(list);
    Py_XDECREF(result);
    Py_XDECREF(output);
    return NULL;
  }
  if (list != result) Py_DECREF(result);
  Py_DECREF(output);
  return list;
}
#undef SWIG_Python_AppendOutput
#define SWIG_Python_AppendOutput(result, output) kestrel_append_output(result, output)

SWIGINTERN PyObject *kestrel_instance_method_new(PyObject *SWIGUNUSEDPARM(self), PyObject *callable) {
  return PyInstanceMethod_New(callable);
}

static PyMethodDef kestrel_runtime_methods[] = {
  {"SWIG_PyInstanceMethod_New", kestrel_instance_method_new, METH_O, NULL},
  {NULL, NULL, 0, NULL},
};

SWIGINTERN PyMethodDef *kestrel_pointer_method(const char *name) {
  PyMethodDef *method = swigobject_methods;
  while (method->ml_name && strcmp(method->ml_name, name) != 0) ++method;
  return method->ml_name ? method : NULL;
}

/* What is no pointer object has no address to compare, and may end before the place where one stands. */
SWIGINTERN PyObject *kestrel_compare(PyObject *self, PyObject *other, int op) {
  if (!kestrel_is_pointer(other)) Py_RETURN_NOTIMPLEMENTED;
  return SwigPyObject_richcompare((SwigPyObject *)self, (SwigPyObject *)other, op);
}

/* Has the pointer object compare so, in its slot and in the methods that the interpreter has made of it. */
SWIGINTERN int kestrel_complete_comparison(PyTypeObject *type) {
  static const char *const names[] = {"__lt__", "__le__", "__eq__", "__ne__", "__gt__", "__ge__"};
  PyObject *method;
  size_t i;
  for (i = 0; i < sizeof names / sizeof *names; ++i) {
    method = PyDict_GetItemString(type->tp_dict, names[i]);
    if (!method || !Py_IS_TYPE(method, &PyWrapperDescr_Type)) return -1;
    ((PyWrapperDescrObject *)method)->d_wrapped = (void *)kestrel_compare;
  }
  type->tp_richcompare = kestrel_compare;
  return 0;
}

/* Completes the pointer object: our methods in its table, and its own __repr__ with its own documentation in the
   place of the one that the interpreter derives from the type's slot. */
SWIGINTERN int kestrel_complete_pointer_object(void) {
  const struct {
    const char *name;
    PyCFunction function;
  } replacements[] = {
    {"append", kestrel_append}, {"acquire", kestrel_acquire}, {"disown", kestrel_disown}, {"own", kestrel_own},
  };
  PyTypeObject *type = SwigPyObject_type();
  PyMethodDef *method;
  PyObject *representation;
  int res;
  size_t i;
  for (i = 0; i < sizeof replacements / sizeof *replacements; ++i) {
    if (!(method = kestrel_pointer_method(replacements[i].name))) return -1;
    method->ml_meth = replacements[i].function;
  }
  if (!(method = kestrel_pointer_method("__repr__"))) return -1;
  if (!(representation = PyDescr_NewMethod(type, method))) return -1;
  res = PyDict_SetItemString(type->tp_dict, "__repr__", representation);
  Py_DECREF(representation);
  if (kestrel_complete_comparison(type) < 0) return -1;
  PyType_Modified(type);
  return res;
}
%}

/* ---- Making the module without memory --------------------------------------------------------------------------
   The runtime checks nothing of what it makes for the module. These stop where something could not be made, so that
   importing raises MemoryError, and works when it is tried again. */
%header %{
/* Types that stand in static memory; a failure leaves them half made, and the runtime takes them for whole then. */
SWIGINTERN int kestrel_types_are_ready(void) {
  PyTypeObject *types[] = {SwigPyObject_type(), SwigPyPacked_type(), swig_varlink_type()};
  size_t i;
  if (PyErr_Occurred()) return 0;
  for (i = 0; i < sizeof types / sizeof *types; ++i) {
    if (!types[i] || (!(types[i]->tp_flags & Py_TPFLAGS_READY) && PyType_Ready(types[i]) < 0)) return 0;
  }
  return 1;
}

SWIGINTERN PyObject *kestrel_make_module(struct PyModuleDef *definition) {
  if (kestrel_types_are_ready() && SWIG_This() && SWIG_Python_TypeCache()) {
    return PyModule_Create2(definition, PYTHON_API_VERSION);
  }
  return PyErr_Occurred() ? NULL : PyErr_NoMemory();
}
#undef PyModule_Create
#define PyModule_Create(definition) kestrel_make_module(definition); \
  if (!m) return NULL

/* The first failure stays pending, and what follows it is not made; the end of the initialisation looks for it. */
SWIGINTERN void kestrel_set_constant(PyObject *dictionary, const char *name, PyObject *value) {
  if (value && !PyErr_Occurred()) PyDict_SetItemString(dictionary, name, value);
  Py_XDECREF(value);
}
#define SWIG_Python_SetConstant(dictionary, name, value) kestrel_set_constant(dictionary, name, value)
%}

%init %{
  if (PyErr_Occurred() || PyModule_AddFunctions(m, kestrel_runtime_methods) < 0 ||
      kestrel_complete_pointer_object() < 0) {
    if (!PyErr_Occurred()) PyErr_SetString(PyExc_ImportError, "the pointer object lacks a method");
    Py_DECREF(m);
    return NULL;
  }
%}

/* ---- Null records ----------------------------------------------------------------------------------------------
   Who reads a record or runs a method of it gets ValueError for null, and so does who writes a text or an array. The
   writers of other members and the destructors do nothing for null, and the two methods that give a name give none.
   The names are literals, so nothing of this is decided at run time. */
%header %{
#define KESTREL_NAMED(name, word) (sizeof(name) == sizeof(word) && !__builtin_memcmp(name, word, sizeof(word)))
#define KESTREL_OPENS(name, word) (sizeof(name) > sizeof(word) && !__builtin_memcmp(name, word, sizeof(word) - 1))
#define KESTREL_CLOSES(name, word) \
  (sizeof(name) > sizeof(word) && !__builtin_memcmp((name) + sizeof(name) - sizeof(word), word, sizeof(word) - 1))
#define KESTREL_TAKES_NULL(name)                                          \
  (KESTREL_CLOSES(name, "_set") || KESTREL_OPENS(name, "delete_") ||       \
   KESTREL_NAMED(name, "zel_Name___repr__") || KESTREL_NAMED(name, "VSLAGStatus_get_name"))
%}
%typemap(check,noblock=1) SWIGTYPE *self {
  if (!KESTREL_TAKES_NULL("$symname") && !$1) {
    %argument_nullref("$type", $symname, $argnum);
  }
}

/* Writers of texts and arrays copy into the record, so they need one. */
%define %record_needed(SYMBOL)
if (!arg1) {
  SWIG_exception_fail(SWIG_ValueError, "invalid null reference in method '" SYMBOL "', argument 1");
}
%enddef
%typemap(memberin,noblock=1) char [ANY] {
  %record_needed("$symname")
  memcpy($1, $input, $1_dim0);
}

/* ---- Fixed and trailing arrays ---------------------------------------------------------------------------------
   Setters copy all elements from the memory that the pointer designates; null is an error. Arrays of length 0
   convert and check alike and copy nothing. memmove, for packed members need not be aligned. */
%typemap(memberin) SWIGTYPE [ANY], SWIGTYPE [ANY][ANY], char [0] {
  if (!$input) {
    %variable_nullref("$type", "$name");
  }
  %record_needed("$symname")
  memmove(&$1[0], $input, sizeof($1));
}

/* A character array without length has no text: it crosses as a pointer to its first byte. */
%typemap(in,noblock=1) char [0] (void *argp = 0, int res = 0) {
  res = SWIG_ConvertPtr($input, &argp, $descriptor(char *), 0);
  if (!SWIG_IsOK(res)) {
    %argument_fail(res, "$type", $symname, $argnum);
  }
  $1 = %reinterpret_cast(argp, $ltype);
}
%typemap(out,noblock=1) char [0] {
  %set_output(SWIG_NewPointerObj(%as_voidptr($1), $descriptor(char *), 0));
}

/* Fixed text arguments of the alias functions accept a text of exactly their width, which then has no terminator. */
%fragment("kestrel_exact_text","header",fragment="SWIG_AsCharPtrAndSize") {
SWIGINTERN int kestrel_exact_text(PyObject *obj, char *val, size_t size) {
  char *text = NULL;
  size_t used = 0; /* with the closing zero; 0 for no text */
  int alloc = SWIG_OLDOBJ;
  int res = SWIG_AsCharPtrAndSize(obj, &text, &used, &alloc);
  if (!SWIG_IsOK(res)) return res;
  if (used == size + 1) used = size;
  res = used <= size ? SWIG_OK : SWIG_TypeError;
  if (SWIG_IsOK(res)) {
    memset(val, 0, size);
    if (used) memcpy(val, text, used);
  }
  if (alloc == SWIG_NEWOBJ) free(text);
  return res;
}
}
%typemap(in,noblock=1,fragment="kestrel_exact_text") char exactText[ANY] (char text[$1_dim0], int res) {
  res = kestrel_exact_text($input, text, $1_dim0);
  if (!SWIG_IsOK(res)) {
    %argument_fail(res, "$type", $symname, $argnum);
  }
  $1 = text;
}

/** A text that a record owns is replaced by a copy of another; there it stays when there is no memory for that. */
%typemap(memberin) char * {
  char *copy;
  %record_needed("$symname")
  copy = $input ? strdup($input) : NULL;
  if ($input && !copy) {
    PyErr_NoMemory();
    SWIG_fail;
  }
  free($1);
  $1 = copy;
}

/* ---- Arguments with a conversion of their own ------------------------------------------------------------------ */

/** The buffer of a bytes object; anything else passes null and leaves the interpreter's error pending. */
%typemap(in,noblock=1) void const *bytesIn {
  $1 = PyBytes_AsString($input);
}

/** A property's value: the buffer of a bytes object, else the object's UTF-8 form; what has none passes null and
    leaves the interpreter's error pending. The length is an argument of its own. */
%typemap(in,noblock=1) void const *propertyValue {
  $1 = ($1_ltype)(PyBytes_Check($input) ? PyBytes_AS_STRING($input) : PyUnicode_AsUTF8($input));
}

/** A MAC address as any object with a byte buffer. The object outlives the call and nothing of Python's runs during
    it, so the view need not be held. */
%typemap(in,noblock=1) (unsigned char const *mac, size_t size) (Py_buffer view) {
  if (PyObject_GetBuffer($input, &view, PyBUF_SIMPLE) < 0) {
    PyErr_Clear();
    %argument_fail(SWIG_TypeError, "(unsigned char *mac_str, SIZE)", $symname, $argnum);
  }
  $1 = ($1_ltype)view.buf;
  $2 = (size_t)view.len;
  PyBuffer_Release(&view);
}

/* ---- Outputs that the caller does not pass ---------------------------------------------------------------------
   The parameter's name in the header decides: the result becomes the list [status, output...]. */

/** A record that the platform allocates and that Python does not own. */
%typemap(in,numinputs=0,noblock=1) SWIGTYPE **tableOut ($*1_ltype table = 0) {
  $1 = &table;
}
%typemap(argout,noblock=1) SWIGTYPE **tableOut {
  %append_output(SWIG_NewPointerObj(%as_voidptr(*$1), $*descriptor, 0));
}

%apply SWIGTYPE **tableOut { SWIGTYPE **secondTableOut };

/** The private VLAN map is handed back under the type of an uplink port list. */
%typemap(in,numinputs=0) VSPvlanMapEntry **mapOut = SWIGTYPE **tableOut;
%typemap(argout,noblock=1) VSPvlanMapEntry **mapOut {
  %append_output(SWIG_NewPointerObj(%as_voidptr(*$1), $descriptor(VSUplinkPorts *),
                                    kestrel_mistyped($descriptor(VSUplinkPorts *))));
}

/** Records that were handed out go back by the library's own function when there is no memory for the objects that
    would designate them. */
%define KESTREL_TABLES_GO_BACK_BY(RELEASE)
%typemap(freearg,noblock=1) SWIGTYPE **tableOut, SWIGTYPE **secondTableOut, VSPvlanMapEntry **mapOut {
  if (!resultobj && *$1) RELEASE(*$1);
}
%enddef

/** Text of at most the declared number of bytes. */
%typemap(in,numinputs=0,noblock=1) char textOut[ANY] (char text[$1_dim0 + 1]) {
  memset(text, 0, sizeof(text));
  $1 = text;
}
%typemap(argout,noblock=1,fragment="SWIG_FromCharPtr") char textOut[ANY] {
  $1[$1_dim0] = 0;
  %append_output(SWIG_FromCharPtr($1));
}

/** A flag, as the int that its byte is. */
%typemap(in,numinputs=0,noblock=1) char *flagOut (char flag = 0) {
  $1 = &flag;
}
%typemap(argout,noblock=1,fragment=SWIG_From_frag(int)) char *flagOut {
  %append_output(SWIG_From(int)((unsigned char)*$1));
}

/** A 32-bit integer or enumeration. */
%typemap(in,numinputs=0,noblock=1) SWIGTYPE *valueOut ($*1_ltype value), unsigned int *valueOut (unsigned int value) {
  memset(&value, 0, sizeof(value));
  $1 = &value;
}
%typemap(argout,noblock=1,fragment=SWIG_From_frag(int)) SWIGTYPE *valueOut {
  %append_output(SWIG_From(int)((int)*$1));
}
%typemap(argout,noblock=1,fragment=SWIG_From_frag(unsigned int)) unsigned int *valueOut {
  %append_output(SWIG_From(unsigned int)(*$1));
}

/* ---- Records ---------------------------------------------------------------------------------------------------
   The headers announce each record with KESTREL_RECORD. A record gets a class registration; its constructor gives
   a bare pointer object even when a class is registered; as a member by value it refuses null. */
%typemap(out,noblock=1) SWIGTYPE *KESTREL_NEW {
  %set_output(SWIG_NewPointerObj(%as_voidptr($1), $descriptor, SWIG_POINTER_NEW | %newpointer_flags));
}

%header %{
/* What a type keeps of the class that is registered for it. The runtime would take any destructor for a built-in
   function and any object that cannot make others for a class. */
SWIGINTERN SwigPyClientData *kestrel_class_data(PyObject *cls) {
  SwigPyClientData *data = (SwigPyClientData *)calloc(1, sizeof *data);
  if (!data) return (SwigPyClientData *)PyErr_NoMemory();
  if (PyType_Check(cls)) {
    data->newargs = Py_NewRef(cls);
  } else if (!(data->newraw = PyObject_GetAttrString(cls, "__new__")) || !(data->newargs = PyTuple_Pack(1, cls))) {
    Py_XDECREF(data->newraw);
    free(data);
    return NULL;
  }
  data->klass = Py_NewRef(cls);
  if (!(data->destroy = PyObject_GetAttrString(cls, "__swig_destroy__"))) PyErr_Clear();
  data->delargs = data->destroy && !(PyCFunction_Check(data->destroy) && (PyCFunction_GET_FLAGS(data->destroy) & METH_O));
  return data;
}

SWIGINTERN PyObject *kestrel_register_class(PyObject *args, swig_type_info *type) {
  PyObject *cls;
  SwigPyClientData *data;
  if (!PyArg_ParseTuple(args, "O:swigregister", &cls)) return NULL;
  if (!(data = kestrel_class_data(cls))) return NULL;
  SWIG_TypeNewClientData(type, data);
  return SWIG_Py_Void();
}
%}

%define KESTREL_RECORD(T, SIZE)
%typemap(out) SWIGTYPE *T = SWIGTYPE *KESTREL_NEW;
%typemap(memberin,noblock=1) T {
  if (!$input) {
    %argument_nullref("$type *", $symname, 2);
  }
  if (arg1) $1 = *$input;
}
%native(T##_swigregister) PyObject *T##_swigregister(PyObject *self, PyObject *args);
%wrapper %{
SWIGINTERN PyObject *T##_swigregister(PyObject *SWIGUNUSEDPARM(self), PyObject *args) {
  return kestrel_register_class(args, SWIGTYPE_p_##T);
}
%}
%enddef

/** Members that scripts may read and not replace. */
#define KESTREL_READ_ONLY(member) %immutable; member; %mutable
