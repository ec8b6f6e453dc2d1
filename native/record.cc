#include "native/record.h"

#include <malloc.h>
#include <structmember.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "native/extents.h"
#include "native/field.h"
#include "native/pointer.h"
#include "native/table.h"
#include "native/tables.h"
#include "native/values.h"

namespace kestrel::records {

PyTypeObject *record_type = nullptr;

namespace {

/** Roots whose addresses the flat module knows, by address: what it hands back may lie within one. */
std::map<char *, Record *> &Known() {
  static std::map<char *, Record *> known;
  return known;
}

/** Without memory for it the root is not found again, and what lies within counts as foreign. */
void Remember(Record *root) {
  try {
    Known()[root->data] = root;
  } catch (const std::bad_alloc &) {
    return;
  }
}

void Forget(Record *root) {
  if (!root->pointer) return;
  const auto found = Known().find(root->data);
  if (found != Known().end() && found->second == root) Known().erase(found);
}

/** The root whose memory an address lies in, or ends at. */
Record *RootAround(char *address) {
  auto found = Known().upper_bound(address);
  if (found == Known().begin()) return nullptr;
  Record *root = (--found)->second;
  return Present(root) && address <= root->data + root->extent ? root : nullptr;
}

Record *Blank(PyTypeObject *type) {
  Record *record = PyObject_GC_New(Record, type);
  if (!record) return nullptr;
  std::memset(&record->data, 0, sizeof *record - offsetof(Record, data));
  record->root = record;
  return record;
}

PyObject *Object(Record *record) { return reinterpret_cast<PyObject *>(record); }

/** The text that a record owns, freed with it. */
void FreeTexts(Record *root, const RecordClass &cls) {
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    if (cls.fields[i].element.kind != Kind::kOwnedText) continue;
    void *text = nullptr;
    std::memcpy(&text, root->data + cls.fields[i].offset, sizeof text);
    std::free(text);
  }
}

void DropHeld(Record *root) {
  PyObject *held = root->held;
  if (!held) return;
  root->held = nullptr;
  Py_ssize_t position = 0;
  PyObject *offset = nullptr;
  PyObject *object = nullptr;
  while (PyDict_Next(held, &position, &offset, &object)) {
    if (!IsRecord(object)) continue;
    Record *given = reinterpret_cast<Record *>(object)->root;
    --given->holders;
    if (given->holder == root) given->holder = nullptr;
  }
  Py_DECREF(held);
}

/** Lets go of a root's memory, giving it back if it is ours to give. What the releasing function said, or null with
    an error; in any case the memory is gone. */
PyObject *LetGo(Record *root) {
  const State state = root->state;
  PyObject *release = root->release;
  PyObject *pointer = root->pointer;
  char *data = root->data;
  if (state != State::kNone && state != State::kBeyond) Forget(root);
  const bool goes = state == State::kOwn || (state == State::kLent && Owns(pointer)) ||
                    (state == State::kPointer && Owns(pointer) && Py_REFCNT(pointer) == 1);
  if (goes) FreeTexts(root, *ClassOf(root));
  root->state = State::kNone;
  root->data = nullptr;
  root->release = nullptr;
  root->pointer = nullptr;
  PyObject *result = nullptr;
  if (release) {
    result = PyObject_CallOneArg(release, pointer);
    Py_DECREF(release);
  } else {
    result = Py_NewRef(Py_None);
  }
  if (state == State::kLent && Owns(pointer)) {
    if (SetOwns(pointer, false) < 0) PyErr_WriteUnraisable(pointer);
    std::free(data);
  }
  if (state == State::kOwn) std::free(data);
  Py_XDECREF(pointer);
  DropHeld(root);
  return result;
}

// ---- The type's slots ----

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

PyObject *NewBlank(PyTypeObject *type, PyObject *, PyObject *) {
  if (!ClassOf(type)) {
    PyErr_Format(PyExc_TypeError, "%.80s is the base of the record classes and has no records itself", type->tp_name);
    return nullptr;
  }
  return Object(Blank(type));
}

/** The descriptor of a keyword; null with TypeError. */
const FieldSpec *FieldNamed(const RecordClass &cls, PyObject *name, PyObject **descriptor) {
  PyObject *found = PyDict_GetItemWithError(cls.type->tp_dict, name);
  for (std::uint32_t i = 0; found && i < cls.spec->fields; ++i) {
    if (cls.descriptors[i] == found) {
      *descriptor = found;
      return &cls.fields[i];
    }
  }
  if (!PyErr_Occurred()) PyErr_Format(PyExc_TypeError, "%s has no member %R", cls.spec->name, name);
  return nullptr;
}

constexpr std::size_t kMostFollowers = 4;

/** What keywords say about the length of a new record: elements for what follows. */
struct Followers {
  /** The elements by field: a tuple of our own each. */
  std::array<Ref, kMostFollowers> elements;
  std::array<const FieldSpec *, kMostFollowers> fields{};
  std::size_t count = 0;
};

/** Reads how many elements an array or table is to have room for. -1 with an error. */
Py_ssize_t ReadRoom(const RecordClass &cls, PyObject *argument) {
  const Py_ssize_t room = PyNumber_AsSsize_t(argument, PyExc_OverflowError);
  if (room == -1 && PyErr_Occurred()) return -1;
  if (room < 0) {
    PyErr_Format(PyExc_ValueError, "%s: room for %zd", cls.spec->name, room);
    return -1;
  }
  return room;
}

Py_ssize_t TooMuch() {
  PyErr_NoMemory();
  return -1;
}

/** Makes records of dictionaries among varying elements, and gives the bytes that all take; -1 with an error. */
Py_ssize_t VaryingLength(const FieldSpec &field, Ref *elements) {
  const RecordClass *element = ClassAt(field.element.target);
  const Py_ssize_t count = PyTuple_GET_SIZE(elements->get());
  Ref records(element ? PyTuple_New(count) : nullptr);
  if (!records) return -1;
  Py_ssize_t total = 0;
  for (Py_ssize_t i = 0; i < count; ++i) {
    PyObject *item = PyTuple_GET_ITEM(elements->get(), i);
    Ref record;
    if (PyDict_Check(item)) {
      const Ref nothing(PyTuple_New(0));
      const Ref keywords(nothing ? PyDict_Copy(item) : nullptr);
      if (!keywords) return -1;
      record.reset(PyObject_Call(reinterpret_cast<PyObject *>(element->type), nothing.get(), keywords.get()));
      if (!record) return -1;
    } else if (Py_TYPE(item) == element->type) {
      record = Share(item);
    } else {
      PyErr_Format(PyExc_TypeError, "%s holds %s, not %.80s", field.name, element->spec->name, Py_TYPE(item)->tp_name);
      return -1;
    }
    if (!Memory(reinterpret_cast<Record *>(record.get()))) return -1;
    if (__builtin_add_overflow(total, reinterpret_cast<Record *>(record.get())->extent, &total)) return TooMuch();
    PyTuple_SET_ITEM(records.get(), i, record.release());
  }
  *elements = std::move(records);
  return total;
}

/** Makes room for what follows, sets the counters and gives the length of everything; -1 with an error. */
Py_ssize_t Lengths(const RecordClass &cls, PyObject *room, Followers *followers, PyObject *const *values,
                   PyObject *names, char *head) {
  Py_ssize_t length = cls.spec->size;
  Py_ssize_t position = -1;
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    if (field.shape != Shape::kFollows) continue;
    PyObject *given = nullptr;
    for (Py_ssize_t k = 0; names && k < PyTuple_GET_SIZE(names); ++k) {
      if (PyUnicode_CompareWithASCIIString(PyTuple_GET_ITEM(names, k), field.name) == 0) given = values[k];
    }
    Py_ssize_t count = 0;
    if (given) {
      Ref &elements = followers->elements[followers->count];
      elements.reset(PySequence_Tuple(given));
      if (!elements) return -1;
      followers->fields[followers->count++] = &field;
      count = PyTuple_GET_SIZE(elements.get());
    } else if (cls.special == Special::kGre && !room) {
      count = GreWords(cls, head);
    } else if (field.overlaid) {
      continue;  // the view of these bytes that was given, or the first, has counted
    }
    if (room && position < 0 && !Varies(field)) {
      const Py_ssize_t wanted = ReadRoom(cls, room);
      if (wanted < 0) return -1;
      if (given && wanted != count) {
        PyErr_Format(PyExc_ValueError, "%s: room for %zd and %zd given", cls.spec->name, wanted, count);
        return -1;
      }
      count = wanted;
    }
    Py_ssize_t bytes = 0;
    Py_ssize_t counted = count;
    if (Varies(field)) {
      if (given) bytes = VaryingLength(field, &followers->elements[followers->count - 1]);
      if (bytes < 0) return -1;
      if (room && cls.special == Special::kOptions) {
        const Py_ssize_t whole = ReadRoom(cls, room);
        if (whole < 0) return -1;
        if (whole < length + bytes) {
          PyErr_Format(PyExc_ValueError, "%s: %zd bytes are too few", cls.spec->name, whole);
          return -1;
        }
        bytes = whole - length;
      }
      if (cls.special == Special::kOptions) counted = bytes;
    } else if (__builtin_mul_overflow(count, StrideOf(cls, field, head), &bytes)) {
      return TooMuch();
    }
    const bool in_bytes = cls.special == Special::kOption || cls.special == Special::kOptions;
    const bool counts = given || in_bytes || (room && position < 0);
    if (counts && StoreCount(cls, field, head, counted) < 0) return -1;
    const Py_ssize_t start = position < 0 || field.overlaid ? field.offset : position;
    if (__builtin_add_overflow(start, bytes, &position)) return TooMuch();
    length = std::max(length, position);
  }
  return length;
}

