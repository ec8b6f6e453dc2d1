// Peer: the records as pybind11 classes with attributes.
#include <pybind11/pybind11.h>

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "kestrel/base_records.h"

namespace py = pybind11;

PYBIND11_MODULE(pybind11_class, module) {
  py::class_<zel_Name>(module, "Name")
      .def(py::init<>())
      .def_property(
          "string", [](const zel_Name &name) { return py::str(name.string, strnlen(name.string, sizeof name.string)); },
          [](zel_Name &name, std::string_view text) {
            if (text.size() >= sizeof name.string) throw py::value_error("at most 31 bytes");
            std::memcpy(name.string, text.data(), text.size());
            std::memset(name.string + text.size(), 0, sizeof name.string - text.size());
          });
  // Members of packed records have no references to them that C++ could promise anything about.
  py::class_<zel_MgmtApiSignature>(module, "Signature")
      .def(py::init<>())
      .def_property(
          "version", [](const zel_MgmtApiSignature &signature) { return signature.version; },
          [](zel_MgmtApiSignature &signature, zel_revnum version) { signature.version = version; })
      .def_property_readonly(
          "name", [](zel_MgmtApiSignature &signature) { return &signature.name; },
          py::return_value_policy::reference_internal);
}
