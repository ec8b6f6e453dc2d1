/* Changes of the properties of a switch and its ports. */
#include <utility>

#include "host/core/errors.h"
#include "host/core/host.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::SetPortVlan(std::string_view owner, std::string_view port, VlanPolicy policy, Persistence persistence) {
  SwitchConfig &in_use = Get(owner).config;
  const PortId id = in_use.PortNamed(port).id;
  CheckVlanPolicy(policy, in_use.spec().vlans);
  if (persistence == Persistence::kSaved) {
    store_.Update(in_use.spec().id, [&](SwitchConfig &saved) { saved.SetVlan(id, policy); });
  }
  in_use.SetVlan(id, std::move(policy));
}

void Host::ClearPortVlan(std::string_view owner, std::string_view port) {
  SwitchConfig &in_use = Get(owner).config;
  const Port &target = in_use.PortNamed(port);
  if (!target.vlan) throw StatusError(ZEL_NOT_FOUND);
  const PortId id = target.id;
  store_.Update(in_use.spec().id, [id](SwitchConfig &saved) { saved.SetVlan(id, std::nullopt); });
  in_use.SetVlan(id, std::nullopt);
}

}  // namespace kestrel::host
