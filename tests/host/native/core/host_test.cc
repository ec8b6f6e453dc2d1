#include "host/core/host.h"

#include "host/core/teaming/lag_status.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

SwitchSpec Other() { return {.id = "other-id", .portset = "other-portset", .alias = "other", .max_ports = 4}; }

const SwitchConfig &ConfigOf(const Host &host) { return host.FindSwitch(kAlias).config; }

TEST(Host, FindsASwitchByPortsetNameAndAlias) {
  const auto host = MakeTestHost();
  EXPECT_EQ(&host->FindSwitch(kPortset), &host->FindSwitch(kAlias));
  for (const char *name : {"", "dvs-tes", "dvs-test2", "DVS-TEST", "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803"}) {
    EXPECT_STATUS(ZEL_NOT_FOUND, host->FindSwitch(name)) << name;
  }
}

TEST(Host, NamesOfSwitchesAreUnique) {
  const auto host = MakeTestHost();
  host->AddSwitch(Other());
  const auto refused = [&host](auto change) {
    SwitchSpec spec{.id = "third-id", .portset = "third-portset", .alias = "third", .max_ports = 4};
    change(spec);
    return StatusOf([&] { host->AddSwitch(spec); });
  };
  EXPECT_EQ(refused([](SwitchSpec &s) { s.id = "other-id"; }), ZEL_EXISTS);
  EXPECT_EQ(refused([](SwitchSpec &s) { s.alias = "other"; }), ZEL_EXISTS);
  EXPECT_EQ(refused([](SwitchSpec &s) { s.portset = "other-portset"; }), ZEL_EXISTS);
  EXPECT_EQ(refused([](SwitchSpec &s) { s.alias = "other-portset"; }), ZEL_EXISTS);
  EXPECT_EQ(refused([](SwitchSpec &s) { s.portset = "other"; }), ZEL_EXISTS);
  EXPECT_EQ(host->Switches().size(), 2U);
  EXPECT_EQ(refused([](SwitchSpec &s) { s.alias = s.portset; }), ZEL_OK) << "one name may serve for both";
}

TEST(Host, ASavedNameStaysTakenWhileItsSwitchIsReleased) {
  const auto host = MakeTestHost();
  host->Cleanup();
  SwitchSpec spec = Other();
  spec.alias = kAlias;
  EXPECT_STATUS(ZEL_EXISTS, host->AddSwitch(spec));
  EXPECT_EQ(host->Switches().size(), 0U);
  EXPECT_STATUS(ZEL_NOT_FOUND, host->FindSwitch("other-portset"));
}

TEST(Host, PortIdentifiersAreUniqueAmongSwitches) {
  const auto host = MakeTestHost();
  host->AddSwitch(Other());
  const PortId first = host->AddPort("other", "machine");
  const PortId second = host->AddPort("other", "machine2");
  EXPECT_NE(first, second);
  for (const Port &port : ConfigOf(*host).ports().Items()) {
    EXPECT_NE(port.id, static_cast<PortId>(ZEL_VSWITCH_INVALID_PORT_ID));
    EXPECT_NE(port.id, first);
    EXPECT_NE(port.id, second);
  }
}

TEST(Host, RefusedStructureLeavesNoTrace) {
  const auto host = MakeTestHost();
  const SwitchConfig before = ConfigOf(*host);
  EXPECT_STATUS(ZEL_EXISTS, host->AddPort(kAlias, "machine"));
  EXPECT_STATUS(ZEL_EXISTS, host->AddUplink(kAlias, "left", "new"));
  EXPECT_STATUS(ZEL_EXISTS, host->AddUplink(kAlias, "new", "u1"));
  EXPECT_STATUS(ZEL_BUSY, host->AddLag(kAlias, {6, "bond2", {"left"}}));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->AddPort("nowhere", "p"));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->RemoveUplink(kAlias, "bond"));
  EXPECT_STATUS(ZEL_IS_DISCONNECTED, host->Disconnect(kAlias, "free"));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->Disconnect(kAlias, "nobody"));
  EXPECT_EQ(ConfigOf(*host), before);
  host->LoadConfig();
  EXPECT_EQ(ConfigOf(*host), before) << "nor in what is saved";
}

