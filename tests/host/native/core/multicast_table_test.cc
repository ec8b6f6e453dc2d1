/* Memberships, routers and queriers of a switch's ports, for both versions of IP. */
#include "host/core/multicast/multicast_table.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/host/native/support/group_frames.h"
#include "tests/host/native/support/reference_groups.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr PortId kHere = 11;
constexpr PortId kThere = 12;
constexpr PortId kElsewhere = 13;
constexpr VlanId kVlan = 100;
constexpr TimePoint kStart = seconds(1000);
/** Two unanswered queries and the time for an answer. */
constexpr Duration kLifetime = seconds(260);
constexpr Duration kLeaving = seconds(2);

class MulticastTableOf : public testing::TestWithParam<IpVersion> {
 protected:
  static IpVersion version() { return GetParam(); }
  static bool IsV4() { return version() == IpVersion::kIpV4; }
  static IpAddress Group(std::uint16_t number = 1) { return GroupOf(version(), number); }
  static IpAddress From(std::uint16_t number = 1) { return SourceOf(version(), number); }
  static IpAddress Router(std::uint8_t number = 9) { return NeighbourOf(version(), number); }
  static IpAddress Nobody() { return NobodyOf(version()); }
  /** A response in the unit of the protocol. */
  static int Response(int in_seconds) { return in_seconds * (IsV4() ? 10 : 1000); }

  void Observe(const Octets &bytes, PortId port = kHere, VlanId vlan = kVlan) {
    table_.Observe(port, vlan, Frame(bytes), now_, settings_);
  }
  std::vector<MemberQuestion> Note(const Octets &bytes, PortId port = kHere) {
    return table_.Note(port, kVlan, ReadGroupMessage(Frame(bytes)), now_, settings_);
  }
  void Join(const IpAddress &group, PortId port = kHere, VlanId vlan = kVlan,
            Generation generation = Generation::kLeave) {
    Observe(JoinFrame(generation, group), port, vlan);
  }
  void Leave(const IpAddress &group, PortId port = kHere) { Observe(LeaveFrame(Generation::kLeave, group), port); }
  bool Wants(const IpAddress &group, PortId port = kHere, VlanId vlan = kVlan, std::uint16_t source = 1) const {
    const Octets bytes = DataFrame(From(source), group);
    return table_.Wants(port, vlan, Frame(bytes));
  }
  void Pass(Duration by) {
    now_ += by;
    table_.Expire(now_);
  }
  /** How long the port has the group when nothing more comes. */
  Duration TimeLeft(const IpAddress &group, PortId port = kHere) const {
    const Membership *membership = table_.Find(port, {kVlan, group});
    return membership == nullptr ? Duration(0) : membership->NextEvent() - now_;
  }

  MulticastTable table_;
  MulticastSettings settings_;
  TimePoint now_ = kStart;
};

INSTANTIATE_TEST_SUITE_P(Versions, MulticastTableOf, testing::ValuesIn(kIpVersions),
                         [](const auto &version) { return version.param == IpVersion::kIpV4 ? "IpV4" : "IpV6"; });

// ---- Joining and leaving ----

TEST_P(MulticastTableOf, BringsAPortWhatItHasJoinedAndNothingElse) {
  EXPECT_FALSE(Wants(Group(1)));
  Join(Group(1));
  EXPECT_TRUE(Wants(Group(1)));
  EXPECT_FALSE(Wants(Group(2)));
  EXPECT_FALSE(Wants(Group(1), kThere));
  EXPECT_FALSE(Wants(Group(1), kHere, kVlan + 1));
  EXPECT_FALSE(Wants(Group(1), kHere, 0));
  EXPECT_EQ(table_.GroupsOf(kHere), (std::vector<GroupKey>{{kVlan, Group(1)}}));
  EXPECT_TRUE(table_.GroupsOf(kThere).empty());
}

TEST_P(MulticastTableOf, EveryGenerationJoins) {
  for (const Generation generation : {Generation::kJoin, Generation::kLeave, Generation::kSources}) {
    if (generation == Generation::kJoin && !IsV4()) continue;
    const auto number = static_cast<std::uint16_t>(generation);
    Join(Group(number), kHere, kVlan, generation);
    EXPECT_TRUE(Wants(Group(number)));
    EXPECT_EQ(table_.Find(kHere, {kVlan, Group(number)})->GenerationAt(now_), generation);
  }
}

TEST_P(MulticastTableOf, GroupsOfTheLinkAndOtherProtocolsReachAll) {
  EXPECT_TRUE(Wants(IsV4() ? Ip("224.0.0.5") : Ip("ff02::5")));
  Octets slow(60);
  slow[0] = 0x01;
  slow[12] = 0x88;
  slow[13] = 0xcc;
  EXPECT_TRUE(table_.Wants(kHere, kVlan, Frame(slow)));
}

