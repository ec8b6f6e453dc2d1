/* NICs, and the NUMA nodes of NICs and clients. */
#include <optional>
#include <string>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/host.h"
#include "host/core/teaming/lacp.h"
#include "host/core/teaming/team_watch.h"

namespace kestrel::host {

void Host::AddNic(std::string name, LinkStatus link) {
  nics_.Add(std::move(name), link);
  revision_.Renew();
}

void Host::AddNic(std::string name, const Nic &nic) {
  nics_.Add(std::move(name), nic);
  revision_.Renew();
}

void Host::RemoveNic(std::string_view name) {
  nics_.Get(name);
  for (const SavedSwitch &saved : std::as_const(store_).Switches()) {
    if (const Uplink *uplink = saved.config.UplinkOfNic(name)) {
      const std::string owner = saved.config.spec().portset;
      const std::string port = saved.config.ports().Find(uplink->id)->name;
      Disconnect(owner, port);
      break;
    }
  }
  nics_.Remove(name);
  revision_.Renew();
}

void Host::SetNic(std::string_view name, const Nic &nic) {
  Switch *owner = FindOwnerOfNic(name);
  if (owner == nullptr) {
    nics_.Set(name, nic);
    revision_.Renew();
    return;
  }
  TeamWatch watch(*this, *owner, TeamChange::kLinks);
  const bool falls_silent = nics_.Get(name).partner.mode != LacpMode::kNone && nic.partner.mode == LacpMode::kNone;
  const auto heard = falls_silent ? LacpPartnerOf(*this, *owner, owner->config.UplinkOfNic(name)->id) : std::nullopt;
  nics_.Set(name, nic);
  revision_.Renew();
  if (heard) KeepLacpPartner(*this, *owner, owner->config.UplinkOfNic(name)->id, *heard);
  watch.Settle();
}

void Host::SetNicEnabled(std::string_view name, bool enabled) {
  Nic nic = nics_.Get(name);
  nic.is_enabled = enabled;
  SetNic(name, nic);
}

Switch *Host::FindOwnerOfNic(std::string_view nic) {
  for (Switch &each : switches_.Items()) {
    if (each.config.UplinkOfNic(nic) != nullptr) return &each;
  }
  return nullptr;
}

void Host::SetClientNode(std::string_view owner, std::string_view port, std::uint32_t node) {
  Switch &target = Get(owner);
  const Port &client = target.config.PortNamed(port);
  TeamWatch watch(*this, target, client);
  target.runtime.team.ChangeChoices().client_nodes[client.id] = node;
  watch.Settle();
}

void Host::RefreshNumaNodes(std::string_view owner) {
  Switch &target = Get(owner);
  TeamWatch watch(*this, target, TeamChange::kAll);
  std::map<PortId, std::uint32_t> nodes;
  for (const Uplink &uplink : target.config.uplinks().Items()) {
    const std::string *nic = target.config.NicOf(uplink.id);
    if (nic != nullptr) nodes[uplink.id] = nics_.Get(*nic).numa_node;
  }
  target.runtime.team.ChangeChoices().uplink_nodes = std::move(nodes);
  watch.Settle();
}

LinkStatus Host::LinkOfPluggedNic(std::string_view name) const {
  const auto link = nics_.FindLink(name);
  if (!link) throw FatalError("an uplink holds NIC " + std::string(name) + ", which the host lacks");
  return *link;
}

}  // namespace kestrel::host
