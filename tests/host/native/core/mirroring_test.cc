#include "host/core/mirroring/mirroring.h"

#include <random>
#include <set>

#include "host/core/both.h"
#include "tests/host/native/support/mirror_sessions.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/tunnel_decoder.h"

namespace kestrel::host {
namespace {

constexpr VlanId kVlan = 20;

class Mirroring : public testing::Test {
 protected:
  Mirroring() : host_(MakeTestHost()) {
    host_->AddPort(kAlias, "probe");
    host_->Connect(kAlias, "probe", {VS_PORT_CLIENT_VNIC, "probe.eth0", {}, {}});
  }

  /** The copies of a frame that passes a port. */
  std::vector<MirrorCopy> Pass(std::string_view port, MirrorDirection direction, const Octets &bytes = FrameOf({}),
                               VlanId vlan = kVlan) {
    return MirrorCopies(*host_, owner(), owner().config.PortNamed(port), direction, vlan, Frame(bytes));
  }
  std::vector<MirrorCopy> PassIn(std::string_view port, const Octets &bytes = FrameOf({}), VlanId vlan = kVlan) {
    return Pass(port, MirrorDirection::kIn, bytes, vlan);
  }

  /** Where the copies of a frame go. */
  std::vector<std::string> WaysOf(const std::vector<MirrorCopy> &copies) {
    std::vector<std::string> names;
    for (const MirrorCopy &copy : copies) names.push_back(owner().config.ports().Find(copy.port)->name);
    return names;
  }

  MirrorCounters Counted(std::string_view session = "s") {
    const MirrorProgress *progress = owner().runtime.mirrors.Find(session);
    return progress == nullptr ? MirrorCounters{} : progress->counters;
  }

  Switch &owner() { return const_cast<Switch &>(std::as_const(*host_).FindSwitch(kAlias)); }
  Host &host() { return *host_; }

