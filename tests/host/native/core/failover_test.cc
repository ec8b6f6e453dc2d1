/* What happens when links fail and come back: who moves, and who is told. */
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <tuple>

#include "host/core/teaming/announcements.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kNotify = TEAM_FRP_FLAG_NOTIFY_SWITCH;

/** An announcement as it was seen on the wire. */
struct Seen {
  TimePoint time;
  MacAddress address;
  VlanId vlan;

  auto operator<=>(const Seen &) const = default;
};

class Failover : public testing::Test {
 protected:
  /** With a policy from the start, and captures on all uplinks. */
  void Begin(int uplinks, int clients, const PolicyWish &policy) {
    host_ = std::make_unique<TeamHost>(uplinks, 0);
    host().SetPolicy(policy);
    for (int i = 0; i < clients; ++i) host().AddClient("p" + std::to_string(i));
    for (int i = 0; i < uplinks; ++i) host()->StartCapture(kAlias, "up" + std::to_string(i));
  }
  TeamHost &host() { return *host_; }

  /** The announcements that have left an uplink since the last time; each must be a proper one. */
  std::vector<Seen> Announced(int uplink) {
    std::vector<Seen> seen;
    for (const CapturedFrame &captured : host()->TakeCapture(kAlias, "up" + std::to_string(uplink)).frames) {
      const Frame frame(captured.bytes);
      if (frame.type() != ZEL_ETH_TYPE_RARP) continue;
      EXPECT_EQ(frame.destination(), kBroadcast);
      EXPECT_EQ(frame.tag_count(), frame.tag() ? 1U : 0U);
      const FrameBytes body = frame.payload();
      const std::uint8_t head[] = {0, 1, 8, 0, 6, 4, 0, 3};
      EXPECT_TRUE(std::equal(std::begin(head), std::end(head), body.begin())) << "a reverse request";
      MacAddress sender;
      MacAddress target;
      std::copy_n(body.begin() + 8, 6, sender.begin());
      std::copy_n(body.begin() + 18, 6, target.begin());
      EXPECT_EQ(sender, frame.source());
      EXPECT_EQ(target, frame.source());
      EXPECT_GE(captured.bytes.size(), kMinFrameSize);
      seen.push_back({captured.time, frame.source(), frame.tag() ? frame.tag()->vlan : VlanId{0}});
    }
    return seen;
  }
  MacAddress AddressOf(const std::string &port) { return host().port(port).client->address; }
  const AnnouncementState &stats() { return host().owner().runtime.team.state().announcements; }

 private:
  std::unique_ptr<TeamHost> host_;
};

TEST_F(Failover, AnnouncesWhoHasMovedThroughTheNewUplink) {
  Begin(3, 6, {.active = {"up0", "up1", "up2"}, .flags = kNotify});
  const auto before = host().Choices(6);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Announced(i).empty());
  host()->AdvanceClock(seconds(5));
  host().SetLink(1, false);
  const auto after = host().Choices(6);

  std::map<std::string, std::vector<Seen>> expected;
  for (int i = 0; i < 6; ++i) {
    const auto port = static_cast<std::size_t>(i);
    if (before[port] == after[port]) continue;
    EXPECT_EQ(before[port], "up1");
    expected[after[port]].push_back({seconds(5), AddressOf("p" + std::to_string(i)), 0});
  }
  EXPECT_EQ(expected.size(), 2U);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Announced(i), expected["up" + std::to_string(i)]) << i;
  EXPECT_EQ(stats().sent, 2U);
}

TEST_F(Failover, SaysNothingWithoutTheFlag) {
  Begin(2, 2, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}});
  host().SetLink(0, false);
  host()->AdvanceClock(seconds(100));
  EXPECT_TRUE(Announced(1).empty());
  EXPECT_EQ(stats(), AnnouncementState{});
}

