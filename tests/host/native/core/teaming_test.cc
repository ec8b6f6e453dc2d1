#include "host/core/teaming/teaming.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

constexpr std::uint32_t kBalances[] = {TEAM_FRP_TYPE_NONE,     TEAM_FRP_TYPE_LB_IP,       TEAM_FRP_TYPE_LB_SRCMAC,
                                       TEAM_FRP_TYPE_LB_SRCID, TEAM_FRP_TYPE_FO_EXPLICIT, TEAM_FRP_TYPE_LB_LBT};

constexpr std::uint32_t kCriteria[] = {
    TEAM_FRP_CRIT_LINK_SPEED,     TEAM_FRP_CRIT_LINK_SPEED_GTE, TEAM_FRP_CRIT_LINK_DUPLEX,
    TEAM_FRP_CRIT_LACP_PORT_DOWN, TEAM_FRP_CRIT_BEACON_STATE,   TEAM_FRP_CRIT_LINK_ERR,
    TEAM_FRP_CRIT_LINK_STATE,     TEAM_FRP_CRIT_PORT_BLOCKED,   TEAM_FRP_CRIT_DRV_PRESENT};

using Names = std::vector<std::string>;

TEST(Teaming, ByPortGivesEachUplinkAsManyPorts) {
  TeamHost host(4, 32);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_LB_SRCID, .active = {"up0", "up1", "up2", "up3"}});
  std::map<std::string, int> ports;
  for (const std::string &name : host.Choices(32)) ++ports[name];
  EXPECT_EQ(ports, (std::map<std::string, int>{{"up0", 8}, {"up1", 8}, {"up2", 8}, {"up3", 8}}));
  EXPECT_EQ(host.Choices(32), host.Choices(32));
}

TEST(Teaming, ByPortDoesNotLookAtTheFrame) {
  for (const std::uint32_t balance : {TEAM_FRP_TYPE_LB_SRCID, TEAM_FRP_TYPE_LB_LBT, TEAM_FRP_TYPE_FO_EXPLICIT}) {
    TeamHost host(3, 1);
    host.SetPolicy({.balance = balance, .active = {"up0", "up1", "up2"}});
    for (std::uint8_t i = 0; i < 50; ++i) {
      EXPECT_EQ(host.Choice("p0", Frame(UdpFrame(Station(i), Station(60), i, 2))), host.Choice("p0"));
    }
  }
}

TEST(Teaming, BySourceAddressLooksAtNothingElse) {
  TeamHost host(3, 2);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_LB_SRCMAC, .active = {"up0", "up1", "up2"}});
  std::set<std::string> seen;
  for (std::uint8_t i = 0; i < 50; ++i) {
    const std::string choice = host.Choice("p0", Frame(UdpFrame(Station(i), Station(60), 1, 2)));
    EXPECT_EQ(host.Choice("p1", Frame(UdpFrame(Station(i), Station(61), i, 3))), choice);
    seen.insert(choice);
  }
  EXPECT_EQ(seen.size(), 3U);
}

TEST(Teaming, ByPacketLooksAtBothAddresses) {
  TeamHost host(3, 2);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_LB_IP, .active = {"up0", "up1", "up2"}});
  std::set<std::string> by_source;
  std::set<std::string> by_destination;
  for (std::uint32_t i = 0; i < 50; ++i) {
    const std::string choice = host.Choice("p0", Frame(UdpFrame(Station(1), Station(2), i, 2)));
    EXPECT_EQ(host.Choice("p1", Frame(UdpFrame(Station(3), Station(4), i, 2, 5, 6))), choice);
    by_source.insert(choice);
    by_destination.insert(host.Choice("p0", Frame(UdpFrame(Station(1), Station(2), 1, i))));
  }
  EXPECT_EQ(by_source.size(), 3U);
  EXPECT_EQ(by_destination.size(), 3U);
}

