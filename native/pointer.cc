#include "native/pointer.h"

#include <string>

#include "swigpyrun.h"

namespace kestrel::records {

namespace {

PyTypeObject *pointer_type = nullptr;

SwigPyObject *Swig(PyObject *pointer) { return reinterpret_cast<SwigPyObject *>(pointer); }

}  // namespace

int FindPointers(PyObject *flat) {
  // Any pointer object tells the type; this one designates a constant array.
  const Ref variables(PyObject_GetAttrString(flat, "cvar"));
  const Ref sample(variables ? PyObject_GetAttrString(variables.get(), "runtimeOptionNames") : nullptr);
  if (!sample) return -1;
  if (std::string_view(Py_TYPE(sample.get())->tp_name) != "SwigPyObject") {
    PyErr_SetString(PyExc_ImportError, "_libkestrel has no pointer objects of SWIG's runtime");
    return -1;
  }
  pointer_type = Py_TYPE(sample.get());
  Py_INCREF(pointer_type);
  return 0;
}

swig_type_info *PointerType(const char *name) {
  swig_module_info *modules = SWIG_GetModule(nullptr);
  swig_type_info *type =
      modules ? SWIG_MangledTypeQueryModule(modules, modules, ("_p_" + std::string(name)).c_str()) : nullptr;
  if (!type && !PyErr_Occurred()) PyErr_Format(PyExc_ImportError, "_libkestrel has no type for %s", name);
  return type;
}

bool IsPointer(PyObject *object) { return Py_TYPE(object) == pointer_type; }

void *AddressOf(PyObject *pointer) { return Swig(pointer)->ptr; }

bool Owns(PyObject *pointer) { return Swig(pointer)->own != 0; }

char *AddressAs(PyObject *pointer, swig_type_info *type) {
  swig_type_info *given = Swig(pointer)->ty;
  void *address = Swig(pointer)->ptr;
  if (given != type) {
    swig_cast_info *cast = given ? SWIG_TypeCheckStruct(given, type) : nullptr;
    if (!cast) {
      PyErr_Format(PyExc_TypeError, "a pointer to %s is wanted, not one to %s", SWIG_TypePrettyName(type),
                   given ? SWIG_TypePrettyName(given) : "something unknown");
      return nullptr;
    }
    int fresh = 0;
    address = SWIG_TypeCast(cast, address, &fresh);
  }
  if (!address) PyErr_SetString(PyExc_ValueError, "the pointer is null");
  return static_cast<char *>(address);
}

PyObject *NewPointer(void *address, swig_type_info *type) {
  auto *pointer = PyObject_New(SwigPyObject, pointer_type);
  if (!pointer) return nullptr;
  pointer->ptr = address;
  pointer->ty = type;
  pointer->own = 0;
  pointer->next = nullptr;
  return reinterpret_cast<PyObject *>(pointer);
}

int SetOwns(PyObject *pointer, bool owns) {
  // The flat module's own methods: they count who owns.
  const Ref done(PyObject_CallMethod(pointer, owns ? "acquire" : "disown", nullptr));
  return done ? 0 : -1;
}

}  // namespace kestrel::records
