/* A port as it is configured. */
#pragma once

#include <optional>
#include <string>

#include "host/core/port_id.h"
#include "host/core/property.h"
#include "kestrel/constants.h"

namespace kestrel::host {

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
  /** The name that another controller has for the port; empty when the port is not another's. */
  std::string external_id{};
  std::optional<Client> client{};
  PropertySet properties{};

  bool operator==(const Port &) const = default;
};

}  // namespace kestrel::host