TEST(Host, ANicIsInOneUplinkOfOneSwitch) {
  const auto host = MakeTestHost();
  host->AddSwitch(Other());
  host->AddUplink("other", "up", "u");
  EXPECT_STATUS(ZEL_NOT_FOUND, host->Connect("other", "u", {VS_PORT_CLIENT_UPLINK, "nic-x"}));
  EXPECT_STATUS(ZEL_IS_CONNECTED, host->Connect("other", "u", {VS_PORT_CLIENT_UPLINK, "nic-l"}));
  EXPECT_STATUS(ZEL_IS_CONNECTED, host->Connect(kAlias, "u2", {VS_PORT_CLIENT_UPLINK, "nic-l"}));
  host->Disconnect(kAlias, "u1");
  host->Connect("other", "u", {VS_PORT_CLIENT_UPLINK, "nic-l"});
  EXPECT_EQ(host->FindSwitch("other").config.UplinkOfNic("nic-l")->name, "up");
}

TEST(Host, NicsHaveUniqueNamesThatFitTheirField) {
  Host host;
  host.AddNic("nic", kUp);
  EXPECT_STATUS(ZEL_EXISTS, host.AddNic("nic", kDown));
  EXPECT_STATUS(ZEL_NAME_TOO_LONG, host.AddNic(std::string(32, 'n'), kUp));
  EXPECT_STATUS(ZEL_NOT_FOUND, SetNicLink(host, "nic2", kUp));
  EXPECT_EQ(host.LinkOfPluggedNic("nic"), kUp);
}

TEST(Host, AnUplinkWithANicThatIsNotThereIsFatal) {
  const Host host;
  EXPECT_THROW(host.LinkOfPluggedNic("nic"), FatalError);
}

TEST(Host, SavedPoliciesOutlastALoadAndRuntimeOnesDoNot) {
  const auto host = MakeTestHost();
  const VlanPolicy saved{.vlan = 10, .ranges = {}};
  const VlanPolicy passing{.vlan = 20, .ranges = {}};
  host->SetPortVlan(kAlias, "machine", saved, Persistence::kSaved);
  host->SetPortVlan(kAlias, "machine", passing, Persistence::kRuntimeOnly);
  host->SetPortVlan(kAlias, "service", passing, Persistence::kRuntimeOnly);
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("machine")), passing);
  host->LoadConfig();
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("machine")), saved);
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("service")), std::nullopt);
}

TEST(Host, AClearedPolicyIsClearedInWhatIsSavedToo) {
  const auto host = MakeTestHost();
  host->SetPortVlan(kAlias, "machine", {.vlan = 10, .ranges = {}}, Persistence::kSaved);
  const auto clear = [&host] {
    host->ClearProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "machine"}, VSPROP_PORT_VLAN,
                        Persistence::kSaved);
  };
  clear();
  EXPECT_STATUS(ZEL_NOT_FOUND, clear());
  host->LoadConfig();
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("machine")), std::nullopt);
}

TEST(Host, ARefusedPolicyLeavesTheFormerOne) {
  const auto host = MakeTestHost();
  const VlanPolicy former{.mode = VlanMode::kTrunk, .ranges = {{1, 5}}};
  host->SetPortVlan(kAlias, "machine", former, Persistence::kSaved);
  const VlanPolicy wrong{.vlan = 4095, .ranges = {}};
  EXPECT_STATUS(ZEL_BAD_VLANID, host->SetPortVlan(kAlias, "machine", wrong, Persistence::kSaved));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->SetPortVlan(kAlias, "nobody", {}, Persistence::kSaved));
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("machine")), former);
  host->LoadConfig();
  EXPECT_EQ(VlanOf(ConfigOf(*host).PortNamed("machine")), former);
}