 private:
  std::unique_ptr<Host> host_;
};

using Names = std::vector<std::string>;

const std::vector<DVMirrorEntity> kToProbe{EntityOfPort("probe")};

// ---- Sources ----

TEST_F(Mirroring, CopiesNothingWithoutSessions) {
  EXPECT_TRUE(PassIn("machine").empty());
  EXPECT_EQ(owner().runtime.mirrors.revision(), 0U);
}

TEST_F(Mirroring, CopiesAFrameAsItIs) {
  SetPortSessions(host(), "machine", {{.to = kToProbe}});
  const Octets frame = FrameOf({.size = 1000});
  const auto copies = PassIn("machine", frame, 0);
  ASSERT_EQ(WaysOf(copies), Names{"probe"});
  EXPECT_EQ(copies[0].bytes, frame);
}

TEST_F(Mirroring, WatchesItsOwnPortWhereTheSessionNamesNoSource) {
  SetPortSessions(host(), "machine", {{.to = kToProbe}});
  for (const auto direction : {MirrorDirection::kIn, MirrorDirection::kOut}) {
    EXPECT_EQ(Pass("machine", direction).size(), 1U);
    EXPECT_TRUE(Pass("service", direction).empty());
    EXPECT_TRUE(Pass("u1", direction).empty());
  }
}

TEST_F(Mirroring, WatchesTheUplinksForTheSwitchWhereTheSessionNamesNoSource) {
  SetUplinkSessions(host(), {{.to = kToProbe}});
  for (const auto direction : {MirrorDirection::kIn, MirrorDirection::kOut}) {
    EXPECT_EQ(Pass("u1", direction).size(), 1U);
    EXPECT_EQ(Pass("u3", direction).size(), 1U);
    EXPECT_TRUE(Pass("machine", direction).empty());
  }
}

TEST_F(Mirroring, WatchesTheUplinksForAPortThatAsksForThem) {
  SetPortSessions(host(), "probe", {{.flags = VS_DVMIRROR_FLAG_SRC_UPLINK_MIRROR, .to = kToProbe}});
  EXPECT_EQ(PassIn("u1").size(), 1U);
  EXPECT_TRUE(PassIn("probe").empty());
  EXPECT_TRUE(PassIn("machine").empty());
}

/** A source, and whether it is met by the frame below: at the port "machine", at the port "service", at the uplink
    "left" of a session over ports and of one over uplinks. */
struct SourceCase {
  const char *name;
  std::function<DVMirrorEntity(const SwitchConfig &, MirrorDirection)> source;
  bool at_machine, at_service, at_uplink, at_uplink_of_switch;
};

TEST_F(Mirroring, WatchesWhatItsSourcesNameInTheirDirectionOnly) {
  const TestPacket packet{};
  const Octets frame = FrameOf(packet);
  const auto port_id = [](const SwitchConfig &config, const char *name) { return config.PortNamed(name).id; };
  const SourceCase cases[] = {
      {"port", [](auto &, auto) { return EntityOfPort("machine"); }, true, false, false, false},
      {"number", [&](auto &config, auto) { return EntityOfNumber(port_id(config, "machine")); }, true, false, false,
       false},
      {"uplink", [](auto &, auto) { return EntityOfUplink("left"); }, false, false, true, true},
      {"nic", [](auto &, auto) { return EntityOfUplink("nic-l"); }, false, false, true, true},
      {"group", [](auto &, auto) { return EntityOfUplink("bond"); }, false, false, true, true},
      {"port of an uplink", [](auto &, auto) { return EntityOfPort("u1"); }, false, false, true, true},
      {"vlan", [](auto &, auto) { return EntityOfVlan(kVlan); }, true, true, false, true},
      {"other vlan", [](auto &, auto) { return EntityOfVlan(kVlan + 1); }, false, false, false, false},
      {"station",
       [&](auto &, MirrorDirection direction) {
         return EntityOfStation(direction == MirrorDirection::kIn ? packet.from : packet.to);
       },
       true, true, false, true},
      {"station of the other end",
       [&](auto &, MirrorDirection direction) {
         return EntityOfStation(direction == MirrorDirection::kIn ? packet.to : packet.from);
       },
       false, false, false, false},
      {"address",
       [&](auto &, MirrorDirection direction) {
         return EntityOfAddress(direction == MirrorDirection::kIn ? packet.source : packet.destination);
       },
       true, true, false, true},
      {"address of the other end",
       [&](auto &, MirrorDirection direction) {
         return EntityOfAddress(direction == MirrorDirection::kIn ? packet.destination : packet.source);
       },
       false, false, false, false},
      {"unknown port", [](auto &, auto) { return EntityOfPort("nowhere"); }, false, false, false, false},
      {"unknown uplink", [](auto &, auto) { return EntityOfUplink("nowhere"); }, false, false, false, false},
      {"unknown number", [](auto &, auto) { return EntityOfNumber(1); }, false, false, false, false}};
  for (const SourceCase &each : cases) {
    for (const auto watched : {MirrorDirection::kIn, MirrorDirection::kOut}) {
      const std::vector<DVMirrorEntity> named{each.source(owner().config, watched)};
      TestSession session{.to = kToProbe};
      (watched == MirrorDirection::kIn ? session.in : session.out) = named;
      for (const bool is_of_switch : {false, true}) {
        SetPortSessions(host(), "free", {});
        SetUplinkSessions(host(), {});
        if (is_of_switch) {
          SetUplinkSessions(host(), {session});
        } else {
          SetPortSessions(host(), "free", {session});
        }
        for (const auto passed : {MirrorDirection::kIn, MirrorDirection::kOut}) {
          const auto is_copied = [&](const char *port) { return !Pass(port, passed, frame).empty(); };
          const bool is_watched = passed == watched;
          const std::string what = std::string(each.name) + (is_of_switch ? " of the switch" : " of a port");
          const bool anywhere =
              !is_of_switch || named[0].type == MIRROR_ENTTYPE_DVPORT || named[0].type == MIRROR_ENTTYPE_PORT;
          EXPECT_EQ(is_copied("machine"), is_watched && each.at_machine && anywhere) << what;
          EXPECT_EQ(is_copied("service"), is_watched && each.at_service && anywhere) << what;
          EXPECT_EQ(is_copied("u1"), is_watched && (is_of_switch ? each.at_uplink_of_switch : each.at_uplink)) << what;
        }
      }
    }
  }
}

TEST_F(Mirroring, WatchesClientsByTheirKind) {
  const struct {
    int wildcard;
    Names ports;
  } cases[] = {{VS_DVMIRROR_WILDCARD_VMM, {"machine"}},
               {VS_DVMIRROR_WILDCARD_TCPIP, {"service"}},
               {VS_DVMIRROR_WILDCARD_PNIC, {"u1", "u3"}},
               {VS_DVMIRROR_WILDCARD_COS, {}},
               {VS_DVMIRROR_WILDCARD_TEST, {}},
               {VS_DVMIRROR_WILDCARD_VMM | VS_DVMIRROR_WILDCARD_TCPIP, {"machine", "service"}}};
  for (const auto &[wildcard, ports] : cases) {
    for (const auto direction : {MirrorDirection::kIn, MirrorDirection::kOut}) {
      TestSession session{.to = kToProbe};
      (direction == MirrorDirection::kIn ? session.wild_in : session.wild_out) = static_cast<zel_uint16>(wildcard);
      SetPortSessions(host(), "free", {session});
      Names watched;
      for (const char *port : {"machine", "service", "free", "u1", "u2", "u3"}) {
        if (!Pass(port, direction).empty()) watched.emplace_back(port);
        const auto other = direction == MirrorDirection::kIn ? MirrorDirection::kOut : MirrorDirection::kIn;
        EXPECT_TRUE(Pass(port, other).empty());
      }
      EXPECT_EQ(watched, ports) << wildcard;
    }
  }
}

TEST_F(Mirroring, FindsPortsOfAnotherControllerByItsNames) {
  host().AddPort(kAlias, "p9", "logical-9");
  host().Connect(kAlias, "p9", {VS_PORT_CLIENT_VNIC, "vm9.eth0", {}, {}});
  TestSession session{.type = VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT,
                      .to = {EntityOfPort("logical-9")},
                      .in = {EntityOfPort("machine")}};
  SetPortSessions(host(), "free", {session});
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"p9"});
  session.type = VS_DVMIRROR_SESSIONTYPE_DVPORT;
  SetPortSessions(host(), "free", {session});
  EXPECT_TRUE(PassIn("machine").empty());
}

