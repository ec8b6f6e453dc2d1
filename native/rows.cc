#include "native/rows.h"

#include <array>
#include <memory>
#include <new>
#include <vector>

#include "native/columns.h"
#include "native/integers.h"
#include "native/mac_address.h"

namespace kestrel::records {

namespace {

/** The numbers below 256, which the interpreter has only once each. */
std::array<PyObject *, 256> small_numbers;

bool MakeSmallNumbers() {
  for (std::size_t i = 0; i < small_numbers.size(); ++i) {
    if (!small_numbers[i]) small_numbers[i] = PyLong_FromSize_t(i);
    if (!small_numbers[i]) return false;
  }
  return true;
}

/** Numbers that stood in a column lately, as objects: port identifiers, VLANs and ages come again and again. */
class Recent {
 public:
  Recent() = default;
  Recent(const Recent &) = delete;
  Recent &operator=(const Recent &) = delete;
  ~Recent() {
    for (Entry &entry : entries_) Py_XDECREF(entry.object);
  }

  PyObject *Number(std::uint64_t number) {
    if (number < small_numbers.size()) return Py_NewRef(small_numbers[number]);
    Entry &entry = entries_[number % entries_.size()];
    if (entry.object && entry.number == number) [[likely]] {
      return Py_NewRef(entry.object);
    }
    PyObject *fresh = PyLong_FromUnsignedLongLong(number);
    return fresh ? Keep(number, fresh) : nullptr;
  }

  /** What was kept of a number; borrowed, null for nothing. */
  PyObject *Find(std::uint64_t number) const {
    const Entry &entry = entries_[number % entries_.size()];
    return entry.number == number ? entry.object : nullptr;
  }

  /** Keeps what a number is in Python, and gives it back. */
  PyObject *Keep(std::uint64_t number, PyObject *object) {
    Entry &entry = entries_[number % entries_.size()];
    entry.number = number;
    Py_XSETREF(entry.object, Py_NewRef(object));
    return object;
  }

