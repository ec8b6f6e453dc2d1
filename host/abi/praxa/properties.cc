/* Properties by their keys, under the ids of distributed switches. */
#include <cstdlib>
#include <string>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/handle_access.h"
#include "host/abi/record_block.h"
#include "host/core/base/kept_text.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

PropertyOwner OwnerOf(const char *switch_id, PropertyLevel level) {
  return {.switch_name = ReadHost().FindSwitchById(SwitchId(switch_id)).config.spec().portset, .level = level};
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

void HandOut(const std::string &value, void **value_cell, int *length_cell) {
  SetOutput(value_cell, static_cast<void *>(BlockOf<char>(value)));
  SetOutput(length_cell, static_cast<int>(value.size()));
}

void Get(const PropertyOwner &owner, const char *key, void **value_cell, int *length_cell) {
  HandOut(ReadHost().PropertyOf(owner, Key(key)), value_cell, length_cell);
}

/** What an offload device is told. */
void GetOffloaded(const PropertyOwner &owner, const char *key, void **value_cell, int *length_cell) {
  HandOut(ReadHost().OffloadedPropertyOf(owner, Key(key)), value_cell, length_cell);
}

void Set(const PropertyOwner &owner, const char *key, const void *value, int length, zel_uint32 type) {
  const auto name = Key(key);
  const auto bytes = BytesArgument(value, length);
  if (bytes.size() > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  ChangeHost().SetProperty(owner, name, {std::string(bytes), type});
}

void Clear(const PropertyOwner &owner, const char *key) {
  ChangeHost().ClearProperty(owner, Key(key), Persistence::kSaved);
}

/** The handle of a property that is set. */
ZEL_ReturnStatus LookUp(const char *switch_id, PropertyLevel level, const char *key, DVSDataItem *item_cell,
                        const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(item_cell);
        const auto id = SwitchId(switch_id);
        const auto name = Key(key);
        const PropertySet &properties = ReadHost().FindSwitchById(id).config.PropertiesAt({level});
        if (properties.Find(name) == nullptr) throw StatusError(ZEL_NOT_FOUND);
        SetOutput(item_cell, HandleOf({.kind = HandleMeaning::Kind::kProperty,
                                       .switch_id = std::string(id),
                                       .level = level,
                                       .key = std::string(name)}));
      },
      function);
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT void DVSZEL_DataFree(void *buffer) { std::free(buffer); }

// ---- Of a switch ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropGet(const char *switchId, const char *key, void **valueCell,
                                                          int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(OwnerOf(switchId, PropertyLevel::kSwitch), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SmartNICGlobalPropGet(const char *switchId, const char *key,
                                                                  void **valueCell, int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    GetOffloaded(OwnerOf(switchId, PropertyLevel::kSwitch), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropSet(const char *switchId, const char *key, void *value,
                                                          int length, zel_uint32 propertyType) {
  return ChangeCall([&] { Set(OwnerOf(switchId, PropertyLevel::kSwitch), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_GlobalPropClear(const char *switchId, const char *key) {
  return ChangeCall([&] { Clear(OwnerOf(switchId, PropertyLevel::kSwitch), key); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_GlobalPropLookup(const char *switchId, const char *key,
                                                               DVSDataItem *itemCell) {
  return LookUp(switchId, PropertyLevel::kSwitch, key, itemCell);
}

// ---- Of this host's part of a switch ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropGet(const char *switchId, const char *key, void **valueCell,
                                                        int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(OwnerOf(switchId, PropertyLevel::kHost), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SmartNICHostPropGet(const char *switchId, const char *key, void **valueCell,
                                                                int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    GetOffloaded(OwnerOf(switchId, PropertyLevel::kHost), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropSet(const char *switchId, const char *key, void *value, int length,
                                                        zel_uint32 propertyType) {
  return ChangeCall([&] { Set(OwnerOf(switchId, PropertyLevel::kHost), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_HostPropClear(const char *switchId, const char *key) {
  return ChangeCall([&] { Clear(OwnerOf(switchId, PropertyLevel::kHost), key); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_HostPropLookup(const char *switchId, const char *key,
                                                             DVSDataItem *itemCell) {
  return LookUp(switchId, PropertyLevel::kHost, key, itemCell);
}

// ---- Of a port ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataGet(const char *switchId, const char *portId, const char *key,
                                                        void **valueCell, int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(PortOwner(switchId, portId), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_SmartNICPortDataGet(const char *switchId, const char *portId,
                                                                const char *key, void **valueCell, int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    GetOffloaded(PortOwner(switchId, portId), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataSet(const char *switchId, const char *portId, const char *key,
                                                        void *value, int length, zel_uint32 propertyType) {
  return ChangeCall([&] { Set(PortOwner(switchId, portId), key, value, length, propertyType); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortDataClear(const char *switchId, const char *portId, const char *key) {
  return ChangeCall([&] { Clear(PortOwner(switchId, portId), key); });
}

// ---- Of an uplink ----

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_UplinkDataGet(const char *switchId, const char *key, zel_uint32 uplink,
                                                          void **valueCell, int *lengthCell) {
  return ReadCall([&] {
    ClearOutputs(valueCell, lengthCell);
    Get(UplinkOwner(switchId, uplink), key, valueCell, lengthCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_UplinkDataSet(const char *switchId, const char *key, zel_uint32 uplink,
                                                          void *value, int length, zel_uint32 propertyType) {
  return ChangeCall([&] { Set(UplinkOwner(switchId, uplink), key, value, length, propertyType); });
}

// ---- Items ----

KESTREL_HOST_EXPORT zel_uint32 DVSData_Data(DVSDataItem item, void **valueCell) {
  return OrNothing([&] {
    ClearOutputs(valueCell);
    const std::string &value = KeepValue(item, PropertyOfHandle(item).value);
    SetOutput(valueCell, static_cast<void *>(const_cast<char *>(value.data())));
    return static_cast<zel_uint32>(value.size());
  });
}

KESTREL_HOST_EXPORT const char *DVSData_Name(DVSDataItem item) {
  return OrNothing([&] {
    PropertyOfHandle(item);
    return KeptText(MeaningOf(item, HandleMeaning::Kind::kProperty).key);
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