TEST(Host, ResetTakesEveryPolicyAndTheMtuBackInUseAndSaved) {
  const auto host = MakeTestHost();
  host->SetPortVlan(kAlias, "machine", {.vlan = 10, .ranges = {}}, Persistence::kSaved);
  host->SetPortVlan(kAlias, "u1", {.mode = VlanMode::kTrunk, .ranges = {{1, 2}}}, Persistence::kRuntimeOnly);
  for (const bool reloaded : {false, true}) {
    if (reloaded) {
      host->LoadConfig();
    } else {
      host->ResetConfig();
    }
    EXPECT_EQ(MtuOf(ConfigOf(*host)), kDefaultMtu);
    EXPECT_EQ(ConfigOf(*host).ports().size(), 6U);
    EXPECT_EQ(ConfigOf(*host).active_ports().size(), 4U);
    for (const Port &port : ConfigOf(*host).ports().Items()) EXPECT_EQ(VlanOf(port), std::nullopt) << port.name;
  }
}

TEST(Host, CleanupReleasesTheSwitchesAndLoadBringsThemBack) {
  const auto host = MakeTestHost();
  const SwitchConfig before = ConfigOf(*host);
  host->SeeSource(kAlias, IdOfPort(*host, "machine"), {0, Station(1)});
  host->Cleanup();
  EXPECT_EQ(host->Switches().size(), 0U);
  EXPECT_STATUS(ZEL_NOT_FOUND, host->FindSwitch(kAlias));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->FindSwitch(kPortset));
  host->Cleanup();
  host->Sanitize();
  host->LoadConfig();
  EXPECT_EQ(ConfigOf(*host), before);
  EXPECT_TRUE(host->FindSwitch(kAlias).runtime.macs.entries().empty());
  EXPECT_EQ(host->LinkOfPluggedNic("nic-l"), kUp) << "NICs are no part of the configuration";
}

TEST(Host, AResetReachesWhatIsSavedWhileTheSwitchesAreReleased) {
  const auto host = MakeTestHost();
  host->Cleanup();
  host->ResetConfig();
  host->LoadConfig();
  EXPECT_EQ(MtuOf(ConfigOf(*host)), kDefaultMtu);
}

TEST(Host, LoadKeepsWhatTrafficMadeOfASwitch) {
  const auto host = MakeTestHost();
  const PortId machine = IdOfPort(*host, "machine");
  host->SeeSource(kAlias, machine, {0, Station(1)});
  host->AdvanceClock(seconds(100));
  host->LoadConfig();
  const auto entries = host->FindSwitch(kAlias).runtime.macs.entries();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries.front().entry.port, machine);
  EXPECT_EQ(entries.front().entry.last_seen, seconds(0));
  host->AdvanceClock(seconds(500));
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.size(), 0U) << "and it goes on ageing";
}

TEST(Host, LoadKeepsTheOrderOfSwitches) {
  Host host;
  for (const char *name : {"b", "c", "a"}) {
    host.AddSwitch({.id = std::string("id-") + name, .portset = name, .alias = name, .max_ports = 1});
  }
  host.LoadConfig();
  std::string order;
  for (const Switch &each : host.Switches()) order += each.config.spec().alias;
  EXPECT_EQ(order, "bca");
}

TEST(Host, SanitizeDropsMembersThatNothingStandsFor) {
  const auto host = MakeTestHost();
  host->RemoveUplink(kAlias, "left");
  EXPECT_EQ(ConfigOf(*host).lags().FindNamed("bond")->members.size(), 3U);
  host->Sanitize();
  const std::vector<std::string> rest{"middle", "right"};
  EXPECT_EQ(ConfigOf(*host).lags().FindNamed("bond")->members, rest);
  host->LoadConfig();
  EXPECT_EQ(ConfigOf(*host).lags().FindNamed("bond")->members, rest);
  host->RemoveUplink(kAlias, "middle");
  host->RemoveUplink(kAlias, "right");
  host->Sanitize();
  EXPECT_EQ(ConfigOf(*host).lags().size(), 0U);
}