TEST(Teaming, InOrderTakesTheFirstThatIsUp) {
  TeamHost host(4, 1);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up2", "up0"}, .standby = {"up3", "up1"}});
  host.SetOption(VS_RT_OPT_TEAM_POLICY_UP_DELAY, 0);
  EXPECT_EQ(host.Choice("p0"), "up2");
  host.SetLink(2, false);
  EXPECT_EQ(host.Choice("p0"), "up0");
  host.SetLink(0, false);
  EXPECT_EQ(host.Choice("p0"), "up3");
  host.SetLink(3, false);
  EXPECT_EQ(host.Choice("p0"), "up1");
  host.SetLink(1, false);
  EXPECT_EQ(host.Choice("p0"), "");
  host.SetLink(0, true);
  EXPECT_EQ(host.Choice("p0"), "up0");
}

TEST(Teaming, WithoutBalancingTheFirstUplinkIsTheOnlyOne) {
  TeamHost host(2, 3);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_NONE, .active = {"up1"}, .standby = {"up0"}});
  EXPECT_EQ(host.Choices(3), (Names{"up1", "up1", "up1"}));
  host.SetLink(1, false);
  EXPECT_EQ(host.Choices(3), (Names{"", "", ""})) << "nothing fails over";
}

TEST(Teaming, OnlyThePortsOfAFailedUplinkMove) {
  TeamHost host(4, 48);
  host.SetPolicy({.active = {"up0", "up1", "up2", "up3"}});
  const Names before = host.Choices(48);
  host.SetLink(1, false);
  const Names after = host.Choices(48);
  std::map<std::string, int> taken;
  for (std::size_t i = 0; i < before.size(); ++i) {
    if (before[i] == "up1") {
      ++taken[after[i]];
    } else {
      EXPECT_EQ(after[i], before[i]);
    }
  }
  EXPECT_EQ(taken, (std::map<std::string, int>{{"up0", 4}, {"up2", 4}, {"up3", 4}})) << "to the others in equal parts";
}

TEST(Teaming, AStandbyUplinkTakesThePlaceOfAnActiveOneThatFails) {
  TeamHost host(5, 48);
  host.SetPolicy({.active = {"up0", "up1"}, .standby = {"up2", "up3", "up4"}});
  const Names before = host.Choices(48);
  EXPECT_EQ(std::set(before.begin(), before.end()), (std::set<std::string>{"up0", "up1"}));
  const auto expect_moved = [&](const std::map<std::string, std::string> &moves) {
    const Names after = host.Choices(48);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(after[i], moves.at(before[i]));
  };
  host.SetLink(0, false);
  expect_moved({{"up0", "up2"}, {"up1", "up1"}});
  host.SetLink(2, false);
  expect_moved({{"up0", "up3"}, {"up1", "up1"}});
  host.SetLink(1, false);
  expect_moved({{"up0", "up3"}, {"up1", "up4"}});
}

TEST(Teaming, AllAvailableUplinksCarryWhenTheFlagSaysSo) {
  TeamHost host(3, 12);
  host.SetPolicy({.active = {"up0"}, .standby = {"up1", "up2"}, .flags = TEAM_FRP_FLAG_ALL_AVAILABLE});
  std::map<std::string, int> ports;
  for (const std::string &name : host.Choices(12)) ++ports[name];
  EXPECT_EQ(ports, (std::map<std::string, int>{{"up0", 4}, {"up1", 4}, {"up2", 4}}));
}

TEST(Teaming, ATeamThatBlocksOutputSendsNothing) {
  TeamHost host(2, 1);
  host.SetPolicy({.active = {"up0", "up1"}, .flags = TEAM_FRP_FLAG_BLOCK_OUTPUT});
  EXPECT_EQ(host.Choice("p0"), "");
  EXPECT_STATUS(ZEL_NOT_FOUND, TeamUplinkOf(*host, host.owner(), host.port("p0")));
}

/** What spoils an uplink, and which criterion finds out. */
struct Trouble {
  std::uint32_t criterion;
  void (*spoil)(Nic &nic);
  /** Whether the uplink carries nothing although a team that does not look may choose it. */
  bool is_fatal;
};