 private:
  struct Entry {
    std::uint64_t number = 0;
    PyObject *object = nullptr;
  };
  std::array<Entry, 256> entries_;
};

/** How rows read a column: the frequent ways by themselves, without anything of Python's running. */
enum class Way : std::uint8_t { kMac, kFlag, kU16, kU32, kU64, kEnumerator, kFixed, kOther };

struct Source {
  Element element;
  Py_ssize_t offset = 0;
  /** Elements of a fixed array. */
  std::uint32_t count = 0;
  Way way = Way::kOther;
  Recent recent;
};

PyObject *LoadFixed(const Source &source, Record *root, char *place) {
  Ref values(PyTuple_New(source.count));
  for (std::uint32_t i = 0; values && i < source.count; ++i) {
    PyObject *value =
        Memory(root) ? Load(source.element, root, place + static_cast<std::size_t>(i) * source.element.width) : nullptr;
    if (!value) return nullptr;
    PyTuple_SET_ITEM(values.get(), i, value);
  }
  return values.release();
}

PyObject *LoadEnumerator(Source *source, Record *root, char *place) {
  const auto number = static_cast<std::uint64_t>(LoadInteger(source->element, place));
  PyObject *known = source->recent.Find(number);
  if (known) return Py_NewRef(known);
  PyObject *value = Load(source->element, root, place);
  if (value && !Memory(root)) Py_CLEAR(value);  // making it may have run anything
  return value ? source->recent.Keep(number, value) : nullptr;
}

/** The memory is there when this is called. */
inline PyObject *LoadSource(Source *source, Record *root, char *row) {
  char *place = row + source->offset;
  switch (source->way) {
    case Way::kMac:
      return NewMacAddress(place);
    case Way::kFlag:
      return Py_NewRef(*place ? Py_True : Py_False);
    case Way::kU16:
      return source->recent.Number(LoadAs<std::uint16_t>(place));
    case Way::kU32:
      return source->recent.Number(LoadAs<std::uint32_t>(place));
    case Way::kU64:
      return source->recent.Number(LoadAs<std::uint64_t>(place));
    case Way::kEnumerator:
      return LoadEnumerator(source, root, place);
    case Way::kFixed:
      return LoadFixed(*source, root, place);
    case Way::kOther:
      break;
  }
  PyObject *value = Load(source->element, root, place);
  if (value && !Memory(root)) Py_CLEAR(value);  // making it may have run anything
  return value;
}

Way WayOf(const Element &element, bool fixed) {
  if (fixed) return Way::kFixed;
  if (element.kind == Kind::kMac) return Way::kMac;
  if (element.kind == Kind::kFlag) return Way::kFlag;
  if (element.bit_count) return Way::kOther;
  if (element.target >= 0) return element.kind <= Kind::kS32 ? Way::kEnumerator : Way::kOther;
  if (element.kind == Kind::kU16) return Way::kU16;
  if (element.kind == Kind::kU32) return Way::kU32;
  return element.kind == Kind::kU64 ? Way::kU64 : Way::kOther;
}

void Describe(const FieldSpec &field, Py_ssize_t offset, bool fixed, Source *source) {
  source->element = field.element;
  source->offset = offset;
  source->count = fixed ? field.count : 0;
  source->way = WayOf(field.element, fixed);
}

struct RowsObject {
  PyObject_HEAD Record *root;
  std::vector<Source> *sources;
  char *data;
  Py_ssize_t count;
  Py_ssize_t stride;
};

struct Iterator {
  PyObject_HEAD RowsObject *rows;
  Py_ssize_t next;
  /** The row given last. */
  PyObject *row;
};

PyTypeObject *rows_type = nullptr;
PyTypeObject *iterator_type = nullptr;

RowsObject &Cast(PyObject *self) { return *reinterpret_cast<RowsObject *>(self); }

PyObject *NewRow(const RowsObject &rows, Py_ssize_t index) {
  const auto width = static_cast<Py_ssize_t>(rows.sources->size());
  Ref row(PyTuple_New(width));
  // Making a tuple may run the collector, and with it anything.
  if (!row || !Memory(rows.root)) return nullptr;
  char *place = rows.data + index * rows.stride;
  Source *source = rows.sources->data();
  for (Py_ssize_t k = 0; k < width; ++k) {
    PyObject *value = LoadSource(source++, rows.root, place);
    if (!value) return nullptr;
    PyTuple_SET_ITEM(row.get(), k, value);
  }
  // It holds nothing that could lead back to it; the collector would find that out for each row.
  PyObject_GC_UnTrack(row.get());
  return row.release();
}

/** Fills a row again that nobody else holds any more. */
bool Refill(const RowsObject &rows, Py_ssize_t index, PyObject *row) {
  char *place = rows.data + index * rows.stride;
  for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(row); ++k) {
    Source *source = &(*rows.sources)[static_cast<std::size_t>(k)];
    PyObject *old = PyTuple_GET_ITEM(row, k);
    if (source->way == Way::kMac && ReplaceMacAddress(old, place + source->offset)) continue;
    PyObject *value = LoadSource(source, rows.root, place);
    if (!value) return false;
    PyTuple_SET_ITEM(row, k, value);
    Py_DECREF(old);
    if (source->way >= Way::kFixed && !Memory(rows.root)) return false;
  }
  return true;
}

// ---- The sequence ----

void Dealloc(PyObject *self) {
  delete Cast(self).sources;
  Py_DECREF(reinterpret_cast<PyObject *>(Cast(self).root));
  PyTypeObject *type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

Py_ssize_t Length(PyObject *self) { return Cast(self).count; }

PyObject *Item(PyObject *self, Py_ssize_t index) {
  const RowsObject &rows = Cast(self);
  if (index >= 0 && index < rows.count) return Memory(rows.root) ? NewRow(rows, index) : nullptr;
  return PyErr_Format(PyExc_IndexError, "there are %zd rows", rows.count);
}

PyObject *Subscript(PyObject *self, PyObject *key) {
  const RowsObject &rows = Cast(self);
  if (PySlice_Check(key)) {
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = 0;
    if (PySlice_Unpack(key, &start, &stop, &step) < 0) return nullptr;
    const Py_ssize_t count = PySlice_AdjustIndices(rows.count, &start, &stop, step);
    Ref list(PyList_New(count));
    for (Py_ssize_t i = 0; list && i < count; ++i) {
      PyObject *row = Item(self, start + i * step);
      if (!row) return nullptr;
      PyList_SET_ITEM(list.get(), i, row);
    }
    return list.release();
  }
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred()) return nullptr;
  return Item(self, index < 0 ? index + rows.count : index);
}

PyObject *Iterate(PyObject *self) {
  auto *iterator = PyObject_New(Iterator, iterator_type);
  if (!iterator) return nullptr;
  iterator->rows = reinterpret_cast<RowsObject *>(Py_NewRef(self));
  iterator->next = 0;
  iterator->row = nullptr;
  return reinterpret_cast<PyObject *>(iterator);
}

PyObject *Repr(PyObject *self) { return PyUnicode_FromFormat("<%zd rows>", Cast(self).count); }

PyType_Slot rows_slots[] = {
    {Py_tp_doc, const_cast<char *>("The rows of a table: a sequence of tuples, each read when it is asked for.")},
    {Py_tp_dealloc, reinterpret_cast<void *>(Dealloc)},
    {Py_tp_repr, reinterpret_cast<void *>(Repr)},
    {Py_tp_iter, reinterpret_cast<void *>(Iterate)},
    {Py_sq_length, reinterpret_cast<void *>(Length)},
    {Py_sq_item, reinterpret_cast<void *>(Item)},
    {Py_mp_subscript, reinterpret_cast<void *>(Subscript)},
    {0, nullptr},
};

PyType_Spec rows_spec = {
    "libkestrel.records.Rows", sizeof(RowsObject), 0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_SEQUENCE,
    rows_slots};

// ---- Its iterator ----

void DeallocIterator(PyObject *self) {
  auto *iterator = reinterpret_cast<Iterator *>(self);
  Py_XDECREF(iterator->row);
  Py_DECREF(reinterpret_cast<PyObject *>(iterator->rows));
  PyTypeObject *type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

PyObject *Next(PyObject *self) {
  auto *iterator = reinterpret_cast<Iterator *>(self);
  const RowsObject &rows = *iterator->rows;
  if (iterator->next >= rows.count) return nullptr;
  if (!Memory(rows.root)) return nullptr;
  const Py_ssize_t index = iterator->next++;
  PyObject *row = iterator->row;
  if (row && Py_REFCNT(row) == 1) {
    // Out of the iterator's hands meanwhile: what runs on the way may ask it for another row.
    iterator->row = nullptr;
    if (!Refill(rows, index, row)) {
      Py_DECREF(row);
      return nullptr;
    }
  } else {
    row = NewRow(rows, index);
    if (!row) return nullptr;
  }
  Py_XSETREF(iterator->row, Py_NewRef(row));
  return row;
}

PyObject *Hint(PyObject *self, PyObject *) {
  const auto *iterator = reinterpret_cast<Iterator *>(self);
  return PyLong_FromSsize_t(iterator->rows->count - iterator->next);
}

PyMethodDef iterator_methods[] = {
    {"__length_hint__", Hint, METH_NOARGS, "Rows left."},
    {nullptr, nullptr, 0, nullptr},
};

PyType_Slot iterator_slots[] = {
    {Py_tp_dealloc, reinterpret_cast<void *>(DeallocIterator)},
    {Py_tp_iter, reinterpret_cast<void *>(PyObject_SelfIter)},
    {Py_tp_iternext, reinterpret_cast<void *>(Next)},
    {Py_tp_methods, iterator_methods},
    {0, nullptr},
};

PyType_Spec iterator_spec = {"libkestrel._records.RowIterator", sizeof(Iterator), 0,
                             Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                             iterator_slots};

std::vector<Source> *SourcesOf(const Place &at, const Columns *columns, Py_ssize_t stride) {
  auto sources = std::make_unique<std::vector<Source>>(columns ? columns->list.size() : 1);
  if (!columns) {
    Describe(at.field, 0, false, sources->data());
    if (at.cls.special == Special::kNames) sources->front().element.width = static_cast<std::uint32_t>(stride);
  }
  for (std::size_t i = 0; columns && i < sources->size(); ++i) {
    const Column &column = columns->list[i];
    Describe(*column.field, column.offset, column.field->shape == Shape::kFixed, &(*sources)[i]);
  }
  return sources.release();
}

}  // namespace

int AddRows(PyObject *module) {
  rows_type = reinterpret_cast<PyTypeObject *>(PyType_FromSpec(&rows_spec));
  iterator_type = reinterpret_cast<PyTypeObject *>(PyType_FromSpec(&iterator_spec));
  return rows_type && iterator_type && MakeSmallNumbers() ? PyModule_AddType(module, rows_type) : -1;
}

PyObject *NewRows(const Place &at, Record *root, char *data, Py_ssize_t count, Py_ssize_t stride) {
  const Columns *columns = nullptr;
  if (at.field.element.kind == Kind::kRecord) {
    columns = ColumnsOf(*ClassAt(at.field.element.target));
    if (!columns) return nullptr;
  }
  std::vector<Source> *sources = nullptr;
  try {
    sources = SourcesOf(at, columns, stride);
  } catch (const std::bad_alloc &) {
    return PyErr_NoMemory();
  }
  auto *rows = PyObject_New(RowsObject, rows_type);
  if (!rows) {
    delete sources;
    return nullptr;
  }
  rows->root = reinterpret_cast<Record *>(Py_NewRef(reinterpret_cast<PyObject *>(root)));
  rows->sources = sources;
  rows->data = data;
  rows->count = count;
  rows->stride = stride;
  return reinterpret_cast<PyObject *>(rows);
}

}  // namespace kestrel::records
