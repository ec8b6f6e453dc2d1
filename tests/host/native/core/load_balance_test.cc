#include "host/core/teaming/load_balance.h"

#include <gtest/gtest.h>

#include <map>

#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

/** Links of 10 Mbit/s carry 37.5 million bytes in a window; above 28.125 million ports leave. */
constexpr LinkStatus kSlow{ZEL_LINK_STATE_UP, ZEL_LINK_SPEED_10_MBPS, ZEL_LINK_DUPLEX_FULL};
constexpr std::size_t kFrameSize = 125000;

class LoadBalance : public testing::Test {
 protected:
  void Begin(int uplinks, int clients, std::uint32_t flags = 0) {
    host_ = std::make_unique<TeamHost>(uplinks, clients);
    PolicyWish wish{.balance = TEAM_FRP_TYPE_LB_LBT, .flags = flags};
    for (int i = 0; i < uplinks; ++i) {
      wish.active.push_back("up" + std::to_string(i));
      SetNicLink(*host(), "nic" + std::to_string(i), kSlow);
    }
    host().SetPolicy(wish);
  }
  TeamHost &host() { return *host_; }
  /** Lets a port send as a percentage of what one link carries in a window. */
  void Send(const std::string &port, int percent) {
    auto bytes = UdpFrame(Station(1), Station(2), 1, 2);
    bytes.resize(kFrameSize);
    for (int i = 0; i < percent * 3; ++i) host().Choice(port, Frame(bytes));
  }

 private:
  std::unique_ptr<TeamHost> host_;
};

TEST_F(LoadBalance, BeginsByPort) {
  Begin(2, 4);
  EXPECT_EQ(host().Choice("p0"), host().Choice("p2"));
  EXPECT_EQ(host().Choice("p1"), host().Choice("p3"));
  EXPECT_NE(host().Choice("p0"), host().Choice("p1"));
}

TEST_F(LoadBalance, MovesTheBusiestPortThatFitsElsewhere) {
  Begin(2, 6);
  const auto before = host().Choices(6);
  Send("p0", 30);
  Send("p2", 40);
  Send("p4", 20);
  host()->AdvanceClock(seconds(29));
  EXPECT_EQ(host().Choices(6), before) << "the window is not over";
  host()->AdvanceClock(seconds(1));
  auto expected = before;
  expected[2] = before[1];
  EXPECT_EQ(host().Choices(6), expected);
}

TEST_F(LoadBalance, LeavesWhatIsNotTooMuch) {
  Begin(2, 4);
  const auto before = host().Choices(4);
  Send("p0", 40);
  Send("p2", 34);
  host()->AdvanceClock(seconds(100));
  EXPECT_EQ(host().Choices(4), before);
}

TEST_F(LoadBalance, LeavesWhatWouldBeTooMuchElsewhere) {
  Begin(2, 4);
  const auto before = host().Choices(4);
  Send("p0", 60);
  Send("p2", 60);
  Send("p1", 40);
  host()->AdvanceClock(seconds(100));
  EXPECT_EQ(host().Choices(4), before);
}

TEST_F(LoadBalance, MeasuresEachWindowByItself) {
  Begin(2, 4);
  const auto before = host().Choices(4);
  for (int i = 0; i < 4; ++i) {
    Send("p0", 30);
    Send("p2", 30);
    host()->AdvanceClock(seconds(30));
  }
  EXPECT_EQ(host().Choices(4), before);
}

TEST_F(LoadBalance, TheWindowBeginsWithTheTraffic) {
  Begin(2, 4);
  host()->AdvanceClock(seconds(1000));
  const auto before = host().Choices(4);
  host()->AdvanceClock(seconds(40));
  Send("p0", 50);
  host()->AdvanceClock(seconds(20));
  Send("p2", 50);
  EXPECT_EQ(host().Choices(4), before);
  host()->AdvanceClock(seconds(10));
  EXPECT_NE(host().Choices(4), before) << "what was sent 20 seconds apart is in one window";
}

TEST_F(LoadBalance, APortThatWasMovedStaysWhileItsUplinkIsUp) {
  Begin(2, 4, TEAM_FRP_FLAG_NOTIFY_SWITCH);
  const auto before = host().Choices(4);
  Send("p0", 50);
  Send("p2", 40);
  host()->AdvanceClock(seconds(30));
  EXPECT_EQ(host().Choice("p0"), before[1]);
  EXPECT_EQ(host().owner().runtime.team.state().announcements.sent, 1U) << "the network is told";
  host()->AdvanceClock(seconds(1000));
  EXPECT_EQ(host().Choice("p0"), before[1]);
  const int moved_to = before[1] == "up0" ? 0 : 1;
  SetNicLink(*host(), "nic" + std::to_string(moved_to), kNoLink);
  EXPECT_EQ(host().Choice("p0"), before[0]);
}

TEST_F(LoadBalance, FasterLinksCarryMore) {
  Begin(2, 4);
  const auto before = host().Choices(4);
  const std::string busy = before[0] == "up0" ? "nic0" : "nic1";
  LinkStatus fast = kSlow;
  fast.speed = ZEL_LINK_SPEED_100_MBPS;
  SetNicLink(*host(), busy, fast);
  Send("p0", 100);
  Send("p2", 100);
  host()->AdvanceClock(seconds(30));
  EXPECT_EQ(host().Choices(4), before);
}

TEST_F(LoadBalance, OtherTeamsCountAndStay) {
  Begin(2, 4);
  const auto before = host().Choices(4);
  host().SetPortPolicy("p0", {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {before[0]}});
  Send("p2", 20);
  Send("p0", 70);
  host()->AdvanceClock(seconds(30));
  EXPECT_EQ(host().Choice("p0"), before[0]);
  EXPECT_EQ(host().Choice("p2"), before[1]) << "for the other one's load";
}

}  // namespace
}  // namespace kestrel::host