/** Copies varying elements one behind another. */
int StoreVarying(Record *record, const FieldSpec &field, PyObject *elements) {
  char *place = record->data + field.offset;
  const char *end = record->data + record->extent;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(elements); ++i) {
    auto *element = reinterpret_cast<Record *>(PyTuple_GET_ITEM(elements, i));
    const char *data = Memory(element);
    if (!data) return -1;
    if (element->extent > end - place) {
      PyErr_Format(PyExc_ValueError, "%s changed while it was copied", field.name);
      return -1;
    }
    std::memcpy(place, data, static_cast<std::size_t>(element->extent));
    place += element->extent;
  }
  return 0;
}

PyObject *TooManyArguments(const RecordClass &cls) {
  PyErr_Format(PyExc_TypeError, "%s takes its members by keyword%s", cls.spec->name,
               cls.spec->table ? ", and before them the number of entries to make room for" : "");
  return nullptr;
}

/** Class(...): members by keyword; before them, for what varies in length, how many entries. */
PyObject *Construct(PyObject *type, PyObject *const *args, std::size_t flags, PyObject *names) {
  const RecordClass *cls = ClassOf(reinterpret_cast<PyTypeObject *>(type));
  if (!cls) return NewBlank(reinterpret_cast<PyTypeObject *>(type), nullptr, nullptr);
  const Py_ssize_t positional = PyVectorcall_NARGS(flags);
  const Py_ssize_t keywords = names ? PyTuple_GET_SIZE(names) : 0;
  if (positional > (cls->spec->table ? 1 : 0)) return TooManyArguments(*cls);
  if (!cls->spec->table) {
    const Ref record(NewOwn(*cls, cls->spec->size));
    for (Py_ssize_t i = 0; record && i < keywords; ++i) {
      PyObject *descriptor = nullptr;
      if (!FieldNamed(*cls, PyTuple_GET_ITEM(names, i), &descriptor)) return nullptr;
      if (InitializeField(descriptor, record.get(), args[i]) < 0) return nullptr;
    }
    return record ? Py_NewRef(record.get()) : nullptr;
  }
  // Plain members first: the kind of a list of names tells how long it is.
  const Ref head(NewOwn(*cls, cls->spec->size));
  if (!head) return nullptr;
  for (Py_ssize_t i = 0; i < keywords; ++i) {
    PyObject *descriptor = nullptr;
    const FieldSpec *field = FieldNamed(*cls, PyTuple_GET_ITEM(names, i), &descriptor);
    if (!field) return nullptr;
    if (field->shape == Shape::kFollows || (field->counts && cls->special != Special::kGre)) continue;
    if (InitializeField(descriptor, head.get(), args[positional + i]) < 0) return nullptr;
  }
  Followers followers;
  char *bytes = reinterpret_cast<Record *>(head.get())->data;
  const Py_ssize_t length = Lengths(*cls, positional ? args[0] : nullptr, &followers, args + positional, names, bytes);
  if (length < 0) return nullptr;
  Ref whole(NewOwn(*cls, length));
  if (!whole) return nullptr;
  auto *record = reinterpret_cast<Record *>(whole.get());
  std::memcpy(record->data, bytes, cls->spec->size);
  for (std::size_t i = 0; i < followers.count; ++i) {
    const FieldSpec &field = *followers.fields[i];
    PyObject *elements = followers.elements[i].get();
    PyObject *descriptor = cls->descriptors[&field - cls->fields];
    const int stored =
        Varies(field) ? StoreVarying(record, field, elements) : InitializeField(descriptor, whole.get(), elements);
    if (stored < 0) return nullptr;
  }
  // Counters last: they may say less than there is room for, or what was counted anyway.
  for (Py_ssize_t i = 0; i < keywords; ++i) {
    PyObject *descriptor = nullptr;
    const FieldSpec *field = FieldNamed(*cls, PyTuple_GET_ITEM(names, i), &descriptor);
    if (!field) return nullptr;
    if (!field->counts || cls->special == Special::kGre) continue;
    if (InitializeField(descriptor, whole.get(), args[positional + i]) < 0) return nullptr;
  }
  return ExtentOf(*cls, record->data, record->extent) < 0 ? nullptr : whole.release();
}

