#include "native/enumerations.h"

#include <array>
#include <iterator>
#include <string_view>

#include "native/tables.h"

namespace kestrel::records {

namespace {

/** Enumerators of these values are looked up by value: almost all are among them. */
constexpr long kLowest = -1;
constexpr long kHighest = 32;

struct Made {
  PyObject *type = nullptr;
  std::array<PyObject *, kHighest - kLowest + 1> enumerators{};
};

Made made[std::size(kEnumerations)];

/** Enumerators that stand for bits and go together. */
bool IsFlags(const EnumerationSpec &spec) { return std::string_view(spec.name).ends_with("Flags"); }

bool IsEnumerator(const EnumerationSpec &spec, long value) {
  for (std::uint32_t i = spec.first; i < spec.first + spec.count; ++i) {
    if (kEnumerators[i].value == value) return true;
  }
  return false;
}

int Make(int index) {
  const EnumerationSpec &spec = kEnumerations[index];
  const Ref module(PyImport_ImportModule("enum"));
  const Ref base(module ? PyObject_GetAttrString(module.get(), IsFlags(spec) ? "IntFlag" : "IntEnum") : nullptr);
  const Ref pairs(base ? PyList_New(0) : nullptr);
  if (!pairs) return -1;
  for (std::uint32_t i = spec.first; i < spec.first + spec.count; ++i) {
    const Ref pair(Py_BuildValue("si", kEnumerators[i].name, kEnumerators[i].value));
    if (!pair || PyList_Append(pairs.get(), pair.get()) < 0) return -1;
  }
  const Ref arguments(Py_BuildValue("sO", spec.name, pairs.get()));
  const Ref keywords(Py_BuildValue("{ss}", "module", "libkestrel.enums"));
  Ref type(arguments && keywords ? PyObject_Call(base.get(), arguments.get(), keywords.get()) : nullptr);
  const Ref doc(type ? PyUnicode_FromString(spec.doc) : nullptr);
  if (!doc || PyObject_SetAttrString(type.get(), "__doc__", doc.get()) < 0) return -1;
  if (made[index].type) return 0;  // what ran meanwhile made it
  Made fresh;
  for (std::uint32_t i = spec.first; i < spec.first + spec.count; ++i) {
    if (kEnumerators[i].value < kLowest || kEnumerators[i].value > kHighest) continue;
    PyObject *&place = fresh.enumerators[static_cast<std::size_t>(kEnumerators[i].value - kLowest)];
    if (!place) place = PyObject_GetAttrString(type.get(), kEnumerators[i].name);
    if (!place) return -1;
  }
  fresh.type = type.release();
  made[index] = fresh;
  return 0;
}

}  // namespace

int FindEnumeration(const char *name) {
  for (std::size_t i = 0; i < std::size(kEnumerations); ++i) {
    if (std::string_view(kEnumerations[i].name) == name) return static_cast<int>(i);
  }
  return -1;
}

PyObject *EnumerationNames() {
  Ref names(PyTuple_New(std::size(kEnumerations)));
  for (std::size_t i = 0; names && i < std::size(kEnumerations); ++i) {
    PyObject *name = PyUnicode_FromString(kEnumerations[i].name);
    if (!name) return nullptr;
    PyTuple_SET_ITEM(names.get(), static_cast<Py_ssize_t>(i), name);
  }
  return names.release();
}

PyObject *EnumerationClass(int index) {
  if (!made[index].type && Make(index) < 0) return nullptr;
  return Py_NewRef(made[index].type);
}

PyObject *NewEnumerator(int index, long value) {
  const EnumerationSpec &spec = kEnumerations[index];
  if (!made[index].type && Make(index) < 0) return nullptr;
  if (value >= kLowest && value <= kHighest) {
    PyObject *enumerator = made[index].enumerators[static_cast<std::size_t>(value - kLowest)];
    if (enumerator) return Py_NewRef(enumerator);
  }
  if (value < 0 || (!IsFlags(spec) && !IsEnumerator(spec, value))) return PyLong_FromLong(value);
  const Ref number(PyLong_FromLong(value));
  return number ? PyObject_CallOneArg(made[index].type, number.get()) : nullptr;
}

}  // namespace kestrel::records
