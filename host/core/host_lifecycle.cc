/* Loading, resetting, tidying and releasing the configuration as a whole. */
#include <utility>

#include "host/core/host.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::LoadConfig() {
  SwitchSet<Switch> loaded;
  RuntimeOptions options;
  for (const SavedSwitch &saved : store_.Switches()) loaded.Add(Switch{saved.config});

  // From here on nothing can fail, so that what traffic has made of the switches can be moved. The ports that it speaks
  // of are all there: what a switch consists of is always saved.
  for (Switch &fresh : loaded.Items()) {
    Switch *former = switches_.FindById(fresh.config.spec().id);
    if (former == nullptr) continue;
    fresh.macs = std::move(former->macs);
    fresh.unlearned = std::move(former->unlearned);
  }
  switches_ = std::move(loaded);
  mac_learning_ = kDefaultMacLearning;
  options_ = std::move(options);
}

void Host::ResetConfig() {
  const auto reset = [](SwitchConfig &config) { config.ResetProperties(); };
  store_.UpdateAll(reset);
  for (Switch &each : switches_.Items()) reset(each.config);
}

void Host::Sanitize() {
  const auto tidy = [](SwitchConfig &config) { config.DropDangling(); };
  store_.UpdateAll(tidy);
  for (Switch &each : switches_.Items()) {
    tidy(each.config);
    const NamedTable<Port> &ports = each.config.ports();
    each.macs.RemoveIf([&ports](const MacKey &, const MacEntry &entry) {
      return entry.kind == VS_MAC_ADDR_TYPE_LEARNED && !ports.Find(entry.port)->client;
    });
  }
}

void Host::Cleanup() noexcept { switches_ = {}; }

}  // namespace kestrel::host