TEST_F(Mirroring, TakesWhatAnotherSwitchMirrorsFromTheUplinks) {
  TestSession session{.type = VS_DVMIRROR_SESSIONTYPE_RMIRROR_DST, .to = kToProbe, .in = {EntityOfVlan(300)}};
  SetPortSessions(host(), "probe", {session});
  EXPECT_EQ(WaysOf(PassIn("u1", FrameOf({.tags = {{.vlan = 300}}}), 300)), Names{"probe"});
  EXPECT_TRUE(PassIn("u1", FrameOf({}), kVlan).empty());
  EXPECT_TRUE(PassIn("machine", FrameOf({}), 300).empty());
  session.in.clear();
  session.encap_vlan = 301;
  SetPortSessions(host(), "probe", {session});
  EXPECT_EQ(PassIn("u1", FrameOf({}), 301).size(), 1U);
  EXPECT_TRUE(PassIn("u1", FrameOf({}), 300).empty());
}

TEST_F(Mirroring, LetsDisabledSessionsRest) {
  SetPortSessions(host(), "machine", {{.flags = VS_DVMIRROR_FLAG_DISABLED, .to = kToProbe}});
  EXPECT_TRUE(PassIn("machine").empty());
  EXPECT_EQ(Counted(), MirrorCounters{});
}

TEST_F(Mirroring, GoesByTheConfigurationOfTheMoment) {
  SetPortSessions(host(), "machine", {{.to = kToProbe}});
  EXPECT_EQ(PassIn("machine").size(), 1U);
  host().Disconnect(kAlias, "probe");
  EXPECT_TRUE(PassIn("machine").empty());
  host().Connect(kAlias, "probe", {VS_PORT_CLIENT_VNIC, "probe.eth0", {}, {}});
  EXPECT_EQ(PassIn("machine").size(), 1U);
  host().SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "machine"},
                     VSPROP_PORT_MIRROR_SESSIONS, {TableFrom({{.to = {EntityOfPort("service")}}}), RUNTIME_PROP_TYPE});
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"service"});
  host().LoadConfig();
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"probe"});
  host().ResetConfig();
  EXPECT_TRUE(PassIn("machine").empty());
}

// ---- Destinations ----

TEST_F(Mirroring, HasAWayToTheDestinationsOfItsType) {
  host().EnterAddress(kAlias, IdOfPort(host(), "probe"), {kVlan, Station(77)}, VS_MAC_ADDR_TYPE_USER);
  const struct {
    DVMirrorEntity destination;
    const char *way;
    /** By session type. */
    bool serves[6];
  } cases[] = {{EntityOfPort("probe"), "probe", {true, true, true, true, false, true}},
               {EntityOfNumber(IdOfPort(host(), "probe")), "probe", {true, true, true, true, false, true}},
               {EntityOfUplink("left"), "u1", {true, true, true, true, false, true}},
               {EntityOfUplink("nic-l"), "u1", {true, true, true, true, false, true}},
               {EntityOfUplink("bond"), "u1", {true, true, true, true, false, true}},
               {EntityOfVlan(400), "u1", {true, false, true, false, false, false}},
               {EntityOfStation(Station(77)), "probe", {true, true, false, true, false, true}},
               {EntityOfAddress("192.0.2.1"), "u1", {true, false, false, false, true, false}}};
  for (const auto &[destination, way, serves] : cases) {
    for (int type = VS_DVMIRROR_SESSIONTYPE_MIXDST; type <= VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT; ++type) {
      SetPortSessions(host(), "machine", {});
      SetPortSessions(
          host(), "machine",
          {{.type = static_cast<DVMirrorSessionType>(type), .to = {destination}, .in = {EntityOfPort("machine")}}});
      const MirrorCounters expected =
          serves[type] ? MirrorCounters{.copies = 1, .mirrored = 1} : MirrorCounters{.failed_copies = 1, .failed = 1};
      EXPECT_EQ(WaysOf(PassIn("machine")), serves[type] ? Names{way} : Names{}) << destination.type << " " << type;
      EXPECT_EQ(Counted(), expected) << destination.type << " " << type;
    }
  }
}

