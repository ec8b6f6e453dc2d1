#include "native/array.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "native/columns.h"
#include "native/rows.h"

namespace kestrel::records {

namespace {

struct Array {
  PyObject_HEAD Record *root;
  const RecordClass *cls;
  const FieldSpec *field;
  /** The field's, but for the width of names whose list tells it. */
  Element element;
  char *data;
  Py_ssize_t count;
  Py_ssize_t stride;
};

PyTypeObject *array_type = nullptr;

Array &Cast(PyObject *self) { return *reinterpret_cast<Array *>(self); }

Place PlaceOf(const Array &array) { return {*array.cls, *array.field}; }

PyObject *NewSlice(const Array &array, char *data, Py_ssize_t count, Py_ssize_t stride) {
  PyObject *slice = NewArray(PlaceOf(array), array.root, data, count, stride);
  if (slice) Cast(slice).element = array.element;
  return slice;
}

void Dealloc(PyObject *self) {
  Py_DECREF(reinterpret_cast<PyObject *>(Cast(self).root));
  PyTypeObject *type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

Py_ssize_t Length(PyObject *self) { return Memory(Cast(self).root) ? Cast(self).count : -1; }

bool InBounds(const Array &array, Py_ssize_t index) {
  if (index >= 0 && index < array.count) return true;
  PyErr_Format(PyExc_IndexError, "%s.%s has %zd elements", array.cls->spec->name, array.field->name, array.count);
  return false;
}

PyObject *Item(PyObject *self, Py_ssize_t index) {
  const Array &array = Cast(self);
  if (!Memory(array.root) || !InBounds(array, index)) return nullptr;
  return Load(array.element, array.root, array.data + index * array.stride);
}

int SetItem(PyObject *self, Py_ssize_t index, PyObject *value) {
  const Array &array = Cast(self);
  if (!value) {
    PyErr_SetString(PyExc_TypeError, "elements are not deleted");
    return -1;
  }
  if (!Memory(array.root) || !InBounds(array, index)) return -1;
  Converted converted;
  if (Convert(PlaceOf(array), array.element, value, &converted) < 0) return -1;
  if (!Memory(array.root) || !StillThere(array.element, converted)) return -1;
  Store(array.element, converted, array.data + index * array.stride);
  return 0;
}

/** The index that an object stands for, from the end for a negative one. -1 with an error. */
bool ReadIndex(const Array &array, PyObject *key, Py_ssize_t *index) {
  *index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (*index == -1 && PyErr_Occurred()) return false;
  if (*index < 0) *index += array.count;
  return true;
}

PyObject *Subscript(PyObject *self, PyObject *key) {
  const Array &array = Cast(self);
  if (PySlice_Check(key)) {
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = 0;
    if (PySlice_Unpack(key, &start, &stop, &step) < 0 || !Memory(array.root)) return nullptr;
    const Py_ssize_t count = PySlice_AdjustIndices(array.count, &start, &stop, step);
    return NewSlice(array, array.data + (count ? start * array.stride : 0), count,
                    count ? step * array.stride : array.stride);
  }
  Py_ssize_t index = 0;
  return ReadIndex(array, key, &index) ? Item(self, index) : nullptr;
}

int SetSubscript(PyObject *self, PyObject *key, PyObject *value) {
  if (PySlice_Check(key)) {
    const Ref slice(Subscript(self, key));
    if (!slice) return -1;
    if (value) return StoreElements(slice.get(), value);
    return SetItem(self, 0, nullptr);
  }
  Py_ssize_t index = 0;
  return ReadIndex(Cast(self), key, &index) ? SetItem(self, index, value) : -1;
}

PyObject *Compare(PyObject *self, PyObject *other, int operation) {
  if ((operation != Py_EQ && operation != Py_NE) ||
      (Py_TYPE(other) != array_type && !PyList_Check(other) && !PyTuple_Check(other))) {
    Py_RETURN_NOTIMPLEMENTED;
  }
  const Ref ours(PySequence_List(self));
  const Ref theirs(ours ? PySequence_List(other) : nullptr);
  return theirs ? PyObject_RichCompare(ours.get(), theirs.get(), operation) : nullptr;
}

PyObject *Repr(PyObject *self) {
  static constexpr Py_ssize_t kShown = 16;
  const Array &array = Cast(self);
  const Ref shown(PySequence_GetSlice(self, 0, std::min(array.count, kShown)));
  const Ref list(shown ? PySequence_List(shown.get()) : nullptr);
  if (!list) return nullptr;
  if (array.count <= kShown) return PyUnicode_FromFormat("Array(%R)", list.get());
  return PyUnicode_FromFormat("Array(%R and %zd more)", list.get(), array.count - kShown);
}

PyObject *RowsOf(PyObject *self, PyObject *) {
  const Array &array = Cast(self);
  if (!Memory(array.root)) return nullptr;
  return NewRows(PlaceOf(array), array.root, array.data, array.count, array.stride);
}

/** A column that is an array in each row: a list of tuples. */
PyObject *FixedColumn(const Array &array, const Column &column) {
  Ref list(PyList_New(array.count));
  for (Py_ssize_t i = 0; list && i < array.count; ++i) {
    char *place = array.data + i * array.stride + column.offset;
    const FieldSpec &field = *column.field;
    const Ref elements(NewArray({*column.cls, field}, array.root, place, field.count, field.element.width));
    PyObject *values = elements ? PySequence_Tuple(elements.get()) : nullptr;
    if (!values) return nullptr;
    PyList_SET_ITEM(list.get(), i, values);
  }
  return list.release();
}

PyObject *ColumnsOf(PyObject *self, PyObject *) {
  const Array &array = Cast(self);
  if (!Memory(array.root)) return nullptr;
  const Ref found(PyDict_New());
  if (!found) return nullptr;
  if (array.element.kind != Kind::kRecord) {
    return PyDict_SetItemString(found.get(), array.field->name, self) < 0 ? nullptr : Py_NewRef(found.get());
  }
  const Columns *columns = records::ColumnsOf(*ClassAt(array.element.target));
  if (!columns) return nullptr;
  for (const Column &column : columns->list) {
    const bool fixed = column.field->shape == Shape::kFixed;
    const Ref values(fixed ? FixedColumn(array, column)
                           : NewArray({*column.cls, *column.field}, array.root, array.data + column.offset, array.count,
                                      array.stride));
    if (!values || PyDict_SetItemString(found.get(), column.name.c_str(), values.get()) < 0) return nullptr;
  }
  return Py_NewRef(found.get());
}

// ---- Buffers ----

constexpr int kMostDimensions = 2;

struct Layout {
  Py_ssize_t shape[kMostDimensions];
  Py_ssize_t strides[kMostDimensions];
  std::string format;
};

int RefuseBuffer(Py_buffer *view, const char *why) {
  view->obj = nullptr;
  PyErr_SetString(PyExc_BufferError, why);
  return -1;
}

int GetBuffer(PyObject *self, Py_buffer *view, int flags) {
  const Array &array = Cast(self);
  view->obj = nullptr;
  if (!Memory(array.root)) return -1;
  if (flags & PyBUF_WRITABLE) return RefuseBuffer(view, "the buffer is for reading: elements are checked when set");
  const Element &element = array.element;
  if (element.bit_count) return RefuseBuffer(view, "bit-fields have no buffer");
  const bool bytes = element.kind == Kind::kMac || element.kind == Kind::kIpv6;
  const auto width = static_cast<Py_ssize_t>(element.width);
  const bool dense = array.stride == width || array.count <= 1;
  const bool wants_strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES;
  const bool fortran = (flags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS;
  const bool contiguous = fortran || (flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS ||
                          (flags & PyBUF_ANY_CONTIGUOUS) == PyBUF_ANY_CONTIGUOUS;
  if ((!wants_strides || contiguous) && !dense) return RefuseBuffer(view, "the elements do not lie side by side");
  if (fortran && bytes) return RefuseBuffer(view, "the bytes of an element lie side by side");
  auto layout = std::unique_ptr<Layout>(new (std::nothrow) Layout);
  if (!layout) {
    PyErr_NoMemory();
    return -1;
  }
  const char *format = nullptr;
  if (element.kind == Kind::kRecord) {
    format = records::FormatOf(*ClassAt(element.target));
    if (!format) return -1;
  } else {
    layout->format = records::FormatOf(element);
    format = layout->format.c_str();
  }
  layout->shape[0] = array.count;
  layout->shape[1] = width;
  layout->strides[0] = array.stride;
  layout->strides[1] = 1;
  view->buf = array.data;
  view->len = array.count * width;
  view->itemsize = bytes ? 1 : width;
  view->readonly = 1;
  view->ndim = bytes ? 2 : 1;
  view->format = flags & PyBUF_FORMAT ? const_cast<char *>(format) : nullptr;
  view->shape = flags & PyBUF_ND ? layout->shape : nullptr;
  view->strides = wants_strides ? layout->strides : nullptr;
  view->suboffsets = nullptr;
  view->internal = layout.release();
  view->obj = Py_NewRef(self);
  ++array.root->exports;
  return 0;
}

void ReleaseBuffer(PyObject *self, Py_buffer *view) {
  delete static_cast<Layout *>(view->internal);
  --Cast(self).root->exports;
}

PyMethodDef methods[] = {
    {"rows", RowsOf, METH_NOARGS,
     "rows()\n--\n\nA sequence with a tuple for each element: the values of a record's columns, else the value alone."},
    {"columns", ColumnsOf, METH_NOARGS,
     "columns()\n--\n\nThe columns by name: a sequence over the same memory for each member of the elements, 'a.b' for "
     "member b of a record a within; a list of tuples where the member is an array. Overlays are left out."},
    {nullptr, nullptr, 0, nullptr},
};

constexpr const char *kDoc =
    "Elements in a record's memory, as a sequence with bounds; it keeps the record alive.\n\n"
    "Elements are set in place and checked like members; their number is fixed. The buffer is for reading, without a\n"
    "copy: of the elements' own format, (n, 6) bytes for MAC addresses and (n, 16) for IPv6 addresses, and structured\n"
    "for records. numpy.asarray takes it.";

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char *>(kDoc)},
    {Py_tp_dealloc, reinterpret_cast<void *>(Dealloc)},
    {Py_tp_repr, reinterpret_cast<void *>(Repr)},
    {Py_tp_hash, reinterpret_cast<void *>(PyObject_HashNotImplemented)},
    {Py_tp_richcompare, reinterpret_cast<void *>(Compare)},
    {Py_tp_methods, methods},
    {Py_sq_length, reinterpret_cast<void *>(Length)},
    {Py_sq_item, reinterpret_cast<void *>(Item)},
    {Py_sq_ass_item, reinterpret_cast<void *>(SetItem)},
    {Py_mp_length, reinterpret_cast<void *>(Length)},
    {Py_mp_subscript, reinterpret_cast<void *>(Subscript)},
    {Py_mp_ass_subscript, reinterpret_cast<void *>(SetSubscript)},
    {Py_bf_getbuffer, reinterpret_cast<void *>(GetBuffer)},
    {Py_bf_releasebuffer, reinterpret_cast<void *>(ReleaseBuffer)},
    {0, nullptr},
};

PyType_Spec spec = {
    "libkestrel.records.Array", sizeof(Array), 0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_SEQUENCE, slots};

}  // namespace

int AddArray(PyObject *module) {
  array_type = reinterpret_cast<PyTypeObject *>(PyType_FromSpec(&spec));
  return array_type ? PyModule_AddType(module, array_type) : -1;
}

PyObject *NewArray(const Place &at, Record *root, char *data, Py_ssize_t count, Py_ssize_t stride) {
  auto *array = PyObject_New(Array, array_type);
  if (!array) return nullptr;
  array->root = reinterpret_cast<Record *>(Py_NewRef(reinterpret_cast<PyObject *>(root)));
  array->cls = &at.cls;
  array->field = &at.field;
  array->element = at.field.element;
  if (at.cls.special == Special::kNames) array->element.width = static_cast<std::uint32_t>(stride);
  array->data = data;
  array->count = count;
  array->stride = stride;
  return reinterpret_cast<PyObject *>(array);
}

int StoreElements(PyObject *self, PyObject *values) {
  const Array &array = Cast(self);
  const Ref elements(PySequence_Tuple(values));
  if (!elements) return -1;
  const Py_ssize_t count = PyTuple_GET_SIZE(elements.get());
  if (count != array.count) {
    PyErr_Format(PyExc_ValueError, "%s.%s has %zd elements, not %zd", array.cls->spec->name, array.field->name,
                 array.count, count);
    return -1;
  }
  const std::unique_ptr<Converted[]> converted(new (std::nothrow) Converted[static_cast<std::size_t>(count)]);
  if (!converted) {
    PyErr_NoMemory();
    return -1;
  }
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (Convert(PlaceOf(array), array.element, PyTuple_GET_ITEM(elements.get(), i), &converted[i]) < 0) return -1;
  }
  if (!Memory(array.root)) return -1;
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (!StillThere(array.element, converted[i])) return -1;
  }
  for (Py_ssize_t i = 0; i < count; ++i) Store(array.element, converted[i], array.data + i * array.stride);
  return 0;
}

}  // namespace kestrel::records
