// The record classes, their common base and their metaclass.
#include "native/record_parts.h"

#include <structmember.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "native/field.h"
#include "native/pointer.h"
#include "native/table.h"
#include "native/tables.h"

namespace kestrel::records {

PyTypeObject *record_type = nullptr;

namespace {

int Traverse(PyObject *self, visitproc visit, void *arg) {
  auto *record = reinterpret_cast<Record *>(self);
  Py_VISIT(Py_TYPE(self));
  if (record->root != record) Py_VISIT(record->root);
  Py_VISIT(record->held);
  Py_VISIT(record->release);
  return 0;
}

int Clear(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->root == record) DropHeld(record);
  return 0;
}

/** Gives the memory back before what that takes is torn down. */
void Finalize(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->root != record || record->state == State::kNone || record->exports) return;
  const ErrorAside aside;
  const Ref done(LetGo(record));
  if (!done) PyErr_WriteUnraisable(nullptr);
}

void Dealloc(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  PyObject_GC_UnTrack(self);
  if (record->root != record) {
    Py_XDECREF(record->pointer);
    Py_DECREF(Object(record->root));
  } else if (record->state == State::kOwn && !ClassOf(record)->points) {
    std::free(record->data);
  } else {
    Finalize(self);
    Py_XDECREF(record->pointer);
    Py_XDECREF(record->release);
    DropHeld(record);
  }
  PyTypeObject *type = Py_TYPE(self);
  PyObject_GC_Del(self);
  Py_DECREF(type);
}

/** In a cycle, only what gives memory back through a function has to act before the cycle is cleared. */
void FinalizeGarbage(PyObject *self) {
  if (reinterpret_cast<Record *>(self)->release) Finalize(self);
}

PyObject *NewByTuple(PyTypeObject *type, PyObject *args, PyObject *keywords) {
  // The flat module makes instances without arguments and gives them their pointer next; everybody else calls the
  // class, which does not come here.
  if (PyTuple_GET_SIZE(args) || (keywords && PyDict_GET_SIZE(keywords))) {
    PyErr_Format(PyExc_TypeError, "call %.80s to make one", type->tp_name);
    return nullptr;
  }
  return NewBlank(type, args, keywords);
}

PyType_Slot record_slots[] = {
    {Py_tp_doc, const_cast<char *>("The base of all record classes.")},
    {Py_tp_new, reinterpret_cast<void *>(NewByTuple)},
    {Py_tp_dealloc, reinterpret_cast<void *>(Dealloc)},
    {Py_tp_traverse, reinterpret_cast<void *>(Traverse)},
    {Py_tp_clear, reinterpret_cast<void *>(Clear)},
    {Py_tp_finalize, reinterpret_cast<void *>(FinalizeGarbage)},
    {Py_tp_hash, reinterpret_cast<void *>(PyObject_HashNotImplemented)},
    {Py_tp_methods, record_methods},
    {Py_tp_getset, record_properties},
    {Py_nb_int, reinterpret_cast<void *>(Address)},
    {Py_bf_getbuffer, reinterpret_cast<void *>(GetRecordBuffer)},
    {Py_bf_releasebuffer, reinterpret_cast<void *>(ReleaseRecordBuffer)},
    {0, nullptr},
};

PyType_Spec record_spec = {"libkestrel._records.RecordBase", sizeof(Record), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, record_slots};

/** What a record class carries beyond other classes. */
struct RecordType {
  PyHeapTypeObject heap;
  RecordClass *cls;
};

PyTypeObject *meta_type = nullptr;

PyMemberDef meta_members[] = {
    {"__vectorcalloffset__", T_PYSSIZET, offsetof(PyTypeObject, tp_vectorcall), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyType_Slot meta_slots[] = {
    {Py_tp_doc, const_cast<char *>("The class of record classes.")},
    {Py_tp_members, meta_members},
    // A class that says where its instances' vectorcall stands has to have the other way too when it is made ready.
    {Py_tp_call, reinterpret_cast<void *>(PyType_Type.tp_call)},
    {0, nullptr},
};

PyType_Spec meta_spec = {"libkestrel._records.RecordType", sizeof(RecordType), 0,
                         Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_VECTORCALL | Py_TPFLAGS_IMMUTABLETYPE, meta_slots};

RecordClass classes[std::size(kRecords)];

Special SpecialOf(std::string_view name) {
  if (name == "zel_IGMPv3GrpRecord" || name == "zel_MLDv2GrpRecord") return Special::kGroupRecord;
  if (name == "zel_GREHdr") return Special::kGre;
  if (name == "VSRuntimeOptionHeader") return Special::kOption;
  if (name == "VSRuntimeOptions") return Special::kOptions;
  return name == "VSList" ? Special::kNames : Special::kNone;
}

/** Gives a new class the descriptors of its fields. */
int Describe(RecordClass *cls) {
  const std::uint32_t count = cls->spec->fields;
  cls->descriptors = static_cast<PyObject **>(PyMem_Calloc(count + 1, sizeof(PyObject *)));
  if (!cls->descriptors) {
    PyErr_NoMemory();
    return -1;
  }
  const Ref names(PyTuple_New(count));
  if (!names) return -1;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Kind kind = cls->fields[i].element.kind;
    cls->points |= kind == Kind::kPointer || kind == Kind::kOwnedText;
    cls->descriptors[i] = NewField(*cls, cls->fields[i]);
    if (!cls->descriptors[i]) return -1;
    if (PyDict_SetItemString(cls->type->tp_dict, cls->fields[i].name, cls->descriptors[i]) < 0) return -1;
    PyTuple_SET_ITEM(names.get(), i, Py_NewRef(cls->descriptors[i]));
  }
  return PyDict_SetItemString(cls->type->tp_dict, "__fields__", names.get());
}

int Register(RecordClass *cls, PyObject *flat) {
  const std::string name = std::string(cls->spec->name) + "_swigregister";
  const Ref function(PyObject_GetAttrString(flat, name.c_str()));
  if (!function) {  // plain arrays have none
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) return -1;
    PyErr_Clear();
    return 0;
  }
  const Ref destroy(PyObject_GetAttrString(flat, (std::string("delete_") + cls->spec->name).c_str()));
  if (!destroy || PyDict_SetItemString(cls->type->tp_dict, "__swig_destroy__", destroy.get()) < 0) return -1;
  const Ref done(PyObject_CallOneArg(function.get(), reinterpret_cast<PyObject *>(cls->type)));
  cls->registered = static_cast<bool>(done);
  return done ? 0 : -1;
}

