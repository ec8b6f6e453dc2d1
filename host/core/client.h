/* Who is plugged into a port. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/frames/mac_address.h"
#include "host/export.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** What a client has asked of its adapter. */
struct Adapter {
  /** The address that the client uses in place of its own; zeros for its own. */
  MacAddress address{};
  /** A mask of ZEL_ETH_FILTER_*: what the client wants to receive. */
  std::uint32_t filter = ZEL_ETH_FILTER_UNICAST | ZEL_ETH_FILTER_MULTICAST | ZEL_ETH_FILTER_BROADCAST;
  /** The multicast addresses that it wants to receive, at most VS_ETH_MAX_EXACT_MULTICAST_ADDRS. */
  std::vector<MacAddress> groups{};

  bool operator==(const Adapter &) const = default;
};

struct KESTREL_HOST_EXPORT Client {
  /** VS_PORT_CLIENT_VNIC for a virtual machine, _TCPIP for a service of the host, _UPLINK for a NIC. */
  VS_PortClientType type;
  /** The NIC's name for an uplink. */
  std::string name;
  /** The address of its hardware; a host gives one to a client that comes with zeros. */
  MacAddress address{};
  Adapter adapter{};

  /** The address that its frames come from. */
  const MacAddress &used_address() const { return adapter.address == MacAddress{} ? address : adapter.address; }

  /** The client as bytes, and back. Load throws StatusError ZEL_INVALID_METADATA for bytes that are none. */
  std::string Save() const;
  static Client Load(std::string_view bytes);

  bool operator==(const Client &) const = default;
};

/** Throws StatusError ZEL_BAD_PARAM for an address that no station has, for unknown filter flags and for groups that
    are none, ZEL_LIMIT_EXCEEDED for more than VS_ETH_MAX_EXACT_MULTICAST_ADDRS of them. */
void CheckAdapter(const Adapter &adapter);

}  // namespace kestrel::host
