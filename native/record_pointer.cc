// Records and the pointer objects of the flat module: each gives the other.
#include "native/record_parts.h"

#include <malloc.h>

#include <algorithm>
#include <map>
#include <new>

#include "native/extents.h"
#include "native/pointer.h"

namespace kestrel::records {

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

/** The root whose memory an address lies in, or ends at. */
Record *RootAround(char *address) {
  auto found = Known().upper_bound(address);
  if (found == Known().begin()) return nullptr;
  Record *root = (--found)->second;
  return Present(root) && address <= root->data + root->extent ? root : nullptr;
}

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

}  // namespace

void Forget(Record *root) {
  if (!root->pointer) return;
  const auto found = Known().find(root->data);
  if (found != Known().end() && found->second == root) Known().erase(found);
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

PyObject *NewAt(const RecordClass &cls, char *address) {
  const Ref pointer(NewPointer(address, cls.pointer));
  const Ref record(pointer ? Object(Blank(cls.type)) : nullptr);
  if (!record || Adopt(reinterpret_cast<Record *>(record.get()), pointer.get()) < 0) return nullptr;
  return Py_NewRef(record.get());
}

}  // namespace kestrel::records
