/* The addresses behind the ports. */
#include "host/core/errors.h"
#include "host/core/host.h"
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
  return target.macs.Learn(source, port, clock_.Now());
}

void Host::EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind) {
  Switch &target = Get(owner);
  CheckPlace(target.config, port, address);
  target.macs.Enter(address, kind, port, clock_.Now());
}

}  // namespace kestrel::host
