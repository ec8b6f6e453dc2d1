/* What ports let their clients say they are, and what switches learn from it. */
#include <string>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/traffic_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

class TrafficSecurity : public testing::Test {
 protected:
  TrafficSecurity() {
    net.AddMachine("a", 1);
    net.AddMachine("b", 2);
    net.AddMachine("c", 3);
  }
  bool Passes(const MacAddress &source) { return !net.After("a", MakeFrame(kBroadcast, source)).empty(); }

  TrafficHost net;
};

TEST_F(TrafficSecurity, ForgedSourcesPassWhereAllowed) {
  for (zel_uint32 flags = 0; flags < 8; ++flags) {
    net.SetSecurity("a", flags);
    EXPECT_TRUE(Passes(Station(1))) << flags;
    EXPECT_EQ(Passes(Station(9)), (flags & VSPORT_SECURITY_DISALLOW_FORGED_SRC) == 0) << flags;
  }
}

TEST_F(TrafficSecurity, AChangedAddressIsThePortsEndWhereItIsNotAllowed) {
  net.host().SetAdapter(kAlias, "a", {.address = Station(50)});
  for (zel_uint32 flags = 0; flags < 8; ++flags) {
    for (const bool is_managed : {false, true}) {
      net.SetSecurity("a", flags);
      net.SetPort(
          "a", VSPROP_PORT_MAC_MANAGEMENT,
          VSPMACManagement{.macChangeAllowed = static_cast<zel_Bool>(is_managed ? 1 : 0), .portMACLearning = {}});
      const bool may_change = is_managed || (flags & VSPORT_SECURITY_DISALLOW_MAC_CHANGE) == 0;
      EXPECT_EQ(Passes(Station(50)), may_change) << flags;
      EXPECT_EQ(Passes(Station(1)), may_change && (flags & VSPORT_SECURITY_DISALLOW_FORGED_SRC) == 0)
          << flags << ": the address of the hardware is no longer its own";
      EXPECT_EQ(net.After("b", MakeFrame(Station(50), Station(2))).contains("a"), may_change) << flags;
      EXPECT_FALSE(net.After("b", MakeFrame(Station(1), Station(2))).contains("a")) << flags;
    }
  }
}

TEST_F(TrafficSecurity, PromiscuousClientsSeeWhatTheyMay) {
  net.SetAccess("c", 7);
  net.host().SetAdapter(kAlias, "a", {.filter = ZEL_ETH_FILTER_PROMISC});
  net.AddMachine("d", 4);
  for (zel_uint32 flags = 0; flags < 8; ++flags) {
    net.SetSecurity("a", flags);
    const bool may = (flags & VSPORT_SECURITY_DISALLOW_PROMISC) == 0;
    EXPECT_EQ(net.After("b", MakeFrame(Station(4), Station(2))),
              (may ? Arrivals{{"a", ""}, {"d", ""}} : Arrivals{{"d", ""}}));
    EXPECT_EQ(net.After("b", MakeFrame(Station(99), Station(2))), (may ? Arrivals{{"a", ""}} : Arrivals{}));
    EXPECT_EQ(net.After("b", MakeFrame(Station(1), Station(2))), (Arrivals{{"a", ""}})) << "once";
    EXPECT_EQ(net.After("c", MakeFrame(Station(99), Station(3))), Arrivals{}) << "its own VLAN only";
  }
}

TEST_F(TrafficSecurity, AFilterOfThePortMakesItsClientPromiscuousToo) {
  net.SetSecurity("a", 0);
  net.SetExtraFilter("a", ZEL_ETH_FILTER_PROMISC);
  EXPECT_EQ(net.After("b", MakeFrame(Station(3), Station(2))), (Arrivals{{"a", ""}, {"c", ""}}));
}

TEST_F(TrafficSecurity, NoStationIsAGroupOrNobody) {
  net.SetSecurity("a", 0);
  EXPECT_FALSE(Passes({}));
  EXPECT_FALSE(Passes(kBroadcast));
  EXPECT_FALSE(Passes({0x01, 0, 0x5e, 0, 0, 1}));
}

TEST_F(TrafficSecurity, AnAddressEnteredBehindAPortIsItsOwn) {
  EXPECT_FALSE(Passes(Station(60)));
  net.host().EnterAddress(kAlias, net.IdOf("a"), {0, Station(60)}, VS_MAC_ADDR_TYPE_USER);
  EXPECT_TRUE(Passes(Station(60)));
  EXPECT_EQ(net.After("b", MakeFrame(Station(60), Station(2))), (Arrivals{{"a", ""}}));
  net.host().EnterAddress(kAlias, net.IdOf("b"), {0, Station(61)}, VS_MAC_ADDR_TYPE_USER);
  EXPECT_FALSE(Passes(Station(61))) << "another's is not";
}

