/* The link of a NIC. */
#pragma once

#include <cstdint>

#include "kestrel/constants.h"

namespace kestrel::host {

struct LinkStatus {
  zel_LinkState state;
  /** In Mbit/s, ZEL_LINK_SPEED_*. */
  std::uint32_t speed;
  zel_LinkDuplex duplex;

  bool operator==(const LinkStatus &) const = default;
};

}  // namespace kestrel::host
