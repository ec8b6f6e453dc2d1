#include <optional>
#include <string>
#include <tuple>

#include "tests/host/native/support/traffic_host.h"

namespace kestrel::host {
namespace {

/** The ways in which a port may be in VLANs. */
const std::vector<std::pair<std::string, VlanPolicy>> kPolicies{
    {"untagged", {}},
    {"access", {.vlan = 100, .ranges = {}}},
    {"other", {.vlan = 200, .ranges = {}}},
    {"trunk", {.mode = VlanMode::kTrunk, .ranges = {{100, 150}}}},
    {"whole", {.mode = VlanMode::kTrunk, .ranges = {{0, 4094}}}},
    {"native", {.mode = VlanMode::kTrunk, .vlan = 100, .ranges = {{200, 200}}}},
};

/** The VLAN that a frame gets into, by the way of its port and its tags. */
using Ingress = std::tuple<std::string, std::string>;
const std::map<Ingress, VlanId> kAdmitted{
    {{"untagged", ""}, 0},    {{"untagged", "0"}, 0},   {{"access", ""}, 100},   {{"access", "0"}, 100},
    {{"other", ""}, 200},     {{"other", "0"}, 200},    {{"trunk", "100"}, 100}, {{"trunk", "150"}, 150},
    {{"whole", ""}, 0},       {{"whole", "0"}, 0},      {{"whole", "100"}, 100}, {{"whole", "150"}, 150},
    {{"whole", "200"}, 200},  {{"whole", "151"}, 151},  {{"native", ""}, 100},   {{"native", "0"}, 100},
    {{"native", "100"}, 100}, {{"native", "200"}, 200},
};

/** The tag that a frame of a VLAN leaves with, by the way of the port. */
const std::map<std::tuple<std::string, VlanId>, std::string> kLeft{
    {{"untagged", 0}, ""},   {{"access", 100}, ""},   {{"other", 200}, ""},    {{"trunk", 100}, "100"},
    {{"trunk", 150}, "150"}, {{"whole", 0}, ""},      {{"whole", 100}, "100"}, {{"whole", 150}, "150"},
    {{"whole", 151}, "151"}, {{"whole", 200}, "200"}, {{"native", 100}, ""},   {{"native", 200}, "200"},
};

TEST(TrafficVlan, EveryWayInMeetsEveryWayOut) {
  TrafficHost net;
  std::uint8_t number = 1;
  for (const char *side : {"from ", "to "}) {
    for (const auto &[name, policy] : kPolicies) {
      net.AddMachine(side + name, number++);
      net.SetVlan(side + name, policy);
    }
  }
  const std::map<std::string, std::vector<VlanTag>> tags{{"", {}},
                                                         {"0", {Tag(0)}},
                                                         {"100", {Tag(100)}},
                                                         {"150", {Tag(150)}},
                                                         {"151", {Tag(151)}},
                                                         {"200", {Tag(200)}},
                                                         {"4095", {Tag(4095)}}};
  number = 1;
  for (const auto &[way, policy] : kPolicies) {
    for (const auto &[text, list] : tags) {
      const Arrivals seen = net.After("from " + way, MakeFrame(kBroadcast, Station(number), list));
      const auto admitted = kAdmitted.find({way, text});
      Arrivals expected;
      for (const auto &[out, unused] : kPolicies) {
        if (admitted == kAdmitted.end()) continue;
        const auto left = kLeft.find({out, admitted->second});
        if (left == kLeft.end()) continue;
        expected.emplace("to " + out, left->second);
        if (out != way) expected.emplace("from " + out, left->second);
      }
      EXPECT_EQ(seen, expected) << way << " with " << text;
    }
    ++number;
  }
}

TEST(TrafficVlan, UplinksCarryAllVlansTagged) {
  TrafficHost net;
  net.AddMachine("m", 1);
  net.AddUplink("up");
  for (const VlanId vlan : {VlanId{0}, VlanId{1}, VlanId{4094}}) {
    net.SetAccess("m", vlan);
    const std::string tag = vlan == 0 ? "" : std::to_string(vlan);
    EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"up", tag}}));
    const std::vector<VlanTag> tags = vlan == 0 ? std::vector<VlanTag>{} : std::vector{Tag(vlan)};
    EXPECT_EQ(net.After("up", MakeFrame(Station(1), Station(99), tags)), (Arrivals{{"m", ""}}));
    EXPECT_EQ(net.After("up", MakeFrame(Station(1), Station(99), {Tag(7)})), Arrivals{});
  }
}

