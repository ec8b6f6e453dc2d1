/* Changes of what a switch consists of. */
#include <algorithm>
#include <map>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/both.h"
#include "host/core/frames/mac_address.h"
#include "host/core/host.h"
#include "host/core/teaming/team_watch.h"
#include "kestrel/constants.h"

namespace kestrel::host {
PortId Host::AddPort(std::string_view owner, std::string port, std::string external_id, PropertySet properties) {
  const Port added{.id = next_port_id_,
                   .name = std::move(port),
                   .external_id = std::move(external_id),
                   .properties = std::move(properties)};
  MakeInBoth(
      Get(owner).config, store_, [&](SwitchConfig &config) { config.AddPort(added); },
      [&](SwitchConfig &config) { config.RemovePort(added.id); });
  ++next_port_id_;
  return added.id;
}

PortId Host::AddUplink(std::string_view owner, std::string uplink, std::string port) {
  const Port added{.id = next_port_id_, .name = std::move(port)};
  Switch &target = Get(owner);
  TeamWatch watch(*this, target, TeamChange::kAll);
  MakeInBoth(
      target.config, store_, [&](SwitchConfig &config) { config.AddUplink(uplink, added); },
      [&](SwitchConfig &config) { config.RemovePort(added.id); });
  ++next_port_id_;
  watch.Settle();
  return added.id;
}

void Host::RemovePort(std::string_view owner, std::string_view port) {
  Switch &target = Get(owner);
  const Port &removed = target.config.PortNamed(port);
  if (removed.client || target.config.uplinks().Find(removed.id) != nullptr) throw StatusError(ZEL_BUSY);
  const PortId id = removed.id;
  store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.RemovePort(id); });
  target.config.RemovePort(id);
  ForgetPort(target, id);
}

void Host::RemoveUplink(std::string_view owner, std::string_view uplink) {
  Switch &target = Get(owner);
  const PortId id = target.config.UplinkNamed(uplink).id;
  TeamWatch watch(*this, target, TeamChange::kAll);
  store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.RemovePort(id); });
  target.config.RemovePort(id);
  ForgetPort(target, id);
  watch.Settle();
}

void Host::ReplaceUplinks(std::string_view owner, const std::vector<UplinkSpec> &uplinks) {
  Switch &target = Get(owner);
  const SwitchConfig &former = target.config;
  const auto is_wanted = [&](const Uplink &uplink) {
    const std::string &port = former.ports().Find(uplink.id)->name;
    return std::ranges::any_of(
        uplinks, [&](const UplinkSpec &wanted) { return wanted.name == uplink.name && wanted.port == port; });
  };
  std::vector<PortId> gone;
  for (const Uplink &uplink : former.uplinks().Items()) {
    if (is_wanted(uplink)) continue;
    if (former.NicOf(uplink.id) != nullptr) throw StatusError(ZEL_BUSY);
    gone.push_back(uplink.id);
  }

  // On copies, since the steps cannot be taken back.
  const auto replaced = [&](const SwitchConfig &config) {
    SwitchConfig changed = config;
    for (const PortId id : gone) changed.RemovePort(id);
    PortId next = next_port_id_;
    std::size_t kept = 0;
    for (const UplinkSpec &wanted : uplinks) {
      const Uplink *there = config.uplinks().FindNamed(wanted.name);
      if (there != nullptr && is_wanted(*there) && config.ports().Find(there->id)->name == wanted.port) {
        ++kept;
      } else {
        changed.AddUplink(wanted.name, Port{.id = next++, .name = wanted.port});
      }
    }
    // A name that is there once and wanted twice.
    if (kept + gone.size() != config.uplinks().size()) throw StatusError(ZEL_EXISTS);
    return changed;
  };
  SwitchConfig changed = replaced(former);
  TeamWatch watch(*this, target, TeamChange::kAll);
  store_.Update(former.spec().id, [&](SwitchConfig &saved) { saved = replaced(saved); });
  target.config = std::move(changed);
  next_port_id_ += static_cast<PortId>(uplinks.size());
  for (const PortId id : gone) ForgetPort(target, id);
  watch.Settle();
}

