/* Making, removing and changing whole switches. */
#include <string>
#include <utility>

#include "host/core/both.h"
#include "host/core/errors.h"
#include "host/core/host.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::AddSwitch(const SwitchConfig &config) {
  const Switch &added = switches_.Add(Switch{config});
  try {
    store_.AddSwitch(added.config);
  } catch (...) {
    switches_.Remove(added);
    throw;
  }
}

std::string Host::FreePortsetName() const {
  for (unsigned number = 0;; ++number) {
    std::string name = "DvsPortset-" + std::to_string(number);
    if (switches_.Find(name) == nullptr && !store_.HasName(name)) return name;
  }
}

void Host::RemoveSwitch(std::string_view owner) {
  const Switch &target = Get(owner);
  if (target.config.CountActivePorts() != 0) throw StatusError(ZEL_BUSY);
  store_.RemoveSwitch(target.config.spec().id);
  handles_.ForgetSwitch(target.config.spec().id);
  switches_.Remove(target);
}

void Host::SetVersion(std::string_view owner, std::uint32_t version) {
  SwitchConfig &in_use = Get(owner).config;
  const std::uint32_t former = in_use.spec().version;
  MakeInBoth(
      in_use, store_, [version](SwitchConfig &config) { config.SetVersion(version); },
      [former](SwitchConfig &config) { config.SetVersion(former); });
}

void Host::SetMaxPorts(std::string_view owner, std::uint32_t max_ports) {
  SwitchConfig &in_use = Get(owner).config;
  const std::uint32_t former = in_use.spec().max_ports;
  MakeInBoth(
      in_use, store_, [max_ports](SwitchConfig &config) { config.SetMaxPorts(max_ports); },
      [former](SwitchConfig &config) { config.SetMaxPorts(former); });
}

}  // namespace kestrel::host
