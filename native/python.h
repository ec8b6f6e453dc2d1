// The interpreter's header, and references that drop themselves.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <memory>

namespace kestrel::records {

struct Drop {
  void operator()(PyObject *object) const { Py_DECREF(object); }
};

/** A reference of its own; null for none. */
using Ref = std::unique_ptr<PyObject, Drop>;

inline Ref Share(PyObject *object) { return Ref(Py_NewRef(object)); }

/** Puts a pending error aside while something runs that must not see it, and brings it back. */
class ErrorAside {
 public:
  ErrorAside() { PyErr_Fetch(&type_, &value_, &traceback_); }
  ErrorAside(const ErrorAside &) = delete;
  ErrorAside &operator=(const ErrorAside &) = delete;
  ~ErrorAside() { PyErr_Restore(type_, value_, traceback_); }

 private:
  PyObject *type_ = nullptr;
  PyObject *value_ = nullptr;
  PyObject *traceback_ = nullptr;
};

}  // namespace kestrel::records
