#include "host/core/teaming/lacp.h"

#include <gtest/gtest.h>

#include <set>

#include "host/core/teaming/lag_status.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr LacpPartner kSilent{.mode = LacpMode::kNone};

/** The group "bond", number 9, over all uplinks. */
class Lacp : public testing::Test {
 protected:
  void Begin(int uplinks, int clients, const LacpPartner &partner = {}) {
    host_ = std::make_unique<TeamHost>(uplinks, clients);
    std::vector<std::string> members;
    for (int i = 0; i < uplinks; ++i) {
      members.push_back("up" + std::to_string(i));
      SetPartner(i, partner);
    }
    host()->AddLag(kAlias, {.id = 9, .name = "bond", .members = members});
  }
  TeamHost &host() { return *host_; }

  void SetPartner(int nic, const LacpPartner &partner) {
    host().ChangeNic(nic, [&](Nic &changed) { changed.partner = partner; });
  }
  /** Bit i for the i-th member. */
  std::uint64_t InService() {
    const LagStatus status = StatusOfLag(*host(), host().owner(), *host().owner().config.lags().Find(9));
    EXPECT_EQ(status.state == ZEL_LINK_STATE_UP, status.up_members != 0);
    return status.up_members;
  }
  void Capture(int uplink) { host()->StartCapture(kAlias, "up" + std::to_string(uplink)); }
  /** The LACPDUs that have left an uplink since the last time. */
  std::vector<std::pair<TimePoint, Lacpdu>> Sent(int uplink) {
    std::vector<std::pair<TimePoint, Lacpdu>> sent;
    for (const CapturedFrame &captured : host()->TakeCapture(kAlias, "up" + std::to_string(uplink)).frames) {
      const Frame frame(captured.bytes);
      EXPECT_EQ(frame.destination(), kSlowProtocols);
      EXPECT_EQ(frame.source(), host()->nics().Get("nic" + std::to_string(uplink)).address);
      EXPECT_FALSE(frame.tag().has_value());
      EXPECT_EQ(captured.bytes.size(), 124U);
      const auto pdu = LacpduIn(frame);
      EXPECT_TRUE(pdu.has_value());
      if (pdu) sent.emplace_back(captured.time, *pdu);
    }
    return sent;
  }
  /** Lets the far end of an uplink send an LACPDU. */
  bool Hear(int uplink, const Lacpdu &pdu) {
    const auto bytes = BytesOfLacpdu(pdu, Station(200));
    const Port &port = host().port("up" + std::to_string(uplink));
    return HandleUplinkControlFrame(*host(), host().owner(), port, Frame(bytes));
  }
  /** What a far end says that has heard `pdu`. */
  static Lacpdu Answer(const Lacpdu &pdu, std::uint8_t state, std::uint16_t key = 5) {
    return {.actor = {.system_priority = 100,
                      .system = Station(200),
                      .key = key,
                      .port_priority = 7,
                      .port = pdu.actor.port,
                      .state = state},
            .partner = pdu.actor};
  }

 private:
  std::unique_ptr<TeamHost> host_;
};

constexpr std::uint8_t kAll =
    kLacpActivity | kLacpAggregation | kLacpSynchronization | kLacpCollecting | kLacpDistributing;

TEST_F(Lacp, FramesAreReadAsTheyWereWritten) {
  const Lacpdu pdu{.actor = {1, Station(2), 3, 4, 5, 6}, .partner = {7, Station(8), 9, 10, 11, 12}};
  const auto bytes = BytesOfLacpdu(pdu, Station(1));
  EXPECT_EQ(LacpduIn(Frame(bytes)), pdu);
  for (std::size_t size = 14; size < 14 + 42; ++size) {
    EXPECT_FALSE(LacpduIn(Frame(FrameBytes(bytes).first(size))).has_value()) << size;
  }
  // Destination, type, subtype, and the kind and size of both parts.
  for (const std::size_t at : {5U, 13U, 14U, 16U, 17U, 36U, 37U}) {
    auto spoilt = bytes;
    spoilt[at] ^= 0x40;
    EXPECT_FALSE(LacpduIn(Frame(spoilt)).has_value()) << at;
  }
}

