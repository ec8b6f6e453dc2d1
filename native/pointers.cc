#include "native/pointers.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "native/integers.h"
#include "native/pointer.h"

namespace kestrel::records {

namespace {

char *PointerIn(const char *place) { return LoadAs<char *>(place); }

void SetPointerIn(char *place, const char *pointer) {
  const auto address = reinterpret_cast<std::uintptr_t>(pointer);
  std::memcpy(place, &address, sizeof address);
}

/** Where a pointer member stands, counted from the root's memory, which holds what is pointed to. */
Py_ssize_t KeyOf(const Record *record, const char *place) { return place - record->root->data; }

/** The address that a held object stands for; null for one whose memory has gone. */
char *AddressHeld(PyObject *object) {
  if (IsRecord(object)) {
    auto *record = reinterpret_cast<Record *>(object);
    return Present(record) ? record->data : nullptr;
  }
  if (PyMemoryView_Check(object)) return static_cast<char *>(PyMemoryView_GET_BUFFER(object)->buf);
  return IsPointer(object) ? static_cast<char *>(AddressOf(object)) : nullptr;
}

/** As the flat module reads the member: a pointer object. */
PyObject *FlatMember(const Place &at, Record *record) {
  const Ref flat(PyImport_ImportModule("_libkestrel"));
  const std::string name = std::string(at.cls.spec->name) + "_" + at.field.name + "_get";
  return flat ? PyObject_CallMethod(flat.get(), name.c_str(), "O", record) : nullptr;
}

/** Text that a record owns ends with a zero or with the block that it lies in. */
PyObject *LoadOwned(const char *text) { return LoadText(text, malloc_usable_size(const_cast<char *>(text))); }

int StoreOwned(const Place &at, Record *record, PyObject *value) {
  char *copy = nullptr;
  if (value != Py_None) {
    Converted converted;
    Element element = at.field.element;
    element.kind = Kind::kText;
    element.width = INT32_MAX;
    if (Convert(at, element, value, &converted) < 0) return -1;
    const auto length = static_cast<std::size_t>(converted.length);
    copy = static_cast<char *>(std::malloc(length + 1));
    if (!copy) {
      PyErr_NoMemory();
      return -1;
    }
    std::memcpy(copy, converted.text, length);
    copy[length] = 0;
  }
  char *data = Memory(record);
  if (!data) {
    std::free(copy);
    return -1;
  }
  std::free(PointerIn(data + at.field.offset));
  SetPointerIn(data + at.field.offset, copy);
  return 0;
}

/** What a value keeps alive for a pointer member, and the address; null with an error. */
Ref Pointed(const Place &at, PyObject *value, char **address) {
  const RecordClass *target = at.field.element.target >= 0 ? ClassAt(at.field.element.target) : nullptr;
  if (IsRecord(value) && (!target || Py_TYPE(value) == target->type)) {
    *address = Memory(reinterpret_cast<Record *>(value));
    return *address ? Share(value) : nullptr;
  }
  if (!target && IsPointer(value)) {
    *address = static_cast<char *>(AddressOf(value));
    return Share(value);
  }
  if (!target && PyObject_CheckBuffer(value)) {
    Ref view(PyMemoryView_FromObject(value));
    if (!view) return nullptr;
    Py_buffer *buffer = PyMemoryView_GET_BUFFER(view.get());
    if (!PyBuffer_IsContiguous(buffer, 'C')) {
      PyErr_Format(PyExc_ValueError, "%s.%s takes a buffer in one piece", at.cls.spec->name, at.field.name);
      return nullptr;
    }
    *address = static_cast<char *>(buffer->buf);
    return view;
  }
  PyErr_Format(PyExc_TypeError, "%s.%s points to %s or is None, not %.80s", at.cls.spec->name, at.field.name,
               target ? target->spec->name : "a buffer", Py_TYPE(value)->tp_name);
  return nullptr;
}

}  // namespace

PyObject *LoadPointer(const Place &at, Record *record, char *place) {
  const Element &element = at.field.element;
  if (element.kind == Kind::kOpaque) return FlatMember(at, record);
  char *pointer = PointerIn(place);
  if (!pointer) Py_RETURN_NONE;
  if (element.kind == Kind::kOwnedText) return LoadOwned(pointer);
  PyObject *held = Held(record->root, KeyOf(record, place));
  char *given = held ? AddressHeld(held) : nullptr;
  if (given == pointer) {
    return PyMemoryView_Check(held) ? PyMemoryView_FromObject(held) : Py_NewRef(held);
  }
  if (held && !given) {
    // It was put here, and what it stood for has gone.
    PyErr_Format(PyExc_ReferenceError, "%s.%s: what it points to is gone", at.cls.spec->name, at.field.name);
    return nullptr;
  }
  return element.target >= 0 ? NewAt(*ClassAt(element.target), pointer) : FlatMember(at, record);
}

int StorePointer(const Place &at, Record *record, PyObject *value) {
  if (at.field.element.kind == Kind::kOwnedText) return StoreOwned(at, record, value);
  char *address = nullptr;
  Ref keep;
  if (value != Py_None) {
    keep = Pointed(at, value, &address);
    if (!keep) return -1;
  }
  char *data = Memory(record);
  if (!data) return -1;
  if (Hold(record->root, KeyOf(record, data + at.field.offset), keep.get()) < 0) return -1;
  // Dropping what was held before may have run anything.
  data = Memory(record);
  if (!data) return -1;
  SetPointerIn(data + at.field.offset, address);
  return 0;
}

}  // namespace kestrel::records
