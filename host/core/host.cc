#include "host/core/host.h"

#include <utility>

#include "host/core/base/errors.h"
#include "host/core/mac_limits.h"
#include "host/core/multicast/multicast.h"
#include "host/core/teaming/team_timers.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::AdvanceClock(Duration by) {
  VirtualClock ahead = clock_;
  ahead.Advance(by);
  RunTimers(ahead.Now());
  clock_ = ahead;
  for (Switch &each : switches_.Items()) {
    each.runtime.macs.SetLimits(MacLimitsOf(each.config, mac_learning_));
    each.runtime.macs.Expire(clock_.Now());
    RunMulticastTimers(*this, each);
  }
}

void Host::RunTimers(TimePoint end) noexcept {
  try {
    TeamTimers timers;
    for (;;) {
      std::optional<TimePoint> next;
      for (const Switch &each : Switches()) {
        const auto due = timers.Next(*this, each);
        if (due && (!next || *due < *next)) next = due;
      }
      if (!next || *next > end) return;
      clock_.Advance(*next - clock_.Now());
      for (const Switch &each : Switches()) {
        const auto due = timers.Next(*this, each);
        if (due && *due <= clock_.Now()) timers.Run(*this, Get(each.config.spec().portset), end);
      }
    }
  } catch (const std::exception &) {
    // What is overdue is done at the next advance.
  }
}

const Switch &Host::FindSwitch(std::string_view name) const {
  const Switch *found = switches_.Find(name);
  if (found == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *found;
}

const Switch &Host::FindSwitchById(std::string_view id) const {
  const Switch *found = switches_.FindById(id);
  if (found == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *found;
}

const Switch &Host::FindSwitchByAlias(std::string_view alias) const {
  const Switch &found = FindSwitch(alias);
  if (found.config.spec().alias != alias) throw StatusError(ZEL_NOT_FOUND);
  return found;
}

const Switch &Host::FindSwitchOfPort(PortId port) const {
  return FindOwner(owners_of_ports_, port,
                   [port](const Switch &each) { return each.config.ports().Find(port) != nullptr; });
}

const Switch &Host::FindSwitchOfNic(std::string_view nic) const {
  return FindOwner(owners_of_nics_, nic, [nic](const Switch &each) { return each.config.UplinkOfNic(nic) != nullptr; });
}

template <typename Owners, typename Key, typename Owns>
const Switch &Host::FindOwner(Owners &owners, const Key &key, Owns owns) const {
  const auto known = owners.find(key);
  if (known != owners.end()) {
    const Switch *owner = switches_.FindById(known->second);
    if (owner != nullptr && owns(*owner)) return *owner;
    owners.erase(known);
  }
  for (const Switch &each : Switches()) {
    if (!owns(each)) continue;
    owners.emplace(key, each.config.spec().id);
    return each;
  }
  throw StatusError(ZEL_NOT_FOUND);
}

Switch &Host::Get(std::string_view name) {
  Switch *found = switches_.Find(name);
  if (found == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *found;
}

void Host::SetMacLearning(const VSMACLearningGlobalProps &defaults) {
  if (defaults.agingTime == 0 || defaults.agingTime > VS_MAC_LEARNING_AGING_TIME_MAX) throw StatusError(ZEL_BAD_PARAM);
  mac_learning_ = defaults;
  revision_.Renew();
}

}  // namespace kestrel::host
