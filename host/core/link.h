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

inline constexpr LinkStatus kNoLink{ZEL_LINK_STATE_DOWN, ZEL_LINK_SPEED_AUTO, ZEL_LINK_DUPLEX_AUTO};

}  // namespace kestrel::host
