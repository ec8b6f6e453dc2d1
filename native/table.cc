#include "native/table.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "native/extents.h"

namespace kestrel::records {

namespace {

/** The descriptor of what a table stands for, borrowed; null with an error. */
PyObject *ShownOf(PyObject *self) {
  auto *record = reinterpret_cast<Record *>(self);
  const char *data = Memory(record);
  if (!data) return nullptr;
  const RecordClass *cls = ClassOf(record);
  const FieldSpec *shown = Shown(*cls, data, record->extent);
  return cls->descriptors[shown - cls->fields];
}

/** The sequence that a table stands for. */
PyObject *EntriesOf(PyObject *self) {
  PyObject *shown = ShownOf(self);
  return shown ? Py_TYPE(shown)->tp_descr_get(shown, self, nullptr) : nullptr;
}

PyObject *Entries(PyObject *self, void *) { return EntriesOf(self); }

Py_ssize_t Length(PyObject *self) {
  const Ref entries(EntriesOf(self));
  return entries ? PyObject_Size(entries.get()) : -1;
}

PyObject *Subscript(PyObject *self, PyObject *key) {
  const Ref entries(EntriesOf(self));
  return entries ? PyObject_GetItem(entries.get(), key) : nullptr;
}

int SetSubscript(PyObject *self, PyObject *key, PyObject *value) {
  const Ref entries(EntriesOf(self));
  if (!entries) return -1;
  return value ? PyObject_SetItem(entries.get(), key, value) : PyObject_DelItem(entries.get(), key);
}

PyObject *Iterate(PyObject *self) {
  const Ref entries(EntriesOf(self));
  return entries ? PyObject_GetIter(entries.get()) : nullptr;
}

int Truth(PyObject *) { return 1; }

int GetBuffer(PyObject *self, Py_buffer *view, int flags) {
  view->obj = nullptr;
  const Ref entries(EntriesOf(self));
  if (!entries) return -1;
  return PyTuple_Check(entries.get()) ? GetRecordBuffer(self, view, flags)
                                      : PyObject_GetBuffer(entries.get(), view, flags);
}

PyObject *GetShown(PyObject *self, void *) { return Py_XNewRef(ShownOf(self)); }

/** Whether every page of a range is mapped. */
bool Mapped(const char *start, Py_ssize_t length) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto first = reinterpret_cast<std::uintptr_t>(start) / page * page;
  const auto end = reinterpret_cast<std::uintptr_t>(start) + static_cast<std::uintptr_t>(length);
  std::array<unsigned char, 256> resident;
  for (std::uintptr_t place = first; place < end; place += resident.size() * page) {
    const std::uintptr_t here = std::min(end - place, resident.size() * page);
    if (mincore(reinterpret_cast<void *>(place), here, resident.data()) < 0) return false;
  }
  return true;
}

PyObject *EntriesAs(PyObject *self, PyObject *name) {
  auto *record = reinterpret_cast<Record *>(self);
  const char *data = Memory(record);
  if (!data) return nullptr;
  const RecordClass *cls = ClassOf(record);
  for (std::uint32_t i = 0; PyUnicode_Check(name) && i < cls->spec->fields; ++i) {
    const FieldSpec &field = cls->fields[i];
    if (field.shape != Shape::kFollows || PyUnicode_CompareWithASCIIString(name, field.name) != 0) continue;
    const bool foreign = record->state == State::kForeign;
    Run run;
    if (FindRun(*cls, field, data, foreign ? PY_SSIZE_T_MAX / 2 : record->extent, &run) < 0) return nullptr;
    const Py_ssize_t reach = run.offset + run.count * run.stride;
    if (foreign && reach > record->extent) {
      if (!Mapped(data, reach)) return PyErr_Format(PyExc_ValueError, "%s: no memory is there", field.name);
      record->extent = reach;
    }
    return Py_NewRef(self);
  }
  return PyErr_Format(PyExc_ValueError, "nothing of the name %R follows %s", name, cls->spec->name);
}

PyMethodDef methods[] = {
    {"entries_as", EntriesAs, METH_O,
     "entries_as(name, /)\n--\n\nThe table itself, with the entries that the member `name` shows within reach.\n\nSome "
     "tables of the platform do not tell of which kind their entries are, and show as much as there is in any case. "
     "Whoever knows the kind says so here. ValueError where that is more than there is."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef properties[] = {
    {"_entries", Entries, nullptr, "What follows the record first.", nullptr},
    {"_shown", GetShown, nullptr, "The member that _entries is.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char *>("The base of the classes of records that something follows.")},
    {Py_tp_iter, reinterpret_cast<void *>(Iterate)},
    {Py_tp_methods, methods},
    {Py_tp_getset, properties},
    {Py_mp_length, reinterpret_cast<void *>(Length)},
    {Py_mp_subscript, reinterpret_cast<void *>(Subscript)},
    {Py_mp_ass_subscript, reinterpret_cast<void *>(SetSubscript)},
    {Py_nb_bool, reinterpret_cast<void *>(Truth)},
    {Py_bf_getbuffer, reinterpret_cast<void *>(GetBuffer)},
    {Py_bf_releasebuffer, reinterpret_cast<void *>(ReleaseRecordBuffer)},
    {0, nullptr},
};

PyType_Spec spec = {"libkestrel._records.TableBase", sizeof(Record), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE,
                    slots};

}  // namespace

Py_ssize_t LengthInBytes(Record *record) {
  const RecordClass *cls = ClassOf(record);
  if (!cls->spec->table) return cls->spec->size;
  // A pointer object's block may be longer than what lies in it.
  if (record->state == State::kPointer) return ExtentOf(*cls, record->data, record->extent);
  return record->extent;
}

int GetRecordBuffer(PyObject *self, Py_buffer *view, int flags) {
  auto *record = reinterpret_cast<Record *>(self);
  view->obj = nullptr;
  char *data = Memory(record);
  if (!data) return -1;
  const Py_ssize_t length = LengthInBytes(record);
  if (length < 0 || PyBuffer_FillInfo(view, self, data, length, 1, flags) < 0) return -1;
  ++record->root->exports;
  return 0;
}

void ReleaseRecordBuffer(PyObject *self, Py_buffer *) { --reinterpret_cast<Record *>(self)->root->exports; }

int AddTable(PyObject *module) {
  const Ref type(PyType_FromSpecWithBases(&spec, reinterpret_cast<PyObject *>(record_type)));
  return type ? PyModule_AddType(module, reinterpret_cast<PyTypeObject *>(type.get())) : -1;
}

}  // namespace kestrel::records
