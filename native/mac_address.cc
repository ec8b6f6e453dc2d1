#include "native/mac_address.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kestrel::records {

namespace {

struct MacAddress {
  PyObject_HEAD char bytes[kMacWidth];
};

PyTypeObject *mac_type = nullptr;

char *BytesOf(PyObject *self) { return reinterpret_cast<MacAddress *>(self)->bytes; }

int Digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/** Six pairs of hexadecimal digits, all parted by colons, all by hyphens, or not parted. */
bool Parse(const char *text, Py_ssize_t length, char *bytes) {
  const bool parted = length == 17;
  if (!parted && length != 12) return false;
  const char separator = parted ? text[2] : ':';
  if (separator != ':' && separator != '-') return false;
  for (std::size_t i = 0; i < kMacWidth; ++i) {
    if (parted && i > 0 && *text++ != separator) return false;
    const int high = Digit(text[0]);
    const int low = Digit(text[1]);
    if (high < 0 || low < 0) return false;
    bytes[i] = static_cast<char>(high * 16 + low);
    text += 2;
  }
  return true;
}

int ReadNumber(PyObject *value, char *bytes) {
  const unsigned long long number = PyLong_AsUnsignedLongLong(value);
  if (number == static_cast<unsigned long long>(-1) && PyErr_Occurred()) return -1;
  if (number >> 48) {
    PyErr_SetString(PyExc_OverflowError, "a MAC address has 48 bits");
    return -1;
  }
  for (std::size_t i = 0; i < kMacWidth; ++i) bytes[i] = static_cast<char>(number >> (8 * (kMacWidth - 1 - i)));
  return 0;
}

PyObject *New(PyTypeObject *, PyObject *args, PyObject *keywords) {
  PyObject *value = nullptr;
  static const char *names[] = {"", nullptr};
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "O:MacAddress", const_cast<char **>(names), &value)) return nullptr;
  char bytes[kMacWidth];
  const int read = PyLong_Check(value) ? ReadNumber(value, bytes) : ReadMacAddress(value, bytes);
  return read < 0 ? nullptr : NewMacAddress(bytes);
}

void Dealloc(PyObject *self) {
  PyTypeObject *type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}

PyObject *Text(PyObject *self) {
  char text[18];
  const auto *b = reinterpret_cast<const unsigned char *>(BytesOf(self));
  const int length =
      std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
  return PyUnicode_FromStringAndSize(text, length);
}

PyObject *Repr(PyObject *self) {
  const Ref text(Text(self));
  return text ? PyUnicode_FromFormat("MacAddress('%U')", text.get()) : nullptr;
}

std::uint64_t NumberOf(PyObject *self) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < kMacWidth; ++i) number = number << 8 | static_cast<unsigned char>(BytesOf(self)[i]);
  return number;
}

Py_hash_t Hash(PyObject *self) { return static_cast<Py_hash_t>(NumberOf(self) * 0x9e3779b97f4a7c15 >> 2); }

PyObject *Compare(PyObject *self, PyObject *other, int operation) {
  if (Py_TYPE(other) != mac_type) Py_RETURN_NOTIMPLEMENTED;
  const int order = std::memcmp(BytesOf(self), BytesOf(other), kMacWidth);
  Py_RETURN_RICHCOMPARE(order, 0, operation);
}

PyObject *Bytes(PyObject *self, PyObject *) { return PyBytes_FromStringAndSize(BytesOf(self), kMacWidth); }

PyObject *Packed(PyObject *self, void *) { return Bytes(self, nullptr); }

PyObject *Int(PyObject *self) { return PyLong_FromUnsignedLongLong(NumberOf(self)); }

PyObject *IsMulticast(PyObject *self, void *) { return PyBool_FromLong(BytesOf(self)[0] & 1); }

PyObject *IsLocal(PyObject *self, void *) { return PyBool_FromLong(BytesOf(self)[0] & 2); }

PyObject *Reduce(PyObject *self, PyObject *) { return Py_BuildValue("O(N)", mac_type, Text(self)); }