class TrafficLearning : public testing::Test {
 protected:
  TrafficLearning() {
    for (const char *port : {"a", "b"}) {
      net.AddMachine(port, port[0] == 'a' ? 1 : 2);
      net.SetSecurity(port, 0);
      net.SetLearning(port, kLearns);
    }
    net.AddUplink("up");
  }
  bool Says(const std::string &port, std::uint8_t number) {
    return !net.After(port, MakeFrame(kBroadcast, Station(number))).empty();
  }
  /** What a frame from b to an address goes to. */
  Arrivals To(std::uint8_t number) { return net.After("b", MakeFrame(Station(number), Station(2))); }

  TrafficHost net;
};

TEST_F(TrafficLearning, AnAddressIsWhereItWasSeenLast) {
  Says("a", 50);
  EXPECT_EQ(net.PortOf(0, Station(50)), "a");
  EXPECT_EQ(To(50), (Arrivals{{"a", ""}}));
  Says("up", 50);
  EXPECT_EQ(net.PortOf(0, Station(50)), "up");
  EXPECT_EQ(To(50), (Arrivals{{"up", ""}}));
  EXPECT_EQ(net.Counters("up").moved_here, 1U);
  EXPECT_EQ(net.Counters("a").moved_here, 0U);
}

TEST_F(TrafficLearning, PortsLearnWhereTheyAreToldToAndUplinksAlways) {
  net.SetLearning("a", {});
  Says("a", 50);
  Says("up", 51);
  EXPECT_EQ(net.PortOf(0, Station(50)), "");
  EXPECT_EQ(net.PortOf(0, Station(51)), "up");
}

TEST_F(TrafficLearning, OldAddressesAreForgotten) {
  net.SetSwitch(VSPROP_SWITCH_MAC_LEARNING, VSPropMACLearning{.agingTime = 60, .reserved = 0, .macLimit = 100});
  Says("a", 50);
  net.host().AdvanceClock(seconds(59));
  EXPECT_EQ(net.PortOf(0, Station(50)), "a");
  Says("a", 51);
  net.host().AdvanceClock(seconds(1));
  EXPECT_EQ(net.PortOf(0, Station(50)), "");
  EXPECT_EQ(net.PortOf(0, Station(51)), "a");
  EXPECT_EQ(To(50), (Arrivals{{"up", ""}})) << "unknown again";
}

TEST_F(TrafficLearning, TheLimitOfAPortLetsPassOrDrops) {
  for (const bool drops : {false, true}) {
    TrafficHost other;
    other.AddMachine("a", 1);
    other.AddMachine("b", 2);
    other.SetSecurity("a", 0);
    VSPMACLearning policy = kLearns;
    policy.macLimit = 2;
    policy.macLimitPolicy = drops ? VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP : VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW;
    other.SetLearning("a", policy);
    for (const std::uint8_t number : {50, 51, 52, 50, 53}) {
      const bool passes = !other.After("a", MakeFrame(kBroadcast, Station(number))).empty();
      EXPECT_EQ(passes, !drops || number < 52) << int{number};
    }
    EXPECT_EQ(other.PortOf(0, Station(52)), "");
    EXPECT_EQ(other.Counters("a").unlearned, drops ? 0U : 2U);
    EXPECT_EQ(other.Counters("a").unlearned_dropped, drops ? 2U : 0U);
    EXPECT_EQ(other.Counters("a").dropped_in, drops ? 2U : 0U);
    EXPECT_TRUE(!other.After("a", MakeFrame(kBroadcast, Station(1))).empty()) << "its own address needs no room";
  }
}

TEST_F(TrafficLearning, AMoveNeedsRoomToo) {
  VSPMACLearning policy = kLearns;
  policy.macLimit = 1;
  net.SetLearning("a", policy);
  Says("a", 50);
  Says("b", 51);
  Says("a", 51);
  EXPECT_EQ(net.PortOf(0, Station(51)), "b");
  EXPECT_EQ(net.Counters("a").unlearned_by_own_limit, 1U);
}

