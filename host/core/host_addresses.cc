/* The addresses behind the ports. */
#include "host/core/errors.h"
#include "host/core/host.h"
#include "host/core/mac_limits.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

void CheckPlace(const SwitchConfig &config, PortId port, const MacKey &key) {
  if (config.ports().Find(port) == nullptr) throw StatusError(ZEL_NOT_FOUND);
  if (!config.spec().vlans.Contains(key.vlan)) throw StatusError(ZEL_BAD_VLANID);
  if (!IsStation(key.address)) throw StatusError(ZEL_BAD_PARAM);
}

}  // namespace

Learning Host::SeeSource(std::string_view owner, PortId port, const MacKey &source) {
  Switch &target = Get(owner);
  CheckPlace(target.config, port, source);
  target.macs.SetLimits(MacLimitsOf(target.config, mac_learning_));
  const Learning outcome = target.macs.Learn(source, port, clock_.Now());
  if (outcome == Learning::kFull) ++target.unlearned[port];
  return outcome;
}

void Host::EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind) {
  Switch &target = Get(owner);
  CheckPlace(target.config, port, address);
  target.macs.Enter(address, kind, port, clock_.Now());
}

void Host::RemoveAddress(std::string_view owner, PortId port, const MacKey &address) {
  MacTable &macs = Get(owner).macs;
  const auto found = macs.entries().find(address);
  if (found == macs.entries().end() || found->second.port != port) throw StatusError(ZEL_NOT_FOUND);
  if (found->second.kind == VS_MAC_ADDR_TYPE_STATIC) throw StatusError(ZEL_READ_ONLY);
  macs.Remove(address);
}

}  // namespace kestrel::host