TEST_F(Mirroring, FailsWhereNothingIsPluggedInOrUp) {
  const DVMirrorEntity cases[] = {EntityOfPort("free"),
                                  EntityOfPort("nowhere"),
                                  EntityOfUplink("middle"),
                                  EntityOfUplink("right"),
                                  EntityOfUplink("nowhere"),
                                  EntityOfNumber(1),
                                  EntityOfStation({2, 0, 0, 0, 0, 99})};
  std::uint64_t failed = 0;
  for (const DVMirrorEntity &destination : cases) {
    SetPortSessions(host(), "machine", {{.to = {destination}}});
    EXPECT_TRUE(PassIn("machine").empty());
    EXPECT_EQ(Counted().failed_copies, ++failed);
    EXPECT_EQ(Counted().failed, failed);
  }
  SetNicLink(host(), "nic-l", kDown);
  for (const DVMirrorEntity &destination :
       {EntityOfUplink("left"), EntityOfUplink("bond"), EntityOfVlan(5), EntityOfAddress("192.0.2.1")}) {
    SetPortSessions(host(), "machine", {{.to = {destination}}});
    EXPECT_TRUE(PassIn("machine").empty());
    EXPECT_EQ(Counted().failed, ++failed);
  }
}

TEST_F(Mirroring, SendsThroughTheFirstMemberOfAGroupThatIsUp) {
  SetPortSessions(host(), "machine", {{.to = {EntityOfUplink("bond")}}});
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"u1"});
  SetNicLink(host(), "nic-l", kDown);
  SetNicLink(host(), "nic-r", kUp);
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"u3"});
}

TEST_F(Mirroring, SendsNoFrameBackToWhereItWasSeen) {
  SetPortSessions(host(), "machine", {{.to = {EntityOfPort("machine")}}});
  EXPECT_TRUE(PassIn("machine").empty());
  EXPECT_EQ(Counted(), MirrorCounters{.discarded = 1});
  SetPortSessions(host(), "machine", {{.to = {EntityOfPort("machine"), EntityOfPort("probe")}}});
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"probe"});
  SetPortSessions(host(), "machine", {});
  SetUplinkSessions(host(), {{.flags = VS_DVMIRROR_FLAG_DST_ENCAP, .to = {EntityOfUplink("left")}, .encap_vlan = 9}});
  EXPECT_EQ(WaysOf(PassIn("u1")), Names{"u1"}) << "a VLAN of its own is another matter";
}

TEST_F(Mirroring, CopiesInTheOrderOfSessionsAndDestinations) {
  SetPortSessions(host(), "machine",
                  {{.id = "b", .to = {EntityOfPort("service"), EntityOfPort("probe")}}, {.id = "a", .to = kToProbe}});
  EXPECT_EQ(WaysOf(PassIn("machine")), (Names{"service", "probe", "probe"}));
  EXPECT_EQ(Counted("b"), (MirrorCounters{.copies = 2, .mirrored = 1}));
  EXPECT_EQ(Counted("a"), (MirrorCounters{.copies = 1, .mirrored = 1}));
}

TEST_F(Mirroring, TellsWhichDestinationsKeepOtherTrafficOut) {
  const auto closed = [&](const char *port) {
    const PortId id = IdOfPort(host(), port);
    return std::pair(IsClosedByMirroring(owner(), id, MirrorDirection::kIn),
                     IsClosedByMirroring(owner(), id, MirrorDirection::kOut));
  };
  const struct {
    int flags;
    std::pair<bool, bool> expected;
  } cases[] = {{0, {false, false}},
               {VS_DVMIRROR_FLAG_DST_NO_INPUT, {true, false}},
               {VS_DVMIRROR_FLAG_DST_NO_OUTPUT, {false, true}},
               {VS_DVMIRROR_FLAG_DST_NO_INPUT | VS_DVMIRROR_FLAG_DST_NO_OUTPUT, {true, true}}};
  for (const auto &[flags, expected] : cases) {
    SetPortSessions(host(), "machine", {{.flags = flags, .to = {EntityOfPort("probe"), EntityOfUplink("left")}}});
    EXPECT_EQ(closed("probe"), expected) << flags;
    EXPECT_EQ(closed("machine"), std::pair(false, false));
    EXPECT_EQ(closed("u1"), std::pair(false, false)) << "an uplink serves the whole switch";
  }
  SetPortSessions(host(), "machine", {});
  EXPECT_EQ(closed("probe"), std::pair(false, false));
}

// ---- VLAN tags ----

/** The tags of a frame, outermost first, as control fields. */
std::vector<unsigned> TagsOf(const Octets &bytes) {
  Cursor cursor(bytes);
  cursor.Take(12);
  std::vector<unsigned> tags;
  for (auto type = cursor.Number(2); type == 0x8100 || type == 0x88a8; type = cursor.Number(2)) {
    tags.push_back(static_cast<unsigned>(cursor.Number(2)));
  }
  return tags;
}

