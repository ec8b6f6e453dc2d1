/* The addresses behind the ports. */
#include "host/core/base/errors.h"
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

MacKey Host::InTable(const Switch &owner, const MacKey &key) const {
  return {PlanOf(*this, owner).TableVlanOf(key.vlan), key.address};
}

Learning Host::SeeSource(std::string_view owner, PortId port, const MacKey &source) {
  Switch &target = Get(owner);
  CheckPlace(target.config, port, source);
  target.runtime.macs.SetLimits(MacLimitsOf(target.config, mac_learning_));
  const Learning outcome = target.runtime.macs.Learn(InTable(target, source), port, clock_.Now());
  if (outcome == Learning::kFull) ++target.runtime.ports.At(port).unlearned;
  if (outcome == Learning::kMoved) ++target.runtime.ports.At(port).moved_here;
  return outcome;
}

void Host::EnterAddress(std::string_view owner, PortId port, const MacKey &address, VSMACAddrType kind) {
  Switch &target = Get(owner);
  CheckPlace(target.config, port, address);
  target.runtime.macs.Enter(InTable(target, address), kind, port, clock_.Now());
}

std::size_t Host::FlushAddresses(std::string_view owner) {
  MacTable &macs = Get(owner).runtime.macs;
  std::size_t dropped = 0;
  macs.RemoveIf([&dropped](const MacKey &, const MacEntry &entry) {
    const bool is_learned = entry.kind == VS_MAC_ADDR_TYPE_LEARNED;
    dropped += is_learned ? 1 : 0;
    return is_learned;
  });
  return dropped;
}

void Host::RemoveAddress(std::string_view owner, PortId port, const MacKey &address) {
  Switch &target = Get(owner);
  MacTable &macs = target.runtime.macs;
  const MacKey key = InTable(target, address);
  const MacEntry *found = macs.Find(key);
  if (found == nullptr || found->port != port) {
    const PortPlan *station = PlanOf(*this, target).FindStation(address.vlan, address.address);
    if (station != nullptr && station->id == port) throw StatusError(ZEL_READ_ONLY);
    throw StatusError(ZEL_NOT_FOUND);
  }
  if (found->kind == VS_MAC_ADDR_TYPE_STATIC) throw StatusError(ZEL_READ_ONLY);
  macs.Remove(key);
}

}  // namespace kestrel::host