TEST_F(Lacp, APartnerThatTakesPartPutsMembersInService) {
  for (const LacpMode mode : {LacpMode::kNone, LacpMode::kPassive, LacpMode::kActive}) {
    Begin(2, 0, {.mode = mode});
    EXPECT_EQ(InService(), mode == LacpMode::kNone ? 0b00U : 0b11U);
    host().SetLink(0, false);
    EXPECT_EQ(InService(), mode == LacpMode::kNone ? 0b00U : 0b10U);
  }
}

TEST_F(Lacp, AMemberIsInServiceWhileTheFarEndCollects) {
  Begin(2, 0);
  SetPartner(1, {.collects = false});
  EXPECT_EQ(InService(), 0b01U);
  SetPartner(1, {.distributes = false});
  EXPECT_EQ(InService(), 0b11U) << "what it sends is its own affair";
}

TEST_F(Lacp, OnlyFullDuplexLinksAreAggregated) {
  Begin(2, 0);
  host().ChangeNic(0, [](Nic &nic) { nic.link.duplex = ZEL_LINK_DUPLEX_HALF; });
  EXPECT_EQ(InService(), 0b10U);
}

TEST_F(Lacp, AGroupEndsAtOneSystemWithOneKey) {
  Begin(4, 0);
  EXPECT_EQ(InService(), 0b1111U);
  SetPartner(0, {.key = 2});
  EXPECT_EQ(InService(), 0b1110U) << "the most agree on the other";
  SetPartner(1, {.key = 2});
  EXPECT_EQ(InService(), 0b0011U) << "of two that are as many, the earlier";
  SetPartner(2, {.system = Station(77)});
  SetPartner(3, {.system_priority = 1});
  EXPECT_EQ(InService(), 0b0011U);
}

TEST_F(Lacp, APartnerThatFallsSilentIsForgottenAfterThreePeriods) {
  Begin(2, 0);
  host()->AdvanceClock(seconds(10));
  SetPartner(0, kSilent);
  EXPECT_EQ(InService(), 0b11U);
  host()->AdvanceClock(seconds(89));
  EXPECT_EQ(InService(), 0b11U);
  host()->AdvanceClock(seconds(1));
  EXPECT_EQ(InService(), 0b10U);
  SetPartner(0, {});
  EXPECT_EQ(InService(), 0b11U);
}

TEST_F(Lacp, ALinkThatFailsForgetsItsPartnerAtOnce) {
  Begin(1, 0);
  SetPartner(0, kSilent);
  host().SetLink(0, false);
  host().SetLink(0, true);
  EXPECT_EQ(InService(), 0U);
}

TEST_F(Lacp, SendsAtTheSlowRateUnlessTheFarEndWantsMore) {
  Begin(1, 0);
  Capture(0);
  const auto times = [&] {
    std::vector<TimePoint> times;
    for (const auto &[time, pdu] : Sent(0)) times.push_back(time);
    return times;
  };
  host()->AdvanceClock(seconds(100));
  EXPECT_EQ(times(), (std::vector<TimePoint>{seconds(0), seconds(30), seconds(60), seconds(90)}));
  SetPartner(0, {.short_timeout = true});
  host()->AdvanceClock(seconds(23));
  EXPECT_EQ(times(), (std::vector<TimePoint>{seconds(120), seconds(121), seconds(122), seconds(123)}));
}

TEST_F(Lacp, SaysWhoItIsAndWhatItKnows) {
  Begin(2, 0, {.system_priority = 3, .system = Station(9), .key = 4});
  Capture(0);
  Capture(1);
  host()->AdvanceClock(seconds(1));
  const auto first = Sent(0);
  const auto second = Sent(1);
  ASSERT_EQ(first.size(), 1U);
  ASSERT_EQ(second.size(), 1U);
  const Lacpdu &pdu = first[0].second;
  EXPECT_TRUE(pdu.actor.IsSameGroup(second[0].second.actor));
  EXPECT_NE(pdu.actor.port, second[0].second.actor.port);
  EXPECT_EQ(pdu.actor.key, 9);
  EXPECT_TRUE(IsStation(pdu.actor.system));
  EXPECT_EQ(pdu.actor.state, kAll);
  EXPECT_EQ(pdu.partner.system_priority, 3);
  EXPECT_EQ(pdu.partner.system, Station(9));
  EXPECT_EQ(pdu.partner.key, 4);
}