// ---- Pointers ----

/** Whether an address within the platform's memory is memory that the platform has handed out anew: a record of the
    same kind at the same place, or one that reaches further. */
bool IsAnew(const Record &around, const RecordClass &cls, char *address) {
  if (around.state != State::kForeign) return false;
  if (around.data == address && Py_TYPE(&around) == cls.type) return true;
  const Py_ssize_t limit = around.data + around.extent - address;
  if (limit == 0 || ExtentOf(cls, address, limit) >= 0) return false;
  PyErr_Clear();
  return true;
}

/** Makes a blank record stand for what a pointer object designates. */
int Adopt(Record *record, PyObject *pointer) {
  RecordClass *cls = ClassOf(record);
  char *address = AddressAs(pointer, cls->pointer);
  if (!address) return -1;
  const Py_ssize_t size = cls->spec->size;
  Record *around = Owns(pointer) ? nullptr : RootAround(address);
  if (Owns(pointer)) {
    // What a pointer object owns came from malloc, which knows how much it gave.
    record->extent = static_cast<Py_ssize_t>(malloc_usable_size(address));
    if (record->extent < size) {
      PyErr_Format(PyExc_ValueError, "the memory is too small for %s", cls->spec->name);
      return -1;
    }
    record->state = State::kPointer;
  } else if (around && !IsAnew(*around, *cls, address)) {
    const Py_ssize_t limit = around->data + around->extent - address;
    record->extent = ExtentOf(*cls, address, limit);
    if (record->extent < 0) {
      PyErr_Clear();
      record->extent = std::min(size, limit);
    }
    record->state = limit < size ? State::kBeyond : State::kView;
    if (record->state == State::kView) record->root = reinterpret_cast<Record *>(Py_NewRef(Object(around)));
  } else {
    record->extent = ExtentOf(*cls, address, PY_SSIZE_T_MAX / 2);
    if (record->extent < 0) return -1;
    // A platform that hands out addresses anew has had them back.
    if (around && (around->data != address || around->extent != record->extent)) {
      Forget(around);
      around->state = State::kNone;
    }
    record->state = State::kForeign;
  }
  record->data = address;
  record->pointer = Py_NewRef(pointer);
  if (record->root == record && record->state != State::kBeyond) Remember(record);
  return 0;
}