void Host::ForgetPort(Switch &owner, PortId port) noexcept {
  owner.runtime.macs.RemoveBehind(port);
  owner.runtime.ports.Remove(port);
  owner.runtime.multicast.ForgetPort(port);
  owner.runtime.team.ForgetPort(port);
  captures_.Forget(port);
  datapath_.ForgetPort(port);
}

void Host::AddLag(std::string_view owner, Lag lag) {
  Switch &target = Get(owner);
  TeamWatch watch(*this, target, TeamChange::kAll);
  MakeInBoth(
      target.config, store_, [&](SwitchConfig &config) { config.AddLag(lag); },
      [&](SwitchConfig &config) { config.RemoveLag(lag.id); });
  watch.Settle();
}

void Host::RemoveLag(std::string_view owner, std::string_view lag) {
  Switch &target = Get(owner);
  const Lag *removed = std::as_const(target.config).lags().FindNamed(lag);
  if (removed == nullptr) throw StatusError(ZEL_NOT_FOUND);
  const std::uint32_t id = removed->id;
  TeamWatch watch(*this, target, TeamChange::kAll);
  store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.RemoveLag(id); });
  target.config.RemoveLag(id);
  watch.Settle();
}

void Host::Connect(std::string_view owner, std::string_view port, Client client) {
  Switch &target = Get(owner);
  const PortId id = target.config.PortNamed(port).id;
  const Nic *nic = client.type == VS_PORT_CLIENT_UPLINK ? &nics_.Get(client.name) : nullptr;
  if (client.address == MacAddress{}) client.address = nic == nullptr ? AddressOfClient(id) : nic->address;
  PortRuntime &runtime = target.runtime.ports.At(id);
  const auto connect = [&] {
    MakeInBoth(
        target.config, store_, [&](SwitchConfig &config) { config.Connect(id, client); },
        [&](SwitchConfig &config) { config.Disconnect(id); });
    runtime = {.connected_at = clock_.Now()};
  };
  if (nic == nullptr) {
    connect();
    return;
  }
  for (const SavedSwitch &saved : std::as_const(store_).Switches()) {
    if (saved.config.UplinkOfNic(client.name) != nullptr) throw StatusError(ZEL_IS_CONNECTED);
  }
  TeamWatch watch(*this, target, TeamChange::kAll);
  std::map<PortId, std::uint32_t> node{{id, nic->numa_node}};
  connect();
  target.runtime.team.ChangeChoices().uplink_nodes.merge(node);
  watch.Settle();
}

void Host::Disconnect(std::string_view owner, std::string_view port) {
  Switch &target = Get(owner);
  const Port &left = target.config.PortNamed(port);
  if (!left.client) throw StatusError(ZEL_IS_DISCONNECTED);
  const PortId id = left.id;
  const auto disconnect = [&] {
    store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.Disconnect(id); });
    target.config.Disconnect(id);
    target.runtime.multicast.ForgetPort(id);
  };
  if (left.client->type != VS_PORT_CLIENT_UPLINK) {
    disconnect();
    return;
  }
  TeamWatch watch(*this, target, TeamChange::kAll);
  disconnect();
  target.runtime.team.ForgetPort(id);
  watch.Settle();
}

void Host::SetAdapter(std::string_view owner, std::string_view port, const Adapter &adapter) {
  SwitchConfig &in_use = Get(owner).config;
  const Port &target = in_use.PortNamed(port);
  const PortId id = target.id;
  Adapter former = target.client ? target.client->adapter : Adapter{};
  MakeInBoth(
      in_use, store_, [&](SwitchConfig &config) { config.SetAdapter(id, adapter); },
      [&](SwitchConfig &config) { config.SetAdapter(id, std::move(former)); });
}

}  // namespace kestrel::host