PyMethodDef methods[] = {
    {"__bytes__", Bytes, METH_NOARGS, "The six bytes in the order of transmission."},
    {"__reduce__", Reduce, METH_NOARGS, "For pickle and copy."},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef properties[] = {
    {"packed", Packed, nullptr, "The six bytes in the order of transmission.", nullptr},
    {"is_multicast", IsMulticast, nullptr, "Whether it is a group address (IEEE 802: the I/G bit); broadcast is one.",
     nullptr},
    {"is_local", IsLocal, nullptr, "Whether it is locally administered (IEEE 802: the U/L bit).", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

constexpr const char *kDoc =
    "MacAddress(value, /)\n--\n\n"
    "An Ethernet address (IEEE 802), immutable and ordered.\n\n"
    "value: a text such as '00:50:56:0a:0b:0c' (colons, hyphens or nothing between the bytes), six bytes, an int of\n"
    "48 bits, or another address. ValueError for a malformed one, TypeError for anything else, OverflowError for an "
    "int\n"
    "out of range.";

PyType_Slot slots[] = {
    {Py_tp_doc, const_cast<char *>(kDoc)},
    {Py_tp_new, reinterpret_cast<void *>(New)},
    {Py_tp_dealloc, reinterpret_cast<void *>(Dealloc)},
    {Py_tp_str, reinterpret_cast<void *>(Text)},
    {Py_tp_repr, reinterpret_cast<void *>(Repr)},
    {Py_tp_hash, reinterpret_cast<void *>(Hash)},
    {Py_tp_richcompare, reinterpret_cast<void *>(Compare)},
    {Py_nb_int, reinterpret_cast<void *>(Int)},
    {Py_tp_methods, methods},
    {Py_tp_getset, properties},
    {0, nullptr},
};

PyType_Spec spec = {"libkestrel.records.MacAddress", sizeof(MacAddress), 0,
                    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE, slots};

}  // namespace

PyObject *NewMacAddress(const char *bytes) {
  auto *address = PyObject_New(MacAddress, mac_type);
  if (address) std::memcpy(address->bytes, bytes, kMacWidth);
  return reinterpret_cast<PyObject *>(address);
}

bool ReplaceMacAddress(PyObject *object, const char *bytes) {
  if (!object || Py_REFCNT(object) != 1 || Py_TYPE(object) != mac_type) return false;
  std::memcpy(BytesOf(object), bytes, kMacWidth);
  return true;
}

int ReadMacAddress(PyObject *value, char *bytes) {
  if (Py_TYPE(value) == mac_type) {
    std::memcpy(bytes, BytesOf(value), kMacWidth);
    return 0;
  }
  if (PyUnicode_Check(value)) {
    Py_ssize_t length = 0;
    const char *text = PyUnicode_AsUTF8AndSize(value, &length);
    if (text && Parse(text, length, bytes)) return 0;
    PyErr_SetString(PyExc_ValueError, "a MAC address has six pairs of hexadecimal digits");
    return -1;
  }
  if (PyBytes_Check(value) || PyByteArray_Check(value)) {
    const bool plain = PyBytes_Check(value);
    const Py_ssize_t length = plain ? PyBytes_GET_SIZE(value) : PyByteArray_GET_SIZE(value);
    if (length != static_cast<Py_ssize_t>(kMacWidth)) {
      PyErr_SetString(PyExc_ValueError, "a MAC address has six bytes");
      return -1;
    }
    std::memcpy(bytes, plain ? PyBytes_AS_STRING(value) : PyByteArray_AS_STRING(value), kMacWidth);
    return 0;
  }
  PyErr_Format(PyExc_TypeError, "a MAC address is a MacAddress, a str or six bytes, not %.80s",
               Py_TYPE(value)->tp_name);
  return -1;
}

int AddMacAddress(PyObject *module) {
  mac_type = reinterpret_cast<PyTypeObject *>(PyType_FromSpec(&spec));
  return mac_type ? PyModule_AddType(module, mac_type) : -1;
}

}  // namespace kestrel::records