TEST(Host, SanitizeDropsLearnedAddressesBehindFreePorts) {
  const auto host = MakeTestHost();
  const PortId machine = IdOfPort(*host, "machine");
  const PortId service = IdOfPort(*host, "service");
  host->SeeSource(kAlias, machine, {0, Station(1)});
  host->EnterAddress(kAlias, machine, {0, Station(2)}, VS_MAC_ADDR_TYPE_USER);
  host->SeeSource(kAlias, service, {0, Station(3)});
  host->Disconnect(kAlias, "machine");
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.entries().size(), 3U);
  host->Sanitize();
  const auto entries = host->FindSwitch(kAlias).runtime.macs.entries();
  EXPECT_EQ(entries.size(), 2U);
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.Find({0, Station(1)}), nullptr);
}

TEST(Host, SanitizeLeavesATidyHostAsItIs) {
  const auto host = MakeTestHost();
  host->SeeSource(kAlias, IdOfPort(*host, "u1"), {0, Station(1)});
  const SwitchConfig before = ConfigOf(*host);
  host->Sanitize();
  EXPECT_EQ(ConfigOf(*host), before);
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.entries().size(), 1U);
}

TEST(Host, ARemovedUplinkTakesItsAddressesAlong) {
  const auto host = MakeTestHost();
  const PortId left = IdOfPort(*host, "u1");
  host->SeeSource(kAlias, left, {0, Station(1)});
  host->EnterAddress(kAlias, left, {0, Station(2)}, VS_MAC_ADDR_TYPE_STATIC);
  host->SeeSource(kAlias, IdOfPort(*host, "u3"), {0, Station(3)});
  host->RemoveUplink(kAlias, "left");
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.entries().size(), 1U);
  EXPECT_NE(host->AddUplink(kAlias, "left", "u1"), left) << "an identifier is not used twice";
}

TEST(Host, LearnsOnlyWhatAStationCanHaveSent) {
  const auto host = MakeTestHost();
  const PortId machine = IdOfPort(*host, "machine");
  EXPECT_STATUS(ZEL_NOT_FOUND, host->SeeSource(kAlias, 4711, {0, Station(1)}));
  EXPECT_STATUS(ZEL_BAD_VLANID, host->SeeSource(kAlias, machine, {4095, Station(1)}));
  EXPECT_STATUS(ZEL_BAD_PARAM, host->SeeSource(kAlias, machine, {0, {}}));
  EXPECT_STATUS(ZEL_BAD_PARAM, host->EnterAddress(kAlias, machine, {0, {1}}, VS_MAC_ADDR_TYPE_USER));
  EXPECT_TRUE(host->FindSwitch(kAlias).runtime.macs.entries().empty());
}

TEST(LagStatus, IsUpWhileOneMemberIs) {
  const auto host = MakeTestHost();
  const auto status = [&host] {
    const Switch &owner = host->FindSwitch(kAlias);
    return StatusOfLag(*host, owner, *owner.config.lags().FindNamed("bond"));
  };
  EXPECT_EQ(status().nics, (std::vector<std::string_view>{"nic-l", "nic-r"})) << "the free uplink has no link";
  EXPECT_EQ(status().up_members, 0b01U);
  EXPECT_EQ(status().state, ZEL_LINK_STATE_UP);

  SetNicLink(*host, "nic-r", kUp);
  EXPECT_EQ(status().up_members, 0b11U);
  SetNicLink(*host, "nic-l", kDown);
  EXPECT_EQ(status().up_members, 0b10U);
  EXPECT_EQ(status().state, ZEL_LINK_STATE_UP);
  SetNicLink(*host, "nic-r", kDown);
  EXPECT_EQ(status().up_members, 0U);
  EXPECT_EQ(status().state, ZEL_LINK_STATE_DOWN);

  host->RemoveUplink(kAlias, "left");
  EXPECT_EQ(status().nics, (std::vector<std::string_view>{"nic-r"}));
}

}  // namespace
}  // namespace kestrel::host
