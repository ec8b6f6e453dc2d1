#include "host/core/frames/ip_frames.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/host/native/support/tunnel_decoder.h"

namespace kestrel::host {
namespace {

constexpr std::size_t kMtu = 1500;

IpPath Path(bool is_v6) {
  return {.source = is_v6 ? *IpAddressOf("fe80::1") : IpV4(169, 254, 1, 1),
          .destination = is_v6 ? *IpAddressOf("2001:db8::9") : IpV4(192, 0, 2, 9),
          .source_station = {2, 0, 0, 0, 0, 1},
          .next_station = {2, 0, 0, 0, 0, 9}};
}

Octets Payload(std::size_t size) {
  Octets payload(size);
  std::iota(payload.begin(), payload.end(), std::uint8_t{0});
  return payload;
}

class IpFramesOfBothVersions : public testing::TestWithParam<bool> {};

TEST_P(IpFramesOfBothVersions, AreOneForAPacketThatFits) {
  const bool is_v6 = GetParam();
  const std::size_t header_size = is_v6 ? 40 : 20;
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kMtu - header_size}) {
    const auto frames = IpFrames(Path(is_v6), 47, Payload(size), 7, kMtu);
    ASSERT_EQ(frames.size(), 1U);
    const OuterFrame outer = ReadOuter(frames[0]);
    EXPECT_EQ(outer.is_v6, is_v6);
    EXPECT_EQ(outer.destination_station, Octets({2, 0, 0, 0, 0, 9}));
    EXPECT_EQ(outer.source_station, Octets({2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(outer.protocol, 47U);
    EXPECT_EQ(outer.hops, 64U);
    EXPECT_EQ(outer.destination,
              is_v6 ? Octets({0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}) : Octets({192, 0, 2, 9}));
    EXPECT_EQ(outer.payload, Payload(size));
    EXPECT_FALSE(outer.has_more);
  }
}

TEST_P(IpFramesOfBothVersions, AreFragmentsWithinTheMtuForALongerOne) {
  const bool is_v6 = GetParam();
  const std::size_t header_size = is_v6 ? 40 : 20;
  for (const std::size_t size : {kMtu - header_size + 1, std::size_t{4000}, std::size_t{9000}}) {
    const auto frames = IpFrames(Path(is_v6), 47, Payload(size), 0x12345, kMtu);
    EXPECT_EQ(frames.size(), (size + 1439) / 1440) << "pieces of 1440 to 1480 bytes";
    for (const auto &frame : frames) {
      EXPECT_LE(ReadOuter(frame).size, kMtu);
      EXPECT_EQ(ReadOuter(frame).identification, is_v6 ? 0x12345U : 0x2345U);
      EXPECT_EQ(ReadOuter(frame).protocol, 47U);
    }
    EXPECT_EQ(Reassembled({frames.rbegin(), frames.rend()}), Payload(size));
  }
}

TEST_P(IpFramesOfBothVersions, AreNoneForWhatNoPacketHolds) {
  const std::size_t most = GetParam() ? 65535 : 65515;
  EXPECT_EQ(Reassembled(IpFrames(Path(GetParam()), 47, Payload(most), 1, kMtu)).size(), most);
  EXPECT_TRUE(IpFrames(Path(GetParam()), 47, Payload(most + 1), 1, kMtu).empty());
}

INSTANTIATE_TEST_SUITE_P(Ip, IpFramesOfBothVersions, testing::Bool(),
                         [](const auto &version) { return version.param ? "V6" : "V4"; });

}  // namespace
}  // namespace kestrel::host
