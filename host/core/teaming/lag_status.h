/* What a link aggregation group is at the moment. */
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

struct LagStatus {
  /** Up while at least one member is in service. */
  zel_LinkState state = ZEL_LINK_STATE_DOWN;
  /** Bit i is set while the member of `nics[i]` is in service. */
  std::uint64_t up_members = 0;
  /** The members that have a NIC, in the order of the group. The texts live as long as the switch stays as it is. */
  std::vector<std::string_view> nics;
};

/** The status of a group of `owner`. */
KESTREL_HOST_EXPORT LagStatus StatusOfLag(const Host &host, const Switch &owner, const Lag &lag);

}  // namespace kestrel::host
