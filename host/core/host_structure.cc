/* Changes of what a switch consists of. */
#include <algorithm>
#include <utility>

#include "host/core/both.h"
#include "host/core/errors.h"
#include "host/core/host.h"
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
  MakeInBoth(
      Get(owner).config, store_, [&](SwitchConfig &config) { config.AddUplink(uplink, added); },
      [&](SwitchConfig &config) { config.RemovePort(added.id); });
  ++next_port_id_;
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
  store_.Update(target.config.spec().id, [id](SwitchConfig &saved) { saved.RemovePort(id); });
  target.config.RemovePort(id);
  ForgetPort(target, id);
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
  store_.Update(former.spec().id, [&](SwitchConfig &saved) { saved = replaced(saved); });
  target.config = std::move(changed);
  next_port_id_ += static_cast<PortId>(uplinks.size());
  for (const PortId id : gone) ForgetPort(target, id);
}

void Host::ForgetPort(Switch &owner, PortId port) noexcept {
  owner.macs.RemoveIf([port](const MacKey &, const MacEntry &entry) { return entry.port == port; });
  owner.unlearned.erase(port);
  handles_.ForgetPort(port);
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
    if (!nics_.FindLink(client.name)) throw StatusError(ZEL_NOT_FOUND);
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
