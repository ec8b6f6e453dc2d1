#include "host/core/switch_config.h"

#include <random>
#include <set>

#include "host/core/base/record_bytes.h"
#include "kestrel/policy_records.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

SwitchSpec Spec() { return {.id = "id", .portset = "portset", .alias = "alias", .max_ports = 100}; }

Port PortOf(PortId id, std::string name) { return {.id = id, .name = std::move(name)}; }

SwitchConfig WithUplinks(std::uint32_t count) {
  SwitchConfig config(Spec());
  for (std::uint32_t i = 1; i <= count; ++i) {
    config.AddUplink("up" + std::to_string(i), PortOf(i, "port" + std::to_string(i)));
  }
  return config;
}

int Make(SwitchSpec spec) {
  return StatusOf([&] { SwitchConfig config(spec); });
}

TEST(SwitchConfig, ChecksWhatASwitchIsMadeFrom) {
  const auto changed = [](auto change) {
    SwitchSpec spec = Spec();
    change(spec);
    return Make(spec);
  };
  EXPECT_EQ(Make(Spec()), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.id = ""; }), ZEL_INVALID_NAME);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.alias = std::string("a\0b", 3); }), ZEL_INVALID_NAME);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.portset = std::string(127, 'p'); }), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.portset = std::string(128, 'p'); }), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.alias = std::string(80, 'a'); }), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.alias = std::string(81, 'a'); }), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.id = std::string(63, 'i'); }), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.id = std::string(64, 'i'); }), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.max_ports = 0; }), ZEL_BAD_PARAM);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.max_ports = kMaxPorts; }), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.max_ports = kMaxPorts + 1; }), ZEL_BAD_PARAM);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.version = DVS_VERSION_60 - 1; }), ZEL_BAD_PARAM);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.version = VS_TRVT_ON_DVS70_VERSION; }), ZEL_OK);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.class_name = std::string(128, 'c'); }), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.vlans = {5, 4}; }), ZEL_BAD_VLANID);
  EXPECT_EQ(changed([](SwitchSpec &s) { s.vlans = {0, 4095}; }), ZEL_BAD_VLANID);
}

TEST(SwitchConfig, HoldsPortsUpToItsLimit) {
  SwitchSpec spec = Spec();
  spec.max_ports = 2;
  SwitchConfig config(spec);
  config.AddPort(PortOf(1, "a"));
  config.AddUplink("up", PortOf(2, "b"));
  const SwitchConfig before = config;
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, config.AddPort(PortOf(3, "c")));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, config.AddUplink("up2", PortOf(3, "c")));
  EXPECT_EQ(config, before);
}

TEST(SwitchConfig, RefusesTakenAndOverlongPorts) {
  SwitchConfig config(Spec());
  config.AddPort(PortOf(1, "a"));
  const SwitchConfig before = config;
  EXPECT_STATUS(ZEL_EXISTS, config.AddPort(PortOf(1, "b")));
  EXPECT_STATUS(ZEL_EXISTS, config.AddPort(PortOf(2, "a")));
  EXPECT_STATUS(ZEL_EXISTS, config.AddUplink("up", PortOf(2, "a")));
  EXPECT_STATUS(ZEL_NAME_TOO_LONG, config.AddPort(PortOf(2, std::string(48, 'p'))));
  EXPECT_EQ(config, before);
  config.AddPort(PortOf(2, std::string(47, 'p')));
}

TEST(SwitchConfig, UplinksAndGroupsShareOneSpaceOfNames) {
  SwitchConfig config = WithUplinks(2);
  config.AddLag({1, "lag", {"up1"}});
  const SwitchConfig before = config;
  EXPECT_STATUS(ZEL_EXISTS, config.AddUplink("lag", PortOf(9, "p")));
  EXPECT_STATUS(ZEL_EXISTS, config.AddUplink("up1", PortOf(9, "p")));
  EXPECT_STATUS(ZEL_EXISTS, config.AddLag({2, "up2", {"up2"}}));
  EXPECT_STATUS(ZEL_EXISTS, config.AddLag({2, "lag", {"up2"}}));
  EXPECT_STATUS(ZEL_EXISTS, config.AddLag({1, "lag2", {"up2"}}));
  EXPECT_EQ(config, before);
}

TEST(SwitchConfig, HoldsAsManyUplinksAndGroupsAsATeamMay) {
  SwitchConfig config = WithUplinks(ZEL_TEAM_MAX_UPLINKS);
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, config.AddUplink("one more", PortOf(99, "p")));
  for (std::uint32_t i = 1; i <= VS_MAX_LAGS; ++i) {
    config.AddLag({i, "lag" + std::to_string(i), {"up" + std::to_string(i)}});
  }
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, config.AddLag({99, "one more", {"up1"}}));
}

