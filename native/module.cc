// The extension module libkestrel._records: what record classes are made of.
#include "native/array.h"
#include "native/enumerations.h"
#include "native/field.h"
#include "native/mac_address.h"
#include "native/record.h"
#include "native/rows.h"
#include "native/table.h"

namespace kestrel::records {

namespace {

PyObject *Enumeration(PyObject *, PyObject *name) {
  const char *text = PyUnicode_Check(name) ? PyUnicode_AsUTF8(name) : nullptr;
  if (!text && PyErr_Occurred()) return nullptr;
  const int index = text ? FindEnumeration(text) : -1;
  if (index >= 0) return EnumerationClass(index);
  return PyErr_Format(PyExc_KeyError, "no enumeration %R", name);
}

PyObject *Names(PyObject *, PyObject *) { return EnumerationNames(); }

PyMethodDef functions[] = {
    {"make_classes", MakeClasses, METH_VARARGS,
     "make_classes(record, table, flat, /)\n--\n\nMakes all record classes and registers them with the flat module."},
    {"enumeration", Enumeration, METH_O, "enumeration(name, /)\n--\n\nThe IntEnum of this name; KeyError for none."},
    {"enumeration_names", Names, METH_NOARGS, "enumeration_names()\n--\n\nThe names of all enumerations."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "libkestrel._records",
                          "What record classes are made of.",
                          -1,
                          functions,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace

}  // namespace kestrel::records

PyMODINIT_FUNC PyInit__records() {
  using namespace kestrel::records;
  Ref module(PyModule_Create(&definition));
  for (auto *add : {AddMacAddress, AddField, AddRecord, AddTable, AddArray, AddRows}) {
    if (module && add(module.get()) == 0) continue;
    // A type that ends clears the error, here or on the way out of what added it; nothing else than memory is missing.
    module.reset();
    if (!PyErr_Occurred()) PyErr_NoMemory();
    return nullptr;
  }
  return module.release();
}
