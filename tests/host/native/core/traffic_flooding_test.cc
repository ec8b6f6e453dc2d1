/* Where frames go that are not for one known station, and where no frame goes. */
#include <string>

#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/traffic_host.h"

namespace kestrel::host {
namespace {

constexpr MacAddress kGroup{0x01, 0, 0x5e, 0x01, 0x02, 0x03};

class TrafficFlooding : public testing::Test {
 protected:
  TrafficFlooding() {
    for (const char *port : {"a", "b", "c"}) net.AddMachine(port, static_cast<std::uint8_t>(port[0] - 'a' + 1));
    net.AddUplink("up");
  }
  Arrivals Unknown() { return net.After("a", MakeFrame(Station(99), Station(1))); }
  Arrivals Group() { return net.After("a", MakeFrame(kGroup, Station(1))); }

  TrafficHost net;
};

TEST_F(TrafficFlooding, UnknownStationsAreSoughtOutside) { EXPECT_EQ(Unknown(), (Arrivals{{"up", ""}})); }

TEST_F(TrafficFlooding, AndOnPortsThatAskForIt) {
  VSPMACLearning floods = kLearns;
  floods.flooding = 1;
  net.SetLearning("b", floods);
  EXPECT_EQ(Unknown(), (Arrivals{{"b", ""}, {"up", ""}}));
  EXPECT_EQ(net.After("up", MakeFrame(Station(98), Station(99))), (Arrivals{{"b", ""}}));
}

TEST_F(TrafficFlooding, ASinkTakesWhatNobodyWants) {
  net.SetExtraFilter("c", ZEL_ETH_FILTER_SINK);
  EXPECT_EQ(Unknown(), (Arrivals{{"c", ""}, {"up", ""}}));
  EXPECT_EQ(net.After("up", MakeFrame(Station(98), Station(99))), (Arrivals{{"c", ""}}));
  EXPECT_EQ(net.After("a", MakeFrame(Station(2), Station(1))), (Arrivals{{"b", ""}}));
  EXPECT_EQ(Group(), (Arrivals{{"c", ""}, {"up", ""}}));
  net.SetExtraFilter("b", ZEL_ETH_FILTER_ALLMULTI);
  EXPECT_EQ(Group(), (Arrivals{{"b", ""}, {"up", ""}})) << "b wants it";
}

TEST_F(TrafficFlooding, BroadcastsReachAllButTheSource) {
  EXPECT_EQ(net.After("a", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"b", ""}, {"c", ""}, {"up", ""}}));
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99))), (Arrivals{{"a", ""}, {"b", ""}, {"c", ""}}));
}

TEST_F(TrafficFlooding, AClientThatWantsNoBroadcastsGetsNone) {
  net.host().SetAdapter(kAlias, "b", {.filter = ZEL_ETH_FILTER_UNICAST});
  EXPECT_EQ(net.After("a", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"c", ""}, {"up", ""}}));
  net.SetExtraFilter("b", ZEL_ETH_FILTER_BROADCAST);
  EXPECT_TRUE(net.After("a", MakeFrame(kBroadcast, Station(1))).contains("b"));
}

TEST_F(TrafficFlooding, GroupsReachThePortsWhoseFiltersHaveThem) {
  EXPECT_EQ(Group(), (Arrivals{{"up", ""}}));
  net.host().SetAdapter(kAlias, "b", {.groups = {kGroup}});
  EXPECT_EQ(Group(), (Arrivals{{"b", ""}, {"up", ""}}));

  const std::string entry = BytesOf(VSUserMcastLegacyKeys{.numEntries = 1, .multicastAddrs = {}}) + BytesOf(kGroup);
  net.host().SetProperty({.switch_name = kAlias}, VSPROP_USER_MCAST_ADDRESSES, {entry});
  EXPECT_EQ(Group(), (Arrivals{{"b", ""}, {"c", ""}, {"up", ""}}));
  net.SetPortFlag("c", VSPROP_PORT_USER_MCAST_ADDRESSES_OVERRIDE, true);
  EXPECT_EQ(Group(), (Arrivals{{"b", ""}, {"up", ""}})) << "c goes by its own";
  net.host().SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "c"},
                         VSPROP_PORT_USER_MCAST_ADDRESSES, {entry});
  EXPECT_EQ(Group(), (Arrivals{{"b", ""}, {"c", ""}, {"up", ""}}));
}

TEST_F(TrafficFlooding, NothingComesBackToTheNetwork) {
  net.AddUplink("up2");
  for (const MacAddress &to : {kBroadcast, kGroup, Station(98), Station(97)}) {
    net.Send("up2", MakeFrame(kBroadcast, Station(97)));
    net.Take();
    const Arrivals seen = net.After("up", MakeFrame(to, Station(99)));
    EXPECT_FALSE(seen.contains("up") || seen.contains("up2"));
  }
}

