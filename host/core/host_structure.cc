/* Changes of what a switch consists of. */
#include <utility>

#include "host/core/errors.h"
#include "host/core/host.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

/** Makes a change, `make(config)`, to the configuration in use and to the saved one, or to neither: `undo(config)`
    takes it back and must not throw. */
template <typename Make, typename Undo>
void MakeInBoth(SwitchConfig &in_use, Store &store, Make make, Undo undo) {
  make(in_use);
  try {
    store.Update(in_use.spec().id, make);
  } catch (...) {
    undo(in_use);
    throw;
  }
}

}  // namespace

PortId Host::AddPort(std::string_view owner, std::string port) {
  const Port added{.id = next_port_id_, .name = std::move(port), .client = {}, .vlan = {}};
  MakeInBoth(
      Get(owner).config, store_, [&](SwitchConfig &config) { config.AddPort(added); },
      [&](SwitchConfig &config) { config.RemovePort(added.id); });
  ++next_port_id_;
  return added.id;
}

PortId Host::AddUplink(std::string_view owner, std::string uplink, std::string port) {
  const Port added{.id = next_port_id_, .name = std::move(port), .client = {}, .vlan = {}};
  MakeInBoth(
      Get(owner).config, store_, [&](SwitchConfig &config) { config.AddUplink(uplink, added); },
      [&](SwitchConfig &config) { config.RemovePort(added.id); });
  ++next_port_id_;
  return added.id;
}

void Host::RemoveUplink(std::string_view owner, std::string_view uplink) {
  Switch &target = Get(owner);
  const PortId id = target.config.UplinkNamed(uplink).id;
  store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.RemovePort(id); });
  target.config.RemovePort(id);
  target.macs.RemoveIf([id](const MacKey &, const MacEntry &entry) { return entry.port == id; });
}

void Host::AddLag(std::string_view owner, Lag lag) {
  MakeInBoth(
      Get(owner).config, store_, [&](SwitchConfig &config) { config.AddLag(lag); },
      [&](SwitchConfig &config) { config.RemoveLag(lag.id); });
}

void Host::Connect(std::string_view owner, std::string_view port, Client client) {
  SwitchConfig &in_use = Get(owner).config;
  const PortId id = in_use.PortNamed(port).id;
  if (client.type == VS_PORT_CLIENT_UPLINK) {
    if (nics_.FindLink(client.name) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    for (const SavedSwitch &saved : store_.Switches()) {
      if (saved.config.UplinkOfNic(client.name) != nullptr) throw StatusError(ZEL_IS_CONNECTED);
    }
  }
  MakeInBoth(
      in_use, store_, [&](SwitchConfig &config) { config.Connect(id, client); },
      [&](SwitchConfig &config) { config.Disconnect(id); });
}

void Host::Disconnect(std::string_view owner, std::string_view port) {
  SwitchConfig &in_use = Get(owner).config;
  const Port &target = in_use.PortNamed(port);
  if (!target.client) throw StatusError(ZEL_IS_DISCONNECTED);
  const PortId id = target.id;
  store_.Update(in_use.spec().id, [id](SwitchConfig &saved) { saved.Disconnect(id); });
  in_use.Disconnect(id);
}

}  // namespace kestrel::host