constexpr Trouble kTroubles[] = {
    {TEAM_FRP_CRIT_LINK_SPEED, [](Nic &nic) { nic.link.speed = 40000; }, false},
    {TEAM_FRP_CRIT_LINK_SPEED, [](Nic &nic) { nic.link.speed = 1000; }, false},
    {TEAM_FRP_CRIT_LINK_SPEED_GTE, [](Nic &nic) { nic.link.speed = 1000; }, false},
    {TEAM_FRP_CRIT_LINK_DUPLEX, [](Nic &nic) { nic.link.duplex = ZEL_LINK_DUPLEX_HALF; }, false},
    {TEAM_FRP_CRIT_LINK_DUPLEX, [](Nic &nic) { nic.link.duplex = ZEL_LINK_DUPLEX_AUTO; }, false},
    {TEAM_FRP_CRIT_LINK_ERR, [](Nic &nic) { nic.error_percent = 11; }, false},
    {TEAM_FRP_CRIT_LINK_STATE, [](Nic &nic) { nic.link.state = ZEL_LINK_STATE_DOWN; }, true},
    {TEAM_FRP_CRIT_LINK_STATE, [](Nic &nic) { nic.is_enabled = false; }, true},
    {TEAM_FRP_CRIT_PORT_BLOCKED, [](Nic &nic) { nic.is_blocked = true; }, true},
    {TEAM_FRP_CRIT_DRV_PRESENT, [](Nic &nic) { nic.has_driver = false; }, true},
};

TEST(Teaming, EachCriterionFindsItsTroubleAndNoOther) {
  for (const std::uint32_t balance : kBalances) {
    for (const std::uint32_t criterion : kCriteria) {
      if (criterion == TEAM_FRP_CRIT_LACP_PORT_DOWN || criterion == TEAM_FRP_CRIT_BEACON_STATE) continue;
      for (const Trouble &trouble : kTroubles) {
        TeamHost host(2, 1);
        host.SetPolicy({.balance = balance,
                        .active = {"up0"},
                        .standby = {"up1"},
                        .criteria = criterion,
                        .percent_error = 10,
                        .full_duplex = true,
                        .speed = 10000});
        ASSERT_EQ(host.Choice("p0"), "up0");
        host.ChangeNic(0, trouble.spoil);
        // A link that is down has neither speed nor duplex, so that those find it too.
        Nic spoilt = host->nics().Get("nic0");
        const bool has_no_speed = spoilt.CurrentLink().speed < 10000;
        const bool is_found =
            trouble.criterion == criterion ||
            (criterion == TEAM_FRP_CRIT_LINK_SPEED && spoilt.CurrentLink().speed != 10000) ||
            (criterion == TEAM_FRP_CRIT_LINK_SPEED_GTE && has_no_speed) ||
            (criterion == TEAM_FRP_CRIT_LINK_DUPLEX && spoilt.CurrentLink().duplex != ZEL_LINK_DUPLEX_FULL);
        const std::string instead = balance == TEAM_FRP_TYPE_NONE ? "" : "up1";
        const std::string unseen = trouble.is_fatal ? "" : "up0";
        EXPECT_EQ(host.Choice("p0"), is_found ? instead : unseen)
            << "balance " << balance << " criterion " << criterion << " trouble of " << trouble.criterion;
      }
    }
  }
}

TEST(Teaming, CriteriaAskForWhatThePolicySays) {
  TeamHost host(1, 1);
  const auto is_used = [&](PolicyWish wish) {
    wish.active = {"up0"};
    host.SetPolicy(wish);
    return host.Choice("p0") == "up0";
  };
  constexpr auto kSpeed = TEAM_FRP_CRIT_LINK_SPEED;
  constexpr auto kAtLeast = TEAM_FRP_CRIT_LINK_SPEED_GTE;
  EXPECT_TRUE(is_used({.criteria = kSpeed, .speed = 10000}));
  EXPECT_FALSE(is_used({.criteria = kSpeed, .speed = 1000}));
  EXPECT_TRUE(is_used({.criteria = kSpeed, .speed = 0})) << "any";
  EXPECT_TRUE(is_used({.criteria = kAtLeast, .speed = 10000}));
  EXPECT_TRUE(is_used({.criteria = kAtLeast, .speed = 1000}));
  EXPECT_FALSE(is_used({.criteria = kAtLeast, .speed = 25000}));
  host.ChangeNic(0, [](Nic &nic) { nic.link.duplex = ZEL_LINK_DUPLEX_HALF; });
  EXPECT_FALSE(is_used({.criteria = TEAM_FRP_CRIT_LINK_DUPLEX, .full_duplex = true}));
  EXPECT_TRUE(is_used({.criteria = TEAM_FRP_CRIT_LINK_DUPLEX, .full_duplex = false}));
  host.ChangeNic(0, [](Nic &nic) { nic.error_percent = 7; });
  EXPECT_TRUE(is_used({.criteria = TEAM_FRP_CRIT_LINK_ERR, .percent_error = 7}));
  EXPECT_FALSE(is_used({.criteria = TEAM_FRP_CRIT_LINK_ERR, .percent_error = 6}));
  EXPECT_FALSE(is_used({.criteria = TEAM_FRP_CRIT_LINK_ERR | TEAM_FRP_CRIT_LINK_STATE, .percent_error = 6}));
  host.SetLink(0, false);
  EXPECT_FALSE(is_used({.criteria = 0})) << "no criteria look at the link";
}