PyObject *GetThis(PyObject *self, void *) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->state == State::kBeyond) return Py_NewRef(record->pointer);
  if (!Memory(record)) return nullptr;
  if (record->pointer) return Py_NewRef(record->pointer);
  const RecordClass *cls = ClassOf(record);
  Ref pointer(NewPointer(record->data, cls->pointer));
  if (!pointer) return nullptr;
  Record *root = record->root;
  if (record != root) {
    // Whatever the flat module finds within is found again here.
    if (!root->pointer) {
      const Ref known(GetThis(Object(root), nullptr));
      if (!known) return nullptr;
    }
  } else {
    if (SetOwns(pointer.get(), true) < 0) return nullptr;
    if (record->pointer) return Py_NewRef(record->pointer);
    record->state = cls->registered ? State::kPointer : State::kLent;
  }
  if (record->pointer) return Py_NewRef(record->pointer);
  record->pointer = Py_NewRef(pointer.get());
  if (record == root) Remember(record);
  return pointer.release();
}

int SetThis(PyObject *self, PyObject *value, void *) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->root != record || record->state != State::kNone || record->pointer || record->held || record->extent) {
    PyErr_SetString(PyExc_AttributeError, "a record's memory is not replaced");
    return -1;
  }
  if (!value || !IsPointer(value)) {
    PyErr_SetString(PyExc_TypeError, "a pointer object of _libkestrel is wanted");
    return -1;
  }
  return Adopt(record, value);
}

