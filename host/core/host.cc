#include "host/core/host.h"

#include <utility>

#include "host/core/errors.h"
#include "host/core/mac_limits.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::AdvanceClock(Duration by) {
  clock_.Advance(by);
  for (Switch &each : switches_.Items()) {
    each.macs.SetLimits(MacLimitsOf(each.config, mac_learning_));
    each.macs.Expire(clock_.Now());
  }
}

void Host::AddNic(std::string name, LinkStatus link) { nics_.Add(std::move(name), link); }

void Host::SetNicLink(std::string_view name, LinkStatus link) { nics_.SetLink(name, link); }

void Host::SetNicEnabled(std::string_view name, bool enabled) { nics_.SetEnabled(name, enabled); }

LinkStatus Host::LinkOfPluggedNic(std::string_view name) const {
  const auto link = nics_.FindLink(name);
  if (!link) throw FatalError("an uplink holds NIC " + std::string(name) + ", which the host lacks");
  return *link;
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
  for (const Switch &each : Switches()) {
    if (each.config.ports().Find(port) != nullptr) return each;
  }
  throw StatusError(ZEL_NOT_FOUND);
}

const Switch &Host::FindSwitchOfNic(std::string_view nic) const {
  for (const Switch &each : Switches()) {
    if (each.config.UplinkOfNic(nic) != nullptr) return each;
  }
  throw StatusError(ZEL_NOT_FOUND);
}

Switch &Host::Get(std::string_view name) { return const_cast<Switch &>(std::as_const(*this).FindSwitch(name)); }

void Host::SetMacLearning(const VSMACLearningGlobalProps &defaults) {
  if (defaults.agingTime == 0 || defaults.agingTime > VS_MAC_LEARNING_AGING_TIME_MAX) throw StatusError(ZEL_BAD_PARAM);
  mac_learning_ = defaults;
}

}  // namespace kestrel::host
