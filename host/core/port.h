/* A port as it is configured. */
#pragma once

#include <optional>
#include <string>

#include "host/core/base/errors.h"
#include "host/core/client.h"
#include "host/core/port_id.h"
#include "host/core/properties/property.h"

namespace kestrel::host {

struct Port {
  PortId id;
  /** The distributed-port id. */
  std::string name;
  /** The name that another controller has for the port; empty when the port is not another's. */
  std::string external_id{};
  std::optional<Client> client{};
  PropertySet properties{};

  /** Of a port that is known to have one. Throws FatalError for another. */
  const Client &plugged() const {
    if (!client) throw FatalError("nothing is plugged into port " + name);
    return *client;
  }

  bool operator==(const Port &) const = default;
};

}  // namespace kestrel::host
