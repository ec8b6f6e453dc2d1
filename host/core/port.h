/* A port as it is configured. */
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/core/vlan.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** Unique among the ports of a host and never used twice; ZEL_VSWITCH_INVALID_PORT_ID is none. */
using PortId = std::uint32_t;

/** Who is plugged into a port. */
struct Client {
  /** VS_PORT_CLIENT_VNIC for a virtual machine, _TCPIP for a service of the host, _UPLINK for a NIC. */
  VS_PortClientType type;
  /** The NIC's name for an uplink. */
  std::string name;

  bool operator==(const Client &) const = default;
};

struct Port {
  PortId id;
  /** The distributed-port id. */
  std::string name;
  std::optional<Client> client;
  std::optional<VlanPolicy> vlan;

  bool operator==(const Port &) const = default;
};

}  // namespace kestrel::host
