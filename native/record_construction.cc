// New records of what a call of their class says.
#include "native/record_parts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "native/extents.h"
#include "native/field.h"

namespace kestrel::records {

namespace {

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

}  // namespace

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

}  // namespace kestrel::records