TEST(TrafficVlan, AnUplinkKeepsToAPolicyOfItsOwn) {
  TrafficHost net;
  net.AddMachine("m", 1);
  net.AddUplink("up");
  net.SetTrunk("up", {{10, 20}}, 15);
  net.SetAccess("m", 15);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"up", ""}}));
  net.SetAccess("m", 20);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"up", "20"}}));
  net.SetAccess("m", 21);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), Arrivals{});
  EXPECT_EQ(net.Counters("up").dropped_out, 1U) << "the team sent it there";
}

TEST(TrafficVlan, ASwitchCarriesItsOwnVlansOnly) {
  Host host;
  host.AddSwitch({.id = "i", .portset = "p", .alias = "a", .max_ports = 4, .vlans = {10, 20}});
  host.AddNic("nic", kUp);
  host.AddUplink("a", "u", "u");
  host.Connect("a", "u", {VS_PORT_CLIENT_UPLINK, "nic"});
  for (const VlanId vlan : {0, 9, 21}) {
    host.SendFrame("a", "u", MakeFrame(kBroadcast, Station(1), {Tag(vlan)}));
  }
  const Switch &which = host.FindSwitch("a");
  EXPECT_EQ(which.runtime.macs.size(), 0U);
  host.SendFrame("a", "u", MakeFrame(kBroadcast, Station(1), {Tag(10)}));
  EXPECT_EQ(which.runtime.macs.size(), 1U);
}

class TrafficPriority : public testing::Test {
 protected:
  TrafficPriority() {
    net.AddMachine("m", 1);
    net.AddMachine("n", 2);
    net.AddUplink("up");
    net.SetAccess("m", 100);
    net.SetAccess("n", 100);
  }
  TrafficHost net;
};

TEST_F(TrafficPriority, OfATagWithoutVlanTravelsInTheTagOfTheVlan) {
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(0, 5)})), (Arrivals{{"n", ""}, {"up", "100p5"}}));
}

TEST_F(TrafficPriority, IsThePortsOwnWhereThePolicySaysSo) {
  net.SetPort("m", VSPROP_PORT_PRIORITY, zel_uint32{3});
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(0, 5)})), (Arrivals{{"n", ""}, {"up", "100p5"}}));
  net.SetVlan("m", {.vlan = 100, .set_priority = true, .ranges = {}});
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(0, 5)})), (Arrivals{{"n", ""}, {"up", "100p3"}}));
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"n", ""}, {"up", "100p3"}}));
}

TEST_F(TrafficPriority, IsRetainedInATagWithoutVlan) {
  net.SetPortFlag("n", VSPROP_PORT_PRIORITY_RETAIN, true);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(0, 5)})), (Arrivals{{"n", "0p5"}, {"up", "100p5"}}));
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"n", ""}, {"up", "100"}}));
}

TEST_F(TrafficPriority, OfTheUntaggedVlanReachesTheNetwork) {
  net.SetAccess("m", 0);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(0, 6)})), (Arrivals{{"up", "0p6"}}));
}

class TrafficNested : public testing::Test {
 protected:
  TrafficNested() {
    net.AddMachine("m", 1);
    net.AddMachine("n", 2);
    net.AddMachine("t", 3);
    net.AddUplink("up");
    net.SetAccess("m", 100);
    net.SetAccess("n", 100);
    net.SetTrunk("t", {{100, 100}});
  }
  TrafficHost net;
};

TEST_F(TrafficNested, TagsOfClientsAreRefusedUnlessTheyMayBeThere) {
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(7)})), Arrivals{});
  EXPECT_EQ(net.After("t", MakeFrame(kBroadcast, Station(3), {Tag(100), Tag(7)})), Arrivals{});
  EXPECT_EQ(net.Counters("m").dropped_in, 1U);
}

TEST_F(TrafficNested, TheClientsTagTravelsInside) {
  net.SetPortFlag("m", VSPROP_PORT_VLAN_NESTEDTAG, true);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(7, 2)})), (Arrivals{{"up", "100,7p2"}}))
      << "and reaches no port that must not see it";
  net.SetPortFlag("n", VSPROP_PORT_VLAN_NESTEDTAG, true);
  net.SetPortFlag("t", VSPROP_PORT_VLAN_NESTEDTAG, true);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(7, 2)})),
            (Arrivals{{"up", "100,7p2"}, {"n", "7p2"}, {"t", "100,7p2"}}));
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99), {Tag(100, 1), Tag(7)})),
            (Arrivals{{"m", "7"}, {"n", "7"}, {"t", "100p1,7"}}));
  EXPECT_EQ(net.After("t", MakeFrame(kBroadcast, Station(3), {Tag(100), Tag(7)})),
            (Arrivals{{"m", "7"}, {"n", "7"}, {"up", "100,7"}}));
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"n", ""}, {"t", "100"}, {"up", "100"}}));
}

