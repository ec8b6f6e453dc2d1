/* Properties by their keys: the door that stands beside every function with a type. */
#include <cstring>
#include <string>

#include "host/abi/property_access.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

PropertyOwner OwnerOf(const char *switch_name, PropertyLevel level) {
  return {.switch_name = SwitchName(switch_name), .level = level};
}

PropertyOwner OwnerOf(const char *switch_name, const char *port_name) {
  return PortProperty{switch_name, port_name, {}}.Owner();
}

std::string_view Key(const char *key) { return NameArgument(key, kMaxPropertyKey + 1); }

/** A key is the same thing to every component; the name has to be one. */
void CheckComponent(const char *component) {
  if (component != nullptr) NameArgument(component, ZEL_VDS_CLASS_NAME_MAX_LEN);
}

Persistence PersistenceOf(zel_Bool runtime_only) {
  return runtime_only != 0 ? Persistence::kRuntimeOnly : Persistence::kSaved;
}

/** What a caller wants to set under a key. */
struct NewValue {
  const char *key;
  const void *bytes;
  int length;
  const char *component;
  zel_Bool runtime_only;
};

void Set(const PropertyOwner &owner, const NewValue &value) {
  const auto key = Key(value.key);
  const auto bytes = BytesArgument(value.bytes, value.length);
  if (bytes.size() > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  CheckComponent(value.component);
  ChangeHost().SetProperty(owner, key, {std::string(bytes), PropertyTypeOf(PersistenceOf(value.runtime_only))});
}

void Get(const PropertyOwner &owner, const char *key, VDSQuery *query, const char *component) {
  RequirePointer(query);
  const auto name = Key(key);
  CheckComponent(component);
  const std::string value = ReadHost().PropertyOf(owner, name);
  const int room = query->propLen;
  if (room < 0 || (room > 0 && query->propValue == nullptr)) throw StatusError(ZEL_BAD_PARAM);
  if (value.size() > static_cast<std::size_t>(room)) throw StatusError(ZEL_BUF_TOO_SMALL);
  if (!value.empty()) std::memcpy(query->propValue, value.data(), value.size());
  query->propLen = static_cast<int>(value.size());
}

void Clear(const PropertyOwner &owner, const char *key, const char *component, zel_Bool runtime_only) {
  const auto name = Key(key);
  CheckComponent(component);
  ChangeHost().ClearProperty(owner, name, PersistenceOf(runtime_only));
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetGlobProp(const char *switchName, const char *key,
                                                       const void *propertyValue, int length, const char *component,
                                                       zel_Bool runtimeOnly) {
  return ChangeCall(
      [&] { Set(OwnerOf(switchName, PropertyLevel::kSwitch), {key, propertyValue, length, component, runtimeOnly}); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetHostProp(const char *switchName, const char *key,
                                                       const void *propertyValue, int length, const char *component,
                                                       zel_Bool runtimeOnly) {
  return ChangeCall(
      [&] { Set(OwnerOf(switchName, PropertyLevel::kHost), {key, propertyValue, length, component, runtimeOnly}); });
}

/* `runtimeOnly` has nothing to decide here. */
KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetRuntimeHostProp(const char *switchName, const char *key,
                                                              const void *propertyValue, int length,
                                                              const char *component, zel_Bool /*runtimeOnly*/) {
  return ChangeCall(
      [&] { Set(OwnerOf(switchName, PropertyLevel::kHost), {key, propertyValue, length, component, 1}); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortProp(const char *switchName, const char *portName, const char *key,
                                                       const void *propertyValue, int length, const char *component,
                                                       zel_Bool runtimeOnly) {
  return ChangeCall([&] { Set(OwnerOf(switchName, portName), {key, propertyValue, length, component, runtimeOnly}); });
}

/* What is read is the value in use, whether it is saved too or not. */

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetGlobProp(const char *switchName, const char *key, VDSQuery *query,
                                                       const char *component, zel_Bool /*runtimeOnly*/) {
  return ReadCall([&] { Get(OwnerOf(switchName, PropertyLevel::kSwitch), key, query, component); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetHostProp(const char *switchName, const char *key, VDSQuery *query,
                                                       const char *component, zel_Bool /*runtimeOnly*/) {
  return ReadCall([&] { Get(OwnerOf(switchName, PropertyLevel::kHost), key, query, component); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortProp(const char *switchName, const char *portName, const char *key,
                                                       VDSQuery *query, const char *component,
                                                       zel_Bool /*runtimeOnly*/) {
  return ReadCall([&] { Get(OwnerOf(switchName, portName), key, query, component); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearGlobProp(const char *switchName, const char *key, const char *component,
                                                         zel_Bool runtimeOnly) {
  return ChangeCall([&] { Clear(OwnerOf(switchName, PropertyLevel::kSwitch), key, component, runtimeOnly); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearHostProp(const char *switchName, const char *key, const char *component,
                                                         zel_Bool runtimeOnly) {
  return ChangeCall([&] { Clear(OwnerOf(switchName, PropertyLevel::kHost), key, component, runtimeOnly); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortProp(const char *switchName, const char *portName, const char *key,
                                                         const char *component, zel_Bool runtimeOnly) {
  return ChangeCall([&] { Clear(OwnerOf(switchName, portName), key, component, runtimeOnly); });
}