TEST(Teaming, ABlockedPortBlocksItsUplink) {
  TeamHost host(2, 1);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT,
                  .active = {"up0", "up1"},
                  .criteria = TEAM_FRP_CRIT_LINK_STATE | TEAM_FRP_CRIT_PORT_BLOCKED});
  host->SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "up0"}, ZEL_VDSPROP_PORT_BLOCK,
                    {BytesOf(zel_Bool{1})});
  EXPECT_EQ(host.Choice("p0"), "up1");
  host->SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "up0"}, ZEL_VDSPROP_PORT_BLOCK,
                    {BytesOf(zel_Bool{0})});
  EXPECT_EQ(host.Choice("p0"), "up0");
}

TEST(Teaming, BestEffortIsBetterThanNothing) {
  for (const bool is_best_effort : {false, true}) {
    TeamHost host(2, 1);
    host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT,
                    .active = {"up0", "up1"},
                    .criteria = TEAM_FRP_CRIT_LINK_STATE | TEAM_FRP_CRIT_LINK_ERR,
                    .flags = is_best_effort ? static_cast<std::uint32_t>(TEAM_FRP_FLAG_BEST_EFFORT) : 0U});
    host.ChangeNic(0, [](Nic &nic) { nic.error_percent = 5; });
    EXPECT_EQ(host.Choice("p0"), "up1");
    host.ChangeNic(1, [](Nic &nic) { nic.error_percent = 5; });
    EXPECT_EQ(host.Choice("p0"), is_best_effort ? "up0" : "");
    host.SetLink(0, false);
    EXPECT_EQ(host.Choice("p0"), is_best_effort ? "up1" : "");
  }
}

TEST(Teaming, APortMayHaveATeamOfItsOwn) {
  TeamHost host(3, 3);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0"}});
  host.SetPortPolicy("p1", {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up1"}});
  LSTeamPolicy gold{};
  std::string("gold").copy(gold.name, sizeof gold.name);
  gold.loadBalance = TEAM_FRP_TYPE_FO_EXPLICIT;
  gold.numActive = 1;
  std::string("up2").copy(gold.uplinkPortName[0], 81);
  const std::string table = BytesOf(zel_uint32{1}) + BytesOf(gold);
  host->SetProperty({.switch_name = kAlias}, VSPROP_LS_TEAMING_POLICY, {table});
  const PropertyOwner port2{.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "p2"};
  host->SetProperty(port2, VSPROP_PORT_LS_TEAMING_POLICY, {"gold"});
  EXPECT_EQ(host.Choices(3), (Names{"up0", "up1", "up2"}));

  host->SetProperty(port2, VSPROP_PORT_TEAMING_OVERRIDE, {"up1"});
  EXPECT_EQ(host.Choice("p2"), "up1");
  host.SetLink(1, false);
  EXPECT_EQ(host.Choices(3), (Names{"up0", "", ""})) << "who is tied has no other";
  host->ClearProperty(port2, VSPROP_PORT_TEAMING_OVERRIDE, Persistence::kSaved);
  EXPECT_EQ(host.Choice("p2"), "up2");
}

TEST(Teaming, UplinksThatAreGoneOrHaveNoNicCarryNothing) {
  TeamHost host(3, 30);
  host.SetPolicy({.active = {"up0", "up1", "up2"}});
  host->Disconnect(kAlias, "up0");
  host->RemoveUplink(kAlias, "up1");
  for (const std::string &name : host.Choices(30)) EXPECT_EQ(name, "up2");
  host->Connect(kAlias, "up0", {.type = VS_PORT_CLIENT_UPLINK, .name = "nic1"});
  std::map<std::string, int> ports;
  for (const std::string &name : host.Choices(30)) ++ports[name];
  EXPECT_EQ(ports, (std::map<std::string, int>{{"up0", 15}, {"up2", 15}}));
  EXPECT_EQ(TeamUplinkOf(*host, host.owner(), host.port("p0")), host.Choice("p0") == "up0" ? "nic1" : "nic2");
}

TEST(Teaming, APulledNicLeavesItsUplink) {
  TeamHost host(2, 2);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}});
  host->RemoveNic("nic0");
  EXPECT_EQ(host.Choice("p0"), "up1");
  EXPECT_FALSE(host.port("up0").client.has_value());
  EXPECT_STATUS(ZEL_NOT_FOUND, host->RemoveNic("nic0"));
}