TEST_F(Failover, SaysNothingWhereTheFarEndIsOneAggregate) {
  Begin(2, 2, {.balance = TEAM_FRP_TYPE_LB_IP, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetLink(0, false);
  EXPECT_TRUE(Announced(1).empty());
}

TEST_F(Failover, AnnouncesWhatIsBehindAPortInItsVlan) {
  Begin(2, 3, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host()->SetPortVlan(kAlias, "p0", {.vlan = 100, .ranges = {}}, Persistence::kSaved);
  host()->SetPortVlan(kAlias, "p1", {.mode = VlanMode::kTrunk, .ranges = {{200, 300}}}, Persistence::kSaved);
  host()->EnterAddress(kAlias, host().port("p0").id, {100, Station(1)}, VS_MAC_ADDR_TYPE_USER);
  host()->SeeSource(kAlias, host().port("p1").id, {222, Station(2)});
  host()->SeeSource(kAlias, host().port("p1").id, {223, Station(2)});
  // What is behind an uplink is the network's, and stays where it is.
  host()->SeeSource(kAlias, host().port("up0").id, {100, Station(3)});
  host().SetLink(0, false);
  auto seen = Announced(1);
  std::ranges::sort(seen);
  std::vector<Seen> expected{{seconds(0), Station(1), 100},
                             {seconds(0), Station(2), 222},
                             {seconds(0), Station(2), 223},
                             {seconds(0), AddressOf("p0"), 100},
                             {seconds(0), AddressOf("p2"), 0}};
  std::ranges::sort(expected);
  EXPECT_EQ(seen, expected);
}

TEST_F(Failover, ByAddressOnlyTheAddressesOfTheFailedUplinkMove) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_LB_SRCMAC, .active = {"up0", "up1"}, .flags = kNotify});
  std::vector<MacAddress> moving;
  for (std::uint8_t i = 1; i < 40; ++i) {
    host()->SeeSource(kAlias, host().port("p0").id, {0, Station(i)});
    if (host().Choice("p0", Frame(UdpFrame(Station(i), Station(99), 1, 2))) == "up0") moving.push_back(Station(i));
  }
  if (host().Choice("p0") == "up0") moving.push_back(AddressOf("p0"));
  host().SetLink(0, false);
  std::vector<MacAddress> seen;
  for (const Seen &announced : Announced(1)) seen.push_back(announced.address);
  std::ranges::sort(moving);
  std::ranges::sort(seen);
  EXPECT_EQ(seen, moving);
  EXPECT_GT(moving.size(), 5U);
  EXPECT_LT(moving.size(), 35U);
}

TEST_F(Failover, RepeatsWithGrowingGapsAsLongAsTheOptionSays) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetOption(VS_RT_OPT_RARP_ADVERTISEMENT_DURATION, 20);
  host().SetLink(0, false);
  host()->AdvanceClock(std::chrono::hours(1));
  std::vector<TimePoint> times;
  for (const Seen &announced : Announced(1)) times.push_back(announced.time);
  EXPECT_EQ(times, (std::vector<TimePoint>{seconds(0), seconds(1), seconds(3), seconds(7), seconds(15)}));
  EXPECT_EQ(stats().sent, 5U);
  EXPECT_TRUE(stats().waiting.empty());
}

TEST_F(Failover, SendsNoMoreInASecondThanTheOptionAllows) {
  Begin(2, 10, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetOption(VS_RT_OPT_RARP_ADVERTISEMENT_DURATION, 1);
  host().SetOption(VS_RT_OPT_MAX_RARPS_PER_INTERVAL, 4);
  host()->AdvanceClock(seconds(7));
  host().SetLink(0, false);
  EXPECT_EQ(Announced(1).size(), 4U);
  EXPECT_EQ(stats().longest_round, 0U);
  host()->AdvanceClock(seconds(60));
  std::map<TimePoint, std::size_t> by_time;
  std::map<MacAddress, int> by_address;
  for (const Seen &announced : Announced(1)) {
    ++by_time[announced.time];
    ++by_address[announced.address];
  }
  for (const auto &[time, count] : by_time) EXPECT_LE(count, 4U);
  EXPECT_EQ(by_time[seconds(8)], 4U);
  EXPECT_GE(by_time[seconds(9)], 2U);
  EXPECT_EQ(stats().longest_round, 2000U) << "until the last of ten had its turn";
  EXPECT_EQ(stats().all_rounds, 2000U);
}

TEST_F(Failover, MeasuresEachRound) {
  Begin(2, 6, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetOption(VS_RT_OPT_MAX_RARPS_PER_INTERVAL, 2);
  host().SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 0);
  host().SetLink(0, false);
  host()->AdvanceClock(seconds(200));
  EXPECT_EQ(stats().longest_round, 2000U);
  EXPECT_EQ(stats().all_rounds, 2000U);
  host().SetOption(VS_RT_OPT_MAX_RARPS_PER_INTERVAL, 3);
  host().SetLink(0, true);
  host()->AdvanceClock(seconds(200));
  EXPECT_EQ(stats().longest_round, 2000U);
  EXPECT_EQ(stats().all_rounds, 3000U);
}

TEST_F(Failover, AnnouncementsEndWhenTheClientLeaves) {
  Begin(2, 2, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetLink(0, false);
  EXPECT_EQ(Announced(1).size(), 2U);
  host()->Disconnect(kAlias, "p0");
  host()->AdvanceClock(seconds(1));
  const auto seen = Announced(1);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].address, AddressOf("p1"));
}

TEST_F(Failover, AnUplinkThatComesBackIsUsedAfterTheDelay) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 700);
  host().SetLink(0, false);
  host()->AdvanceClock(seconds(100));
  Announced(1);
  host().SetLink(0, true);
  EXPECT_EQ(host().Choice("p0"), "up1");
  host()->AdvanceClock(milliseconds(699));
  EXPECT_EQ(host().Choice("p0"), "up1");
  host()->AdvanceClock(milliseconds(1));
  EXPECT_EQ(host().Choice("p0"), "up0");
  const auto seen = Announced(0);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].time, seconds(100) + milliseconds(700));
  EXPECT_TRUE(Announced(1).empty());
}