TEST_F(TrafficFlooding, WhatAllUplinksReceiveArrivesOnce) {
  net.AddUplink("up2");
  VSTeamPolicy policy{};
  policy.loadBalance = TEAM_FRP_TYPE_FO_EXPLICIT;
  policy.flags = TEAM_FRP_FLAG_REVERSE;
  policy.numActive = 1;
  policy.numStandby = 1;
  std::string("up").copy(policy.uplinkPortName[0], 2);
  std::string("up2").copy(policy.uplinkPortName[1], 3);
  net.SetSwitch(VSPROP_SWITCH_TEAMING, policy);
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(99))).size(), 3U);
  EXPECT_EQ(net.After("up2", MakeFrame(kBroadcast, Station(98))).size(), 0U);
  EXPECT_EQ(net.After("up2", MakeFrame(Station(1), Station(98))), (Arrivals{{"a", ""}})) << "for one station alone";
  net.SetSecurity("b", 0);
  net.host().SetAdapter(kAlias, "b", {.filter = ZEL_ETH_FILTER_PROMISC});
  EXPECT_EQ(net.After("up2", MakeFrame(kBroadcast, Station(98))), (Arrivals{{"b", ""}}));
}

TEST_F(TrafficFlooding, APortThatSendsToTheUplinkSendsThereOnly) {
  net.SetPortFlag("a", VSPROP_PORT_TX_UPLINK, true);
  for (const MacAddress &to : {kBroadcast, kGroup, Station(2), Station(99)}) {
    EXPECT_EQ(net.After("a", MakeFrame(to, Station(1))), (Arrivals{{"up", ""}}));
  }
  EXPECT_EQ(net.After("up", MakeFrame(kBroadcast, Station(1))), (Arrivals{{"b", ""}, {"c", ""}}))
      << "what comes back reaches the others";
  EXPECT_EQ(net.After("b", MakeFrame(Station(1), Station(2))), (Arrivals{{"a", ""}}));
}

TEST_F(TrafficFlooding, FramesForTheNeighbourEndHere) {
  EXPECT_EQ(net.After("up", MakeFrame({0x01, 0x80, 0xc2, 0, 0, 0x02}, Station(99), {}, 110, 0x8809)), Arrivals{});
  EXPECT_EQ(net.Counters("up").exceptions_in, 1U);
  EXPECT_EQ(net.Counters("up").dropped_in, 0U);
  net.SetExtraFilter("b", ZEL_ETH_FILTER_ALLMULTI);
  EXPECT_EQ(net.After("up", MakeFrame({0x01, 0x80, 0xc2, 0, 0, 0x10}, Station(99))), (Arrivals{{"b", ""}}));
}

TEST_F(TrafficFlooding, ClosedPortsPassNothing) {
  net.SetPortFlag("b", ZEL_VDSPROP_PORT_BLOCK, true);
  EXPECT_EQ(net.After("b", MakeFrame(kBroadcast, Station(2))), Arrivals{});
  EXPECT_EQ(net.After("a", MakeFrame(Station(2), Station(1))), Arrivals{});
  EXPECT_EQ(net.Counters("b").dropped_in, 1U);
  EXPECT_EQ(net.Counters("b").dropped_out, 1U);
  net.SetPortFlag("b", ZEL_VDSPROP_PORT_BLOCK, false);
  net.SetSwitchFlag(VSPROP_SWITCH_FORWARDING_DISABLED, true);
  EXPECT_EQ(net.After("a", MakeFrame(kBroadcast, Station(1))), Arrivals{});
  EXPECT_EQ(net.Counters("a").dropped_in, 1U);
}

TEST_F(TrafficFlooding, TheMtuCountsWhatIsBehindTheTag) {
  net.SetTrunk("b", {{0, 4094}});
  net.SetSwitch(VSPROP_MTU, zel_uint32{1400});
  EXPECT_EQ(net.After("a", MakeFrame(kBroadcast, Station(1), {}, 1400)).size(), 3U);
  EXPECT_EQ(net.After("b", MakeFrame(kBroadcast, Station(2), {Tag(0)}, 1400)).size(), 3U);
  EXPECT_EQ(net.After("a", MakeFrame(kBroadcast, Station(1), {}, 1401)), Arrivals{});
  EXPECT_EQ(net.After("b", MakeFrame(kBroadcast, Station(2), {Tag(0)}, 1401)), Arrivals{});
}

TEST_F(TrafficFlooding, WhatCannotComeInIsRefused) {
  net.host().AddPort(kAlias, "free");
  EXPECT_STATUS(ZEL_NOT_FOUND, net.Send("nowhere", MakeFrame(kBroadcast, Station(1))));
  EXPECT_STATUS(ZEL_IS_DISCONNECTED, net.Send("free", MakeFrame(kBroadcast, Station(1))));
  EXPECT_STATUS(ZEL_BAD_PARAM, net.Send("a", FrameData(13)));
  EXPECT_STATUS(ZEL_BAD_PARAM, net.Send("a", MakeFrame(kBroadcast, Station(1), {Tag(1)}, 0, 0x8100)));
  SetNicLink(net.host(), "nic-up", kDown);
  EXPECT_STATUS(ZEL_ENETDOWN, net.Send("up", MakeFrame(kBroadcast, Station(1))));
  EXPECT_EQ(net.Take(), Arrivals{});
}

