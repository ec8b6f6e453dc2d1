// Methods and attributes that all records have.
#include "native/record_parts.h"

#include <cstring>

#include "native/extents.h"
#include "native/field.h"
#include "native/table.h"

namespace kestrel::records {

namespace {

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

PyObject *Enter(PyObject *self, PyObject *) {
  return Memory(reinterpret_cast<Record *>(self)) ? Py_NewRef(self) : nullptr;
}

PyObject *Exit(PyObject *self, PyObject *) {
  const Ref done(Release(self, nullptr));
  return done ? Py_NewRef(Py_None) : nullptr;
}

}  // namespace

PyObject *Address(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  if (record->state == State::kBeyond) return PyNumber_Long(record->pointer);
  return Memory(record) ? PyLong_FromVoidPtr(record->data) : nullptr;
}

PyMethodDef record_methods[] = {
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

PyGetSetDef record_properties[] = {
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

}  // namespace kestrel::records
