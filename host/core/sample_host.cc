#include "host/core/sample_host.h"

#include <chrono>
#include <string>

#include "host/core/base/record_bytes.h"
#include "kestrel/constants.h"
#include "kestrel/policy_records.h"

namespace kestrel::host {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

constexpr LinkStatus Up(std::uint32_t speed) { return {ZEL_LINK_STATE_UP, speed, ZEL_LINK_DUPLEX_FULL}; }

VlanPolicy Access(VlanId vlan) { return {.vlan = vlan, .ranges = {}}; }

VlanPolicy Trunk(std::vector<VlanRange> ranges) { return {.mode = VlanMode::kTrunk, .ranges = std::move(ranges)}; }

VlanPolicy InPrivateVlan(VlanId secondary) { return {.mode = VlanMode::kPrivate, .vlan = secondary, .ranges = {}}; }

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
  PortId Machine(const std::string &port, const std::string &adapter, const MacAddress &address) {
    return ClientPort(port, Client{VS_PORT_CLIENT_VNIC, adapter, address});
  }
  PortId Service(const std::string &port, const std::string &name, VlanId vlan, const MacAddress &address) {
    const PortId id = ClientPort(port, Client{VS_PORT_CLIENT_TCPIP, name, address});
    if (vlan != 0) Vlan(port, Access(vlan));
    return id;
  }
  void FreePort(const std::string &port) { host_.AddPort(switch_, port); }
  void Group(std::uint32_t id, const std::string &name, std::vector<std::string> members) {
    host_.AddLag(switch_, Lag{id, name, std::move(members)});
  }
  /** Machines behind the port's client are heard, and may speak. */
  void Learn(const std::string &port) {
    VSPMACManagement management{};
    management.portMACLearning = {.learning = 1,
                                  .flooding = 0,
                                  .macLimit = VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT,
                                  .macLimitPolicy = VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW};
    const PropertyOwner owner{.switch_name = switch_, .level = PropertyLevel::kPort, .port = port};
    host_.SetProperty(owner, VSPROP_PORT_MAC_MANAGEMENT, {BytesOf(management)});
    host_.SetProperty(owner, VSPROP_PORT_SECURITY, {BytesOf(VSPropSecurity{})});
  }
  void PrivateVlans(VlanId primary, VlanId community) {
    host_.SetProperty({.switch_name = switch_}, VSPROP_PVLAN_MAP,
                      {BytesOf(VSPvlanMapEntry{primary, primary, VSPORT_PVLAN_TYPE_PROMISC, {}}) +
                       BytesOf(VSPvlanMapEntry{primary, community, VSPORT_PVLAN_TYPE_COMMUNITY, {}})});
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

  prod.Machine("10", "web-1.eth0", Address(1, 10));
  prod.Machine("11", "web-2.eth0", Address(1, 11));
  const PortId database = prod.Machine("12", "database.eth0", Address(1, 12));
  const PortId router = prod.Machine("13", "router.eth0", Address(1, 13));
  prod.Machine("14", "tenant-1.eth0", Address(1, 14));
  prod.Machine("15", "tenant-2.eth0", Address(1, 15));
  prod.Service("16", "management", 0, Address(1, 16));
  prod.Service("17", "migration", 30, Address(1, 17));
  prod.FreePort("18");
  prod.PrivateVlans(1100, 1101);
  prod.Learn("13");
  prod.Vlan("10", Access(100));
  prod.Vlan("11", Access(100));
  prod.Vlan("12", Access(200));
  prod.Vlan("13", Trunk({{100, 199}, {200, 200}, {300, 310}}));
  prod.Vlan("14", InPrivateVlan(1101));
  prod.Vlan("15", InPrivateVlan(1101));
  prod.Vlan("18", Access(100));

  prod.Pin(database, 200, Address(2, 12));
  prod.Hear(alone, 0, Address(9, 1));
  prod.Hear(first, 100, Address(9, 2));
  prod.Hear(router, 100, Address(3, 1));
  host.AdvanceClock(minutes(4));
  prod.Hear(router, 300, Address(3, 2));
  host.AdvanceClock(seconds(90));
  // The far switch moved this station to another link of the group.
  prod.Hear(third, 100, Address(9, 2));
  prod.Hear(router, 100, Address(3, 1));
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
  storage.Machine("22", "backup.eth0", Address(2, 22));
  storage.Vlan("22", Access(40));

  storage.Hear(left, 40, Address(9, 40));
  storage.Hear(right, 41, Address(9, 41));
  host.AdvanceClock(seconds(20));
}

}  // namespace

std::unique_ptr<Host> MakeSampleHost() {
  auto host = std::make_unique<Host>();
  FitOutProduction(*host);
  FitOutStorage(*host);
  return host;
}

}  // namespace kestrel::host
