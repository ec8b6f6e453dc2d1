#include "host/core/teaming/beacons.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr std::uint32_t kAsks = TEAM_FRP_CRIT_LINK_STATE | TEAM_FRP_CRIT_BEACON_STATE;

class Beacons : public testing::Test {
 protected:
  void Begin(int uplinks, std::uint32_t flags = 0) {
    host_ = std::make_unique<TeamHost>(uplinks, 1);
    PolicyWish wish{.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .criteria = kAsks, .flags = flags};
    for (int i = 0; i < uplinks; ++i) {
      wish.active.push_back("up" + std::to_string(i));
      host()->StartCapture(kAlias, wish.active.back());
    }
    host().SetPolicy(wish);
  }
  TeamHost &host() { return *host_; }

  /** The network does not carry beacons to or from a NIC. */
  void CutOff(int nic, bool is_cut_off = true) {
    host().ChangeNic(nic, [&](Nic &changed) { changed.hears_beacons = !is_cut_off; });
  }
  std::vector<std::pair<TimePoint, Beacon>> Sent(int uplink) {
    std::vector<std::pair<TimePoint, Beacon>> sent;
    for (const CapturedFrame &captured : host()->TakeCapture(kAlias, "up" + std::to_string(uplink)).frames) {
      const Frame frame(captured.bytes);
      const auto beacon = BeaconIn(frame);
      if (!beacon) continue;
      EXPECT_EQ(frame.destination(), kBroadcast);
      EXPECT_EQ(frame.source(), host()->nics().Get("nic" + std::to_string(uplink)).address);
      sent.emplace_back(captured.time, *beacon);
    }
    return sent;
  }
  std::set<std::string> Uplinks() {
    std::set<std::string> names;
    const auto bytes = UdpFrame(Station(1), Station(2), 1, 2);
    for (const PlannedUplink *uplink : ChooseUplinks(*host(), host().owner(), host().port("p0"), Frame(bytes))) {
      names.insert(uplink->uplink->name);
    }
    return names;
  }

 private:
  std::unique_ptr<TeamHost> host_;
};

using Names = std::set<std::string>;

TEST_F(Beacons, AreReadAsTheyWereWritten) {
  const Beacon beacon{.source_switch = 0x0123456789abcdef, .uplink = 77, .number = 88};
  const auto bytes = BytesOfBeacon(beacon, Station(1));
  EXPECT_EQ(bytes.size(), kMinFrameSize);
  EXPECT_EQ(BeaconIn(Frame(bytes)), beacon);
  for (std::size_t size = 14; size < 14 + 22; ++size) {
    EXPECT_FALSE(BeaconIn(Frame(FrameBytes(bytes).first(size))).has_value());
  }
  for (const std::size_t at : {12U, 14U, 17U, 19U}) {
    auto spoilt = bytes;
    spoilt[at] ^= 1;
    EXPECT_FALSE(BeaconIn(Frame(spoilt)).has_value()) << at;
  }
}

TEST_F(Beacons, GoOutOfEveryUplinkEachSecondWhileATeamAsks) {
  Begin(2);
  host().SetLink(1, false);
  host()->AdvanceClock(seconds(2));
  const auto sent = Sent(0);
  ASSERT_EQ(sent.size(), 3U);
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(sent[i].first, seconds(i));
    EXPECT_EQ(sent[i].second.number, i + 1);
    EXPECT_EQ(sent[i].second.uplink, host().port("up0").id);
    EXPECT_EQ(sent[i].second.source_switch, BeaconSourceOf(host().owner().config));
  }
  EXPECT_TRUE(Sent(1).empty());
  host().SetPolicy({.active = {"up0"}});
  host()->AdvanceClock(seconds(10));
  EXPECT_TRUE(Sent(0).empty());
}

TEST_F(Beacons, TellWhichOfThreeIsCutOff) {
  Begin(3);
  host()->AdvanceClock(seconds(10));
  EXPECT_EQ(Uplinks(), Names{"up0"});
  CutOff(0);
  host()->AdvanceClock(seconds(3));
  EXPECT_EQ(Uplinks(), Names{"up0"}) << "three may be missed";
  host()->AdvanceClock(seconds(1));
  EXPECT_EQ(Uplinks(), Names{"up1"});
  CutOff(0, false);
  host()->AdvanceClock(seconds(1));
  EXPECT_EQ(Uplinks(), Names{"up0"});
}

TEST_F(Beacons, OfTwoCannotTellWhichIsCutOff) {
  for (const std::uint32_t flags : {0U, static_cast<std::uint32_t>(TEAM_FRP_FLAG_SHOTGUN)}) {
    Begin(2, flags);
    host()->AdvanceClock(seconds(10));
    EXPECT_EQ(Uplinks(), Names{"up0"});
    CutOff(0);
    host()->AdvanceClock(seconds(5));
    EXPECT_EQ(Uplinks(), flags == 0 ? Names{"up0"} : (Names{"up0", "up1"}));
    CutOff(0, false);
    host()->AdvanceClock(seconds(2));
    EXPECT_EQ(Uplinks(), Names{"up0"});
  }
}

TEST_F(Beacons, OfOneAloneSayNothing) {
  Begin(1);
  host()->AdvanceClock(seconds(100));
  EXPECT_EQ(Uplinks(), Names{"up0"});
}

TEST_F(Beacons, CountWhenTheyComeInByFrames) {
  Begin(3);
  for (int i = 0; i < 3; ++i) CutOff(i);
  const auto hear = [&](int uplink, const Beacon &beacon) {
    const auto bytes = BytesOfBeacon(beacon, Station(9));
    const Port &port = host().port("up" + std::to_string(uplink));
    return HandleUplinkControlFrame(*host(), host().owner(), port, Frame(bytes));
  };
  host()->AdvanceClock(seconds(10));
  EXPECT_EQ(Uplinks(), Names{"up0"}) << "nobody hears anybody";
  const Beacon from_first = Sent(0).back().second;
  EXPECT_TRUE(hear(0, from_first));
  EXPECT_EQ(Uplinks(), Names{"up0"});
  EXPECT_TRUE(hear(2, from_first));
  EXPECT_EQ(Uplinks(), Names{"up2"}) << "that of another uplink counts, the own does not";
  Beacon foreign = from_first;
  ++foreign.source_switch;
  EXPECT_TRUE(hear(1, foreign));
  host().SetLink(2, false);
  EXPECT_EQ(Uplinks(), Names{"up0"}) << "another switch's does not count";
}

TEST_F(Beacons, AreNotTakenFromClientsAndNotMistaken) {
  Begin(2);
  const auto bytes = BytesOfBeacon({}, Station(9));
  EXPECT_FALSE(HandleUplinkControlFrame(*host(), host().owner(), host().port("p0"), Frame(bytes)));
  auto other = bytes;
  other[14] ^= 1;
  EXPECT_FALSE(HandleUplinkControlFrame(*host(), host().owner(), host().port("up0"), Frame(other)));
}

TEST_F(Beacons, OfALongAdvanceAreFew) {
  Begin(3);
  CutOff(1);
  host()->AdvanceClock(std::chrono::hours(24 * 365));
  EXPECT_EQ(Sent(0).size(), 120U);
  EXPECT_EQ(Sent(1).size(), 120U);
  host().SetLink(0, false);
  EXPECT_EQ(Uplinks(), Names{"up2"}) << "the one in the middle was found out";
  host()->AdvanceClock(seconds(3));
  EXPECT_EQ(Sent(1).size(), 3U);
}

}  // namespace
}  // namespace kestrel::host