/** Lets go of a class that could not be finished. */
void Forget(RecordClass *cls) {
  for (std::uint32_t i = 0; cls->descriptors && i < cls->spec->fields; ++i) Py_XDECREF(cls->descriptors[i]);
  PyMem_Free(cls->descriptors);
  *cls = RecordClass();
}

int Make(RecordClass *cls, const RecordSpec &spec, PyObject *base, PyObject *flat) {
  cls->spec = &spec;
  cls->fields = kFields + spec.first;
  cls->special = SpecialOf(spec.name);
  cls->pointer = PointerType(spec.name);
  if (!cls->pointer) return -1;
  const Ref made(PyObject_CallFunction(reinterpret_cast<PyObject *>(meta_type), "s(O){s()ssss}", spec.name, base,
                                       "__slots__", "__module__", "libkestrel.records", "__doc__", spec.doc));
  if (!made) return -1;
  auto *type = reinterpret_cast<PyTypeObject *>(made.get());
  cls->type = type;
  if (Describe(cls) < 0 || Register(cls, flat) < 0) {
    Forget(cls);
    return -1;
  }
  reinterpret_cast<RecordType *>(type)->cls = cls;
  type->tp_new = NewByTuple;
  type->tp_dealloc = Dealloc;
  type->tp_vectorcall = Construct;
  // Nobody derives from it or changes it: its descriptors trust objects of just this type.
  type->tp_flags = (type->tp_flags & ~Py_TPFLAGS_BASETYPE) | Py_TPFLAGS_IMMUTABLETYPE;
  PyType_Modified(type);
  Py_INCREF(made.get());
  return 0;
}

}  // namespace

PyObject *NewBlank(PyTypeObject *type, PyObject *, PyObject *) {
  if (!ClassOf(type)) {
    PyErr_Format(PyExc_TypeError, "%.80s is the base of the record classes and has no records itself", type->tp_name);
    return nullptr;
  }
  return Object(Blank(type));
}

RecordClass *ClassOf(PyTypeObject *type) {
  return Py_TYPE(type) == meta_type ? reinterpret_cast<RecordType *>(type)->cls : nullptr;
}

RecordClass *ClassAt(int index) { return &classes[index]; }

int AddRecord(PyObject *module) {
  meta_type = reinterpret_cast<PyTypeObject *>(
      PyType_FromSpecWithBases(&meta_spec, reinterpret_cast<PyObject *>(&PyType_Type)));
  if (!meta_type) return -1;
  const Ref made(PyType_FromSpec(&record_spec));
  if (!made) return -1;
  record_type = reinterpret_cast<PyTypeObject *>(Py_NewRef(made.get()));
  if (PyModule_AddType(module, meta_type) < 0) return -1;
  return PyModule_AddType(module, record_type);
}

PyObject *MakeClasses(PyObject *, PyObject *args) {
  PyObject *record_base = nullptr;
  PyObject *table_base = nullptr;
  PyObject *flat = nullptr;
  if (!PyArg_ParseTuple(args, "O!O!O:make_classes", &PyType_Type, &record_base, &PyType_Type, &table_base, &flat)) {
    return nullptr;
  }
  for (PyObject *base : {record_base, table_base}) {
    if (!PyType_IsSubtype(reinterpret_cast<PyTypeObject *>(base), record_type) ||
        reinterpret_cast<PyTypeObject *>(base)->tp_basicsize != sizeof(Record)) {
      PyErr_SetString(PyExc_TypeError, "a class below RecordBase without members of its own is wanted");
      return nullptr;
    }
  }
  // Importing that failed half way is tried again with the bases that it had.
  static PyObject *first_base = nullptr;
  if (first_base && first_base != record_base) {
    PyErr_SetString(PyExc_RuntimeError, "the classes are made already");
    return nullptr;
  }
  if (FindPointers(flat) < 0) return nullptr;
  if (!first_base) first_base = Py_NewRef(record_base);
  const Ref made(PyDict_New());
  for (std::size_t i = 0; made && i < std::size(kRecords); ++i) {
    if (!classes[i].type && Make(&classes[i], kRecords[i], kRecords[i].table ? table_base : record_base, flat) < 0) {
      return nullptr;
    }
    if (PyDict_SetItemString(made.get(), kRecords[i].name, reinterpret_cast<PyObject *>(classes[i].type)) < 0) {
      return nullptr;
    }
  }
  return made ? Py_NewRef(made.get()) : nullptr;
}

}  // namespace kestrel::records
