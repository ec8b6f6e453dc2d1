// MacAddress: an immutable Ethernet address.
#pragma once

#include "native/python.h"

namespace kestrel::records {

inline constexpr std::size_t kMacWidth = 6;

/** Creates the type and adds it to the module. 0, or -1 with an error. */
int AddMacAddress(PyObject *module);

/** A new address of these six bytes. */
PyObject *NewMacAddress(const char *bytes);

/** Puts other bytes into an address that nobody else refers to; false for any other object. */
bool ReplaceMacAddress(PyObject *object, const char *bytes);

/** Reads an address from a MacAddress, a text or six bytes. 0, or -1 with TypeError or ValueError. */
int ReadMacAddress(PyObject *value, char *bytes);

}  // namespace kestrel::records
