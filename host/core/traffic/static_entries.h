/* Addresses that a switch knows without having learned them. */
#pragma once

#include <vector>

#include "host/core/host.h"
#include "host/core/traffic/switch_plan.h"
#include "host/export.h"

namespace kestrel::host {

/** An address behind a port with the VLANs that it is known in. */
struct StaticEntry {
  MacAddress address;
  /** VS_MAC_ADDR_TYPE_STATIC for the address of a client, VS_MAC_ADDR_TYPE_USER for one that was entered. */
  VSMACAddrType kind;
  PortId port;
  VlanSet vlans;
};

/** Those of a switch, port by port and in the order of their addresses. */
KESTREL_HOST_EXPORT std::vector<StaticEntry> StaticEntriesOf(const Host &host, const Switch &owner);

/** The addresses of the clients as entries of the MAC table, in the order of their keys: each once, under the lowest
    VLAN that its port is in. What the table itself has of an address takes its place. */
KESTREL_HOST_EXPORT std::vector<MacItem> StationsOf(const Host &host, const Switch &owner);

}  // namespace kestrel::host