PyObject *FromPointer(PyObject *type, PyObject *pointer) {
  const Ref record(NewBlank(reinterpret_cast<PyTypeObject *>(type), nullptr, nullptr));
  if (!record || SetThis(record.get(), pointer, nullptr) < 0) return nullptr;
  return Py_NewRef(record.get());
}

// ---- Methods and attributes of all records ----

PyObject *Released(PyObject *self, void *) { return PyBool_FromLong(!Present(reinterpret_cast<Record *>(self)->root)); }

PyObject *Owned(PyObject *self, void *) {
  auto *record = reinterpret_cast<Record *>(self);
  const bool ours = record->state != State::kView && record->state != State::kBeyond &&
                    (record->state != State::kForeign || record->release);
  return PyBool_FromLong(ours && Present(record) && record->holders == 0);
}

PyObject *Owner(PyObject *self, void *) {
  auto *record = reinterpret_cast<Record *>(self);
  Record *owner = record->root != record ? record->root : record->holder;
  return Py_NewRef(owner ? Object(owner) : Py_None);
}

PyObject *Size(PyObject *self, void *) {
  auto *record = reinterpret_cast<Record *>(self);
  return Memory(record) ? PyLong_FromSsize_t(record->extent) : nullptr;
}

PyObject *Release(PyObject *self, PyObject *) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->root != record || record->holders) {
    PyErr_SetString(PyExc_ValueError, "the record belongs to another one");
    return nullptr;
  }
  if (record->exports) {
    PyErr_SetString(PyExc_BufferError, "buffers of the record are in use");
    return nullptr;
  }
  if (record->state == State::kNone) Py_RETURN_NONE;
  return LetGo(record);
}

PyObject *ReleaseWith(PyObject *self, PyObject *function) {
  auto *record = reinterpret_cast<Record *>(self);
  if (!Memory(record)) return nullptr;
  if (record->state != State::kForeign || record->release) {
    PyErr_SetString(PyExc_ValueError, "only memory that the platform handed out is given back");
    return nullptr;
  }
  if (!PyCallable_Check(function)) {
    PyErr_Format(PyExc_TypeError, "a function is wanted, not %.80s", Py_TYPE(function)->tp_name);
    return nullptr;
  }
  record->release = Py_NewRef(function);
  if (!PyObject_GC_IsTracked(self)) PyObject_GC_Track(self);
  return Py_NewRef(self);
}

PyObject *Bytes(PyObject *self, PyObject *) {
  auto *record = reinterpret_cast<Record *>(self);
  if (!Memory(record)) return nullptr;
  const Py_ssize_t length = LengthInBytes(record);
  return length < 0 ? nullptr : PyBytes_FromStringAndSize(record->data, length);
}

bool PointsNowhere(const RecordClass &cls, const char *data) {
  static constexpr char kNull[sizeof(void *)] = {};
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    const bool pointer = field.element.kind == Kind::kPointer || field.element.kind == Kind::kOwnedText;
    if (pointer && std::memcmp(data + field.offset, kNull, sizeof kNull) != 0) return false;
  }
  return true;
}

PyObject *FromBytes(PyObject *type, PyObject *object) {
  const RecordClass *cls = ClassOf(reinterpret_cast<PyTypeObject *>(type));
  if (!cls) return NewBlank(reinterpret_cast<PyTypeObject *>(type), nullptr, nullptr);
  Py_buffer view;
  if (PyObject_GetBuffer(object, &view, PyBUF_SIMPLE) < 0) return nullptr;
  PyObject *record = nullptr;
  const auto *data = static_cast<const char *>(view.buf);
  const Py_ssize_t extent = ExtentOf(*cls, data, view.len);
  if (extent < 0) {
    // the error is set
  } else if (!EndsAt(*cls, data, view.len)) {
    PyErr_Format(PyExc_ValueError, "%s has %zd bytes, not %zd", cls->spec->name, extent, view.len);
  } else if (!PointsNowhere(*cls, data)) {
    PyErr_Format(PyExc_ValueError, "%s: bytes cannot tell what a pointer points to", cls->spec->name);
  } else {
    record = NewOwn(*cls, view.len);
    if (record) std::memcpy(reinterpret_cast<Record *>(record)->data, data, static_cast<std::size_t>(view.len));
  }
  PyBuffer_Release(&view);
  return record;
}