TEST_F(Mirroring, KeepsReplacesAndAddsTags) {
  using Tags = std::vector<unsigned>;
  const VlanTag tag{.priority = 3, .vlan = kVlan};
  const VlanTag priority{.priority = 6, .vlan = 0};
  const VlanTag inner{.vlan = 55};
  const VlanTag service{.type = 0x88a8, .vlan = kVlan};
  constexpr unsigned kTag = 3 << 13 | kVlan;
  const struct {
    std::vector<VlanTag> tags;
    VlanId vlan;
    /** Without flags, with ORIG_VLAN, with ENCAP, with both. */
    Tags expected[4];
  } cases[] = {{{}, 0, {{}, {}, {700}, {700}}},
               {{}, kVlan, {{}, {kVlan}, {700}, {700, kVlan}}},
               {{tag}, kVlan, {{}, {kTag}, {700}, {700, kTag}}},
               {{priority}, kVlan, {{}, {6 << 13 | kVlan}, {700}, {700, 6 << 13 | kVlan}}},
               {{inner}, kVlan, {{55}, {kVlan, 55}, {700, 55}, {700, kVlan, 55}}},
               {{tag, inner}, kVlan, {{55}, {kTag, 55}, {700, 55}, {700, kTag, 55}}},
               {{service, inner}, kVlan, {{55}, {kVlan, 55}, {700, 55}, {700, kVlan, 55}}}};
  for (const auto &[tags, vlan, expected] : cases) {
    for (unsigned flags = 0; flags < 4; ++flags) {
      SetPortSessions(
          host(), "machine",
          {{.flags = (flags & 1 ? VS_DVMIRROR_FLAG_DST_ORIG_VLAN : 0) | (flags & 2 ? VS_DVMIRROR_FLAG_DST_ENCAP : 0),
            .to = kToProbe,
            .encap_vlan = 700}});
      const auto copies = PassIn("machine", FrameOf({.tags = tags}), vlan);
      ASSERT_EQ(copies.size(), 1U);
      EXPECT_EQ(TagsOf(copies[0].bytes), expected[flags]) << tags.size() << " tags, VLAN " << vlan << ", " << flags;
      const Octets plain = FrameOf({});
      EXPECT_TRUE(std::equal(plain.rbegin(), plain.rend() - 12, copies[0].bytes.rbegin())) << "the rest is as it was";
    }
  }
}

TEST_F(Mirroring, CarriesARemoteSourceInItsVlan) {
  SetPortSessions(host(), "machine",
                  {{.type = VS_DVMIRROR_SESSIONTYPE_RMIRROR_SRC,
                    .to = {EntityOfUplink("left"), EntityOfVlan(900)},
                    .encap_vlan = 800}});
  const auto copies = PassIn("machine");
  ASSERT_EQ(WaysOf(copies), (Names{"u1", "u1"}));
  EXPECT_EQ(TagsOf(copies[0].bytes), std::vector{800U});
  EXPECT_EQ(TagsOf(copies[1].bytes), std::vector{900U});
}

TEST_F(Mirroring, HoldsALegacySessionToTheVlansOfItsDestination) {
  TestSession session{.flags = VS_DVMIRROR_FLAG_LEGACY, .to = kToProbe};
  SetPortSessions(host(), "machine", {session});
  EXPECT_EQ(PassIn("machine", FrameOf({}), 0).size(), 1U);
  EXPECT_TRUE(PassIn("machine", FrameOf({}), kVlan).empty());
  EXPECT_EQ(Counted(), (MirrorCounters{.copies = 1, .mirrored = 1, .discarded = 1}));
  host().SetPortVlan(kAlias, "probe", {.vlan = kVlan, .ranges = {}}, Persistence::kSaved);
  EXPECT_TRUE(PassIn("machine", FrameOf({}), 0).empty());
  EXPECT_EQ(TagsOf(PassIn("machine", FrameOf({}), kVlan).at(0).bytes), std::vector<unsigned>{});
  host().SetPortVlan(kAlias, "probe", {.mode = VlanMode::kTrunk, .ranges = {{10, 30}}}, Persistence::kSaved);
  EXPECT_EQ(TagsOf(PassIn("machine", FrameOf({}), kVlan).at(0).bytes), std::vector<unsigned>{kVlan});
  EXPECT_TRUE(PassIn("machine", FrameOf({}), 31).empty());
  session.flags |= VS_DVMIRROR_FLAG_DST_ORIG_VLAN;
  SetPortSessions(host(), "machine", {session});
  EXPECT_EQ(TagsOf(PassIn("machine", FrameOf({}), kVlan).at(0).bytes), std::vector<unsigned>{kVlan});
}

// ---- Sampling and truncation ----

TEST_F(Mirroring, TakesTheFirstOfEverySoManyFrames) {
  for (const zel_uint32 rate : {0U, 1U, 2U, 3U, 7U, 1000U, ~0U}) {
    SetPortSessions(host(), "machine", {});
    SetPortSessions(host(), "machine", {{.to = kToProbe, .rules = {{.protocol = 17}}, .rate = rate}});
    std::uint64_t taken = 0;
    for (std::uint64_t number = 0; number < 2100; ++number) {
      const bool is_taken = !PassIn("machine").empty();
      EXPECT_EQ(is_taken, rate < 2 || number % rate == 0) << rate << " " << number;
      taken += is_taken ? 1 : 0;
      // What the filter leaves out is no part of the count.
      EXPECT_TRUE(PassIn("machine", FrameOf({.protocol = 6})).empty());
    }
    EXPECT_EQ(Counted(), (MirrorCounters{.copies = taken, .mirrored = taken, .discarded = 4200 - taken}));
  }
}