TEST(SwitchConfig, GroupsAreOfUplinksThatAreInNoOther) {
  SwitchConfig config = WithUplinks(3);
  config.AddLag({1, "lag", {"up1", "up2"}});
  const SwitchConfig before = config;
  EXPECT_STATUS(ZEL_BAD_PARAM, config.AddLag({2, "lag2", {}}));
  EXPECT_STATUS(ZEL_NOT_FOUND, config.AddLag({2, "lag2", {"up3", "up4"}}));
  EXPECT_STATUS(ZEL_BUSY, config.AddLag({2, "lag2", {"up3", "up2"}}));
  EXPECT_STATUS(ZEL_BAD_PARAM, config.AddLag({2, "lag2", {"up3", "up3"}}));
  EXPECT_STATUS(ZEL_NAME_TOO_LONG, config.AddLag({2, std::string(68, 'l'), {"up3"}}));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, config.AddLag({2, "lag2", std::vector<std::string>(33, "up3")}));
  EXPECT_EQ(config, before);
}

TEST(SwitchConfig, ANicBelongsIntoAnUplinkAndNothingElseDoes) {
  SwitchConfig config = WithUplinks(2);
  config.AddPort(PortOf(10, "plain"));
  const SwitchConfig before = config;
  EXPECT_STATUS(ZEL_BAD_PARAM, config.Connect(10, {VS_PORT_CLIENT_UPLINK, "nic"}));
  EXPECT_STATUS(ZEL_BAD_PARAM, config.Connect(10, {VS_PORT_CLIENT_UNKNOWN, "x"}));
  EXPECT_STATUS(ZEL_BAD_PARAM, config.Connect(10, {VS_PORT_CLIENT_LAG, "x"}));
  EXPECT_STATUS(ZEL_BAD_PARAM, config.Connect(1, {VS_PORT_CLIENT_VNIC, "vm"}));
  EXPECT_STATUS(ZEL_NOT_FOUND, config.Connect(11, {VS_PORT_CLIENT_VNIC, "vm"}));
  EXPECT_STATUS(ZEL_INVALID_NAME, config.Connect(10, {VS_PORT_CLIENT_VNIC, ""}));
  EXPECT_STATUS(ZEL_NAME_TOO_LONG, config.Connect(10, {VS_PORT_CLIENT_VNIC, std::string(1040, 'v')}));
  EXPECT_EQ(config, before);

  config.Connect(10, {VS_PORT_CLIENT_VNIC, std::string(1039, 'v')});
  config.Connect(1, {VS_PORT_CLIENT_UPLINK, "nic"});
  EXPECT_STATUS(ZEL_IS_CONNECTED, config.Connect(10, {VS_PORT_CLIENT_VNIC, "vm"}));
  EXPECT_STATUS(ZEL_IS_CONNECTED, config.Connect(2, {VS_PORT_CLIENT_UPLINK, "nic"}));
  EXPECT_EQ(config.active_ports().size(), 2U);
}

TEST(SwitchConfig, KnowsItsActivePortsAndThoseInSinkModeWhateverHappens) {
  constexpr PortId kPorts = 12;
  const std::string key = VSPROP_PORT_EXTRA_ETH_FRP;
  std::mt19937 random(20);
  const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  const auto filter = [&](std::uint32_t flags) {
    VSExtraEthFilter record{};
    record.flags = flags;
    return PropertySet::Ready(key, {.value = BytesOf(record)});
  };
  SwitchConfig config = WithUplinks(2);
  for (int step = 0; step < 3000; ++step) {
    const PortId id = 1 + below(kPorts);
    const PropertyPlace place{PropertyLevel::kPort, id};
    const bool is_there = config.ports().Find(id) != nullptr;
    switch (below(9)) {
      case 0:
        config.RemovePort(id);
        break;
      case 1:
        config.Disconnect(id);
        break;
      case 2:
        if (is_there && config.uplinks().Find(id) == nullptr && !config.ports().Find(id)->client) {
          config.Connect(id, {VS_PORT_CLIENT_VNIC, "vm"});
        }
        break;
      case 3:
        if (is_there) config.PutProperty(place, filter(below(2) == 0 ? ZEL_ETH_FILTER_SINK : 0));
        break;
      case 4:
        if (is_there) config.RemoveProperty(place, key);
        break;
      case 5:
        if (is_there) config.PropertiesAt(place).Put(filter(ZEL_ETH_FILTER_SINK));
        break;
      case 6:
        if (below(20) == 0) config.ResetProperties();
        break;
      default:
        if (!is_there) {
          Port port = PortOf(id, "p" + std::to_string(id));
          if (below(2) == 0) port.properties.Put(filter(ZEL_ETH_FILTER_SINK));
          config.AddPort(std::move(port));
        }
    }
    std::set<PortId> active;
    std::uint32_t sinks = 0;
    for (const Port &port : config.ports().Items()) {
      if (port.client) active.insert(port.id);
      sinks += IsSink(port) ? 1 : 0;
    }
    EXPECT_EQ(config.active_ports(), active);
    EXPECT_EQ(config.CountSinkPorts(), sinks);
    const SwitchConfig copy = config;
    EXPECT_EQ(copy.active_ports(), active);
    EXPECT_EQ(copy.CountSinkPorts(), sinks);
  }
}

