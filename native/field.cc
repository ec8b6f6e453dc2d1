#include "native/field.h"

#include <structmember.h>

#include <cstring>

#include "native/array.h"
#include "native/extents.h"
#include "native/integers.h"
#include "native/pointers.h"
#include "native/values.h"

namespace kestrel::records {

namespace {

struct Field {
  PyObject_HEAD
      /** The only type whose objects it serves. */
      PyTypeObject *type;
  const RecordClass *cls;
  const FieldSpec *spec;
};

PyTypeObject *field_type = nullptr;

const Field &Cast(PyObject *self) { return *reinterpret_cast<Field *>(self); }

PyObject *Foreign(const Field &field, PyObject *object) {
  return PyErr_Format(PyExc_TypeError, "%s.%s is no attribute of %.80s", field.cls->spec->name, field.spec->name,
                      Py_TYPE(object)->tp_name);
}

/** What follows a record: a sequence, or a tuple of views where the elements vary in length. */
PyObject *LoadRun(const Field &field, Record *record, char *data) {
  Run run;
  if (FindRun(*field.cls, *field.spec, data, record->extent, &run) < 0) return nullptr;
  if (run.stride) return NewArray({*field.cls, *field.spec}, record->root, data + run.offset, run.count, run.stride);
  const RecordClass &element = *ClassAt(field.spec->element.target);
  Ref views(PyTuple_New(run.count));
  Py_ssize_t position = run.offset;
  for (Py_ssize_t i = 0; views && i < run.count; ++i) {
    const Py_ssize_t extent = ExtentOf(element, data + position, record->extent - position);
    PyObject *view = extent < 0 ? nullptr : NewView(element, record->root, data + position, extent);
    if (!view) return nullptr;
    PyTuple_SET_ITEM(views.get(), i, view);
    position += extent;
  }
  return views.release();
}

PyObject *Get(PyObject *self, PyObject *object, PyObject *) {
  const Field &field = Cast(self);
  if (!object) return Py_NewRef(self);
  if (Py_TYPE(object) != field.type) [[unlikely]] {
    return object == Py_None ? Py_NewRef(self) : Foreign(field, object);
  }
  auto *record = reinterpret_cast<Record *>(object);
  char *data = Memory(record);
  if (!data) [[unlikely]] {
    return nullptr;
  }
  const FieldSpec &spec = *field.spec;
  char *place = data + spec.offset;
  if (spec.shape == Shape::kValue) [[likely]] {
    if (spec.element.kind >= Kind::kPointer) return LoadPointer({*field.cls, spec}, record, place);
    return Load(spec.element, record->root, place);
  }
  if (spec.shape == Shape::kFollows) return LoadRun(field, record, data);
  return NewArray({*field.cls, spec}, record->root, place, spec.count, spec.element.width);
}

/** Stores a value; takes it back where what follows would reach beyond the record's memory then. */
int SetValue(const Field &field, Record *record, PyObject *value, bool initialize) {
  const FieldSpec &spec = *field.spec;
  if (spec.element.kind >= Kind::kPointer) return StorePointer({*field.cls, spec}, record, value);
  Converted converted;
  if (Convert({*field.cls, spec}, spec.element, value, &converted) < 0) return -1;
  char *data = Memory(record);
  if (!data || !StillThere(spec.element, converted)) return -1;
  char *place = data + spec.offset;
  if (!field.cls->spec->table || initialize || spec.element.width > sizeof(std::uint64_t)) {
    Store(spec.element, converted, place);
    return 0;
  }
  std::uint64_t before = 0;
  std::memcpy(&before, place, spec.element.width);
  Store(spec.element, converted, place);
  if (ExtentOf(*field.cls, data, record->extent) >= 0) return 0;
  std::memcpy(place, &before, spec.element.width);
  return -1;
}

/** Replaces the elements of a sequence by as many others, all or none. */
int SetElements(const Field &field, Record *record, PyObject *value) {
  char *data = Memory(record);
  if (!data) return -1;
  const FieldSpec &spec = *field.spec;
  Run run = {spec.offset, spec.count, spec.element.width};
  if (spec.shape == Shape::kFollows && FindRun(*field.cls, spec, data, record->extent, &run) < 0) return -1;
  if (!run.stride) {
    PyErr_Format(PyExc_AttributeError, "%s.%s is replaced by making a new record", field.cls->spec->name, spec.name);
    return -1;
  }
  const Ref array(NewArray({*field.cls, spec}, record->root, data + run.offset, run.count, run.stride));
  return array ? StoreElements(array.get(), value) : -1;
}

int SetField(const Field &field, PyObject *object, PyObject *value, bool initialize) {
  if (Py_TYPE(object) != field.type) {
    Foreign(field, object);
    return -1;
  }
  if (!value || (field.spec->read_only && !initialize) || field.spec->element.kind == Kind::kOpaque) {
    PyErr_Format(PyExc_AttributeError, "%s.%s is %s", field.cls->spec->name, field.spec->name,
                 value ? "read-only" : "part of the record");
    return -1;
  }
  auto *record = reinterpret_cast<Record *>(object);
  if (!Memory(record)) return -1;
  if (field.spec->shape == Shape::kValue) return SetValue(field, record, value, initialize);
  return SetElements(field, record, value);
}

/** Whether members take values without detours: memory of the record's own, on whose length they have no say. */
bool IsPlain(const Field &field, const Record &record) {
  const FieldSpec &spec = *field.spec;
  return record.state == State::kOwn && spec.shape == Shape::kValue && !spec.read_only && !field.cls->spec->table;
}

/** Stores an int; false, with nothing changed, for what takes more thought. */
bool SetInteger(const Element &element, char *place, PyObject *value) {
  if (element.kind > Kind::kS32 || element.kind == Kind::kU64) return false;
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
  if (overflow || !FitsInteger(element, number)) return false;
  StoreInteger(element, place, static_cast<std::uint64_t>(number));
  return true;
}

/** Stores a text; false, with nothing changed, for what takes more thought. */
bool SetText(const Element &element, char *place, PyObject *value) {
  if ((element.kind != Kind::kText && element.kind != Kind::kName) || !PyUnicode_IS_COMPACT_ASCII(value)) return false;
  const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(value));
  const void *text = PyUnicode_DATA(value);
  if (length >= element.width || std::memchr(text, 0, length)) return false;
  std::memcpy(place, text, length);
  std::memset(place + length, 0, element.width - length);
  return true;
}

int Set(PyObject *self, PyObject *object, PyObject *value) {
  const Field &field = Cast(self);
  if (value && Py_TYPE(object) == field.type && IsPlain(field, *reinterpret_cast<Record *>(object))) {
    const Element &element = field.spec->element;
    char *place = reinterpret_cast<Record *>(object)->data + field.spec->offset;
    if (PyLong_CheckExact(value) && SetInteger(element, place, value)) return 0;
    if (PyUnicode_CheckExact(value) && SetText(element, place, value)) return 0;
  }
  return SetField(field, object, value, false);
}

// ---- What a descriptor tells about its field ----

PyObject *Name(PyObject *self, void *) { return PyUnicode_FromString(Cast(self).spec->name); }

PyObject *Qualname(PyObject *self, void *) {
  return PyUnicode_FromFormat("%s.%s", Cast(self).cls->spec->name, Cast(self).spec->name);
}

PyObject *Type(PyObject *self, void *) { return Py_NewRef(reinterpret_cast<PyObject *>(Cast(self).type)); }

PyObject *Doc(PyObject *self, void *) { return PyUnicode_FromString(Cast(self).spec->doc); }

PyObject *KindName(PyObject *self, void *) {
  static constexpr const char *kNames[] = {"u8",   "u16",  "u32",  "u64",    "s32",     "flag",       "text",  "mac",
                                           "ipv4", "ipv6", "name", "record", "pointer", "owned_text", "opaque"};
  return PyUnicode_FromString(kNames[static_cast<int>(Cast(self).spec->element.kind)]);
}

PyObject *ShapeName(PyObject *self, void *) {
  static constexpr const char *kNames[] = {"value", "fixed", "follows"};
  return PyUnicode_FromString(kNames[static_cast<int>(Cast(self).spec->shape)]);
}

PyObject *Offset(PyObject *self, void *) { return PyLong_FromUnsignedLong(Cast(self).spec->offset); }

PyObject *Width(PyObject *self, void *) { return PyLong_FromUnsignedLong(Cast(self).spec->element.width); }

PyObject *Bits(PyObject *self, void *) {
  const Element &element = Cast(self).spec->element;
  return element.bit_count ? Py_BuildValue("ii", element.bit_low, element.bit_count) : Py_NewRef(Py_None);
}

PyObject *Count(PyObject *self, void *) {
  const FieldSpec &spec = *Cast(self).spec;
  return spec.shape == Shape::kFixed ? PyLong_FromUnsignedLong(spec.count) : Py_NewRef(Py_None);
}

PyObject *Target(PyObject *self, void *) {
  const Element &element = Cast(self).spec->element;
  if ((element.kind != Kind::kRecord && element.kind != Kind::kPointer) || element.target < 0) Py_RETURN_NONE;
  return Py_NewRef(reinterpret_cast<PyObject *>(ClassAt(element.target)->type));
}

PyObject *ReadOnly(PyObject *self, void *) { return PyBool_FromLong(Cast(self).spec->read_only); }

PyObject *Overlaid(PyObject *self, void *) { return PyBool_FromLong(Cast(self).spec->overlaid); }

PyObject *Counts(PyObject *self, void *) { return PyBool_FromLong(Cast(self).spec->counts); }

PyObject *Repr(PyObject *self) {
  const Field &field = Cast(self);
  return PyUnicode_FromFormat("<member '%s' of '%s'>", field.spec->name, field.cls->spec->name);
}

void Dealloc(PyObject *self) {
  PyTypeObject *type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

PyGetSetDef properties[] = {
    {"__name__", Name, nullptr, "The member's name.", nullptr},
    {"__qualname__", Qualname, nullptr, "The class's name and the member's.", nullptr},
    {"__objclass__", Type, nullptr, "The record class.", nullptr},
    {"__doc__", Doc, nullptr, "What the member holds.", nullptr},
    {"kind", KindName, nullptr, "What the member, or an element of it, is in Python.", nullptr},
    {"shape", ShapeName, nullptr, "'value', 'fixed' for an array, 'follows' for what stands behind the record.",
     nullptr},
    {"offset", Offset, nullptr, "Bytes from the record's start.", nullptr},
    {"width", Width, nullptr, "Bytes of the member or of an element, of the storage unit for a bit-field.", nullptr},
    {"bits", Bits, nullptr, "Lowest bit and number of bits of a bit-field, else None.", nullptr},
    {"count", Count, nullptr, "Elements of a fixed array, else None.", nullptr},
    {"target", Target, nullptr, "The class of a record within or pointed to, else None.", nullptr},
    {"read_only", ReadOnly, nullptr, "Whether it is not replaced.", nullptr},
    {"overlaid", Overlaid, nullptr, "Whether it shows bytes that belong to an earlier member too.", nullptr},
    {"counts", Counts, nullptr, "Whether it counts what follows the record.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_descr_get, reinterpret_cast<void *>(Get)},
    {Py_tp_descr_set, reinterpret_cast<void *>(Set)},
    {Py_tp_repr, reinterpret_cast<void *>(Repr)},
    {Py_tp_dealloc, reinterpret_cast<void *>(Dealloc)},
    {Py_tp_getset, properties},
    {0, nullptr},
};

PyType_Spec field_spec = {"libkestrel._records.Field", sizeof(Field), 0,
                          Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};

}  // namespace

int AddField(PyObject *module) {
  field_type = reinterpret_cast<PyTypeObject *>(PyType_FromSpec(&field_spec));
  return field_type ? PyModule_AddType(module, field_type) : -1;
}

PyObject *NewField(const RecordClass &cls, const FieldSpec &spec) {
  auto *field = PyObject_New(Field, field_type);
  if (!field) return nullptr;
  field->type = cls.type;
  field->cls = &cls;
  field->spec = &spec;
  return reinterpret_cast<PyObject *>(field);
}

int InitializeField(PyObject *descriptor, PyObject *record, PyObject *value) {
  return SetField(Cast(descriptor), record, value, true);
}

}  // namespace kestrel::records
