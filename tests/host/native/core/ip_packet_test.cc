#include "host/core/frames/ip_packet.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/host/native/support/ip_frames.h"

namespace kestrel::host {
namespace {

std::optional<IpPacket> PacketIn(const Octets &frame) { return IpPacketIn(Frame(frame)); }

TEST(IpPacket, IsFoundBehindAnyTags) {
  const std::vector<VlanTag> tags{{.type = 0x88a8, .vlan = 7}, {.vlan = 9}};
  for (std::size_t count = 0; count <= tags.size(); ++count) {
    const auto packet = PacketIn(FrameOf({.tags = {tags.begin(), tags.begin() + static_cast<std::ptrdiff_t>(count)}}));
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->source, IpV4(10, 1, 0, 1));
    EXPECT_EQ(packet->destination, IpV4(10, 2, 0, 2));
    EXPECT_EQ(packet->protocol, 17);
    EXPECT_EQ(packet->ports->source, 1000);
    EXPECT_EQ(packet->ports->destination, 2000);
  }
}

TEST(IpPacket, SaysPortsOfProtocolsThatHaveThem) {
  for (const int protocol : {6, 17, 33, 132, 136}) {
    EXPECT_TRUE(PacketIn(FrameOf({.protocol = static_cast<std::uint8_t>(protocol)}))->ports) << protocol;
  }
  for (const int protocol : {0, 1, 47, 58, 255}) {
    EXPECT_FALSE(PacketIn(FrameOf({.protocol = static_cast<std::uint8_t>(protocol)}))->ports) << protocol;
  }
  EXPECT_FALSE(PacketIn(FrameOf({.fragment_offset = 1}))->ports);
  EXPECT_FALSE(PacketIn(FrameOf({.size = 3}))->ports);
}

TEST(IpPacket, HasItsProtocolBehindTheExtensionsOfIpv6) {
  const Octets options(7, 0);
  Octets long_options(15, 0);
  long_options[0] = 1;
  const Octets authentication(11, 1);
  TestPacket sent{.source = "2001:db8::1", .destination = "2001:db8::2", .protocol = 6};
  EXPECT_EQ(PacketIn(FrameOf(sent))->ports->source, 1000);
  sent.extensions = {{0, options}, {60, long_options}, {43, options}, {51, authentication}, {44, options}};
  const auto packet = PacketIn(FrameOf(sent));
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->protocol, 6);
  EXPECT_EQ(packet->ports->destination, 2000);
  EXPECT_FALSE(IsIpV4(packet->source));
  EXPECT_EQ(packet->source.bytes[15], 1);

  sent.extensions = {{44, {0, 0, 8, 0, 0, 0, 0}}};
  const auto later_fragment = PacketIn(FrameOf(sent));
  EXPECT_EQ(later_fragment->protocol, 6);
  EXPECT_FALSE(later_fragment->ports);
}

TEST(IpPacket, IsNoneWhereItsHeaderEndsTooEarly) {
  TestPacket v6{.source = "2001:db8::1", .destination = "2001:db8::2", .size = 4, .extensions = {{0, Octets(7, 0)}}};
  const struct {
    Octets frame;
    /** Up to and with the IP headers. */
    std::size_t header_size;
  } cases[] = {{FrameOf({.size = 4}), 14 + 20}, {FrameOf(v6), 14 + 40 + 8}};
  for (const auto &[frame, header_size] : cases) {
    for (std::size_t size = 14; size <= frame.size(); ++size) {
      const auto packet = PacketIn(Octets(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)));
      EXPECT_EQ(packet.has_value(), size >= header_size) << size;
      if (packet) {
        EXPECT_EQ(packet->ports.has_value(), size == frame.size()) << size;
      }
    }
  }
}

TEST(IpPacket, IsNoneWhereItContradictsItself) {
  const auto with = [](std::size_t place, std::uint8_t value) {
    Octets frame = FrameOf({});
    frame.at(14 + place) = value;
    return PacketIn(frame).has_value();
  };
  EXPECT_FALSE(with(0, 0x65)) << "the other version";
  EXPECT_FALSE(with(0, 0x44)) << "a header of 16 bytes";
  EXPECT_FALSE(with(0, 0x4f)) << "a header beyond the frame";
  EXPECT_FALSE(with(3, 19)) << "less than its header";
  EXPECT_TRUE(with(2, 0xff)) << "cut off on the way";
  EXPECT_FALSE(PacketIn(EthernetFrame({}, {}, {}, 0x0806, Octets(28, 1))));
}

TEST(IpPacket, CanBeLookedForInAnyBytes) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 200000; ++round) {
    Octets payload(random() % 120);
    for (std::uint8_t &byte : payload) byte = static_cast<std::uint8_t>(random());
    const bool is_v6 = random() % 2 != 0;
    if (!payload.empty()) payload[0] = static_cast<std::uint8_t>(is_v6 ? 0x60 : 0x45);
    // Extensions are rare among random numbers.
    constexpr std::uint8_t kExtensions[] = {0, 43, 44, 51, 60};
    if (payload.size() > 48 && is_v6) payload[6] = payload[40] = kExtensions[random() % 5];
    PacketIn(EthernetFrame({}, {}, {}, is_v6 ? 0x86dd : 0x0800, payload));
  }
}

}  // namespace
}  // namespace kestrel::host