PyObject *Copy(PyObject *self, PyObject *) {
  auto *record = reinterpret_cast<Record *>(self);
  const RecordClass *cls = ClassOf(record);
  const Ref bytes(Bytes(self, nullptr));
  if (!bytes) return nullptr;
  Ref copy(NewOwn(*cls, PyBytes_GET_SIZE(bytes.get())));
  if (!copy) return nullptr;
  auto *fresh = reinterpret_cast<Record *>(copy.get());
  std::memcpy(fresh->data, PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(fresh->extent));
  if (!cls->points) return copy.release();
  // Pointers point on where something keeps what they point to, and else nowhere.
  for (std::uint32_t i = 0; i < cls->spec->fields; ++i) {
    const FieldSpec &field = cls->fields[i];
    if (field.element.kind != Kind::kPointer && field.element.kind != Kind::kOwnedText) continue;
    std::memset(fresh->data + field.offset, 0, sizeof(void *));
  }
  for (std::uint32_t i = 0; i < cls->spec->fields; ++i) {
    const FieldSpec &field = cls->fields[i];
    if (field.element.kind != Kind::kPointer && field.element.kind != Kind::kOwnedText) continue;
    if (field.element.kind == Kind::kPointer && !(record->root == record && Held(record, field.offset))) continue;
    const Ref value(PyObject_GetAttrString(self, field.name));
    if (!value || InitializeField(cls->descriptors[i], copy.get(), value.get()) < 0) return nullptr;
  }
  return copy.release();
}

/** The address, which pointer objects tell the same way: scripts that ask one for it may be handed a record. */
PyObject *Address(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->state == State::kBeyond) return PyNumber_Long(record->pointer);
  return Memory(record) ? PyLong_FromVoidPtr(record->data) : nullptr;
}

PyObject *Enter(PyObject *self, PyObject *) {
  return Memory(reinterpret_cast<Record *>(self)) ? Py_NewRef(self) : nullptr;
}

PyObject *Exit(PyObject *self, PyObject *) {
  const Ref done(Release(self, nullptr));
  return done ? Py_NewRef(Py_None) : nullptr;
}