TEST_F(Failover, AnUplinkThatComesBackIsUsedAtOnceWhenThereIsNoOther) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetLink(0, false);
  host().SetLink(1, false);
  host()->AdvanceClock(seconds(100));
  host().SetLink(1, true);
  EXPECT_EQ(host().Choice("p0"), "up1");
  EXPECT_EQ(Announced(1).size(), 1U + 1U) << "when it failed over, and now";
}

TEST_F(Failover, ALinkThatFlapsStartsItsDelayAnew) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}});
  host().SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 1000);
  for (int i = 0; i < 5; ++i) {
    host().SetLink(0, false);
    host().SetLink(0, true);
    host()->AdvanceClock(milliseconds(900));
    EXPECT_EQ(host().Choice("p0"), "up1");
  }
  host()->AdvanceClock(milliseconds(100));
  EXPECT_EQ(host().Choice("p0"), "up0");
}

/** Which uplink carries, step by step, with and without falling back. */
TEST_F(Failover, RollingTeamsDoNotFallBack) {
  for (const bool is_rolling : {false, true}) {
    for (const std::uint32_t balance : {TEAM_FRP_TYPE_FO_EXPLICIT, TEAM_FRP_TYPE_LB_SRCID}) {
      Begin(3, 1,
            {.balance = balance,
             .active = {"up0"},
             .standby = {"up1", "up2"},
             .flags = is_rolling ? static_cast<std::uint32_t>(TEAM_FRP_FLAG_ROLLING) : 0U});
      host().SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 0);
      const auto step = [&](int nic, bool is_up) {
        host().SetLink(nic, is_up);
        return host().Choice("p0");
      };
      EXPECT_EQ(host().Choice("p0"), "up0");
      EXPECT_EQ(step(0, false), "up1");
      EXPECT_EQ(step(0, true), is_rolling ? "up1" : "up0");
      EXPECT_EQ(step(1, false), "up0");
      EXPECT_EQ(step(0, false), "up2");
      EXPECT_EQ(step(1, true), is_rolling ? "up2" : "up1");
      EXPECT_EQ(step(2, false), "up1");
      EXPECT_EQ(step(0, true), is_rolling ? "up1" : "up0");
    }
  }
}

TEST_F(Failover, ARollingTeamIsHeldThroughOtherChanges) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = TEAM_FRP_FLAG_ROLLING});
  host().SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 0);
  host().SetLink(0, false);
  host().SetLink(0, true);
  EXPECT_EQ(host().Choice("p0"), "up1");
  host().AddClient("late");
  EXPECT_EQ(host().Choice("late"), "up1");
  const TeamRuntime loaded = TeamRuntime::Load(host().owner().runtime.team.Save());
  host().owner().runtime.team = loaded;
  EXPECT_EQ(host().Choice("p0"), "up1") << "from its bytes";
  host().SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}});
  EXPECT_EQ(host().Choice("p0"), "up0") << "another policy, another team";
}

TEST_F(Failover, PoliciesMovePortsToo) {
  Begin(2, 2, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host().SetPortPolicy("p1", {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up1"}, .flags = kNotify});
  auto seen = Announced(1);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].address, AddressOf("p1"));
  host().SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up1", "up0"}, .flags = kNotify});
  seen = Announced(1);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].address, AddressOf("p0"));
  EXPECT_TRUE(Announced(0).empty());
}

TEST_F(Failover, ANicThatIsPulledAndPluggedMovesPorts) {
  Begin(2, 1, {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = kNotify});
  host()->Disconnect(kAlias, "up0");
  EXPECT_EQ(Announced(1).size(), 1U);
  host()->Connect(kAlias, "up0", {.type = VS_PORT_CLIENT_UPLINK, .name = "nic0"});
  EXPECT_EQ(Announced(0).size(), 1U) << "its link has been up for long";
  host()->RemoveNic("nic0");
  EXPECT_EQ(Announced(1).size(), 1U);
}

TEST_F(Failover, RunsTheSameEachTime) {
  const auto run = [&] {
    Begin(4, 20, {.active = {"up0", "up1", "up2"}, .standby = {"up3"}, .flags = kNotify | TEAM_FRP_FLAG_ROLLING});
    host().SetOption(VS_RT_OPT_MAX_RARPS_PER_INTERVAL, 3);
    std::vector<Seen> seen;
    for (int i = 0; i < 30; ++i) {
      host().SetLink(i * 7 % 4, i % 3 != 0);
      host()->AdvanceClock(milliseconds(137 * i));
      for (int uplink = 0; uplink < 4; ++uplink) {
        const auto some = Announced(uplink);
        seen.insert(seen.end(), some.begin(), some.end());
      }
    }
    return std::pair(seen, host().owner().runtime.team.Save());
  };
  const auto first = run();
  EXPECT_GT(first.first.size(), 20U);
  EXPECT_EQ(run(), first);
}

}  // namespace
}  // namespace kestrel::host
