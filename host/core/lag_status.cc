#include "host/core/lag_status.h"

namespace kestrel::host {

LagStatus StatusOfLag(const Host &host, const Switch &owner, const Lag &lag) {
  LagStatus status;
  for (const std::string &member : lag.members) {
    const Uplink *uplink = owner.config.uplinks().FindNamed(member);
    const std::string *nic = uplink == nullptr ? nullptr : owner.config.NicOf(uplink->id);
    if (nic == nullptr) continue;
    if (host.LinkOfPluggedNic(*nic).state == ZEL_LINK_STATE_UP) {
      status.state = ZEL_LINK_STATE_UP;
      status.up_members |= std::uint64_t{1} << status.nics.size();
    }
    status.nics.push_back(*nic);
  }
  return status;
}

}  // namespace kestrel::host
