// Peer: the records as nanobind classes with attributes.
#include <nanobind/nanobind.h>
#include <nanobind/stl/string_view.h>

#include <cstring>
#include <string_view>

#include "kestrel/base_records.h"

namespace nb = nanobind;

NB_MODULE(nanobind_class, module) {
  nb::class_<zel_Name>(module, "Name")
      .def(nb::init<>())
      .def_prop_rw(
          "string", [](const zel_Name &name) { return nb::str(name.string, strnlen(name.string, sizeof name.string)); },
          [](zel_Name &name, std::string_view text) {
            if (text.size() >= sizeof name.string) throw nb::value_error("at most 31 bytes");
            std::memcpy(name.string, text.data(), text.size());
            std::memset(name.string + text.size(), 0, sizeof name.string - text.size());
          });
  // Members of packed records have no references to them that C++ could promise anything about.
  nb::class_<zel_MgmtApiSignature>(module, "Signature")
      .def(nb::init<>())
      .def_prop_rw(
          "version", [](const zel_MgmtApiSignature &signature) { return signature.version; },
          [](zel_MgmtApiSignature &signature, zel_revnum version) { signature.version = version; })
      .def_prop_ro(
          "name", [](zel_MgmtApiSignature &signature) { return &signature.name; }, nb::rv_policy::reference_internal);
}