TEST_F(Lacp, GoesIntoServiceByFrames) {
  Begin(1, 0, kSilent);
  Capture(0);
  host()->AdvanceClock(seconds(1));
  auto sent = Sent(0);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].second.actor.state, kLacpActivity | kLacpAggregation | kLacpDefaulted);
  EXPECT_EQ(sent[0].second.partner, LacpEnd{});

  EXPECT_TRUE(Hear(0, Answer(sent[0].second, kLacpActivity | kLacpAggregation)));
  EXPECT_EQ(InService(), 0U) << "not in step yet";
  host()->AdvanceClock(seconds(1));
  sent = Sent(0);
  ASSERT_EQ(sent.size(), 1U) << "told at once what it did not know";
  EXPECT_EQ(sent[0].second.actor.state, kLacpActivity | kLacpAggregation | kLacpSynchronization);
  EXPECT_EQ(sent[0].second.partner.system, Station(200));

  Hear(0, Answer(sent[0].second, kLacpActivity | kLacpAggregation | kLacpSynchronization));
  EXPECT_EQ(InService(), 0U) << "in step, and not collecting";
  host()->AdvanceClock(seconds(1));
  sent = Sent(0);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_TRUE(sent[0].second.actor.Says(kLacpCollecting));
  EXPECT_FALSE(sent[0].second.actor.Says(kLacpDistributing));

  Hear(0, Answer(sent[0].second, kAll));
  EXPECT_EQ(InService(), 1U);
  host()->AdvanceClock(seconds(1));
  sent = Sent(0);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].second.actor.state, kAll);

  Hear(0, Answer(sent[0].second, kAll));
  host()->AdvanceClock(seconds(1));
  EXPECT_TRUE(Sent(0).empty()) << "nothing new";
  host()->AdvanceClock(seconds(88));
  EXPECT_EQ(InService(), 1U);
  host()->AdvanceClock(seconds(1));
  EXPECT_EQ(InService(), 0U) << "90 seconds of silence";
}

TEST_F(Lacp, AFarEndThatMeansAnotherPortIsNotInStep) {
  Begin(2, 0, kSilent);
  Capture(0);
  host()->AdvanceClock(seconds(1));
  const Lacpdu sent = Sent(0).at(0).second;
  const auto hear = [&](auto spoil) {
    Lacpdu pdu = Answer(sent, kAll);
    spoil(pdu);
    Hear(0, pdu);
    return InService();
  };
  EXPECT_EQ(hear([](Lacpdu &pdu) { pdu.partner.system = Station(1); }), 0U);
  EXPECT_EQ(hear([](Lacpdu &pdu) { pdu.partner.key = 77; }), 0U);
  EXPECT_EQ(hear([](Lacpdu &pdu) { ++pdu.partner.port; }), 0U);
  EXPECT_EQ(hear([](Lacpdu &pdu) { pdu.partner.state = 0; }), 0U);
  EXPECT_EQ(hear([](Lacpdu &pdu) { pdu.actor.state &= static_cast<std::uint8_t>(~kLacpAggregation); }), 0U);
  EXPECT_EQ(hear([](Lacpdu & /*pdu*/) {}), 1U);
  EXPECT_EQ(hear([](Lacpdu &pdu) { pdu.actor.state &= static_cast<std::uint8_t>(~kLacpSynchronization); }), 0U);
}

TEST_F(Lacp, ALongAdvanceSendsSomeFramesAndNotMillions) {
  Begin(2, 0, {.short_timeout = true});
  Capture(0);
  host()->AdvanceClock(std::chrono::hours(24 * 365));
  EXPECT_EQ(Sent(0).size(), 120U);
  EXPECT_EQ(InService(), 0b11U);
  host()->AdvanceClock(seconds(3));
  EXPECT_EQ(Sent(0).size(), 3U);
}