TEST_P(MulticastTableOf, ReportsReachRoutersAlone) {
  Join(Group(1), kHere);
  Observe(PimHelloFrame(version(), Router(), 100), kThere);
  for (const Generation generation : {Generation::kLeave, Generation::kSources}) {
    const Octets report = JoinFrame(generation, Group(1));
    EXPECT_FALSE(table_.Wants(kHere, kVlan, Frame(report)));
    EXPECT_TRUE(table_.Wants(kThere, kVlan, Frame(report)));
    const Octets leave = LeaveFrame(generation, Group(1));
    EXPECT_FALSE(table_.Wants(kHere, kVlan, Frame(leave)));
    EXPECT_TRUE(table_.Wants(kThere, kVlan, Frame(leave)));
  }
  const Octets query = ShortQueryFrame(Router(), Group(1), Response(1));
  EXPECT_TRUE(table_.Wants(kHere, kVlan, Frame(query))) << "those who are asked hear the question";
}

TEST_P(MulticastTableOf, KeepsSourcesApart) {
  Observe(RecordsFrame(version(),
                       {{RecordType::kToInclude, Group(1), {From(1)}}, {RecordType::kToExclude, Group(2), {From(1)}}}));
  EXPECT_TRUE(Wants(Group(1), kHere, kVlan, 1));
  EXPECT_FALSE(Wants(Group(1), kHere, kVlan, 2));
  EXPECT_FALSE(Wants(Group(2), kHere, kVlan, 1));
  EXPECT_TRUE(Wants(Group(2), kHere, kVlan, 2));
}

TEST_P(MulticastTableOf, ALeaveTakesEffectWhenNobodyObjects) {
  Join(Group(1));
  Leave(Group(1));
  Pass(kLeaving - Duration(1));
  EXPECT_TRUE(Wants(Group(1)));
  Pass(Duration(1));
  EXPECT_FALSE(Wants(Group(1)));
  EXPECT_TRUE(table_.GroupsOf(kHere).empty());

  Join(Group(1));
  Leave(Group(1));
  Pass(seconds(1));
  Join(Group(1));
  Pass(kLeaving);
  EXPECT_TRUE(Wants(Group(1))) << "another host behind the port objected";
}

TEST_P(MulticastTableOf, ALeaveOfOnePortIsNoneOfAnother) {
  Join(Group(1), kHere);
  Join(Group(1), kThere);
  Leave(Group(1), kHere);
  Pass(kLeaving);
  EXPECT_FALSE(Wants(Group(1), kHere));
  EXPECT_TRUE(Wants(Group(1), kThere));
}

TEST_P(MulticastTableOf, LeavingWhatWasNotJoinedDoesNothing) {
  Leave(Group(1));
  Observe(RecordsFrame(version(), {{RecordType::kBlock, Group(1), {From(1)}}, {RecordType::kIsInclude, Group(2)}}));
  EXPECT_TRUE(table_.GroupsOf(kHere).empty());
  EXPECT_EQ(table_.Members(kVlan, Group(1)), nullptr);
}

TEST_P(MulticastTableOf, GroupsThatAreNeverReportedAreNotKept) {
  const std::vector<const char *> groups =
      IsV4() ? std::vector{"224.0.0.1"} : std::vector{"ff02::1", "ff01::5", "ff00::1"};
  for (const char *group : groups) {
    Join(Ip(group));
    EXPECT_TRUE(table_.GroupsOf(kHere).empty()) << group;
  }
  const IpAddress of_link = IsV4() ? Ip("224.0.0.251") : Ip("ff02::fb");
  Join(of_link);
  EXPECT_EQ(table_.GroupsOf(kHere).size(), 1U) << "others of the link are";
}

TEST_P(MulticastTableOf, MembersAreInTheOrderOfTheirPorts) {
  for (const PortId port : {kElsewhere, kHere, kThere}) Join(Group(1), port);
  std::vector<PortId> ports;
  for (const GroupMember &member : *table_.Members(kVlan, Group(1))) ports.push_back(member.port);
  EXPECT_EQ(ports, (std::vector<PortId>{kHere, kThere, kElsewhere}));
}

// ---- Malformed ----

TEST_P(MulticastTableOf, MalformedMessagesAreCountedAndDoNothing) {
  Octets broken = JoinFrame(Generation::kLeave, Group(1));
  broken.back() ^= 1;
  Observe(broken);
  EXPECT_TRUE(table_.GroupsOf(kHere).empty());
  EXPECT_EQ(table_.counters().malformed, 1U);
  EXPECT_EQ(table_.counters().reports, 0U);
}

TEST_P(MulticastTableOf, CountsWhatItHears) {
  Join(Group(1));
  Leave(Group(1));
  Observe(ShortQueryFrame(Router(), Nobody(), Response(10)));
  Observe(PimHelloFrame(version(), Router(), 10));
  Observe(DataFrame(From(), Group(1)));
  EXPECT_EQ(table_.counters(), (MulticastCounters{.queries = 1, .reports = 2, .notices = 1}));
}

// ---- Time ----

TEST_P(MulticastTableOf, AMembershipLastsForTwoQueriesAndAnAnswer) {
  Join(Group(1));
  Pass(kLifetime - Duration(1));
  EXPECT_TRUE(Wants(Group(1)));
  Pass(Duration(1));
  EXPECT_FALSE(Wants(Group(1)));
}

TEST_P(MulticastTableOf, LastsAsItsSettingsSay) {
  settings_.robustness = 3;
  settings_.query_interval = seconds(20);
  Join(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), seconds(3 * 20 + 10));
  Leave(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), seconds(3));
}

