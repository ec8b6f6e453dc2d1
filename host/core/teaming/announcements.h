/* Telling the network that addresses have moved to another uplink, by RARP frames that come from them. */
#pragma once

#include <optional>
#include <vector>

#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

/** Where an address of a client's is. */
struct ClientAddress {
  const Port &port;
  MacAddress address;
  /** The VLAN in which the network sees it; the one under which the switch knows it. */
  VlanId vlan;
  VlanId table_vlan;
};

/** Calls `visit(address)` for each address that is behind a client: its own, and those in the table. One may come
    twice. Of the clients of a trunk only those in the table are known. */
template <typename Visit>
void VisitClientAddresses(const Switch &owner, Visit visit) {
  const SwitchConfig &config = owner.config;
  const auto own_vlan = [](const Port &port) -> std::optional<VlanId> {
    const auto policy = VlanOf(port);
    if (policy && policy->mode == VlanMode::kTrunk) return std::nullopt;
    return policy ? policy->vlan : VlanId{0};
  };
  for (const Port &port : config.ports().Items()) {
    if (!port.client || port.client->type == VS_PORT_CLIENT_UPLINK) continue;
    const auto vlan = own_vlan(port);
    if (vlan) visit(ClientAddress{port, port.client->used_address(), *vlan, *vlan});
  }
  for (const MacItem &item : owner.runtime.macs.entries()) {
    const Port *port = config.ports().Find(item.entry.port);
    if (port == nullptr || !port->client || port->client->type == VS_PORT_CLIENT_UPLINK) continue;
    visit(ClientAddress{*port, item.key.address, own_vlan(*port).value_or(item.key.vlan), item.key.vlan});
  }
}

/** An address has moved: it is announced from now on, anew if it was before. */
void Announce(const Host &host, Switch &owner, const ClientAddress &address);

/** Sends what is due, as far as the runtime options allow. */
void SendAnnouncements(Host &host, Switch &owner);

/** When SendAnnouncements has something to do next; nothing when it has not. */
std::optional<TimePoint> NextAnnouncement(const Switch &owner);

/** The frame that announces an address, without a tag. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> BytesOfAnnouncement(const MacAddress &address);

}  // namespace kestrel::host