/** Whatever happens, the uplink that is chosen is one that the policy's criteria let carry, and there is one exactly
    when one of the team's is left. */
TEST(Teaming, ChoosesAnUplinkThatMeetsTheCriteriaOrNone) {
  std::mt19937 random(4711);
  const auto chance = [&random](unsigned one_in) { return random() % one_in == 0; };
  for (int round = 0; round < 400; ++round) {
    const int uplinks = 1 + static_cast<int>(random() % 6);
    TeamHost host(uplinks, 6);
    PolicyWish wish{.balance = kBalances[1 + random() % 5], .percent_error = 10, .full_duplex = chance(2)};
    wish.criteria = 0;
    for (const std::uint32_t criterion : kCriteria) {
      if (criterion != TEAM_FRP_CRIT_BEACON_STATE && chance(2)) wish.criteria |= criterion;
    }
    if (chance(3)) wish.flags |= TEAM_FRP_FLAG_ALL_AVAILABLE;
    if (chance(3)) wish.flags |= TEAM_FRP_FLAG_ROLLING;
    wish.speed = chance(2) ? 10000 : 0;
    for (int i = 0; i < uplinks; ++i) (chance(3) ? wish.standby : wish.active).push_back("up" + std::to_string(i));
    host.SetPolicy(wish);

    for (int step = 0; step < 12; ++step) {
      host.ChangeNic(static_cast<int>(random() % static_cast<unsigned>(uplinks)), [&](Nic &nic) {
        nic.link.state = chance(2) ? ZEL_LINK_STATE_UP : ZEL_LINK_STATE_DOWN;
        nic.link.speed = chance(2) ? 10000 : 1000;
        nic.link.duplex = chance(2) ? ZEL_LINK_DUPLEX_FULL : ZEL_LINK_DUPLEX_HALF;
        nic.error_percent = chance(2) ? 0 : 50;
        nic.is_blocked = chance(4);
        nic.has_driver = !chance(4);
      });
      if (chance(2)) host->AdvanceClock(std::chrono::milliseconds(random() % 300));

      const auto asks = [&](std::uint32_t criterion) { return (wish.criteria & criterion) != 0; };
      std::set<std::string> good;
      std::set<std::string> carrying;
      for (int i = 0; i < uplinks; ++i) {
        const Nic &nic = host->nics().Get("nic" + std::to_string(i));
        const bool is_up = nic.link.state == ZEL_LINK_STATE_UP;
        const bool is_good =
            ((!asks(TEAM_FRP_CRIT_LINK_STATE) && wish.criteria != 0) || is_up) &&
            (!asks(TEAM_FRP_CRIT_LINK_SPEED) || wish.speed == 0 || nic.link.speed == wish.speed) &&
            (!asks(TEAM_FRP_CRIT_LINK_SPEED_GTE) || nic.link.speed >= wish.speed) &&
            (!asks(TEAM_FRP_CRIT_LINK_DUPLEX) || !wish.full_duplex || nic.link.duplex == ZEL_LINK_DUPLEX_FULL) &&
            (!asks(TEAM_FRP_CRIT_LINK_ERR) || nic.error_percent <= wish.percent_error) &&
            (!asks(TEAM_FRP_CRIT_PORT_BLOCKED) || !nic.is_blocked) &&
            (!asks(TEAM_FRP_CRIT_DRV_PRESENT) || nic.has_driver);
        const std::string name = "up" + std::to_string(i);
        if (is_good) good.insert(name);
        if (is_good && is_up && nic.has_driver && !nic.is_blocked) carrying.insert(name);
      }
      for (const std::string &name : host.Choices(6)) {
        if (!name.empty()) {
          EXPECT_TRUE(carrying.contains(name)) << name;
        } else {
          EXPECT_NE(good, carrying.empty() ? std::set<std::string>{"?"} : carrying) << "there was one to choose";
        }
      }
    }
  }
}

