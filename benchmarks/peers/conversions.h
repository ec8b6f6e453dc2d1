/* What the hand-written peers share: the module's rules for an unsigned 32-bit integer, for text in a field
   of fixed width and for a one-byte flag, and its message for an argument that breaks them. */
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <stdint.h>
#include <string.h>

/** Raises `exception` with the module's words for argument `position` of function `name`; gives null. */
#define ARGUMENT_ERROR(exception, name, position, type) \
  (PyErr_SetString(exception, "in method '" name "', argument " #position " of type '" type "'"), NULL)

/** Reads an int in 0..2^32-1 into `value` and gives null. Otherwise the exception to raise: OverflowError, or
    TypeError for what is no int and for what 64 bits cannot hold. */
static inline PyObject *read_u32(PyObject *object, uint32_t *value) {
  if (!PyLong_Check(object)) return PyExc_TypeError;
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(object, &overflow);
  if (overflow < 0) return PyExc_TypeError;
  if (overflow > 0) {
    const unsigned long long large = PyLong_AsUnsignedLongLong(object);
    if (large != (unsigned long long)-1 || !PyErr_Occurred()) return PyExc_OverflowError;
    PyErr_Clear();
    return PyExc_TypeError;
  }
  if (number < 0 || number > UINT32_MAX) return PyExc_OverflowError;
  *value = (uint32_t)number;
  return NULL;
}

/** Writes a str of less than `width` bytes of UTF-8, or None as no text, and fills the field with zeros. 0,
   or -1 without an exception, where the field stays as it was. */
static inline int write_text(PyObject *object, char *field, size_t width) {
  const char *text = "";
  Py_ssize_t length = 0;
  if (object != Py_None) {
    if (!PyUnicode_Check(object)) return -1;
    text = PyUnicode_AsUTF8AndSize(object, &length);
    if (!text) {
      PyErr_Clear();
      return -1;
    }
    if ((size_t)length >= width) return -1;
  }
  memcpy(field, text, (size_t)length);
  memset(field + length, 0, width - (size_t)length);
  return 0;
}

/** Reads an int in 0..255, or text of one byte or none, into `flag` and gives null. Otherwise the exception
   to raise. */
static inline PyObject *read_flag(PyObject *object, char *flag) {
  if (PyLong_Check(object)) {
    const long number = PyLong_AsLong(object);
    if (number == -1 && PyErr_Occurred()) PyErr_Clear();
    if (number < 0 || number > UINT8_MAX) return PyExc_OverflowError;
    *flag = (char)number;
    return NULL;
  }
  if (object == Py_None) {
    *flag = 0;
    return NULL;
  }
  if (!PyUnicode_Check(object)) return PyExc_TypeError;
  Py_ssize_t length = 0;
  const char *text = PyUnicode_AsUTF8AndSize(object, &length);
  if (!text) PyErr_Clear();
  if (!text || length > 1) return PyExc_TypeError;
  *flag = text[0];
  return NULL;
}

/** The bytes before the first zero, at most `width`, as str. */
static inline PyObject *read_text(const char *field, size_t width) {
  return PyUnicode_DecodeUTF8(field, (Py_ssize_t)strnlen(field, width), "surrogateescape");
}
