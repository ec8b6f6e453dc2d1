#include "host/core/sample_host.h"

#include <chrono>
#include <string>

#include "host/core/record_bytes.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

constexpr LinkStatus Up(std::uint32_t speed) { return {ZEL_LINK_STATE_UP, speed, ZEL_LINK_DUPLEX_FULL}; }

VlanPolicy Access(VlanId vlan) { return {.vlan = vlan, .ranges = {}}; }

VlanPolicy Trunk(std::vector<VlanRange> ranges) { return {.mode = VlanMode::kTrunk, .ranges = std::move(ranges)}; }

VlanPolicy PrivateVlan(VlanId secondary) { return {.mode = VlanMode::kPrivate, .vlan = secondary, .ranges = {}}; }

/** A locally administered address. */
constexpr MacAddress Address(std::uint8_t room, std::uint8_t number) { return {0x02, 0x4b, 0, 0, room, number}; }

/** Fits out one switch of the host. */
class Fitter {
 public:
  Fitter(Host &host, SwitchSpec spec) : host_(host), switch_(spec.alias) { host_.AddSwitch(std::move(spec)); }

  PortId Uplink(const std::string &name, const std::string &port, const std::string &nic, LinkStatus link) {
    host_.AddNic(nic, link);
    const PortId id = host_.AddUplink(switch_, name, port);
    host_.Connect(switch_, port, Client{VS_PORT_CLIENT_UPLINK, nic});
    return id;
  }
  PortId Machine(const std::string &port, const std::string &adapter) {
    return ClientPort(port, Client{VS_PORT_CLIENT_VNIC, adapter});
  }
  /** A service of the host has an address of its own from the start. */
  PortId Service(const std::string &port, const std::string &name, VlanId vlan, const MacAddress &address) {
    const PortId id = ClientPort(port, Client{VS_PORT_CLIENT_TCPIP, name});
    if (vlan != 0) Vlan(port, Access(vlan));
    host_.EnterAddress(switch_, id, {vlan, address}, VS_MAC_ADDR_TYPE_STATIC);
    return id;
  }
  void FreePort(const std::string &port) { host_.AddPort(switch_, port); }
  void Group(std::uint32_t id, const std::string &name, std::vector<std::string> members) {
    host_.AddLag(switch_, Lag{id, name, std::move(members)});
  }
  void Mtu(std::uint32_t mtu) { host_.SetProperty({.switch_name = switch_}, VSPROP_MTU, {BytesOf(mtu)}); }
  void Vlan(const std::string &port, const VlanPolicy &policy) {
    host_.SetPortVlan(switch_, port, policy, Persistence::kSaved);
  }
  void Hear(PortId port, VlanId vlan, const MacAddress &address) { host_.SeeSource(switch_, port, {vlan, address}); }
  void Pin(PortId port, VlanId vlan, const MacAddress &address) {
    host_.EnterAddress(switch_, port, {vlan, address}, VS_MAC_ADDR_TYPE_USER);
  }

 private:
  PortId ClientPort(const std::string &port, Client client) {
    const PortId id = host_.AddPort(switch_, port);
    host_.Connect(switch_, port, std::move(client));
    return id;
  }

  Host &host_;
  std::string switch_;
};

void FitOutProduction(Host &host) {
  Fitter prod(
      host,
      {.id = "7b0c6d2e-4a51-4f0e-9d3b-1c2a5e8f9a01", .portset = "DvsPortset-0", .alias = "dvs-prod", .max_ports = 512});
  const PortId alone = prod.Uplink("uplink1", "0", "vmnic0", Up(ZEL_LINK_SPEED_25000_MBPS));
  const PortId first = prod.Uplink("uplink2", "1", "vmnic1", Up(ZEL_LINK_SPEED_25000_MBPS));
  prod.Uplink("uplink3", "2", "vmnic2", kNoLink);
  const PortId third = prod.Uplink("uplink4", "3", "vmnic3", Up(ZEL_LINK_SPEED_25000_MBPS));
  prod.Group(1, "lag1", {"uplink2", "uplink3", "uplink4"});

  const PortId web1 = prod.Machine("10", "web-1.eth0");
  const PortId web2 = prod.Machine("11", "web-2.eth0");
  const PortId database = prod.Machine("12", "database.eth0");
  const PortId router = prod.Machine("13", "router.eth0");
  const PortId tenant1 = prod.Machine("14", "tenant-1.eth0");
  const PortId tenant2 = prod.Machine("15", "tenant-2.eth0");
  prod.Service("16", "management", 0, Address(1, 16));
  prod.Service("17", "migration", 30, Address(1, 17));
  prod.FreePort("18");
  prod.Vlan("10", Access(100));
  prod.Vlan("11", Access(100));
  prod.Vlan("12", Access(200));
  prod.Vlan("13", Trunk({{100, 199}, {200, 200}, {300, 310}}));
  prod.Vlan("14", PrivateVlan(1101));
  prod.Vlan("15", PrivateVlan(1101));
  prod.Vlan("18", Access(100));

  prod.Pin(database, 200, Address(1, 12));
  prod.Hear(alone, 0, Address(9, 1));
  prod.Hear(first, 100, Address(9, 2));
  prod.Hear(web1, 100, Address(1, 10));
  host.AdvanceClock(minutes(4));
  prod.Hear(web2, 100, Address(1, 11));
  prod.Hear(router, 100, Address(1, 13));
  prod.Hear(router, 300, Address(1, 13));
  prod.Hear(tenant1, 1101, Address(1, 14));
  prod.Hear(tenant2, 1101, Address(1, 15));
  host.AdvanceClock(seconds(90));
  // The far switch moved this station to another link of the group.
  prod.Hear(third, 100, Address(9, 2));
  prod.Hear(web1, 100, Address(1, 10));
}

void FitOutStorage(Host &host) {
  Fitter storage(host, {.id = "c41f8a37-0b92-4d6c-8e15-6f7d20b4e302",
                        .portset = "DvsPortset-1",
                        .alias = "dvs-storage",
                        .max_ports = 128});
  storage.Mtu(kMaxMtu);
  const PortId left = storage.Uplink("uplink1", "0", "vmnic4", Up(ZEL_LINK_SPEED_100000_MBPS));
  const PortId right = storage.Uplink("uplink2", "1", "vmnic5", Up(ZEL_LINK_SPEED_100000_MBPS));

  storage.Service("20", "storage-a", 40, Address(2, 20));
  storage.Service("21", "storage-b", 41, Address(2, 21));
  const PortId backup = storage.Machine("22", "backup.eth0");
  storage.Vlan("22", Access(40));

  storage.Hear(left, 40, Address(9, 40));
  storage.Hear(right, 41, Address(9, 41));
  host.AdvanceClock(seconds(20));
  storage.Hear(backup, 40, Address(2, 22));
}

}  // namespace

std::unique_ptr<Host> MakeSampleHost() {
  auto host = std::make_unique<Host>();
  FitOutProduction(*host);
  FitOutStorage(*host);
  return host;
}

}  // namespace kestrel::host