TEST_F(Mirroring, CutsFramesToTheLengthThatItKeeps) {
  const Octets frame = FrameOf({.size = 100, .tags = {{.vlan = kVlan}, {.vlan = 3}}});
  const std::size_t whole = frame.size();
  const struct {
    zel_uint32 snap;
    std::size_t kept;
  } cases[] = {{0, whole},    {1, 22},
               {21, 22},      {22, 22},
               {23, 23},      {64, 64},
               {~0U, whole},  {static_cast<zel_uint32>(whole) - 1, whole - 1},
               {9000, whole}, {static_cast<zel_uint32>(whole), whole}};
  for (const auto &[snap, kept] : cases) {
    SetPortSessions(host(), "machine", {{.flags = VS_DVMIRROR_FLAG_DST_ORIG_VLAN, .to = kToProbe, .snap = snap}});
    const auto copies = PassIn("machine", frame);
    ASSERT_EQ(copies.size(), 1U);
    EXPECT_EQ(copies[0].bytes, Octets(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(kept))) << snap;
  }
}

TEST_F(Mirroring, CountsWhatItAddsBeyondTheLengthThatItKeeps) {
  SetPortSessions(host(), "machine",
                  {{.flags = VS_DVMIRROR_FLAG_DST_ENCAP, .to = kToProbe, .encap_vlan = 700, .snap = 60}});
  EXPECT_EQ(PassIn("machine", FrameOf({.size = 500})).at(0).bytes.size(), 64U);
  SetPortSessions(host(), "machine",
                  {{.to = {EntityOfAddress("192.0.2.1")}, .snap = 60, .encap = DVMIRROR_ENCAP_ERSPAN2}});
  const auto copies = PassIn("machine", FrameOf({.size = 500}));
  const OuterFrame outer = ReadOuter(copies.at(0).bytes);
  EXPECT_EQ(outer.size, 20U + 8 + 8 + 60);
  EXPECT_TRUE(ReadTunnel(outer.payload).is_truncated);
  EXPECT_EQ(ReadTunnel(outer.payload).frame.size(), 60U);
}

// ---- Collectors ----

TEST_F(Mirroring, SendsPacketsToCollectors) {
  const Octets frame = FrameOf({.tags = {{.priority = 1, .vlan = kVlan}}});
  const Octets without_tag = FrameOf({});
  for (const char *address : {"192.0.2.7", "2001:db8::7"}) {
    for (int encap = DVMIRROR_ENCAP_GRE; encap < DVMIRROR_ENCAP_TYPE_MAX; ++encap) {
      for (const bool keeps_tag : {false, true}) {
        SetPortSessions(host(), "machine", {});
        SetPortSessions(host(), "machine",
                        {{.type = VS_DVMIRROR_SESSIONTYPE_ERMIRROR_SRC,
                          .flags = keeps_tag ? VS_DVMIRROR_FLAG_DST_ORIG_VLAN : 0,
                          .to = {EntityOfAddress(address)},
                          .encap = static_cast<DVMirrorEncapType>(encap),
                          .gre_key = 0xabcd,
                          .erspan_id = 99}});
        for (std::uint32_t sequence = 0; sequence < 3; ++sequence) {
          const auto copies = Pass("machine", MirrorDirection::kOut, frame);
          ASSERT_EQ(WaysOf(copies), Names{"u1"});
          const OuterFrame outer = ReadOuter(copies[0].bytes);
          EXPECT_EQ(outer.protocol, 47U);
          EXPECT_EQ(outer.destination_station, Octets(6, 0xff)) << "no station is known";
          EXPECT_EQ(outer.source_station[0] & 3, 2) << "one station, of local administration";
          EXPECT_FALSE(outer.tag);
          Octets expected(16);
          inet_pton(outer.is_v6 ? AF_INET6 : AF_INET, address, expected.data());
          expected.resize(outer.is_v6 ? 16 : 4);
          EXPECT_EQ(outer.destination, expected);
          EXPECT_EQ(Octets(outer.source.begin(), outer.source.begin() + 2),
                    outer.is_v6 ? Octets({0xfe, 0x80}) : Octets({169, 254}));
          const Tunnel tunnel = ReadTunnel(outer.payload);
          EXPECT_EQ(tunnel.frame, keeps_tag ? frame : without_tag);
          if (encap == DVMIRROR_ENCAP_GRE) {
            EXPECT_EQ(tunnel.key, 0xabcdU);
          } else {
            EXPECT_EQ(tunnel.sequence, sequence);
            EXPECT_EQ(tunnel.vlan, kVlan);
            EXPECT_EQ(tunnel.session, 99U);
          }
          if (encap == DVMIRROR_ENCAP_ERSPAN2) {
            EXPECT_EQ(tunnel.own_bits, keeps_tag ? 3U : 2U);
            EXPECT_EQ(tunnel.index, IdOfPort(host(), "machine") & 0xfffff);
          }
          if (encap == DVMIRROR_ENCAP_ERSPAN3) {
            EXPECT_EQ(tunnel.last_bits, 0x8008U);
          }
        }
      }
    }
  }
}