TEST(Teaming, ReverseChecksWhichUplinkAFrameForManyComesThrough) {
  TeamHost host(2, 1);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = TEAM_FRP_FLAG_REVERSE});
  const auto for_all = UdpFrame(Station(50), kBroadcast, 1, 2);
  const auto for_one = UdpFrame(Station(50), Station(1), 1, 2);
  const auto accepts = [&](const char *uplink, const std::vector<std::uint8_t> &bytes) {
    return AcceptsFromUplink(*host, host.owner(), host.port("p0"), host.port(uplink).id, Frame(bytes));
  };
  EXPECT_TRUE(accepts("up0", for_all));
  EXPECT_FALSE(accepts("up1", for_all));
  EXPECT_TRUE(accepts("up1", for_one));
  host.SetOption(VS_RT_OPT_REVERSE_PATH_FWD_CHECK, 0);
  EXPECT_TRUE(accepts("up1", for_all));
  host.SetOption(VS_RT_OPT_REVERSE_PATH_FWD_CHECK, 1);
  host.SetLink(0, false);
  EXPECT_FALSE(accepts("up0", for_all));
  EXPECT_TRUE(accepts("up1", for_all));
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up1", "up0"}});
  EXPECT_TRUE(accepts("up0", for_all)) << "without the flag there is no check";
}

TEST(Teaming, EveryFrameForManyIsAcceptedFromOneUplink) {
  for (const std::uint32_t balance :
       {TEAM_FRP_TYPE_LB_SRCMAC, TEAM_FRP_TYPE_LB_SRCID, TEAM_FRP_TYPE_FO_EXPLICIT, TEAM_FRP_TYPE_LB_LBT}) {
    TeamHost host(3, 8);
    host.SetPolicy({.balance = balance, .active = {"up0", "up1", "up2"}, .flags = TEAM_FRP_FLAG_REVERSE});
    for (std::uint8_t sender = 100; sender < 120; ++sender) {
      const auto bytes = UdpFrame(Station(sender), kBroadcast, 1, 2);
      for (int port = 0; port < 8; ++port) {
        int accepted = 0;
        for (const char *uplink : {"up0", "up1", "up2"}) {
          const Port &destination = host.port("p" + std::to_string(port));
          accepted += AcceptsFromUplink(*host, host.owner(), destination, host.port(uplink).id, Frame(bytes)) ? 1 : 0;
        }
        EXPECT_EQ(accepted, 1);
      }
    }
  }
}

TEST(Teaming, LinksAreTrackedToThePorts) {
  TeamHost host(2, 2);
  host.SetPolicy({.active = {"up0", "up1"}, .flags = TEAM_FRP_FLAG_LST});
  host.SetPortPolicy("p1", {.active = {"up0", "up1"}});
  const auto links = [&] {
    return std::pair(HasLink(*host, host.owner(), host.port("p0")), HasLink(*host, host.owner(), host.port("p1")));
  };
  EXPECT_EQ(links(), std::pair(true, true));
  host.SetLink(0, false);
  EXPECT_EQ(links(), std::pair(true, true));
  host.SetLink(1, false);
  EXPECT_EQ(links(), std::pair(false, true));
  host.SetLink(1, true);
  EXPECT_EQ(links(), std::pair(true, true));
}