TEST_P(MulticastTableOf, TheRouterThatAsksSaysHowLong) {
  Observe(SourcesQueryFrame(Router(), Nobody(), {}, Response(4), 5, 30), kThere);
  Join(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), seconds(5 * 30 + 4));
  Leave(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), seconds(5));

  Observe(ShortQueryFrame(Router(), Nobody(), Response(6)), kThere);
  Join(Group(2));
  EXPECT_EQ(TimeLeft(Group(2)), seconds(5 * 30 + 6)) << "what a query does not say stays";

  Pass(seconds(1000));
  Join(Group(3));
  EXPECT_EQ(TimeLeft(Group(3)), kLifetime) << "until the router is gone";
}

TEST_P(MulticastTableOf, ARouterThatSaysNothingOfTimesLeavesThemAsTheyAre) {
  Observe(SourcesQueryFrame(Router(), Nobody(), {}, Response(10), 0, 0), kThere);
  Join(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
}

TEST_P(MulticastTableOf, OneVlansRouterIsNoOthers) {
  Observe(SourcesQueryFrame(Router(), Nobody(), {}, Response(4), 5, 30), kThere, kVlan + 1);
  Join(Group(1));
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
}

TEST_P(MulticastTableOf, AmongRoutersTheLowestAddressAsks) {
  const auto asks = [this](std::uint8_t router, int interval) {
    Observe(SourcesQueryFrame(Router(router), Nobody(), {}, Response(10), 2, interval), kThere);
  };
  const auto lifetime = [this] {
    Join(Group(1));
    return TimeLeft(Group(1));
  };
  asks(20, 20);
  EXPECT_EQ(lifetime(), seconds(50));
  asks(30, 30);
  EXPECT_EQ(lifetime(), seconds(50)) << "a higher one does not count";
  asks(10, 10);
  EXPECT_EQ(lifetime(), seconds(30)) << "a lower one does";
  asks(10, 40);
  EXPECT_EQ(lifetime(), seconds(90)) << "and may change its mind";
  Pass(seconds(2 * 40 + 5));
  asks(30, 30);
  EXPECT_EQ(lifetime(), seconds(70)) << "once it is silent the next one takes over";
}

TEST_P(MulticastTableOf, AQueryForAGroupShortensItWhereNobodyAnswers) {
  Join(Group(1), kHere);
  Join(Group(1), kThere);
  Join(Group(2), kHere);
  Observe(ShortQueryFrame(Router(), Group(1), Response(1)), kElsewhere);
  EXPECT_EQ(TimeLeft(Group(1), kHere), kLeaving);
  EXPECT_EQ(TimeLeft(Group(1), kThere), kLeaving);
  EXPECT_EQ(TimeLeft(Group(2), kHere), kLifetime);
  Pass(seconds(1));
  Join(Group(1), kThere);
  Pass(seconds(1));
  EXPECT_FALSE(Wants(Group(1), kHere));
  EXPECT_TRUE(Wants(Group(1), kThere));
}

TEST_P(MulticastTableOf, AQueryForSourcesShortensThoseAlone) {
  Observe(RecordsFrame(version(), {{RecordType::kToInclude, Group(1), {From(1), From(2)}}}));
  Observe(SourcesQueryFrame(Router(), Group(1), {From(1)}, Response(1)), kThere);
  Pass(kLeaving);
  EXPECT_FALSE(Wants(Group(1), kHere, kVlan, 1));
  EXPECT_TRUE(Wants(Group(1), kHere, kVlan, 2));
}

TEST_P(MulticastTableOf, AQueryThatSparesTimersShortensNothing) {
  Join(Group(1));
  Observe(SourcesQueryFrame(Router(), Group(1), {}, Response(1), 8 | 2), kThere);
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
}

TEST_P(MulticastTableOf, AQueryAlwaysLeavesTimeToAnswer) {
  Join(Group(1));
  Observe(SourcesQueryFrame(Router(), Group(1), {}, 0, 2), kThere);
  EXPECT_EQ(TimeLeft(Group(1)), kLeaving);
}

TEST_P(MulticastTableOf, AQueryForAllShortensNothing) {
  Join(Group(1));
  Observe(ShortQueryFrame(Router(), Nobody(), Response(1)), kThere);
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
}

TEST_P(MulticastTableOf, APortsOwnQueryDoesNotTakeItsGroups) {
  Join(Group(1));
  Observe(ShortQueryFrame(Router(), Group(1), Response(1)), kHere);
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
}

// ---- Routers ----

TEST_P(MulticastTableOf, ARouterGetsEveryGroup) {
  const auto check = [this](const char *what, const Octets &frame, Duration holds) {
    EXPECT_FALSE(Wants(Group(7), kThere)) << what;
    Observe(frame, kThere);
    EXPECT_TRUE(Wants(Group(7), kThere)) << what;
    EXPECT_FALSE(Wants(Group(7), kHere)) << what;
    EXPECT_FALSE(Wants(Group(7), kThere, kVlan + 1)) << what;
    EXPECT_FALSE(table_.IsRouterPort(kThere, kVlan, NobodyOf(IsV4() ? IpVersion::kIpV6 : IpVersion::kIpV4))) << what;
    Pass(holds - Duration(1));
    EXPECT_TRUE(Wants(Group(7), kThere)) << what;
    Pass(Duration(1));
    EXPECT_FALSE(Wants(Group(7), kThere)) << what;
  };
  check("general query", ShortQueryFrame(Router(), Nobody(), Response(10)), seconds(255));
  check("query with parameters", SourcesQueryFrame(Router(), Nobody(), {}, Response(6), 3, 10), seconds(33));
  check("query for a group", ShortQueryFrame(Router(), Group(1), Response(1)), seconds(255));
  check("hello", PimHelloFrame(version(), Router(), 33), seconds(33));
  check("hello without a hold time", PimHelloFrame(version(), Router(), -1), seconds(105));
  check("advertisement", RouterAdvertisementFrame(version(), Router(), 20), seconds(60));
}

TEST_P(MulticastTableOf, ARouterSaysWhenItGoes) {
  for (const bool by_hello : {true, false}) {
    Observe(PimHelloFrame(version(), Router(), 0xffff), kThere);
    Pass(std::chrono::hours(10000));
    EXPECT_TRUE(table_.IsRouterPort(kThere, kVlan, Group(1)));
    Observe(by_hello ? PimHelloFrame(version(), Router(), 0) : RouterTerminationFrame(version(), Router()), kThere);
    EXPECT_FALSE(table_.IsRouterPort(kThere, kVlan, Group(1)));
  }
}

TEST_P(MulticastTableOf, OfTwoRoutersBehindAPortOneRemains) {
  Observe(PimHelloFrame(version(), Router(1), 100), kThere);
  Observe(PimHelloFrame(version(), Router(2), 50), kThere);
  Observe(RouterTerminationFrame(version(), Router(1)), kThere);
  EXPECT_TRUE(table_.IsRouterPort(kThere, kVlan, Group(1)));
  Pass(seconds(50));
  EXPECT_FALSE(table_.IsRouterPort(kThere, kVlan, Group(1)));
}

TEST_P(MulticastTableOf, TheLongerOfTwoSignsCounts) {
  Observe(PimHelloFrame(version(), Router(), 300), kThere);
  Observe(ShortQueryFrame(Router(), Nobody(), Response(10)), kThere);
  Pass(seconds(299));
  EXPECT_TRUE(table_.IsRouterPort(kThere, kVlan, Group(1)));
}

/** In IPv6 such a query is malformed. */
TEST(MulticastTable, WhoAsksOnBehalfOfARouterIsNone) {
  const IpAddress group = GroupOf(IpVersion::kIpV4, 1);
  MulticastTable table;
  const auto observe = [&table](const Octets &bytes, PortId port) { table.Observe(port, kVlan, Frame(bytes), kStart); };
  observe(SourcesQueryFrame(kNoIpV4, kNoIpV4, {}, 40, 5, 30), kThere);
  EXPECT_FALSE(table.IsRouterPort(kThere, kVlan, group));
  observe(JoinFrame(Generation::kLeave, group), kHere);
  EXPECT_EQ(table.Find(kHere, {kVlan, group})->until(), kStart + kLifetime);
  observe(ShortQueryFrame(kNoIpV4, group, 10), kThere);
  EXPECT_EQ(table.Find(kHere, {kVlan, group})->until(), kStart + kLeaving) << "but its question is one";
}

// ---- Asking ----

TEST_P(MulticastTableOf, AsksWhereAHostSeemsToLeave) {
  settings_.asks = true;
  settings_.robustness = 3;
  Join(Group(1));
  const MemberQuestion question{kHere, {kVlan, Group(1)}};
  EXPECT_EQ(Note(LeaveFrame(Generation::kLeave, Group(1))), std::vector{question});
  EXPECT_TRUE(table_.TakeQuestions(now_, settings_).empty()) << "not at once again";
  for (int i = 0; i < 2; ++i) {
    Pass(seconds(1) - Duration(1));
    EXPECT_TRUE(table_.TakeQuestions(now_, settings_).empty());
    Pass(Duration(1));
    EXPECT_EQ(table_.TakeQuestions(now_, settings_), std::vector{question});
  }
  Pass(seconds(1));
  EXPECT_TRUE(table_.TakeQuestions(now_, settings_).empty());
  EXPECT_FALSE(Wants(Group(1)));
}

TEST_P(MulticastTableOf, AsksAboutSourcesAndGroupApart) {
  settings_.asks = true;
  Observe(RecordsFrame(version(), {{RecordType::kToExclude, Group(1)}, {RecordType::kAllow, Group(1), {From(1)}}}));
  const auto questions = Note(RecordsFrame(version(), {{RecordType::kToInclude, Group(1), {From(2)}}}));
  const std::vector<MemberQuestion> expected{{kHere, {kVlan, Group(1)}}, {kHere, {kVlan, Group(1)}, {From(1)}}};
  EXPECT_EQ(questions, expected);
  Pass(seconds(1));
  EXPECT_EQ(table_.TakeQuestions(now_, settings_), expected);
}

TEST_P(MulticastTableOf, DoesNotAskAgainWhatWasAnswered) {
  settings_.asks = true;
  Join(Group(1));
  EXPECT_EQ(Note(LeaveFrame(Generation::kLeave, Group(1))).size(), 1U);
  Join(Group(1));
  Pass(seconds(1));
  EXPECT_TRUE(table_.TakeQuestions(now_, settings_).empty());
  Pass(seconds(100));
  EXPECT_TRUE(Wants(Group(1)));
}

TEST_P(MulticastTableOf, AQuestionThatIsLateIsAskedOnce) {
  settings_.asks = true;
  settings_.robustness = 5;
  Join(Group(1));
  Note(LeaveFrame(Generation::kLeave, Group(1)));
  Pass(seconds(3));
  EXPECT_EQ(table_.TakeQuestions(now_, settings_).size(), 1U);
  EXPECT_TRUE(table_.TakeQuestions(now_, settings_).empty());
}

TEST_P(MulticastTableOf, LeavesAskingToWhoeverElseDoes) {
  settings_.asks = true;
  Join(Group(1));
  Observe(ShortQueryFrame(Router(), Nobody(), Response(10)), kThere);
  EXPECT_TRUE(table_.HasOtherQuerier(kVlan, Group(1), now_, settings_));
  EXPECT_FALSE(table_.HasOtherQuerier(kVlan + 1, Group(1), now_, settings_));
  EXPECT_TRUE(Note(LeaveFrame(Generation::kLeave, Group(1))).empty());
  EXPECT_EQ(TimeLeft(Group(1)), kLeaving);
  Pass(seconds(255));
  EXPECT_FALSE(table_.HasOtherQuerier(kVlan, Group(1), now_, settings_));
}

TEST_P(MulticastTableOf, ItsOwnAddressMayBeTheLowest) {
  (IsV4() ? settings_.ipv4_router : settings_.ipv6_router) = Router(5);
  Observe(ShortQueryFrame(Router(6), Nobody(), Response(10)), kThere);
  EXPECT_FALSE(table_.HasOtherQuerier(kVlan, Group(1), now_, settings_));
  Observe(ShortQueryFrame(Router(4), Nobody(), Response(10)), kThere);
  EXPECT_TRUE(table_.HasOtherQuerier(kVlan, Group(1), now_, settings_));
}

TEST_P(MulticastTableOf, DoesNotAskUnlessItIsTo) {
  Join(Group(1));
  EXPECT_TRUE(Note(LeaveFrame(Generation::kLeave, Group(1))).empty());
  EXPECT_FALSE(table_.TakeGeneralQuery(now_, settings_));
}

TEST_P(MulticastTableOf, AsksForAllGroupsAtItsInterval) {
  settings_.asks = true;
  EXPECT_TRUE(table_.TakeGeneralQuery(now_, settings_)) << "at first";
  EXPECT_FALSE(table_.TakeGeneralQuery(now_, settings_));
  now_ += seconds(125) - Duration(1);
  EXPECT_FALSE(table_.TakeGeneralQuery(now_, settings_));
  now_ += Duration(1);
  EXPECT_TRUE(table_.TakeGeneralQuery(now_, settings_));
  now_ += seconds(1000);
  EXPECT_TRUE(table_.TakeGeneralQuery(now_, settings_));
  EXPECT_FALSE(table_.TakeGeneralQuery(now_, settings_)) << "what was missed is not made up for";
  settings_.query_interval = seconds(10);
  EXPECT_FALSE(table_.TakeGeneralQuery(now_, settings_));
  now_ += seconds(10);
  EXPECT_TRUE(table_.TakeGeneralQuery(now_, settings_)) << "a shorter interval counts at once";
}

// ---- Where nothing ages ----

TEST_P(MulticastTableOf, WhereNothingAgesAPortHasItsGroupsUntilItLeaves) {
  settings_.ages = false;
  Join(Group(1));
  Pass(std::chrono::hours(24 * 365));
  EXPECT_TRUE(Wants(Group(1)));
  Observe(ShortQueryFrame(Router(), Group(1), Response(1)), kThere);
  Pass(seconds(1000));
  EXPECT_TRUE(Wants(Group(1)));
  Leave(Group(1));
  EXPECT_FALSE(Wants(Group(1)));
}

TEST_P(MulticastTableOf, AgeingBeginsAndEndsWithItsSetting) {
  settings_.ages = false;
  Join(Group(1));
  Pass(seconds(5000));
  settings_.ages = true;
  table_.Follow(settings_, now_);
  EXPECT_EQ(TimeLeft(Group(1)), kLifetime);
  Pass(seconds(200));
  settings_.ages = false;
  table_.Follow(settings_, now_);
  Pass(seconds(5000));
  EXPECT_TRUE(Wants(Group(1)));
  settings_.ages = true;
  table_.Follow(settings_, now_);
  Pass(kLifetime);
  EXPECT_FALSE(Wants(Group(1)));
}

// ---- Limits ----

TEST_P(MulticastTableOf, TellsApartAsManySourcesAsItsSettingsSay) {
  (IsV4() ? settings_.ipv4_sources : settings_.ipv6_sources) = 2;
  Observe(RecordsFrame(version(), {{RecordType::kToInclude, Group(1), {From(1), From(2)}},
                                   {RecordType::kToInclude, Group(2), {From(1), From(2), From(3)}}}));
  EXPECT_FALSE(Wants(Group(1), kHere, kVlan, 9));
  EXPECT_TRUE(Wants(Group(2), kHere, kVlan, 9));
}

TEST_P(MulticastTableOf, SpeaksAsItsSettingsSay) {
  (IsV4() ? settings_.igmp : settings_.mld) = Generation::kLeave;
  Observe(RecordsFrame(version(), {{RecordType::kToInclude, Group(1), {From(1)}}}));
  EXPECT_TRUE(Wants(Group(1), kHere, kVlan, 9)) << "sources cannot be said";
}

TEST_P(MulticastTableOf, APortHasSoManyGroupsAndNoMore) {
  for (std::uint16_t i = 0; i < kMaxGroupsOfPort; ++i) Join(Group(i), kHere, static_cast<VlanId>(1 + i % 3));
  EXPECT_EQ(table_.GroupsOf(kHere).size(), kMaxGroupsOfPort);
  EXPECT_EQ(table_.counters().refused, 0U);
  Join(Group(2000));
  EXPECT_FALSE(Wants(Group(2000)));
  EXPECT_EQ(table_.counters().refused, 1U);
  Join(Group(2000), kThere);
  EXPECT_TRUE(Wants(Group(2000), kThere)) << "another port has its own";
  Join(Group(0), kHere, 1);
  EXPECT_EQ(table_.counters().refused, 1U) << "what it has it may renew";
  settings_.ages = false;
  Observe(LeaveFrame(Generation::kLeave, Group(0)), kHere, 1);
  Join(Group(2000));
  EXPECT_TRUE(Wants(Group(2000)));
}

TEST_P(MulticastTableOf, KnowsSoManyRoutersAndNoMore) {
  for (std::uint32_t i = 0; i < kMaxMulticastRouters; ++i) {
    Observe(PimHelloFrame(version(), Router(static_cast<std::uint8_t>(i)), 100), static_cast<PortId>(100 + i / 256));
  }
  EXPECT_EQ(table_.counters().refused, 0U);
  Observe(PimHelloFrame(version(), Router(1), 100), kHere);
  EXPECT_EQ(table_.counters().refused, 1U);
  EXPECT_FALSE(table_.IsRouterPort(kHere, kVlan, Group(1)));
  Observe(PimHelloFrame(version(), Router(1), 100), 100);
  EXPECT_EQ(table_.counters().refused, 1U);
}

// ---- Addresses ----

TEST_P(MulticastTableOf, GroupsBehindOneEthernetAddressShareIt) {
  const IpAddress one = IsV4() ? Ip("239.1.2.3") : Ip("ff0e::1:203");
  const IpAddress other = IsV4() ? Ip("224.129.2.3") : Ip("ff15::1:203");
  ASSERT_EQ(MacOfGroup(one), MacOfGroup(other));
  settings_.ages = false;
  Join(one);
  Join(other, kHere, kVlan + 1);
  EXPECT_EQ(table_.AddressesOf(kHere), std::vector{MacOfGroup(one)});
  EXPECT_TRUE(table_.HasJoined(kHere, MacOfGroup(one)));
  EXPECT_FALSE(table_.HasJoined(kThere, MacOfGroup(one)));
  EXPECT_FALSE(table_.HasJoined(kHere, MacOfGroup(Group(77))));
  Leave(one);
  EXPECT_TRUE(table_.HasJoined(kHere, MacOfGroup(one)));
  Observe(LeaveFrame(Generation::kLeave, other), kHere, kVlan + 1);
  EXPECT_FALSE(table_.HasJoined(kHere, MacOfGroup(one)));
  EXPECT_TRUE(table_.AddressesOf(kHere).empty());
}

TEST_P(MulticastTableOf, AFilterWithTooManyAddressesIsOpen) {
  for (std::uint16_t i = 1; i <= kMaxFilterAddresses; ++i) Join(Group(i));
  EXPECT_FALSE(table_.HasJoined(kHere, MacOfGroup(Group(500))));
  Join(Group(kMaxFilterAddresses + 1));
  EXPECT_TRUE(table_.HasJoined(kHere, MacOfGroup(Group(500))));
  EXPECT_FALSE(table_.HasJoined(kThere, MacOfGroup(Group(500))));
}

// ---- Ports that go ----

TEST_P(MulticastTableOf, APortTakesAllOfItsOwnAlong) {
  Join(Group(1), kThere);
  const MulticastTable before = table_;
  Join(Group(1), kHere);
  Join(Group(2), kHere);
  Observe(SourcesQueryFrame(Router(), Nobody(), {}, Response(4), 5, 30), kHere);
  table_.ForgetPort(kHere);
  EXPECT_TRUE(table_.GroupsOf(kHere).empty());
  EXPECT_FALSE(table_.HasJoined(kHere, MacOfGroup(Group(1))));
  EXPECT_FALSE(table_.IsRouterPort(kHere, kVlan, Group(1)));
  EXPECT_FALSE(table_.HasOtherQuerier(kVlan, Group(1), now_, settings_));
  EXPECT_EQ(table_.Members(kVlan, Group(2)), nullptr);
  EXPECT_TRUE(Wants(Group(1), kThere));
  EXPECT_EQ(table_.GroupsOf(kThere), before.GroupsOf(kThere));
}

// ---- Bytes and revisions ----

TEST_P(MulticastTableOf, ItsRevisionTellsOfEveryChange) {
  std::string bytes = table_.Save();
  std::uint64_t revision = table_.revision();
  const auto check = [&](const char *what, bool changes) {
    EXPECT_EQ(table_.Save() != bytes, changes) << what;
    EXPECT_EQ(table_.revision() != revision, changes) << what;
    bytes = table_.Save();
    revision = table_.revision();
  };
  Observe(DataFrame(From(), Group(1)));
  check("data", false);
  Pass(seconds(1));
  check("time over nothing", false);
  Join(Group(1));
  check("a membership", true);
  now_ += seconds(1);
  Join(Group(1));
  check("the same again", true);
  Pass(seconds(100));
  check("time", false);
  table_.ForgetPort(kThere);
  check("a port without anything", false);
  Observe(ShortQueryFrame(Router(), Nobody(), Response(10)), kThere);
  check("a query", true);
  Octets broken = JoinFrame(Generation::kLeave, Group(1));
  broken.back() ^= 1;
  Observe(broken);
  check("a malformed message", true);
  Pass(seconds(160));
  check("the end of a membership", true);
  table_.ForgetPort(kThere);
  check("the end of a router", true);
  settings_.asks = true;
  EXPECT_TRUE(table_.TakeGeneralQuery(now_, settings_));
  check("a query of its own", true);
  settings_.ages = false;
  table_.Follow(settings_, now_);
  check("the end of ageing", true);
}

MulticastTable Busy(IpVersion version) {
  MulticastTable table;
  MulticastSettings settings{.asks = true, .robustness = 4};
  const auto observe = [&](const Octets &bytes, PortId port, VlanId vlan) {
    table.Observe(port, vlan, Frame(bytes), kStart, settings);
  };
  table.TakeGeneralQuery(kStart, settings);
  for (std::uint16_t i = 0; i < 20; ++i) {
    observe(JoinFrame(Generation::kLeave, GroupOf(version, i)), kHere + i % 3, static_cast<VlanId>(i % 4));
  }
  observe(RecordsFrame(version, {{RecordType::kToExclude, GroupOf(version, 30), {SourceOf(version, 1)}},
                                 {RecordType::kAllow, GroupOf(version, 30), {SourceOf(version, 2)}},
                                 {RecordType::kToInclude, GroupOf(version, 30), {SourceOf(version, 3)}}}),
          kHere, kVlan);
  observe(PimHelloFrame(version, NeighbourOf(version, 3), 100), kThere, kVlan);
  observe(SourcesQueryFrame(NeighbourOf(version, 9), NobodyOf(version), {}, 5000, 3, 77), kElsewhere, 7);
  Octets broken = JoinFrame(Generation::kLeave, GroupOf(version, 1));
  broken.back() ^= 1;
  observe(broken, kHere, 0);
  return table;
}

TEST_P(MulticastTableOf, IsKeptInBytes) {
  const MulticastTable table = Busy(version());
  MulticastTable loaded = MulticastTable::Load(table.Save());
  EXPECT_EQ(loaded, table);
  EXPECT_EQ(loaded.Save(), table.Save());
  EXPECT_EQ(MulticastTable::Load(MulticastTable().Save()), MulticastTable());

  // It goes on as the first one does.
  MulticastTable first = table;
  for (const Duration later : {seconds(0), seconds(1), seconds(2), seconds(5), seconds(50), seconds(400)}) {
    const TimePoint now = kStart + later;
    settings_.asks = true;
    first.Expire(now);
    loaded.Expire(now);
    EXPECT_EQ(loaded.TakeQuestions(now, settings_), first.TakeQuestions(now, settings_));
    EXPECT_EQ(loaded, first);
    for (const PortId port : {kHere, kThere, kElsewhere}) {
      EXPECT_EQ(loaded.GroupsOf(port), first.GroupsOf(port));
      EXPECT_EQ(loaded.AddressesOf(port), first.AddressesOf(port));
    }
  }
}

TEST_P(MulticastTableOf, EqualTablesAreEqualBytes) {
  MulticastTable forward;
  MulticastTable backward;
  for (std::uint16_t i = 0; i < 50; ++i) {
    const Octets there = JoinFrame(Generation::kLeave, Group(i));
    forward.Observe(kHere, kVlan, Frame(there), kStart);
    const Octets back = JoinFrame(Generation::kLeave, Group(static_cast<std::uint16_t>(49 - i)));
    backward.Observe(kHere, kVlan, Frame(back), kStart);
  }
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(forward.Save(), backward.Save());
}

TEST_P(MulticastTableOf, BytesThatAreNoneAreRefused) {
  const std::string bytes = Busy(version()).Save();
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, MulticastTable::Load(bytes.substr(0, size))) << size;
  }
  EXPECT_STATUS(ZEL_INVALID_METADATA, MulticastTable::Load(bytes + '\0'));
  std::string other = bytes;
  other[0] = 2;
  EXPECT_STATUS(ZEL_INVALID_METADATA, MulticastTable::Load(other)) << "another format";
}