TEST_F(Mirroring, FragmentsPacketsThatAreTooLong) {
  const Octets frame = FrameOf({.size = 1980});
  for (const char *address : {"192.0.2.7", "2001:db8::7"}) {
    SetPortSessions(host(), "machine", {});
    SetPortSessions(host(), "machine", {{.to = {EntityOfAddress(address)}, .encap = DVMIRROR_ENCAP_ERSPAN3}});
    std::vector<Octets> frames;
    for (const MirrorCopy &copy : PassIn("machine", frame)) {
      EXPECT_LE(ReadOuter(copy.bytes).size, MtuOf(owner().config));
      frames.push_back(copy.bytes);
    }
    EXPECT_EQ(frames.size(), 2U);
    EXPECT_EQ(ReadTunnel(Reassembled(frames)).frame, frame);
    EXPECT_EQ(Counted(), (MirrorCounters{.copies = 1, .mirrored = 1})) << "one copy, whatever carries it";
  }
  SetPortSessions(host(), "machine", {{.to = {EntityOfAddress("192.0.2.7")}}});
  EXPECT_TRUE(PassIn("machine", FrameOf({.size = 65500})).empty());
  EXPECT_EQ(Counted().failed, 1U) << "no packet holds it";
}

TEST_F(Mirroring, SendsToTheStationThatIsNamedBehindACollector) {
  const auto outer_of = [&] { return ReadOuter(PassIn("machine").at(0).bytes); };
  SetPortSessions(host(), "machine", {{.to = {EntityOfAddress("192.0.2.7"), EntityOfStation(Station(7))}}});
  EXPECT_EQ(outer_of().destination_station, Octets({2, 0, 0, 0, 0, 7}));
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"u1"});
  host().EnterAddress(kAlias, IdOfPort(host(), "probe"), {0, Station(7)}, VS_MAC_ADDR_TYPE_USER);
  EXPECT_EQ(WaysOf(PassIn("machine")), Names{"probe"}) << "a collector on the switch itself";
  EXPECT_FALSE(outer_of().tag);
  host().Disconnect(kAlias, "probe");
  EXPECT_TRUE(PassIn("machine").empty());
}

TEST_F(Mirroring, SendsToCollectorsFromTheServiceOrFromTheSwitchItself) {
  host().SetPortVlan(kAlias, "service", {.vlan = 44, .ranges = {}}, Persistence::kSaved);
  std::set<Octets> senders;
  for (const bool own_stack : {false, true}) {
    SetPortSessions(host(), "machine", {{.to = {EntityOfAddress("192.0.2.7")}, .own_stack = own_stack}});
    const OuterFrame outer = ReadOuter(PassIn("machine").at(0).bytes);
    senders.insert(outer.source_station);
    EXPECT_EQ(outer.tag, own_stack ? std::nullopt : std::optional(44U));
  }
  EXPECT_EQ(senders.size(), 2U);
  SetPortSessions(host(), "machine",
                  {{.flags = VS_DVMIRROR_FLAG_DST_ENCAP, .to = {EntityOfAddress("192.0.2.7")}, .encap_vlan = 45}});
  EXPECT_EQ(ReadOuter(PassIn("machine").at(0).bytes).tag, 45U);
}

// ---- Filters ----

TEST_F(Mirroring, HoldsItsRulesAgainstEveryFrameThatItWatches) {
  SetPortSessions(host(), "machine", {{.to = kToProbe, .rules = {{.protocol = 6, .destination_ports = {80, 80}}}}});
  EXPECT_EQ(PassIn("machine", FrameOf({.protocol = 6, .destination_port = 80})).size(), 1U);
  EXPECT_TRUE(PassIn("machine", FrameOf({.protocol = 6, .destination_port = 81})).empty());
  EXPECT_EQ(Counted(), (MirrorCounters{.copies = 1, .mirrored = 1, .discarded = 1}));
}

TEST_F(Mirroring, FiltersTunnelsAtUplinksOnly) {
  const Octets tunnel = FrameOf({.destination_port = 4789});
  SetPortSessions(host(), "free",
                  {{.to = kToProbe,
                    .in = {EntityOfPort("machine"), EntityOfUplink("left")},
                    .uplink_filter = MIRROR_UPLINK_FILTER_VXLAN}});
  EXPECT_EQ(PassIn("u1", tunnel).size(), 1U);
  EXPECT_TRUE(PassIn("u1", FrameOf({})).empty());
  EXPECT_EQ(PassIn("machine", FrameOf({})).size(), 1U);
}

// ---- Counters ----

TEST_F(Mirroring, CountsEveryFrameOnceAndEveryCopy) {
  SetPortSessions(host(), "machine", {{.to = {EntityOfPort("probe"), EntityOfPort("free"), EntityOfPort("service")}}});
  EXPECT_EQ(PassIn("machine").size(), 2U);
  EXPECT_EQ(Counted(), (MirrorCounters{.copies = 2, .failed_copies = 1, .mirrored = 1}));
  SetPortSessions(host(), "machine", {{.to = {}}});
  EXPECT_TRUE(PassIn("machine").empty());
  EXPECT_EQ(Counted(), (MirrorCounters{.copies = 2, .failed_copies = 1, .mirrored = 1, .failed = 1}))
      << "a session without destinations";
}

