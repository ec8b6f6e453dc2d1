#include "native/record.h"

#include <cstdlib>
#include <cstring>

#include "native/pointer.h"
#include "native/record_parts.h"

namespace kestrel::records {

namespace {

/** The text that a record owns, freed with it. */
void FreeTexts(Record *root, const RecordClass &cls) {
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    if (cls.fields[i].element.kind != Kind::kOwnedText) continue;
    void *text = nullptr;
    std::memcpy(&text, root->data + cls.fields[i].offset, sizeof text);
    std::free(text);
  }
}

}  // namespace

Record *Blank(PyTypeObject *type) {
  Record *record = PyObject_GC_New(Record, type);
  if (!record) return nullptr;
  std::memset(&record->data, 0, sizeof *record - offsetof(Record, data));
  record->root = record;
  return record;
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