TEST_F(TrafficNested, NeverBecomesTheVlan) {
  net.SetPortFlag("m", VSPROP_PORT_VLAN_NESTEDTAG, true);
  net.SetAccess("m", 0);
  EXPECT_EQ(net.After("m", MakeFrame(kBroadcast, Station(1), {Tag(100)})), (Arrivals{{"up", "0,100"}}));
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99), {Tag(0), Tag(100)})), (Arrivals{{"m", "100"}}));
}

TEST_F(TrafficNested, AddressesAreThoseOfTheVlanAround) {
  net.SetPortFlag("m", VSPROP_PORT_VLAN_NESTEDTAG, true);
  net.SetLearning("m", kLearns);
  net.SetSecurity("m", 0);
  net.Send("m", MakeFrame(kBroadcast, Station(50), {Tag(7)}));
  EXPECT_EQ(net.PortOf(100, Station(50)), "m");
  EXPECT_EQ(net.PortOf(7, Station(50)), "");
}

/** P: promiscuous. C, D: communities. I: isolated. All of primary VLAN 500. */
class TrafficPrivate : public testing::Test {
 protected:
  TrafficPrivate() {
    net.SetPrivateMap({{500, 500, VSPORT_PVLAN_TYPE_PROMISC, {}},
                       {500, 501, VSPORT_PVLAN_TYPE_COMMUNITY, {}},
                       {500, 502, VSPORT_PVLAN_TYPE_COMMUNITY, {}},
                       {500, 503, VSPORT_PVLAN_TYPE_ISOLATED, {}}});
    std::uint8_t number = 1;
    for (const auto &[kind, vlan] : std::map<std::string, VlanId>{{"P", 500}, {"C", 501}, {"D", 502}, {"I", 503}}) {
      for (const char *which : {"1", "2"}) {
        net.AddMachine(kind + which, number);
        net.SetPrivate(kind + which, vlan);
        numbers[kind + which] = number++;
      }
    }
    net.AddUplink("up");
  }
  TrafficHost net;
  std::map<std::string, std::uint8_t> numbers;
};

TEST_F(TrafficPrivate, KindsMeetKinds) {
  const std::map<std::string, std::pair<std::string, std::string>> reach{
      {"P", {"PCDI", "500"}}, {"C", {"PC", "501"}}, {"D", {"PD", "502"}}, {"I", {"P", "503"}}};
  for (const auto &[from, way] : reach) {
    Arrivals expected{{"up", way.second}};
    for (const auto &[to, unused] : numbers) {
      const bool is_meant = way.first.find(to[0]) != std::string::npos && to != from + "1";
      if (is_meant) expected.emplace(to, "");
      const bool is_alone =
          net.After(from + "1", MakeFrame(Station(numbers[to]), Station(numbers[from + "1"]))).size() == 1;
      EXPECT_EQ(is_alone, is_meant) << from << " to one of " << to;
    }
    EXPECT_EQ(net.After(from + "1", MakeFrame(kBroadcast, Station(numbers[from + "1"]))), expected) << from;
  }
}

TEST_F(TrafficPrivate, HoldsAcrossUplinks) {
  const std::map<VlanId, std::string> reach{{500, "PCDI"}, {501, "PC"}, {502, "PD"}, {503, "P"}, {504, ""}};
  for (const auto &[vlan, kinds] : reach) {
    Arrivals expected;
    for (const auto &[to, unused] : numbers) {
      if (kinds.find(to[0]) != std::string::npos) expected.emplace(to, "");
    }
    EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99), {Tag(vlan)})), expected) << vlan;
  }
}

TEST_F(TrafficPrivate, AddressesAreKnownInAllVlansOfOne) {
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99), {Tag(503)})).size(), 2U);
  EXPECT_EQ(net.PortOf(500, Station(99)), "up");
  EXPECT_EQ(net.After("P1", MakeFrame(Station(99), Station(numbers["P1"]))), (Arrivals{{"up", "500"}}));
}

TEST_F(TrafficPrivate, TrunksSeeTheVlanOfTheSender) {
  net.AddMachine("T", 90);
  net.SetTrunk("T", {{500, 503}});
  for (const auto &[from, tag] : std::map<std::string, std::string>{{"P1", "500"}, {"C1", "501"}, {"I1", "503"}}) {
    EXPECT_EQ(net.After(from, MakeFrame(kBroadcast, Station(numbers[from]))).find("T")->second, tag);
  }
}

TEST_F(TrafficPrivate, PortsOutsideOfTheMapCarryNothing) {
  net.SetPrivate("C1", 777);
  EXPECT_EQ(net.After("C1", MakeFrame(kBroadcast, Station(numbers["C1"]))), Arrivals{});
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99), {Tag(777)})), Arrivals{});
}

}  // namespace
}  // namespace kestrel::host
