/* Walks over what there is. Each goes over the elements that are there when it begins, so that a callback may change
   anything. */
#include <vector>

#include "host/abi/handle_access.h"
#include "host/core/properties/property_types.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

using Callback = char (*)(void *, void *);
using Kind = HandleMeaning::Kind;

/** Calls back for the handles that `collect()` gives. */
template <typename Collect>
void Walk(Callback callback, void *context, Collect collect, const char *function = __builtin_FUNCTION()) {
  ReadCall(
      [&] {
        if (callback == nullptr) return;
        for (void *handle : collect()) {
          if (callback(handle, context) == 0) return;
        }
      },
      function);
}

std::vector<void *> HandlesOf(const PropertySet &properties, const HandleMeaning &owner) {
  std::vector<void *> handles;
  for (const auto &[key, property] : properties.Items()) {
    if (!IsListed(property.type, ALL_PUBLIC_PROP_TYPE)) continue;
    HandleMeaning meaning = owner;
    meaning.kind = Kind::kProperty;
    meaning.key = key;
    handles.push_back(HandleOf(meaning));
  }
  return handles;
}

void WalkSwitchProperties(DVSwitchHandle handle, PropertyLevel level, Callback callback, void *context,
                          const char *function = __builtin_FUNCTION()) {
  Walk(
      callback, context,
      [&] {
        const SwitchConfig &config = SwitchOfHandle(handle);
        return HandlesOf(config.PropertiesAt({level}),
                         {.kind = Kind::kProperty, .switch_id = config.spec().id, .level = level});
      },
      function);
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT void DVSState_SwitchForEach(DVSwitchCallback callback, void *context) {
  Walk(callback, context, [] {
    std::vector<void *> handles;
    for (const Switch &each : ReadHost().Switches()) {
      handles.push_back(HandleOf({.kind = Kind::kSwitch, .switch_id = each.config.spec().id}));
    }
    return handles;
  });
}

KESTREL_HOST_EXPORT void DVSState_PortForEach(DVSwitchHandle handle, DVSPortCallback callback, void *context) {
  Walk(callback, context, [&] {
    const SwitchConfig &config = SwitchOfHandle(handle);
    std::vector<void *> handles;
    for (const Port &port : config.ports().Items()) {
      handles.push_back(HandleOf({.kind = Kind::kPort, .switch_id = config.spec().id, .port = port.id}));
    }
    return handles;
  });
}

KESTREL_HOST_EXPORT void DVSState_HostPropForEach(DVSwitchHandle handle, DVSPortDataCallback callback, void *context) {
  WalkSwitchProperties(handle, PropertyLevel::kHost, callback, context);
}

KESTREL_HOST_EXPORT void DVSState_GlobalPropForEach(DVSwitchHandle handle, DVSPortDataCallback callback,
                                                    void *context) {
  WalkSwitchProperties(handle, PropertyLevel::kSwitch, callback, context);
}

KESTREL_HOST_EXPORT void DVSState_PortDataForEach(DVSPortHandle handle, DVSPortDataCallback callback, void *context) {
  Walk(callback, context, [&] {
    const Port &port = PortOfHandle(handle);
    HandleMeaning owner = MeaningOf(handle, Kind::kPort);
    owner.level = PropertyLevel::kPort;
    return HandlesOf(port.properties, owner);
  });
}
