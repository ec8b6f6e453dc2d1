#include "host/core/mirroring/mirror_encapsulation.h"

#include <gtest/gtest.h>

#include "tests/host/native/support/tunnel_decoder.h"

namespace kestrel::host {
namespace {

DVMirrorSession Session(DVMirrorEncapType type) {
  DVMirrorSession session{};
  session.encapType = type;
  session.greKey = 0xcafe0001;
  session.erspanID = 0x2a5;
  session.erspanCOS = 5;
  session.erspanGra = 1;
  return session;
}

const MirrorLabel kLabel{.sequence = 0x01020304,
                         .time = std::chrono::milliseconds(1500),
                         .vlan = 0xabc,
                         .keeps_tag = false,
                         .is_truncated = false,
                         .is_out = false,
                         .port = 0x02000001};
const Octets kFrame = FrameOf({});

Tunnel Read(const DVMirrorSession &session, const MirrorLabel &label) {
  return ReadTunnel(Encapsulated(session, label, kFrame));
}

TEST(MirrorEncapsulation, PutsGreAloneBeforeAFrame) {
  const Tunnel tunnel = Read(Session(DVMIRROR_ENCAP_GRE), kLabel);
  EXPECT_EQ(tunnel.type, 0x6558U);
  EXPECT_EQ(tunnel.key, 0xcafe0001);
  EXPECT_FALSE(tunnel.sequence);
  EXPECT_EQ(tunnel.frame, kFrame);
}

TEST(MirrorEncapsulation, HasNoKeyWhereTheSessionHasNone) {
  DVMirrorSession session = Session(DVMIRROR_ENCAP_GRE);
  session.greKey = 0;
  const auto packet = Encapsulated(session, kLabel, kFrame);
  EXPECT_EQ(packet.size(), 4 + kFrame.size());
  EXPECT_FALSE(ReadTunnel(packet).key);
}

TEST(MirrorEncapsulation, WritesErspanOfTypeTwo) {
  const Tunnel tunnel = Read(Session(DVMIRROR_ENCAP_ERSPAN2), kLabel);
  EXPECT_EQ(tunnel.type, 0x88beU);
  EXPECT_FALSE(tunnel.key);
  EXPECT_EQ(tunnel.sequence, 0x01020304U);
  EXPECT_EQ(tunnel.version, 1U);
  EXPECT_EQ(tunnel.vlan, 0xabcU);
  EXPECT_EQ(tunnel.class_of_service, 5U);
  EXPECT_EQ(tunnel.session, 0x2a5U);
  EXPECT_EQ(tunnel.index, 0x00001U) << "the lower 20 bits of the port";
  EXPECT_EQ(tunnel.frame, kFrame);
}

TEST(MirrorEncapsulation, SaysWhatBecameOfTheTagInErspanOfTypeTwo) {
  const auto bits = [](VlanId vlan, bool keeps_tag) {
    MirrorLabel label = kLabel;
    label.vlan = vlan;
    label.keeps_tag = keeps_tag;
    return Read(Session(DVMIRROR_ENCAP_ERSPAN2), label).own_bits;
  };
  EXPECT_EQ(bits(0, false), 0U);
  EXPECT_EQ(bits(9, false), 2U);
  EXPECT_EQ(bits(9, true), 3U);
}

TEST(MirrorEncapsulation, WritesErspanOfTypeThree) {
  const Tunnel tunnel = Read(Session(DVMIRROR_ENCAP_ERSPAN3), kLabel);
  EXPECT_EQ(tunnel.type, 0x22ebU);
  EXPECT_EQ(tunnel.sequence, 0x01020304U);
  EXPECT_EQ(tunnel.version, 2U);
  EXPECT_EQ(tunnel.vlan, 0xabcU);
  EXPECT_EQ(tunnel.class_of_service, 5U);
  EXPECT_EQ(tunnel.own_bits, 0U);
  EXPECT_EQ(tunnel.session, 0x2a5U);
  EXPECT_EQ(tunnel.timestamp, 15000000U);
  EXPECT_EQ(tunnel.group_tag, 0U);
  EXPECT_EQ(tunnel.last_bits, 0x8002U) << "Ethernet, in, granularity 1, nothing optional";
  EXPECT_EQ(tunnel.frame, kFrame);
}

TEST(MirrorEncapsulation, SaysTheDirectionInErspanOfTypeThree) {
  MirrorLabel label = kLabel;
  label.is_out = true;
  EXPECT_EQ(Read(Session(DVMIRROR_ENCAP_ERSPAN3), label).last_bits, 0x800aU);
}

TEST(MirrorEncapsulation, CountsTimeInTheUnitOfTheGranularity) {
  const std::uint32_t expected[] = {15000, 15000000, 1500000000, 1500000};
  for (unsigned granularity = 0; granularity < 4; ++granularity) {
    DVMirrorSession session = Session(DVMIRROR_ENCAP_ERSPAN3);
    session.erspanGra = static_cast<zel_uint8>(granularity);
    const Tunnel tunnel = Read(session, kLabel);
    EXPECT_EQ(tunnel.timestamp, expected[granularity]);
    EXPECT_EQ(tunnel.last_bits >> 1 & 3, granularity);
  }
  MirrorLabel late = kLabel;
  late.time = Duration(0x1234567890);
  DVMirrorSession session = Session(DVMIRROR_ENCAP_ERSPAN3);
  session.erspanGra = 2;
  EXPECT_EQ(Read(session, late).timestamp, 0x34567890U) << "it counts round";
}

TEST(MirrorEncapsulation, SaysThatAFrameWasCutOff) {
  MirrorLabel label = kLabel;
  label.is_truncated = true;
  EXPECT_TRUE(Read(Session(DVMIRROR_ENCAP_ERSPAN2), label).is_truncated);
  EXPECT_TRUE(Read(Session(DVMIRROR_ENCAP_ERSPAN3), label).is_truncated);
  EXPECT_FALSE(Read(Session(DVMIRROR_ENCAP_ERSPAN3), kLabel).is_truncated);
}

}  // namespace
}  // namespace kestrel::host
