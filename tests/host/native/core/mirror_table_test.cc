#include "host/core/mirroring/mirror_table.h"

#include <cstring>

#include "host/core/base/record_bytes.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

/** A session with two destinations and one rule of one source and two destination prefixes. */
MirrorSession Session(const char *id) {
  MirrorSession session{};
  std::strcpy(session.head.sid, id);
  session.head.numDstEntities = 2;
  session.head.numFilterRules = 1;
  DVMirrorEntity entity{};
  std::strcpy(entity.dvPortId, id);
  session.entities = {entity, entity};
  MirrorRule rule{};
  rule.head.numSrcIPs = 1;
  rule.head.numDstIPs = 2;
  rule.prefixes.resize(3);
  rule.prefixes[2].prefix_length = 32;
  session.rules = {rule};
  return session;
}

MirrorTable TableOfTwo() { return {.sessions = {Session("one"), Session("two")}}; }

constexpr std::size_t kSize = 20 + 2 * 232 + 4 * 52 + 2 * 21 + 6 * 20;
constexpr std::size_t kSecondSession = 20 + 232;
constexpr std::size_t kSecondRule = 20 + 2 * 232 + 4 * 52 + 21;

template <typename Value>
int StatusWith(std::size_t place, Value value) {
  std::string packed = Pack(TableOfTwo());
  std::memcpy(packed.data() + place, &value, sizeof value);
  return StatusOf([&] { MirrorTableOf(packed); });
}

TEST(MirrorTable, GivesEverythingASlotOfItsOwn) {
  const std::string packed = Pack(TableOfTwo());
  ASSERT_EQ(packed.size(), kSize);
  EXPECT_EQ(SizeOfMirrorTable(RecordAt<DVMirrorSessionTable>(packed, 0)), kSize);
  const auto second = RecordAt<DVMirrorSession>(packed, kSecondSession);
  EXPECT_EQ(second.startIdx, 2U);
  EXPECT_EQ(second.startRuleIdx, 1U);
  EXPECT_EQ(RecordAt<DVMirrorFilterRule>(packed, kSecondRule).startIPIdx, 3U);
  EXPECT_EQ(Pack(MirrorTableOf(packed)), packed);
}

TEST(MirrorTable, TakesAnyNumberOfBytesButItsOwnForNone) {
  const std::string packed = Pack(TableOfTwo());
  for (std::size_t size = 0; size < packed.size(); ++size) {
    EXPECT_STATUS(ZEL_BAD_PARAM, MirrorTableOf(packed.substr(0, size)));
  }
  EXPECT_STATUS(ZEL_BAD_PARAM, MirrorTableOf(packed + '\0'));
}

TEST(MirrorTable, KeepsSlotsWithinTheirLists) {
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, startIdx), 3U), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, startIdx), ~0U), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, startRuleIdx), zel_uint16{2}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondRule + offsetof(DVMirrorFilterRule, startIPIdx), zel_uint16{4}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondRule + offsetof(DVMirrorFilterRule, numDstIPs), zel_uint16{65535}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondRule + offsetof(DVMirrorFilterRule, startIPIdx), zel_uint16{0}), ZEL_OK) << "shared";
}

TEST(MirrorTable, DoesNotGrowBeyondAValueWhenItsSlotsAreShared) {
  const auto table_of = [](std::size_t rules, std::size_t prefixes) {
    MirrorSession session = Session("one");
    session.head.numFilterRules = static_cast<zel_uint16>(rules);
    session.rules.assign(rules, {.head = session.rules[0].head, .prefixes = {}});
    for (MirrorRule &rule : session.rules) rule.head.numSrcIPs = rule.head.numDstIPs = 0;
    session.rules[0].prefixes.resize(prefixes);
    std::string packed = Pack({.sessions = {session}});
    // Every rule has all prefixes.
    const std::size_t first = packed.size() - prefixes * sizeof(DVMirrorIpPrefix) - rules * sizeof(DVMirrorFilterRule);
    for (std::size_t i = 0; i < rules; ++i) {
      DVMirrorFilterRule rule = session.rules[i].head;
      rule.startIPIdx = 0;
      rule.numSrcIPs = static_cast<zel_uint16>(prefixes);
      packed.replace(first + i * sizeof rule, sizeof rule, BytesOf(rule));
    }
    return packed;
  };
  EXPECT_STATUS(ZEL_OK, MirrorTableOf(table_of(100, 500)));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, MirrorTableOf(table_of(120, 500)));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, MirrorTableOf(table_of(20000, 30000)));
}

TEST(MirrorTable, KeepsValuesWithinTheirRanges) {
  EXPECT_EQ(StatusWith(0, 1U), ZEL_INVALID_METADATA);
  EXPECT_EQ(StatusWith(4, 0), ZEL_VERSION_MISMATCH_MAJOR);
  EXPECT_EQ(StatusWith(4, 5), ZEL_VERSION_MISMATCH_MAJOR);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, type), 6), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, encapType), -1), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, encapVlan), zel_uint16{4095}), ZEL_BAD_VLANID);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, erspanID), zel_uint16{1024}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, erspanCOS), zel_uint8{8}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondSession + offsetof(DVMirrorSession, erspanGra), zel_uint8{4}), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSecondRule + offsetof(DVMirrorFilterRule, action), 2), ZEL_BAD_PARAM);
  EXPECT_EQ(StatusWith(kSize - 19, zel_uint8{33}), ZEL_BAD_PARAM) << "a prefix of an IPv4 address";
  EXPECT_EQ(StatusWith(20, std::array<char, 4>{'t', 'w', 'o', 0}), ZEL_EXISTS);
}

}  // namespace
}  // namespace kestrel::host
