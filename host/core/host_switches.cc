/* Making, removing and changing whole switches. */
#include <string>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/both.h"
#include "host/core/host.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::AddSwitch(const SwitchConfig &config) {
  const Switch &added = switches_.Add(Switch{.config = config, .number = next_switch_number_});
  try {
    store_.AddSwitch(added.config, added.number);
  } catch (...) {
    switches_.Remove(added);
    throw;
  }
  ++next_switch_number_;
}

std::uint64_t Host::NumberOfSwitch(std::string_view id) const {
  if (const Switch *running = switches_.FindById(id)) return running->number;
  const SavedSwitch *saved = store_.FindById(id);
  return saved == nullptr ? 0 : saved->number;
}

std::string Host::FreePortsetName() const {
  for (unsigned number = 0;; ++number) {
    std::string name = "DvsPortset-" + std::to_string(number);
    if (switches_.Find(name) == nullptr && !store_.HasName(name)) return name;
  }
}

void Host::RemoveSwitch(std::string_view owner) {
  const Switch &target = Get(owner);
  if (!target.config.active_ports().empty()) throw StatusError(ZEL_BUSY);
  store_.RemoveSwitch(target.config.spec().id);
  for (const Port &port : target.config.ports().Items()) {
    captures_.Forget(port.id);
    datapath_.ForgetPort(port.id);
  }
  datapath_.ForgetPortset(target.config.spec().portset);
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

void Host::Associate(std::string_view owner) {
  SwitchConfig &in_use = Get(owner).config;
  if (in_use.spec().is_member) throw StatusError(ZEL_IS_CONNECTED);
  MakeInBoth(
      in_use, store_, [](SwitchConfig &config) { config.SetMember(true); },
      [](SwitchConfig &config) { config.SetMember(false); });
}

void Host::Dissociate(std::string_view owner) {
  SwitchConfig &in_use = Get(owner).config;
  if (!in_use.spec().is_member) throw StatusError(ZEL_IS_DISCONNECTED);
  MakeInBoth(
      in_use, store_, [](SwitchConfig &config) { config.SetMember(false); },
      [](SwitchConfig &config) { config.SetMember(true); });
}

}  // namespace kestrel::host