TEST_F(TrafficFlooding, NothingLeavesThroughALinkThatIsDown) {
  SetNicLink(net.host(), "nic-up", kDown);
  EXPECT_EQ(Unknown(), Arrivals{});
  EXPECT_EQ(net.Counters("a").dropped_in, 1U);
}

TEST_F(TrafficFlooding, CountersTellFramesAndBytesByKind) {
  net.SetAccess("a", 100);
  net.SetAccess("b", 100);
  // The uplink has announced the clients before.
  const VSStats before = StatsOf(net.which(), net.IdOf("up"));
  net.Send("a", MakeFrame(Station(2), Station(1), {}, 46));
  net.Send("a", MakeFrame(kBroadcast, Station(1), {}, 100));
  net.Send("a", MakeFrame(kGroup, Station(1), {}, 200));
  const VSStats a = StatsOf(net.which(), net.IdOf("a"));
  EXPECT_EQ(zel_uint64{a.pktsTx}, 3U);
  EXPECT_EQ(zel_uint64{a.pktsTxBroadcast}, 1U);
  EXPECT_EQ(zel_uint64{a.pktsTxMulticast}, 1U);
  EXPECT_EQ(zel_uint64{a.bytesTx}, 60U + 114 + 214);
  const zel_VDSPortStatistics b = StatisticsOf(net.which(), net.IdOf("b"));
  EXPECT_EQ(zel_uint64{b.pktsOutUnicast}, 1U);
  EXPECT_EQ(zel_uint64{b.bytesOutUnicast}, 60U);
  EXPECT_EQ(zel_uint64{b.pktsOutBroadcast}, 1U);
  EXPECT_EQ(zel_uint64{b.pktsInUnicast}, 0U);
  const VSStats up = StatsOf(net.which(), net.IdOf("up"));
  EXPECT_EQ(up.pktsRx - before.pktsRx, 2U);
  EXPECT_EQ(up.bytesRx - before.bytesRx, 118U + 218) << "with the tag that they leave with";
  EXPECT_EQ(zel_uint64{StatsOf(net.which()).pktsTx}, 3U);
}

TEST_F(TrafficFlooding, CountersBeginAnewWithAClient) {
  net.Send("a", MakeFrame(kBroadcast, Station(1)));
  net.host().Disconnect(kAlias, "a");
  EXPECT_EQ(net.Counters("a").in.frames[2], 1U) << "and are read until then";
  net.host().Connect(kAlias, "a", {VS_PORT_CLIENT_VNIC, "next", Station(1)});
  EXPECT_EQ(net.Counters("a").in, FrameCounters{});
}

TEST_F(TrafficFlooding, CapturesKeepTheLastOfWhatWasAskedFor) {
  Host &host = net.host();
  EXPECT_STATUS(ZEL_IS_ENABLED, host.StartCapture(kAlias, "b"));
  host.StopCapture(kAlias, "b");
  EXPECT_STATUS(ZEL_IS_DISABLED, host.StopCapture(kAlias, "b"));
  EXPECT_STATUS(ZEL_IS_DISABLED, host.TakeCapture(kAlias, "b"));
  EXPECT_STATUS(ZEL_BAD_PARAM, host.StartCapture(kAlias, "b", {.max_frames = 0}));
  host.StartCapture(kAlias, "b", {.incoming = true, .max_frames = 3, .max_bytes = 200});
  host.AdvanceClock(std::chrono::seconds(7));
  const FrameData sent = MakeFrame(kBroadcast, Station(2), {Tag(9)});
  host.SendFrame(kAlias, "b", sent);
  for (int i = 0; i < 3; ++i) net.Send("a", MakeFrame(kBroadcast, Station(1)));
  Captured captured = host.TakeCapture(kAlias, "b");
  EXPECT_EQ(captured.dropped, 1U);
  ASSERT_EQ(captured.frames.size(), 3U);
  EXPECT_FALSE(captured.frames[0].is_incoming);
  EXPECT_EQ(captured.frames[0].time, std::chrono::seconds(7));
  host.SendFrame(kAlias, "b", sent);
  captured = host.TakeCapture(kAlias, "b");
  ASSERT_EQ(captured.frames.size(), 1U) << "refused, and seen all the same";
  EXPECT_EQ(captured.frames[0], (CapturedFrame{std::chrono::seconds(7), true, sent}));
  net.Send("a", MakeFrame(kBroadcast, Station(1), {}, 187));
  EXPECT_EQ(host.TakeCapture(kAlias, "b").dropped, 1U) << "longer than all the room";
}

}  // namespace
}  // namespace kestrel::host
