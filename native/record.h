// Records: objects over a record's memory, whoever it belongs to.
//
// A root stands for a block of memory: its own, the flat module's (a pointer object owns it) or the platform's. Views
// stand for records within a root's memory and keep the root alive. When a root's memory has gone, root and views
// raise ReferenceError.
#pragma once

#include <cstdint>

#include "native/layout.h"
#include "native/python.h"

struct swig_type_info;

namespace kestrel::records {

/** Rules of a few records that the tables cannot tell. */
enum class Special : std::uint8_t {
  kNone,
  /** Sources are followed by words of auxiliary data. */
  kGroupRecord,
  /** Flags say which option words are there. */
  kGre,
  /** The length counts the head too, and is in bytes. */
  kOption,
  /** A list of options, told by its length in bytes. */
  kOptions,
  /** The kind of list tells the names' width. */
  kNames,
};

/** A record class. */
struct RecordClass {
  const RecordSpec *spec = nullptr;
  const FieldSpec *fields = nullptr;
  PyTypeObject *type = nullptr;
  swig_type_info *pointer = nullptr;
  Special special = Special::kNone;
  /** Whether the flat module keeps a class for it and so knows how to free it. */
  bool registered = false;
  /** Whether one of the members is a pointer. */
  bool points = false;
  /** Descriptors, in the fields' order. */
  PyObject **descriptors = nullptr;
  /** What rows and columns show of it, once asked for. */
  struct Columns *columns = nullptr;
  /** The buffer's format, once asked for. */
  const char *format = nullptr;
};

enum class State : std::uint8_t {
  /** No memory yet, or no more. */
  kNone,
  /** The record frees it. */
  kOwn,
  /** A pointer object frees it, as long as it says it owns it. */
  kPointer,
  /** The record frees it, as long as a pointer object that was given away says it owns it. */
  kLent,
  /** The platform's, or whoever's. */
  kForeign,
  /** Within a root's. */
  kView,
  /** Beyond the end of a root's: an address to pass on, with nothing to read. */
  kBeyond,
};

struct Record {
  PyObject_HEAD
      /** Null for none. */
      char *data;
  /** Itself for a root; without a reference then. */
  Record *root;
  /** Bytes from `data` on that belong to the record. */
  Py_ssize_t extent;
  /** The bare pointer object, once asked for. */
  PyObject *pointer;
  // Of roots only:
  /** What pointer members point to, by offset: a dictionary. */
  PyObject *held;
  /** What gives the memory back. */
  PyObject *release;
  /** The root that it was given to last, without a reference. */
  Record *holder;
  /** How many roots hold it, and how many buffers are out. */
  Py_ssize_t holders;
  Py_ssize_t exports;
  State state;
};

extern PyTypeObject *record_type;

/** The class of a record object; null for types that are none. */
RecordClass *ClassOf(PyTypeObject *type);

inline RecordClass *ClassOf(Record *record) { return ClassOf(Py_TYPE(record)); }

/** The class by its index in the table. */
RecordClass *ClassAt(int index);

inline bool IsRecord(PyObject *object) { return PyObject_TypeCheck(object, record_type); }

/** Raises ReferenceError for memory that is not there. */
void RaiseGone(Record *record);

/** Whether the memory is there. */
bool Present(Record *record);

/** The memory, or null with ReferenceError. */
inline char *Memory(Record *record) {
  Record *root = record->root;
  if (root->state == State::kOwn || Present(record)) [[likely]] {
    return record->data;
  }
  RaiseGone(record);
  return nullptr;
}

/** A view of a record that lies at `data` within the root's memory. */
PyObject *NewView(const RecordClass &cls, Record *root, char *data, Py_ssize_t extent);

/** A zeroed record of `extent` bytes in memory of its own. */
PyObject *NewOwn(const RecordClass &cls, Py_ssize_t extent);

/** The record at an address: within a root that is known, else foreign. Null with an error. */
PyObject *NewAt(const RecordClass &cls, char *address);

/** Puts an object that a pointer member now points to in the place of what it pointed to before; null drops it.
    0, or -1 with an error and nothing changed. */
int Hold(Record *root, Py_ssize_t offset, PyObject *object);

/** What the pointer member at `offset` was given; borrowed, null for nothing. */
PyObject *Held(Record *root, Py_ssize_t offset);

/** Makes the classes' common base and the metaclass, and adds them to the module. */
int AddRecord(PyObject *module);

/** make_classes(record, table, flat): makes all record classes, below the base for those of fixed length or the one
    for tables, and registers them with the flat module; once. Gives them by name. */
PyObject *MakeClasses(PyObject *module, PyObject *args);

}  // namespace kestrel::records
