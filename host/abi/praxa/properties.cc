/* Properties by their keys, under the ids of distributed switches. */
#include <cstdlib>
#include <string>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/handle_access.h"
#include "host/abi/record_block.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

PropertyOwner OwnerOf(const char *switch_id, PropertyLevel level) {
  return {.switch_name = ProcessHost().FindSwitchById(SwitchId(switch_id)).config.spec().portset, .level = level};
}

PropertyOwner PortOwner(const char *switch_id, const char *port_id) {
  PropertyOwner owner = OwnerOf(switch_id, PropertyLevel::kPort);
  owner.port = PortName(port_id);
  return owner;
}

PropertyOwner UplinkOwner(const char *switch_id, zel_uint32 uplink) {
  PropertyOwner owner = OwnerOf(switch_id, PropertyLevel::kUplink);
  owner.uplink = uplink;
  return owner;
}

std::string_view Key(const char *key) { return NameArgument(key, kMaxPropertyKey + 1); }

void Get(const PropertyOwner &owner, const char *key, void **value_cell, int *length_cell) {
  const std::string value = ProcessHost().PropertyOf(owner, Key(key));
  SetOutput(value_cell, static_cast<void *>(BlockOf<char>(value)));
  SetOutput(length_cell, static_cast<int>(value.size()));
}

void Set(const PropertyOwner &owner, const char *key, const void *value, int length, zel_uint32 type) {
  const auto name = Key(key);
  const auto bytes = BytesArgument(value, length);
  if (bytes.size() > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  ProcessHost().SetProperty(owner, name, {std::string(bytes), type});
}

void Clear(const PropertyOwner &owner, const char *key) {
  ProcessHost().ClearProperty(owner, Key(key), Persistence::kSaved);
}

/** The handle of a property that is set. */
ZEL_ReturnStatus LookUp(const char *switch_id, PropertyLevel level, const char *key, DVSDataItem *item_cell) {
  return Guarded([&] {
    ClearOutputs(item_cell);
    const auto id = SwitchId(switch_id);
    const auto name = Key(key);
    Host &host = ProcessHost();
    if (host.FindSwitchById(id).config.PropertiesAt({level}).Find(name) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetOutput(item_cell, host.handles().HandleOf({.kind = HandleMeaning::Kind::kProperty,
                                                  .switch_id = std::string(id),
                                                  .level = level,
                                                  .key = std::string(name)}));
  });
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT void DVSZEL_DataFree(void *buffer) { std::free(buffer); }

// ---- Of a switch ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropGet(const char *switchId, const char *key, void **valueCell,
                                                          int *lengthCell) {
  return Guarded([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(OwnerOf(switchId, PropertyLevel::kSwitch), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropSet(const char *switchId, const char *key, void *value,
                                                          int length, zel_uint32 propertyType) {
  return Guarded([&] { Set(OwnerOf(switchId, PropertyLevel::kSwitch), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropClear(const char *switchId, const char *key) {
  return Guarded([&] { Clear(OwnerOf(switchId, PropertyLevel::kSwitch), key); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_GlobalPropLookup(const char *switchId, const char *key,
                                                               DVSDataItem *itemCell) {
  return LookUp(switchId, PropertyLevel::kSwitch, key, itemCell);
}

// ---- Of this host's part of a switch ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropGet(const char *switchId, const char *key, void **valueCell,
                                                        int *lengthCell) {
  return Guarded([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(OwnerOf(switchId, PropertyLevel::kHost), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropSet(const char *switchId, const char *key, void *value, int length,
                                                        zel_uint32 propertyType) {
  return Guarded([&] { Set(OwnerOf(switchId, PropertyLevel::kHost), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropClear(const char *switchId, const char *key) {
  return Guarded([&] { Clear(OwnerOf(switchId, PropertyLevel::kHost), key); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_HostPropLookup(const char *switchId, const char *key,
                                                             DVSDataItem *itemCell) {
  return LookUp(switchId, PropertyLevel::kHost, key, itemCell);
}

// ---- Of a port ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataGet(const char *switchId, const char *portId, const char *key,
                                                        void **valueCell, int *lengthCell) {
  return Guarded([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(PortOwner(switchId, portId), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataSet(const char *switchId, const char *portId, const char *key,
                                                        void *value, int length, zel_uint32 propertyType) {
  return Guarded([&] { Set(PortOwner(switchId, portId), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataClear(const char *switchId, const char *portId, const char *key) {
  return Guarded([&] { Clear(PortOwner(switchId, portId), key); });
}

// ---- Of an uplink ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_UplinkDataGet(const char *switchId, const char *key, zel_uint32 uplink,
                                                          void **valueCell, int *lengthCell) {
  return Guarded([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(UplinkOwner(switchId, uplink), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_UplinkDataSet(const char *switchId, const char *key, zel_uint32 uplink,
                                                          void *value, int length, zel_uint32 propertyType) {
  return Guarded([&] { Set(UplinkOwner(switchId, uplink), key, value, length, propertyType); });
}

// ---- Items ----

KESTREL_HOST_EXPORT zel_uint32 DVSData_Data(DVSDataItem item, void **valueCell) {
  return OrNothing([&] {
    ClearOutputs(valueCell);
    const std::string &value = PropertyOfHandle(item).value;
    SetOutput(valueCell, static_cast<void *>(const_cast<char *>(value.data())));
    return static_cast<zel_uint32>(value.size());
  });
}

KESTREL_HOST_EXPORT const char *DVSData_Name(DVSDataItem item) {
  return OrNothing([&] {
    PropertyOfHandle(item);
    return MeaningOf(item, HandleMeaning::Kind::kProperty).key.c_str();
  });
}

KESTREL_HOST_EXPORT zel_uint32 DVSData_PropType(DVSDataItem item) {
  return OrNothing([&] { return zel_uint32{PropertyOfHandle(item).type}; });
}

KESTREL_HOST_EXPORT char DVSData_IsSamePropType(DVSDataItem item, zel_uint32 propertyType) {
  return OrNothing([&] {
    const bool is_same = (PropertyOfHandle(item).type & propertyType) == propertyType;
    return static_cast<char>(is_same ? 1 : 0);
  });
}
