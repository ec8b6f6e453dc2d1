/* A way out of a switch. */
#pragma once

#include <string>

#include "host/core/port.h"

namespace kestrel::host {

/** A port that is meant for a NIC. Which NIC is plugged in, if any, is the client of the port. */
struct Uplink {
  /** The port's identifier. */
  PortId id;
  std::string name;
  /** Those of the uplink itself; its port has its own. */
  PropertySet properties{};

  bool operator==(const Uplink &) const = default;
};

}  // namespace kestrel::host
