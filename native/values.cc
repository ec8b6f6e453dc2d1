#include "native/values.h"

#include <cstring>

#include "native/enumerations.h"
#include "native/integers.h"
#include "native/mac_address.h"

namespace kestrel::records {

namespace {

constexpr std::size_t kIpv4Width = 4;
constexpr std::size_t kIpv6Width = 16;
constexpr const char *kErrors = "surrogateescape";

/** A class of the ipaddress module; imported when first needed, for that takes a while. Borrowed. */
PyObject *AddressClass(bool six) {
  static PyObject *classes[2];
  if (!classes[six]) {
    const Ref module(PyImport_ImportModule("ipaddress"));
    PyObject *found = module ? PyObject_GetAttrString(module.get(), six ? "IPv6Address" : "IPv4Address") : nullptr;
    if (!found) return nullptr;
    classes[six] = found;
  }
  return classes[six];
}

PyObject *LoadIpv4(const char *place) {
  PyObject *type = AddressClass(false);
  if (!type) return nullptr;
  const Ref number(PyLong_FromUnsignedLong(__builtin_bswap32(LoadAs<std::uint32_t>(place))));
  return number ? PyObject_CallOneArg(type, number.get()) : nullptr;
}

PyObject *LoadIpv6(const char *place) {
  PyObject *type = AddressClass(true);
  if (!type) return nullptr;
  const Ref bytes(PyBytes_FromStringAndSize(place, kIpv6Width));
  return bytes ? PyObject_CallOneArg(type, bytes.get()) : nullptr;
}

/** An integer that may be an enumerator. */
PyObject *Number(const Element &element, long value) {
  return element.target >= 0 ? NewEnumerator(element.target, value) : PyLong_FromLong(value);
}

int WrongKind(const Place &at, const char *wanted, PyObject *value) {
  PyErr_Format(PyExc_TypeError, "%s.%s is %s, not %.80s", at.cls.spec->name, at.field.name, wanted,
               Py_TYPE(value)->tp_name);
  return -1;
}

int OutOfRange(const Place &at, const Element &element) {
  if (element.kind == Kind::kS32) {
    PyErr_Format(PyExc_OverflowError, "%s.%s takes -2147483648 to 2147483647", at.cls.spec->name, at.field.name);
  } else {
    const unsigned bits = element.bit_count ? element.bit_count : 8 * element.width;
    const unsigned long long highest = bits == 64 ? UINT64_MAX : (1ULL << bits) - 1;
    PyErr_Format(PyExc_OverflowError, "%s.%s takes 0 to %llu", at.cls.spec->name, at.field.name, highest);
  }
  return -1;
}

int ConvertInteger(const Place &at, const Element &element, PyObject *value, Converted *converted) {
  Ref index;
  if (!PyLong_Check(value)) {
    if (!PyIndex_Check(value)) return WrongKind(at, "an int", value);
    index.reset(PyNumber_Index(value));
    if (!index) return -1;
    value = index.get();
  }
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
  if (overflow > 0 && element.kind == Kind::kU64) {
    converted->number = PyLong_AsUnsignedLongLong(value);
    if (!PyErr_Occurred()) return 0;
    PyErr_Clear();
    return OutOfRange(at, element);
  }
  if (number == -1 && PyErr_Occurred()) return -1;
  if (overflow || !FitsInteger(element, number)) return OutOfRange(at, element);
  converted->number = static_cast<std::uint64_t>(number);
  return 0;
}

int ConvertFlag(const Place &at, PyObject *value, Converted *converted) {
  if (!PyLong_Check(value)) return WrongKind(at, "a bool", value);
  const long number = PyLong_AsLong(value);
  if (number == -1 && PyErr_Occurred()) PyErr_Clear();
  if (number != 0 && number != 1) {
    PyErr_Format(PyExc_OverflowError, "%s.%s is a bool: 0 or 1", at.cls.spec->name, at.field.name);
    return -1;
  }
  converted->number = static_cast<std::uint64_t>(number);
  return 0;
}

int ConvertText(const Place &at, const Element &element, PyObject *value, Converted *converted) {
  if (!PyUnicode_Check(value)) return WrongKind(at, "a str", value);
  converted->text = PyUnicode_AsUTF8AndSize(value, &converted->length);
  if (!converted->text) {
    // Bytes that are no UTF-8 come back as they were read.
    if (!PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) return -1;
    PyErr_Clear();
    converted->keep.reset(PyUnicode_AsEncodedString(value, "utf-8", kErrors));
    if (!converted->keep) return -1;
    if (!PyBytes_Check(converted->keep.get())) return WrongKind(at, "a str", value);
    converted->text = PyBytes_AS_STRING(converted->keep.get());
    converted->length = PyBytes_GET_SIZE(converted->keep.get());
  } else {
    converted->keep = Share(value);
  }
  if (converted->length >= static_cast<Py_ssize_t>(element.width)) {
    PyErr_Format(PyExc_ValueError, "%s.%s takes at most %u bytes of UTF-8, not %zd", at.cls.spec->name, at.field.name,
                 element.width - 1, converted->length);
    return -1;
  }
  if (std::memchr(converted->text, 0, static_cast<std::size_t>(converted->length))) {
    PyErr_Format(PyExc_ValueError, "%s.%s takes no zero character", at.cls.spec->name, at.field.name);
    return -1;
  }
  return 0;
}

int ConvertIp(const Place &at, PyObject *value, bool six, Converted *converted) {
  PyObject *type = AddressClass(six);
  if (!type) return -1;
  Ref address;
  if (PyUnicode_Check(value)) {
    address.reset(PyObject_CallOneArg(type, value));
    if (!address) return -1;
  } else {
    const int is = PyObject_IsInstance(value, type);
    if (is < 0) return -1;
    if (!is) return WrongKind(at, six ? "an IPv6Address or a str" : "an IPv4Address or a str", value);
    address = Share(value);
  }
  const Ref packed(PyObject_GetAttrString(address.get(), "packed"));
  if (!packed) return -1;
  const std::size_t width = six ? kIpv6Width : kIpv4Width;
  if (!PyBytes_Check(packed.get()) || PyBytes_GET_SIZE(packed.get()) != static_cast<Py_ssize_t>(width)) {
    return WrongKind(at, "an address of its length", value);
  }
  std::memcpy(converted->address, PyBytes_AS_STRING(packed.get()), width);
  return 0;
}

int ConvertRecord(const Place &at, const Element &element, PyObject *value, Converted *converted) {
  const RecordClass *cls = ClassAt(element.target);
  if (!cls) return -1;
  if (PyDict_Check(value)) {
    const Ref nothing(PyTuple_New(0));
    const Ref copy(nothing ? PyDict_Copy(value) : nullptr);
    if (!copy) return -1;
    converted->keep.reset(PyObject_Call(reinterpret_cast<PyObject *>(cls->type), nothing.get(), copy.get()));
    return converted->keep ? 0 : -1;
  }
  if (Py_TYPE(value) != cls->type) return WrongKind(at, cls->spec->name, value);
  converted->keep = Share(value);
  return 0;
}

}  // namespace

PyObject *LoadText(const char *text, std::size_t width) {
  return PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(strnlen(text, width)), kErrors);
}