TEST_F(TrafficLearning, TheLimitOfTheSwitchHoldsForAll) {
  net.SetSwitch(VSPROP_SWITCH_MAC_LEARNING, VSPropMACLearning{.agingTime = 60, .reserved = 0, .macLimit = 2});
  for (const std::uint8_t number : {50, 51}) Says("a", number);
  EXPECT_TRUE(Says("b", 52));
  EXPECT_TRUE(Says("up", 53));
  EXPECT_EQ(net.which().runtime.macs.size(), 2U);
  EXPECT_EQ(net.Counters("b").unlearned, 1U);
  EXPECT_EQ(net.Counters("b").unlearned_by_own_limit, 0U);
  EXPECT_EQ(net.Counters("up").unlearned, 1U);
}

TEST_F(TrafficLearning, UplinksHaveOneLimitTogether) {
  net.AddUplink("up2");
  net.SetSwitch(
      VSPROP_SWITCH_MAC_LEARNING,
      VSPropMACLearning{.agingTime = 60, .reserved = 0, .macLimit = 2 * TEAM_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT});
  MacAddress address{0x02, 1, 0, 0, 0, 0};
  const auto say = [&](const char *port, unsigned number) {
    address[4] = static_cast<std::uint8_t>(number >> 8);
    address[5] = static_cast<std::uint8_t>(number);
    net.Send(port, MakeFrame(Station(1), address));
  };
  for (unsigned i = 0; i < TEAM_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT; ++i) say(i % 2 == 0 ? "up" : "up2", i);
  EXPECT_EQ(net.Counters("up").unlearned + net.Counters("up2").unlearned, 0U);
  say("up", 0xffff);
  EXPECT_EQ(net.Counters("up").unlearned_by_own_limit, 1U);
  say("up", 1);
  EXPECT_EQ(net.Counters("up").moved_here, 1U) << "from one uplink to another is no more than before";
  EXPECT_TRUE(Says("a", 50));
  EXPECT_EQ(net.PortOf(0, Station(50)), "a");
}

TEST_F(TrafficLearning, ClientsAreKnownWithoutLearning) {
  EXPECT_EQ(To(1), (Arrivals{{"a", ""}}));
  Says("a", 1);
  EXPECT_EQ(net.which().runtime.macs.size(), 0U);
}

TEST_F(TrafficLearning, AClientsAddressIsLearnedElsewhereWhereThatIsAllowed) {
  for (const bool is_allowed : {false, true}) {
    net.SetSwitchFlag(VSPROP_SWITCH_STATIC_MAC_ALLOW, is_allowed);
    EXPECT_TRUE(Says("b", 1)) << "the frame passes either way";
    EXPECT_EQ(net.PortOf(0, Station(1)), is_allowed ? "b" : "");
  }
  EXPECT_EQ(net.After("up", MakeFrame(Station(1), Station(99))), (Arrivals{{"b", ""}}));
  Says("a", 1);
  EXPECT_EQ(net.PortOf(0, Station(1)), "") << "it is at home again";
}

TEST_F(TrafficLearning, EchoesOfClientsAreDroppedUnlessUplinksLearnThem) {
  EXPECT_FALSE(Says("up", 1));
  EXPECT_EQ(net.Counters("up").dropped_in, 1U);
  net.SetSwitchFlag(VSPROP_SWITCH_MAC_LEARN_STATIC, true);
  EXPECT_TRUE(Says("up", 1));
  EXPECT_EQ(net.PortOf(0, Station(1)), "up");
  EXPECT_EQ(To(1), (Arrivals{{"up", ""}}));
}

TEST_F(TrafficLearning, TheReversePathIsCheckedUnlessTheOptionIsOff) {
  VSRuntimeOptionHeader head{};
  head.type = VS_RT_OPT_REVERSE_PATH_FWD_CHECK;
  head.length = sizeof head + sizeof(std::uint32_t);
  const std::string option = BytesOf(head) + BytesOf(std::uint32_t{0});
  const VSRuntimeOptions list{.totalLength = static_cast<zel_uint32>(sizeof(VSRuntimeOptions) + option.size())};
  net.host().options().Apply(BytesOf(list) + option);
  EXPECT_TRUE(Says("up", 1));
}

TEST_F(TrafficLearning, AnEnteredAddressStaysWhereItIs) {
  net.host().EnterAddress(kAlias, net.IdOf("a"), {0, Station(50)}, VS_MAC_ADDR_TYPE_USER);
  Says("b", 50);
  EXPECT_EQ(net.PortOf(0, Station(50)), "a");
}

}  // namespace
}  // namespace kestrel::host