TEST_P(MulticastTableOf, DamagedBytesAreRefusedOrAreATable) {
  const std::string bytes = Busy(version()).Save();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    for (const int flip : {1, 0x80, 0xff}) {
      std::string damaged = bytes;
      damaged[i] = static_cast<char>(damaged[i] ^ flip);
      const int status = StatusOf([&] {
        MulticastTable loaded = MulticastTable::Load(damaged);
        // What is let in works.
        loaded.Expire(kStart + seconds(1000));
        for (const PortId port : {kHere, kThere, kElsewhere}) loaded.ForgetPort(port);
        EXPECT_EQ(MulticastTable::Load(loaded.Save()), loaded);
      });
      EXPECT_TRUE(status == ZEL_OK || status == ZEL_INVALID_METADATA) << i << ": " << status;
    }
  }
}

// ---- Against the plain model ----

TEST_P(MulticastTableOf, AgreesWithThePlainModelWhateverItHears) {
  constexpr VlanId kVlans[] = {0, kVlan};
  constexpr PortId kPorts[] = {kHere, kThere, kElsewhere};
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](unsigned bound) { return random() % bound; };
    MulticastTable table;
    ReferenceGroups plain;
    MulticastSettings settings;
    settings.ages = seed % 5 != 0;
    (IsV4() ? settings.ipv4_sources : settings.ipv6_sources) = 1 + seed % 4;
    const auto latest = static_cast<Generation>(IsV4() ? 1 + seed % 3 : 2 + seed % 2);
    (IsV4() ? settings.igmp : settings.mld) = seed % 2 == 0 ? Generation::kSources : latest;
    const MembershipRules rules{.lifetime = settings.ages ? kLifetime : Duration::max(),
                                .leaving = settings.ages ? kLeaving : Duration(0),
                                .sources = 1 + seed % 4,
                                .generation = IsV4() ? settings.igmp : settings.mld};
    TimePoint now = kStart;
    table.Follow(settings, now);
    for (int step = 0; step < 150; ++step) {
      const PortId port = kPorts[below(3)];
      const VlanId vlan = kVlans[below(2)];
      const IpAddress group = Group(static_cast<std::uint16_t>(below(3)));
      const auto some_sources = [&] {
        std::vector<IpAddress> sources;
        for (std::uint16_t i = 0; i < 4; ++i) {
          if (below(3) == 0) sources.push_back(From(i));
        }
        return sources;
      };
      const auto hear = [&](const Octets &bytes) { table.Observe(port, vlan, Frame(bytes), now, settings); };
      switch (below(10)) {
        case 0:
        case 1:
        case 2: {
          std::vector<GroupRecord> records;
          for (unsigned i = 0; i <= below(3); ++i) {
            records.push_back(
                {static_cast<RecordType>(1 + below(6)), Group(static_cast<std::uint16_t>(below(3))), some_sources()});
          }
          hear(RecordsFrame(version(), records));
          for (const GroupRecord &record : records) {
            plain.Report(port, vlan, record, Generation::kSources, rules, now);
          }
          break;
        }
        case 3:
        case 4: {
          const bool is_first = IsV4() && below(4) == 0;
          const Generation generation = is_first ? Generation::kJoin : Generation::kLeave;
          hear(JoinFrame(generation, group));
          plain.Report(port, vlan, {RecordType::kIsExclude, group}, generation, rules, now);
          break;
        }
        case 5:
          hear(LeaveFrame(Generation::kLeave, group));
          plain.Report(port, vlan, {RecordType::kToInclude, group}, Generation::kLeave, rules, now);
          break;
        case 6: {
          const auto sources = some_sources();
          const bool spares = below(3) == 0;
          hear(SourcesQueryFrame(Router(), group, sources, Response(1), spares ? 8 | 2 : 2));
          if (!spares && settings.ages) plain.Query(port, vlan, group, sources, now + kLeaving);
          break;
        }
        case 7: {
          Octets broken = RecordsFrame(version(), {{RecordType::kToExclude, group, some_sources()}});
          broken[kEthernetHeaderSize + below(static_cast<unsigned>(broken.size() - kEthernetHeaderSize))] ^=
              static_cast<std::uint8_t>(1 << below(8));
          if (!std::holds_alternative<GroupReport>(ReadGroupMessage(Frame(broken)))) hear(broken);
          break;
        }
        case 8:
          if (below(8) == 0) {
            table.ForgetPort(port);
            plain.ForgetPort(port);
          }
          break;
        default: {
          const Duration steps[] = {milliseconds(1), seconds(1), seconds(2), seconds(70), seconds(259), seconds(261)};
          now += steps[below(6)];
          table.Expire(now);
          plain.Expire(now);
          break;
        }
      }

      std::size_t known = 0;
      for (const PortId each : kPorts) {
        known += table.GroupsOf(each).size();
        for (const GroupKey &key : table.GroupsOf(each)) {
          const ReferenceMembership *expected = plain.Find(each, key.vlan, key.group);
          const Membership *real = table.Find(each, key);
          ASSERT_NE(real, nullptr);
          ASSERT_NE(expected, nullptr) << "seed " << seed << ", step " << step;
          ASSERT_TRUE(Agrees(*real, *expected)) << "seed " << seed << ", step " << step;
          for (std::uint16_t i = 0; i < 5; ++i) {
            const Octets data = DataFrame(From(i), key.group);
            ASSERT_EQ(table.Wants(each, key.vlan, Frame(data)),
                      expected->Wants(From(i)) || table.IsRouterPort(each, key.vlan, key.group));
          }
        }
      }
      ASSERT_EQ(known, plain.items.size()) << "seed " << seed << ", step " << step;
    }
    ASSERT_EQ(MulticastTable::Load(table.Save()), table) << "seed " << seed;
  }
}

}  // namespace
}  // namespace kestrel::host