TEST(Teaming, NearUplinksComeFirstWhereNodesCount) {
  TeamHost host(4, 8);
  host.SetPolicy({.active = {"up0", "up1", "up2", "up3"}});
  for (int i = 0; i < 4; ++i) {
    host.ChangeNic(i, [i](Nic &nic) { nic.numa_node = i < 2 ? 0 : 1; });
  }
  for (int i = 0; i < 8; ++i) host->SetClientNode(kAlias, "p" + std::to_string(i), 1);
  const Names before = host.Choices(8);
  EXPECT_EQ(std::set(before.begin(), before.end()).size(), 4U) << "the option is off";
  host.SetOption(VS_RT_OPT_TEAMING_NUMA_AWARE, 1);
  EXPECT_EQ(host.Choices(8), before) << "the switch has not read the nodes yet";
  host->RefreshNumaNodes(kAlias);
  const Names near = host.Choices(8);
  EXPECT_EQ(std::set(near.begin(), near.end()), (std::set<std::string>{"up2", "up3"}));
  host.SetLink(2, false);
  host.SetLink(3, false);
  const Names far = host.Choices(8);
  EXPECT_EQ(std::set(far.begin(), far.end()), (std::set<std::string>{"up0", "up1"}));
}

TEST(Teaming, CountsWhatServicesSendAndReceive) {
  TeamHost host(2, 1);
  host.SetPolicy({.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "up1"}, .flags = TEAM_FRP_FLAG_REVERSE});
  host.AddClient("svc", VS_PORT_CLIENT_TCPIP);
  host.SetPortPolicy("p0", {.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up1"}});
  host->EnterAddress(kAlias, host.port("p0").id, {0, Station(7)}, VS_MAC_ADDR_TYPE_STATIC);
  const auto traffic = [&] { return host.owner().runtime.team.state().services; };

  host.Choice("p0");
  EXPECT_EQ(traffic(), ServiceTraffic{}) << "machines do not count";
  EXPECT_EQ(host.Choice("svc"), "up0");
  EXPECT_EQ(traffic(), (ServiceTraffic{.sent = 1, .by_service_policy = 1}));
  EXPECT_EQ(host.Choice("svc", Frame(UdpFrame(Station(7), Station(8), 1, 2))), "up1") << "on behalf of p0";
  EXPECT_EQ(traffic(), (ServiceTraffic{.sent = 2, .by_service_policy = 1, .by_source_policy = 1}));
  host.SetLink(1, false);
  EXPECT_EQ(host.Choice("svc", Frame(UdpFrame(Station(7), Station(8), 1, 2))), "");
  EXPECT_EQ(traffic(), (ServiceTraffic{.sent = 3, .by_service_policy = 1, .by_source_policy = 2, .errors = 1}));

  const auto accept = [&](const char *uplink, const MacAddress &destination) {
    const auto bytes = UdpFrame(Station(50), destination, 1, 2);
    return AcceptsFromUplink(*host, host.owner(), host.port("svc"), host.port(uplink).id, Frame(bytes));
  };
  host.SetLink(1, true);
  EXPECT_TRUE(accept("up1", Station(9)));
  EXPECT_EQ(traffic().received, 1U);
  EXPECT_FALSE(accept("up1", kBroadcast));
  EXPECT_EQ(traffic().received, 1U);
  host.SetOption(VS_RT_OPT_REVERSE_PATH_FWD_CHECK, 0);
  EXPECT_TRUE(accept("up1", kBroadcast));
  EXPECT_EQ(traffic().received, 2U);
  EXPECT_EQ(traffic().overrides, 1U);
}

TEST(Teaming, ACopiedSwitchHasAPlanOfItsOwn) {
  TeamHost host(2, 4);
  host.Choices(4);
  auto copy = std::make_unique<Switch>(host.owner());
  host->RemoveUplink(kAlias, "up0");
  const Port &port = copy->config.PortNamed("p0");
  const auto bytes = UdpFrame(Station(1), Station(2), 1, 2);
  const Uplink *uplink = ChooseUplink(*host, *copy, port, Frame(bytes));
  ASSERT_NE(uplink, nullptr);
  EXPECT_EQ(uplink, copy->config.uplinks().Find(uplink->id));
}

}  // namespace
}  // namespace kestrel::host
