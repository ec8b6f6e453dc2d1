#include "host/core/mirroring/mirror_filter.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/host/native/support/ip_frames.h"
#include "tests/host/native/support/mirror_sessions.h"

namespace kestrel::host {
namespace {

bool Passes(const std::vector<TestRule> &rules, const Octets &bytes) {
  std::vector<MirrorRule> made;
  for (const TestRule &rule : rules) made.push_back(RuleFrom(rule));
  const Frame frame(bytes);
  return RulesPass(made, frame, IpPacketIn(frame));
}

bool Passes(const TestRule &rule, const TestPacket &packet) { return Passes(std::vector{rule}, FrameOf(packet)); }

const Octets kArp = EthernetFrame(kBroadcast, {2, 0, 0, 0, 0, 1}, {}, 0x0806, Octets(46, 0));

TEST(MirrorFilter, KnowsTheAddressesOfAPrefix) {
  const struct {
    const char *prefix;
    const char *address;
    bool is_in;
  } cases[] = {{"10.0.0.0/8", "10.255.1.2", true},
               {"10.0.0.0/8", "11.0.0.0", false},
               {"10.1.2.0/23", "10.1.3.255", true},
               {"10.1.2.0/23", "10.1.4.0", false},
               {"10.1.2.3/32", "10.1.2.3", true},
               {"10.1.2.3/32", "10.1.2.2", false},
               {"10.1.2.3/31", "10.1.2.2", true},
               {"0.0.0.0/0", "255.1.1.1", true},
               {"2001:db8::/33", "2001:db8::1", true},
               {"2001:db8::/33", "2001:db8:8000::1", false},
               {"::/0", "2001:db8::1", true},
               {"2001:db8::1/128", "2001:db8::1", true},
               {"2001:db8::1/128", "2001:db8::2", false},
               {"::/0", "10.1.2.3", false},
               {"0.0.0.0/0", "2001:db8::1", false}};
  for (const auto &[prefix, address, is_in] : cases) {
    const TestPacket from{.source = address, .destination = address};
    EXPECT_EQ(Passes({.sources = {prefix}}, from), is_in) << prefix << " " << address;
    EXPECT_EQ(Passes({.destinations = {prefix}}, from), is_in) << prefix << " " << address;
  }
}

TEST(MirrorFilter, TellsSourcesFromDestinations) {
  const TestPacket packet{.source = "10.0.0.1", .destination = "10.0.0.2", .source_port = 5, .destination_port = 6};
  EXPECT_TRUE(Passes({.sources = {"10.0.0.1/32"}, .destinations = {"10.0.0.2/32"}}, packet));
  EXPECT_FALSE(Passes({.sources = {"10.0.0.2/32"}}, packet));
  EXPECT_FALSE(Passes({.destinations = {"10.0.0.1/32"}}, packet));
  EXPECT_TRUE(Passes({.source_ports = {5, 5}, .destination_ports = {6, 6}}, packet));
  EXPECT_FALSE(Passes({.source_ports = {6, 6}}, packet));
  EXPECT_FALSE(Passes({.destination_ports = {5, 5}}, packet));
}

TEST(MirrorFilter, WantsOneOfThePrefixesAndEveryPart) {
  const TestRule rule{.sources = {"10.0.0.0/8", "172.16.0.0/12"},
                      .destinations = {"192.0.2.0/24", "198.51.100.0/24"},
                      .protocol = 6,
                      .source_ports = {100, 200},
                      .destination_ports = {443, 443}};
  const TestPacket good{.source = "172.16.9.9",
                        .destination = "198.51.100.1",
                        .protocol = 6,
                        .source_port = 100,
                        .destination_port = 443};
  EXPECT_TRUE(Passes(rule, good));
  TestPacket bad = good;
  bad.source = "11.0.0.1";
  EXPECT_FALSE(Passes(rule, bad));
  bad = good;
  bad.destination = "192.0.3.1";
  EXPECT_FALSE(Passes(rule, bad));
  bad = good;
  bad.protocol = 17;
  EXPECT_FALSE(Passes(rule, bad));
  for (const unsigned port : {99U, 201U}) {
    bad = good;
    bad.source_port = port;
    EXPECT_FALSE(Passes(rule, bad));
  }
  bad = good;
  bad.destination_port = 444;
  EXPECT_FALSE(Passes(rule, bad));
}

TEST(MirrorFilter, HoldsPortsAgainstBothEndsOfARange) {
  for (const unsigned port : {0U, 9U, 10U, 15U, 20U, 21U, 65535U}) {
    EXPECT_EQ(Passes({.source_ports = {10, 20}}, TestPacket{.source_port = port}), port >= 10 && port <= 20);
  }
  EXPECT_TRUE(Passes({.source_ports = {0, 65535}}, TestPacket{.source_port = 65535}));
}

TEST(MirrorFilter, DoesNotFindPartsInFramesThatLackThem) {
  for (const TestRule &rule :
       {TestRule{.sources = {"0.0.0.0/0"}}, TestRule{.destinations = {"0.0.0.0/0"}}, TestRule{.protocol = 0},
        TestRule{.source_ports = {0, 65535}}, TestRule{.destination_ports = {0, 65535}}}) {
    EXPECT_FALSE(Passes(std::vector{rule}, kArp));
  }
  EXPECT_FALSE(Passes({.destination_ports = {0, 65535}}, TestPacket{.protocol = 1}));
  EXPECT_FALSE(Passes({.destination_ports = {0, 65535}}, TestPacket{.fragment_offset = 3}));
}

TEST(MirrorFilter, TakesAProtocolAbove255ForATypeOfFrames) {
  EXPECT_TRUE(Passes(std::vector{TestRule{.protocol = 0x0806}}, kArp));
  EXPECT_FALSE(Passes(std::vector{TestRule{.protocol = 0x0800}}, kArp));
  EXPECT_TRUE(Passes({.protocol = 0x0800}, TestPacket{.tags = {{.vlan = 3}}}));
}

TEST(MirrorFilter, GoesByTheFirstRuleThatAFrameMeets) {
  const TestRule never{.action = ACTION_DONT_MIRROR, .destination_ports = {2000, 2000}};
  const TestRule tcp{.action = ACTION_MIRROR, .protocol = 6};
  const TestPacket both{.protocol = 6};
  EXPECT_FALSE(Passes({never, tcp}, FrameOf(both)));
  EXPECT_TRUE(Passes({tcp, never}, FrameOf(both)));
}

TEST(MirrorFilter, LetsPassWhatNoRuleMeetsUnlessOneSaysWhatToCopy) {
  const Octets other = FrameOf({.protocol = 1});
  const TestRule never{.action = ACTION_DONT_MIRROR, .protocol = 17};
  const TestRule tcp{.action = ACTION_MIRROR, .protocol = 6};
  EXPECT_TRUE(Passes({}, other));
  EXPECT_TRUE(Passes({never}, other));
  EXPECT_FALSE(Passes({tcp}, other));
  EXPECT_FALSE(Passes({never, tcp}, other));
  EXPECT_TRUE(Passes({never, {}}, other)) << "a rule without parts is met by every frame";
  EXPECT_TRUE(Passes({never, {}}, kArp));
}

TEST(MirrorFilter, KnowsTheTunnelsOfUplinks) {
  const struct {
    TestPacket packet;
    DVMirrorFilterType kind;
  } cases[] = {{{}, MIRROR_UPLINK_FILTER_NORMAL},
               {{.protocol = 6, .destination_port = 7471}, MIRROR_UPLINK_FILTER_STT},
               {{.protocol = 17, .destination_port = 4789}, MIRROR_UPLINK_FILTER_VXLAN},
               {{.protocol = 17, .destination_port = 6081}, MIRROR_UPLINK_FILTER_GENEVE},
               {{.protocol = 17, .destination_port = 7471}, MIRROR_UPLINK_FILTER_NORMAL},
               {{.protocol = 6, .destination_port = 4789}, MIRROR_UPLINK_FILTER_NORMAL},
               {{.protocol = 17, .source_port = 4789}, MIRROR_UPLINK_FILTER_NORMAL},
               {{.source = "2001:db8::1", .destination = "2001:db8::2", .protocol = 17, .destination_port = 6081},
                MIRROR_UPLINK_FILTER_GENEVE}};
  for (const auto &[packet, kind] : cases) {
    const Octets bytes = FrameOf(packet);
    const auto found = IpPacketIn(Frame(bytes));
    for (int filter = MIRROR_UPLINK_FILTER_NONE; filter < MIRROR_UPLINK_FILTER_TYPE_MAX; ++filter) {
      const bool is_wanted = filter == MIRROR_UPLINK_FILTER_NONE || filter == kind ||
                             (filter == MIRROR_UPLINK_FILTER_ALL_ENCAP && kind != MIRROR_UPLINK_FILTER_NORMAL);
      EXPECT_EQ(UplinkFilterPasses(static_cast<DVMirrorFilterType>(filter), found), is_wanted) << filter;
    }
  }
  EXPECT_TRUE(UplinkFilterPasses(MIRROR_UPLINK_FILTER_NORMAL, std::nullopt));
  EXPECT_FALSE(UplinkFilterPasses(MIRROR_UPLINK_FILTER_ALL_ENCAP, std::nullopt));
}

TEST(MirrorFilter, DecidesAboutAnyBytes) {
  std::mt19937 random(4711);
  const std::vector<TestRule> rules{{.action = ACTION_DONT_MIRROR, .sources = {"10.0.0.0/9", "fe80::/10"}},
                                    {.protocol = 6, .source_ports = {0, 30000}, .destination_ports = {1, 65535}},
                                    {.action = ACTION_DONT_MIRROR, .destinations = {"128.0.0.0/1"}}};
  for (int round = 0; round < 100000; ++round) {
    Octets bytes(14 + random() % 100);
    for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
    constexpr unsigned kTypes[] = {0x0800, 0x86dd, 0x8100, 0x0806, 0};
    const unsigned type = kTypes[random() % 5];
    bytes[12] = static_cast<std::uint8_t>(type >> 8);
    bytes[13] = static_cast<std::uint8_t>(type);
    if (bytes.size() > 14 && type != 0x8100) bytes[14] = type == 0x86dd ? 0x60 : 0x45;
    try {
      Passes(rules, bytes);
    } catch (const StatusError &) {
      EXPECT_EQ(type, 0x8100U) << "only a tag that is cut off makes bytes no frame";
    }
  }
}

}  // namespace
}  // namespace kestrel::host