PyObject *Load(const Element &element, Record *root, char *place) {
  switch (element.kind) {
    case Kind::kU8:
    case Kind::kU16:
    case Kind::kS32:
      return Number(element, static_cast<long>(LoadInteger(element, place)));
    case Kind::kU32:
      if (element.bit_count) return PyLong_FromLong(static_cast<long>(LoadInteger(element, place)));
      return Number(element, static_cast<long>(LoadAs<std::uint32_t>(place)));
    case Kind::kU64:
      return PyLong_FromUnsignedLongLong(LoadAs<std::uint64_t>(place));
    case Kind::kFlag:
      return PyBool_FromLong(*place);
    case Kind::kText:
    case Kind::kName:
      return LoadText(place, element.width);
    case Kind::kMac:
      return NewMacAddress(place);
    case Kind::kIpv4:
      return LoadIpv4(place);
    case Kind::kIpv6:
      return LoadIpv6(place);
    case Kind::kRecord: {
      const RecordClass *cls = ClassAt(element.target);
      return cls ? NewView(*cls, root, place, cls->spec->size) : nullptr;
    }
    case Kind::kPointer:
    case Kind::kOwnedText:
    case Kind::kOpaque:
      break;
  }
  PyErr_SetString(PyExc_SystemError, "a pointer has no value of its own");
  return nullptr;
}

int Convert(const Place &at, const Element &element, PyObject *value, Converted *converted) {
  switch (element.kind) {
    case Kind::kU8:
    case Kind::kU16:
    case Kind::kU32:
    case Kind::kU64:
    case Kind::kS32:
      return ConvertInteger(at, element, value, converted);
    case Kind::kFlag:
      return ConvertFlag(at, value, converted);
    case Kind::kText:
    case Kind::kName:
      return ConvertText(at, element, value, converted);
    case Kind::kMac:
      return ReadMacAddress(value, converted->address);
    case Kind::kIpv4:
      return ConvertIp(at, value, false, converted);
    case Kind::kIpv6:
      return ConvertIp(at, value, true, converted);
    case Kind::kRecord:
      return ConvertRecord(at, element, value, converted);
    case Kind::kPointer:
    case Kind::kOwnedText:
    case Kind::kOpaque:
      break;
  }
  PyErr_SetString(PyExc_SystemError, "a pointer has no value of its own");
  return -1;
}

bool StillThere(const Element &element, const Converted &converted) {
  return element.kind != Kind::kRecord || Memory(reinterpret_cast<Record *>(converted.keep.get())) != nullptr;
}

void Store(const Element &element, const Converted &converted, char *place) {
  switch (element.kind) {
    case Kind::kText:
    case Kind::kName:
      std::memcpy(place, converted.text, static_cast<std::size_t>(converted.length));
      std::memset(place + converted.length, 0, element.width - static_cast<std::size_t>(converted.length));
      return;
    case Kind::kMac:
    case Kind::kIpv4:
    case Kind::kIpv6:
      std::memcpy(place, converted.address, element.width);
      return;
    case Kind::kRecord:
      std::memmove(place, reinterpret_cast<Record *>(converted.keep.get())->data, element.width);
      return;
    default:
      StoreInteger(element, place, converted.number);
      return;
  }
}

}  // namespace kestrel::records