PyMethodDef methods[] = {
    {"from_pointer", FromPointer, METH_O | METH_CLASS,
     "from_pointer(pointer, /)\n--\n\nThe record that a pointer object of _libkestrel designates.\n\nIt shares the "
     "memory: owning it where the pointer object does. TypeError for a pointer to something else, ValueError for "
     "null."},
    {"from_bytes", FromBytes, METH_O | METH_CLASS,
     "from_bytes(data, /)\n--\n\nA record of its own with these bytes, as bytes(record) gives them.\n\nValueError "
     "where "
     "they are too few or too many for what the counters say, or where a pointer among them is not null."},
    {"copy", Copy, METH_NOARGS,
     "copy()\n--\n\nA record of its own with the same values.\n\nPointer members point to the same objects; those that "
     "the platform set are null in the copy."},
    {"release", Release, METH_NOARGS,
     "release()\n--\n\nGives the memory back now; using the record or a view of it raises ReferenceError from then "
     "on.\n\nGives what the function of release_with gave. ValueError for a record that belongs to another one, "
     "BufferError while a buffer of it is in use. Does nothing the second time."},
    {"release_with", ReleaseWith, METH_O,
     "release_with(function, /)\n--\n\nHas the platform's memory given back through `function`, exactly once: by "
     "release() or with the last record that lies in it.\n\nGives the record itself. ValueError for memory that is not "
     "the platform's or that has its function already."},
    {"__bytes__", Bytes, METH_NOARGS, "The record's bytes, with everything that follows it."},
    {"__enter__", Enter, METH_NOARGS, "The record itself, released on the way out."},
    {"__exit__", Exit, METH_VARARGS, "Releases the record."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef properties[] = {
    {"this", GetThis, SetThis,
     "The pointer object that the flat module takes. Asked for, it owns the memory from then on.", nullptr},
    {"released", Released, nullptr, "Whether the memory has gone.", nullptr},
    {"owned", Owned, nullptr,
     "Whether the memory goes with this record: not that of the platform, of a record around it, or of one it was "
     "given to.",
     nullptr},
    {"owner", Owner, nullptr, "The record whose memory this one lies in or that it was given to, or None.", nullptr},
    {"nbytes", Size, nullptr, "Bytes of memory, with everything that follows the record.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

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
    {Py_tp_methods, methods},
    {Py_tp_getset, properties},
    {Py_nb_int, reinterpret_cast<void *>(Address)},
    {Py_bf_getbuffer, reinterpret_cast<void *>(GetRecordBuffer)},
    {Py_bf_releasebuffer, reinterpret_cast<void *>(ReleaseRecordBuffer)},
    {0, nullptr},
};

PyType_Spec record_spec = {"libkestrel._records.RecordBase", sizeof(Record), 0,
                           Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC, record_slots};

// ---- Classes ----

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

void RaiseGone(Record *record) {
  const char *name = ClassOf(record)->spec->name;
  const State state = record->root->state;
  const char *what = "%s: the memory is gone";
  if (state == State::kPointer || state == State::kLent) what = "%s: the flat module has taken the memory";
  if (state == State::kBeyond) what = "%s: nothing is there";
  PyErr_Format(PyExc_ReferenceError, what, name);
}

bool Present(Record *record) {
  const Record *root = record->root;
  switch (root->state) {
    case State::kOwn:
    case State::kForeign:
      return true;
    case State::kPointer:
    case State::kLent:
      return Owns(root->pointer);
    default:
      return false;
  }
}

PyObject *NewView(const RecordClass &cls, Record *root, char *data, Py_ssize_t extent) {
  Record *record = Blank(cls.type);
  if (!record) return nullptr;
  record->state = State::kView;
  record->data = data;
  record->extent = extent;
  record->root = reinterpret_cast<Record *>(Py_NewRef(Object(root)));
  return Object(record);
}

PyObject *NewOwn(const RecordClass &cls, Py_ssize_t extent) {
  Record *record = Blank(cls.type);
  if (!record) return nullptr;
  record->data = static_cast<char *>(std::calloc(1, extent ? static_cast<std::size_t>(extent) : 1));
  if (!record->data) {
    Py_DECREF(Object(record));
    return PyErr_NoMemory();
  }
  record->extent = extent;
  record->state = State::kOwn;
  return Object(record);
}

PyObject *NewAt(const RecordClass &cls, char *address) {
  const Ref pointer(NewPointer(address, cls.pointer));
  const Ref record(pointer ? Object(Blank(cls.type)) : nullptr);
  if (!record || Adopt(reinterpret_cast<Record *>(record.get()), pointer.get()) < 0) return nullptr;
  return Py_NewRef(record.get());
}

int Hold(Record *root, Py_ssize_t offset, PyObject *object) {
  const Ref key(PyLong_FromSsize_t(offset));
  if (!key) return -1;
  if (!root->held) root->held = PyDict_New();
  if (!root->held) return -1;
  Ref before;
  if (PyObject *old = PyDict_GetItemWithError(root->held, key.get())) before = Share(old);
  if (PyErr_Occurred()) return -1;
  if (object && PyDict_SetItem(root->held, key.get(), object) < 0) return -1;
  if (!object && before && PyDict_DelItem(root->held, key.get()) < 0) return -1;
  if (object && IsRecord(object)) {
    if (!PyObject_GC_IsTracked(object)) PyObject_GC_Track(object);
    Record *given = reinterpret_cast<Record *>(object)->root;
    ++given->holders;
    given->holder = root;
  }
  if (before && IsRecord(before.get())) {
    Record *given = reinterpret_cast<Record *>(before.get())->root;
    --given->holders;
    if (given->holder == root) given->holder = nullptr;
  }
  if (!PyObject_GC_IsTracked(Object(root))) PyObject_GC_Track(Object(root));
  return 0;
}

PyObject *Held(Record *root, Py_ssize_t offset) {
  if (!root->held) return nullptr;
  const Ref key(PyLong_FromSsize_t(offset));
  PyObject *found = key ? PyDict_GetItemWithError(root->held, key.get()) : nullptr;
  if (!found) PyErr_Clear();
  return found;
}

}  // namespace kestrel::records