TEST_F(Mirroring, CountsNothingWhereTheHostDoesNotWantIt) {
  const std::uint16_t code = VS_RT_OPT_ALLOW_MIRROR_STATS;
  std::string off = host().options().Pack(std::span(&code, 1));
  off.replace(off.size() - 4, 4, BytesOf(0U));
  host().options().Apply(off);
  SetPortSessions(host(), "machine", {{.to = kToProbe, .rate = 2}});
  EXPECT_EQ(PassIn("machine").size(), 1U);
  EXPECT_TRUE(PassIn("machine").empty()) << "sampling goes on";
  EXPECT_EQ(Counted(), MirrorCounters{});
}

TEST_F(Mirroring, ForgetsSessionsThatGo) {
  const auto set = [&] { SetPortSessions(host(), "machine", {{.id = "one", .to = kToProbe}, {.id = "two"}}); };
  set();
  PassIn("machine");
  set();
  EXPECT_EQ(Counted("one").mirrored, 1U) << "a session that is set again goes on";
  SetPortSessions(host(), "machine", {{.id = "two"}});
  set();
  EXPECT_EQ(Counted("one"), MirrorCounters{});
  EXPECT_EQ(Counted("two").failed, 1U);
  host().ClearProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "machine"},
                       VSPROP_PORT_MIRROR_SESSIONS, Persistence::kSaved);
  EXPECT_EQ(owner().runtime.mirrors, MirrorRuntime{});
  host().AddPort(kAlias, "passing");
  SetPortSessions(host(), "passing", {{.id = "one", .to = kToProbe, .in = {EntityOfPort("machine")}}});
  PassIn("machine");
  EXPECT_EQ(Counted("one").mirrored, 1U);
  host().RemovePort(kAlias, "passing");
  EXPECT_TRUE(PassIn("machine").empty());
  SetPortSessions(host(), "machine", {{.id = "one", .to = kToProbe}});
  EXPECT_EQ(Counted("one"), MirrorCounters{}) << "it went with its port";
}

// ---- Whatever comes ----

TEST_F(Mirroring, TakesFramesOfAnyBytes) {
  SetUplinkSessions(host(), {{.id = "uplinks",
                              .to = {EntityOfUplink("left"), EntityOfVlan(6)},
                              .wild_in = VS_DVMIRROR_WILDCARD_VMM,
                              .uplink_filter = MIRROR_UPLINK_FILTER_ALL_ENCAP}});
  SetPortSessions(
      host(), "machine",
      {{.id = "cut", .flags = VS_DVMIRROR_FLAG_DST_ORIG_VLAN, .to = kToProbe, .in = {EntityOfVlan(3)}, .snap = 20},
       {.id = "collector",
        .to = {EntityOfAddress("192.0.2.1"), EntityOfAddress("2001:db8::1")},
        .in = {EntityOfAddress("10.0.0.1"), EntityOfPort("machine")},
        .rules = {{.action = ACTION_DONT_MIRROR, .sources = {"0.0.0.0/1"}, .destination_ports = {1, 1000}}},
        .encap = DVMIRROR_ENCAP_ERSPAN3},
       {.id = "legacy", .flags = VS_DVMIRROR_FLAG_LEGACY, .to = kToProbe, .wild_out = VS_DVMIRROR_WILDCARD_VMM}});
  std::mt19937 random(31337);
  std::uint64_t seen = 0, copied = 0;
  for (int round = 0; round < 30000; ++round) {
    Octets bytes(random() % 200);
    for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
    if (bytes.size() > 14 && random() % 4 != 0) {
      constexpr unsigned kTypes[] = {0x0800, 0x86dd, 0x8100, 0x88a8};
      const unsigned type = kTypes[random() % 4];
      bytes[12] = static_cast<std::uint8_t>(type >> 8);
      bytes[13] = static_cast<std::uint8_t>(type);
      bytes[14] = type == 0x86dd ? 0x60 : 0x45;
    }
    const auto direction = random() % 2 == 0 ? MirrorDirection::kIn : MirrorDirection::kOut;
    const char *port = random() % 2 == 0 ? "machine" : "u1";
    try {
      for (const MirrorCopy &copy : Pass(port, direction, bytes, static_cast<VlanId>(random() % 5))) {
        const Frame is_a_frame(copy.bytes);
        ++copied;
      }
      ++seen;
    } catch (const StatusError &refusal) {
      EXPECT_EQ(refusal.status(), ZEL_BAD_PARAM) << "bytes that are no frame";
      EXPECT_THROW(Frame{FrameBytes(bytes)}, StatusError);
    }
  }
  EXPECT_GT(seen, 20000U);
  EXPECT_GT(copied, 10000U);
}

}  // namespace
}  // namespace kestrel::host
