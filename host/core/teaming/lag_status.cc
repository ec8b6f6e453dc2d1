#include "host/core/teaming/lag_status.h"

#include "host/core/teaming/lacp.h"

namespace kestrel::host {

LagStatus StatusOfLag(const Host &host, const Switch &owner, const Lag &lag) {
  LagStatus status;
  for (const LacpMember &member : LacpMembersOf(host, owner, lag)) {
    if (member.in_service) {
      status.state = ZEL_LINK_STATE_UP;
      status.up_members |= std::uint64_t{1} << status.nics.size();
    }
    status.nics.push_back(*owner.config.NicOf(member.uplink));
  }
  return status;
}

}  // namespace kestrel::host