TEST_F(Lacp, FramesOfAGroupGoOutThroughMembersInService) {
  Begin(4, 1);
  host().SetPolicy({.active = {"bond"}});
  const auto used = [&] {
    std::set<std::string> names;
    for (std::uint16_t i = 0; i < 200; ++i) {
      names.insert(host().Choice("p0", Frame(UdpFrame(Station(1), Station(2), 1, 2, i))));
    }
    return names;
  };
  EXPECT_EQ(used(), (std::set<std::string>{"up0", "up1", "up2", "up3"}));
  SetPartner(1, {.collects = false});
  host().SetLink(3, false);
  EXPECT_EQ(used(), (std::set<std::string>{"up0", "up2"}));
  SetPartner(0, {.collects = false});
  SetPartner(2, {.collects = false});
  EXPECT_EQ(used(), std::set<std::string>{""});
  EXPECT_EQ(host().Choice("p0", Frame(UdpFrame(Station(1), Station(2), 1, 2, 3))), "");
}

TEST_F(Lacp, TheCriterionAndTheFlagLookAtTheGroup) {
  for (const bool by_flag : {false, true}) {
    Begin(2, 1);
    host()->AddNic("nic9", kUp);
    host()->AddUplink(kAlias, "alone", "alone");
    host()->Connect(kAlias, "alone", {.type = VS_PORT_CLIENT_UPLINK, .name = "nic9"});
    PolicyWish wish{.balance = TEAM_FRP_TYPE_FO_EXPLICIT, .active = {"up0", "alone", "up1"}};
    if (by_flag) {
      wish.flags = TEAM_FRP_FLAG_LACP_CLIENT;
    } else {
      wish.criteria = TEAM_FRP_CRIT_LINK_STATE | TEAM_FRP_CRIT_LACP_PORT_DOWN;
    }
    host().SetPolicy(wish);
    EXPECT_EQ(host().Choice("p0"), "up0");
    SetPartner(0, {.collects = false});
    EXPECT_EQ(host().Choice("p0"), by_flag ? "up1" : "alone") << "a client of LACP uses no uplink without it";
  }
}

TEST_F(Lacp, AMemberThatFailsIsNoMoveForTheNetwork) {
  Begin(2, 3);
  host().SetPolicy({.active = {"bond"}, .flags = TEAM_FRP_FLAG_NOTIFY_SWITCH});
  const std::uint32_t before = host().owner().runtime.team.state().announcements.sent;
  EXPECT_EQ(before, 3U) << "from uplinks of its own to the group";
  host().SetLink(0, false);
  EXPECT_EQ(host().owner().runtime.team.state().announcements.sent, before);
}

TEST_F(Lacp, FramesForTheNearestBridgeGoNoFurther) {
  Begin(1, 1);
  const auto is_taken = [&](const char *port, const MacAddress &destination) {
    const auto bytes = UdpFrame(Station(1), destination, 1, 2);
    return HandleUplinkControlFrame(*host(), host().owner(), host().port(port), Frame(bytes));
  };
  for (int i = 0; i <= 0xff; ++i) {
    const MacAddress destination{0x01, 0x80, 0xc2, 0, 0, static_cast<std::uint8_t>(i)};
    EXPECT_EQ(is_taken("up0", destination), i <= 0x0f) << i;
    EXPECT_EQ(is_taken("p0", destination), i <= 0x0f) << i;
  }
  EXPECT_FALSE(is_taken("up0", {0x01, 0x80, 0xc2, 0, 1, 0}));
  EXPECT_FALSE(is_taken("up0", {0x01, 0x80, 0xc3, 0, 0, 0}));
  EXPECT_FALSE(is_taken("up0", {0x03, 0x80, 0xc2, 0, 0, 0}));
  EXPECT_FALSE(is_taken("up0", kBroadcast));
}

}  // namespace
}  // namespace kestrel::host
