#include "host/core/host.h"

#include <utility>

#include "host/core/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::AdvanceClock(Duration by) {
  clock_.Advance(by);
  for (Switch &each : switches_.Items()) each.macs.Expire(clock_.Now());
}

void Host::AddNic(std::string name, LinkStatus link) { nics_.Add(std::move(name), link); }

void Host::SetNicLink(std::string_view name, LinkStatus link) { nics_.SetLink(name, link); }

const LinkStatus &Host::LinkOfPluggedNic(std::string_view name) const {
  const LinkStatus *link = nics_.FindLink(name);
  if (link == nullptr) throw FatalError("an uplink holds NIC " + std::string(name) + ", which the host lacks");
  return *link;
}

const Switch &Host::FindSwitch(std::string_view name) const {
  const Switch *found = switches_.Find(name);
  if (found == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *found;
}

Switch &Host::Get(std::string_view name) { return const_cast<Switch &>(std::as_const(*this).FindSwitch(name)); }

void Host::AddSwitch(SwitchSpec spec) {
  const Switch &added = switches_.Add(Switch{SwitchConfig(std::move(spec))});
  try {
    store_.AddSwitch(added.config);
  } catch (...) {
    switches_.Remove(added);
    throw;
  }
}

}  // namespace kestrel::host
