/* Collections of properties: building them, and filling them from switches and ports. */
#include "host/abi/praxa/collections.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/base/names.h"
#include "host/core/images/property_image.h"
#include "host/core/properties/property_keys.h"
#include "host/core/properties/property_types.h"

namespace kestrel::host::abi {
namespace {

using Table = std::map<std::uintptr_t, std::unique_ptr<Collection>>;

/** Never destroyed: the release functions of scripts may be gone when the process ends. In a place of its own, so that
    looking a handle up cannot fail for want of memory. */
Table &Collections() noexcept {
  alignas(Table) static std::byte place[sizeof(Table)];
  static auto *table = new (place) Table;
  return *table;
}

/** Collects the properties of an owner that `is_wanted(key)` and a mask of types ask for. */
void List(const SwitchConfig &config, PropertyPlace place, DVSDataHandle *handle_cell, zel_uint32 mask,
          bool (*is_wanted)(std::string_view)) {
  if ((mask & ~kAllPropertyTypes) != 0) throw StatusError(ZEL_BAD_PARAM);
  auto collection = std::make_unique<Collection>(std::malloc, std::free);
  for (const auto &[key, property] : config.PropertiesAt(place).Items()) {
    if (is_wanted(key) && IsListed(property.type, mask)) collection->Update(key, property.value, property.type);
  }
  SetOutput(handle_cell, KeepCollection(std::move(collection)));
}

ZEL_ReturnStatus ListOfSwitch(const char *switch_id, PropertyLevel level, DVSDataHandle *handle_cell, zel_uint32 mask,
                              bool (*is_wanted)(std::string_view), const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(handle_cell);
        const SwitchConfig &config = ReadHost().FindSwitchById(SwitchId(switch_id)).config;
        List(config, {level}, handle_cell, mask, is_wanted);
      },
      function);
}

ZEL_ReturnStatus ListOfPort(const char *switch_id, const char *port_id, DVSDataHandle *handle_cell, zel_uint32 mask,
                            bool (*is_wanted)(std::string_view), const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(handle_cell);
        const auto id = SwitchId(switch_id);
        const auto port = PortName(port_id);
        const SwitchConfig &config = ReadHost().FindSwitchById(id).config;
        List(config, {PropertyLevel::kPort, config.PortNamed(port).id}, handle_cell, mask, is_wanted);
      },
      function);
}

bool IsExtraKey(std::string_view key) { return !IsPlatformKey(key); }

}  // namespace

void *CallersMemory::do_allocate(std::size_t size, std::size_t /*alignment*/) {
  if (void *memory = allocate_(size)) return memory;
  throw std::bad_alloc();
}

void CallersMemory::do_deallocate(void *memory, std::size_t /*size*/, std::size_t /*alignment*/) { release_(memory); }

void Collection::Update(std::string_view key, std::string_view value, std::uint32_t type) {
  CheckName(key, kMaxPropertyKey + 1);
  if (value.size() > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  Item item{.value = std::pmr::string(value, &memory_), .type = PropertyTypeOfRequest(type)};
  const auto found = properties_.find(key);
  if (found == properties_.end()) {
    properties_.emplace(key, std::move(item));
  } else {
    found->second = std::move(item);
  }
}

PropertySet Collection::Properties() const {
  PropertySet properties;
  for (const auto &[key, item] : properties_) properties.Append(key, {std::string(item.value), item.type});
  return properties;
}

DVSDataHandle KeepCollection(std::unique_ptr<Collection> collection) {
  // Far from the handles of switches, ports and properties, so that the one is not taken for the other.
  static std::uintptr_t next = std::uintptr_t{1} << 48;
  const std::uintptr_t number = next;
  Collections().emplace(number, std::move(collection));
  next += 16;
  // The number is only ever compared.
  return reinterpret_cast<DVSDataHandle>(number);
}

Collection &CollectionOf(DVSDataHandle handle) {
  const auto found = Collections().find(reinterpret_cast<std::uintptr_t>(handle));
  if (found == Collections().end()) throw StatusError(ZEL_INVALID_HANDLE);
  return *found->second;
}

void DropCollection(DVSDataHandle handle) noexcept { Collections().erase(reinterpret_cast<std::uintptr_t>(handle)); }

}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSData_Alloc(DVSDataHandle *handleCell, DVSData_MemAlloc allocate,
                                                   DVSData_MemFree release) {
  return ReadCall([&] {
    ClearOutputs(handleCell);
    // Memory goes back to where it came from.
    if ((allocate == nullptr) != (release == nullptr)) throw StatusError(ZEL_BAD_PARAM);
    auto collection = allocate == nullptr ? std::make_unique<Collection>(std::malloc, std::free)
                                          : std::make_unique<Collection>(allocate, release);
    SetOutput(handleCell, KeepCollection(std::move(collection)));
  });
}

KESTREL_HOST_EXPORT void DVSData_Free(DVSDataHandle handle) {
  ReadCall([&] { DropCollection(handle); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSData_Update(DVSDataHandle handle, const char *key, void *value,
                                                    zel_uint32 length, zel_uint32 propertyType) {
  return ReadCall([&] {
    const auto name = NameArgument(key, kMaxPropertyKey + 1);
    CollectionOf(handle).Update(name, BytesArgument(value, length), propertyType);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSData_Serialize(DVSDataHandle handle, void **imageCell, zel_uint32 *lengthCell,
                                                       VDSVersion version) {
  return ReadCall([&] {
    ClearOutputs(imageCell, lengthCell);
    const std::string image = ImageOfProperties(CollectionOf(handle).Properties(), version);
    SetOutput(imageCell, static_cast<void *>(BlockOf<char>(image)));
    SetOutput(lengthCell, static_cast<zel_uint32>(image.size()));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_VendorGlobalPropList(const char *switchId, DVSDataHandle *handleCell,
                                                                 zel_uint32 propertyType) {
  return ListOfSwitch(switchId, PropertyLevel::kSwitch, handleCell, propertyType, IsVendorKey);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_VendorHostPropList(const char *switchId, DVSDataHandle *handleCell,
                                                               zel_uint32 propertyType) {
  return ListOfSwitch(switchId, PropertyLevel::kHost, handleCell, propertyType, IsVendorKey);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_VendorPortPropList(const char *switchId, const char *portId,
                                                               DVSDataHandle *handleCell, zel_uint32 propertyType) {
  return ListOfPort(switchId, portId, handleCell, propertyType, IsVendorKey);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_ExtraConfigPropList(const char *switchId, DVSDataHandle *handleCell,
                                                                zel_uint32 propertyType) {
  return ListOfSwitch(switchId, PropertyLevel::kSwitch, handleCell, propertyType, IsExtraKey);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_ExtraConfigPortPropList(const char *switchId, const char *portId,
                                                                    DVSDataHandle *handleCell,
                                                                    zel_uint32 propertyType) {
  return ListOfPort(switchId, portId, handleCell, propertyType, IsExtraKey);
}
