/* Loading, resetting, tidying and releasing the configuration as a whole. */
#include <algorithm>
#include <utility>
#include <vector>

#include "host/core/host.h"
#include "host/core/teaming/team_watch.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::LoadConfig() {
  SwitchSet<Switch> loaded;
  RuntimeOptions options;
  for (const SavedSwitch &saved : std::as_const(store_).Switches()) {
    loaded.Add(Switch{.config = saved.config, .number = saved.number});
  }

  // From here on nothing can fail, so that what traffic has made of the switches can be moved. The ports that it speaks
  // of are all there: what a switch consists of is always saved.
  for (Switch &fresh : loaded.Items()) {
    Switch *former = switches_.FindById(fresh.config.spec().id);
    if (former == nullptr) continue;
    fresh.runtime = std::move(former->runtime);
  }
  switches_ = std::move(loaded);
  mac_learning_ = kDefaultMacLearning;
  options_ = std::move(options);
  revision_.Renew();
}

void Host::ResetConfig() {
  const auto reset = [](SwitchConfig &config) { config.ResetProperties(); };
  std::vector<TeamWatch> watches;
  for (Switch &each : switches_.Items()) watches.emplace_back(*this, each, TeamChange::kAll);
  store_.UpdateAll(reset);
  for (Switch &each : switches_.Items()) reset(each.config);
  for (TeamWatch &watch : watches) watch.Settle();
}

void Host::Sanitize() {
  const auto tidy = [](SwitchConfig &config) { config.DropDangling(); };
  store_.UpdateAll(tidy);
  for (Switch &each : switches_.Items()) {
    tidy(each.config);
    const NamedTable<Port> &ports = each.config.ports();
    each.runtime.macs.RemoveIf([&ports](const MacKey &, const MacEntry &entry) {
      return entry.kind == VS_MAC_ADDR_TYPE_LEARNED && !ports.Find(entry.port)->client;
    });
  }
}

void Host::Cleanup() noexcept { switches_ = {}; }

void Host::Restart() {
  SwitchSet<Switch> started;
  for (const SavedSwitch &saved : std::as_const(store_).Switches()) {
    Switch &fresh = started.Add(Switch{.config = saved.config, .number = saved.number});
    const Switch *former = std::as_const(switches_).FindById(saved.config.spec().id);
    if (former == nullptr) continue;
    // The addresses of clients come back with their clients.
    fresh.runtime.macs = former->runtime.macs;
    fresh.runtime.macs.RemoveIf(
        [](const MacKey & /*key*/, const MacEntry &entry) { return entry.kind != VS_MAC_ADDR_TYPE_STATIC; });
  }
  RuntimeOptions options;
  switches_ = std::move(started);
  mac_learning_ = kDefaultMacLearning;
  options_ = std::move(options);
  datapath_.Clear();
  revision_.Renew();
}

std::unique_ptr<const Host> Host::Snapshot() const { return std::unique_ptr<const Host>(new Host(*this)); }

void Host::Restore(const Host &snapshot) {
  Host restored(snapshot);
  restored.next_switch_number_ = std::max(next_switch_number_, snapshot.next_switch_number_);
  for (SavedSwitch &saved : restored.store_.switches().Items()) {
    saved.number = restored.next_switch_number_++;
    Switch *running = restored.switches_.FindById(saved.config.spec().id);
    if (running != nullptr) running->number = saved.number;
  }
  restored.captures_ = std::move(captures_);
  *this = std::move(restored);
}

}  // namespace kestrel::host