TEST(KeptCount, CountsOnceUntilItIsForgotten) {
  KeptCount count;
  int counted = 0;
  const auto counting = [&counted] { return static_cast<std::uint32_t>(++counted); };
  EXPECT_EQ(count.Get(counting), 1U);
  EXPECT_EQ(count.Get(counting), 1U);
  count.Forget();
  EXPECT_EQ(count.Get(counting), 2U);
}

TEST(SwitchConfig, KnowsTheUplinkOfANicAndTheNicOfAnUplink) {
  SwitchConfig config = WithUplinks(2);
  config.AddPort(PortOf(10, "plain"));
  config.Connect(10, {VS_PORT_CLIENT_VNIC, "nic"});
  EXPECT_EQ(config.UplinkOfNic("nic"), nullptr) << "a machine of that name is no NIC";
  EXPECT_EQ(config.NicOf(10), nullptr);

  config.Connect(2, {VS_PORT_CLIENT_UPLINK, "nic"});
  ASSERT_NE(config.UplinkOfNic("nic"), nullptr);
  EXPECT_EQ(config.UplinkOfNic("nic")->name, "up2");
  EXPECT_EQ(*config.NicOf(2), "nic");
  EXPECT_EQ(config.NicOf(1), nullptr);

  const SwitchConfig copy = config;
  config.Disconnect(2);
  EXPECT_EQ(config.UplinkOfNic("nic"), nullptr);
  EXPECT_EQ(copy.UplinkOfNic("nic")->name, "up2") << "a copy stands by itself";
}

TEST(SwitchConfig, ARemovedUplinkFreesItsPortAndItsNicAndStaysNamedInItsGroup) {
  SwitchConfig config = WithUplinks(2);
  config.AddLag({1, "lag", {"up1", "up2"}});
  config.Connect(1, {VS_PORT_CLIENT_UPLINK, "nic"});
  config.RemovePort(1);
  EXPECT_EQ(config.UplinkOfNic("nic"), nullptr);
  EXPECT_STATUS(ZEL_NOT_FOUND, config.UplinkNamed("up1"));
  EXPECT_STATUS(ZEL_NOT_FOUND, config.PortNamed("port1"));
  EXPECT_EQ(config.lags().FindNamed("lag")->members, (std::vector<std::string>{"up1", "up2"}));
}

TEST(SwitchConfig, DropsMembersWithoutUplinkAndGroupsWithoutMembers) {
  SwitchConfig config = WithUplinks(3);
  config.AddLag({1, "half", {"up1", "up2"}});
  config.AddLag({2, "gone", {"up3"}});
  config.RemovePort(1);
  config.RemovePort(3);
  config.DropDangling();
  ASSERT_EQ(config.lags().size(), 1U);
  EXPECT_EQ(config.lags().FindNamed("half")->members, (std::vector<std::string>{"up2"}));
  const SwitchConfig tidy = config;
  config.DropDangling();
  EXPECT_EQ(config, tidy);
}

TEST(SwitchConfig, ResetGivesPropertiesTheirDefaultsAndLeavesTheRest) {
  SwitchConfig config(Spec());
  config.AddPort(PortOf(1, "a"));
  config.Connect(1, {VS_PORT_CLIENT_VNIC, "vm"});
  const auto set = [&config](PropertyPlace place) {
    config.PropertiesAt(place).Put(PropertySet::Ready("key", {"value"}));
  };
  set({PropertyLevel::kSwitch});
  set({PropertyLevel::kHost});
  set({PropertyLevel::kPort, 1});
  config.ResetProperties();

  SwitchConfig expected(Spec());
  expected.AddPort(PortOf(1, "a"));
  expected.Connect(1, {VS_PORT_CLIENT_VNIC, "vm"});
  EXPECT_EQ(config, expected);
}

}  // namespace
}  // namespace kestrel::host
