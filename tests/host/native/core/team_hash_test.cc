#include "host/core/teaming/team_hash.h"

#include <gtest/gtest.h>

#include <array>
#include <set>

#include "host/core/base/fnv_hash.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

std::uint32_t Stations(const std::vector<std::uint8_t> &bytes) { return HashOfStations(Frame(bytes)); }
std::uint32_t Conversation(const std::vector<std::uint8_t> &bytes) { return HashOfConversation(Frame(bytes)); }

TEST(TeamHash, IsTheSameInEveryRun) {
  EXPECT_EQ(FnvHash{}.value(), 0xab3e7c0bU);
  const auto bytes = UdpFrame(Station(1), Station(2), 0x0a000001, 0x0a000002);
  EXPECT_EQ(HashOfAddress(Station(1)), 0x60bfe163U);
  EXPECT_EQ(Stations(bytes), 0x2f95e7e0U);
  EXPECT_EQ(Conversation(bytes), 0x9d8a62c1U);
}

TEST(TeamHash, OfStationsLooksAtTheAddressesOfThePacketOnly) {
  const auto bytes = UdpFrame(Station(1), Station(2), 1, 2, 10, 20);
  EXPECT_EQ(Stations(UdpFrame(Station(3), Station(4), 1, 2, 30, 40)), Stations(bytes));
  EXPECT_NE(Stations(UdpFrame(Station(1), Station(2), 3, 2, 10, 20)), Stations(bytes));
  EXPECT_NE(Stations(UdpFrame(Station(1), Station(2), 1, 3, 10, 20)), Stations(bytes));
  const auto tagged = BytesWithTag(Frame(bytes), VlanTag{.vlan = 7});
  EXPECT_EQ(Stations(tagged), Stations(bytes)) << "a tag is no part of the packet";
}

TEST(TeamHash, OfStationsFallsBackToTheAddressesOfTheFrame) {
  const auto plain = [](std::uint8_t source, std::uint8_t destination, std::uint16_t type, std::size_t size) {
    FrameWriter writer;
    writer.Put(Station(destination)).Put(Station(source)).Put(type).PadTo(size);
    return Stations(writer.Take());
  };
  EXPECT_NE(plain(1, 2, ZEL_ETH_TYPE_ARP, 60), plain(3, 2, ZEL_ETH_TYPE_ARP, 60));
  EXPECT_NE(plain(1, 2, ZEL_ETH_TYPE_ARP, 60), plain(1, 3, ZEL_ETH_TYPE_ARP, 60));
  // A packet that ends before its addresses do has none.
  for (std::size_t size = 14; size < 14 + 20; ++size) {
    EXPECT_EQ(plain(1, 2, ZEL_ETH_TYPE_IPV4, size), plain(1, 2, ZEL_ETH_TYPE_ARP, 60)) << size;
  }
  for (std::size_t size = 14; size < 14 + 40; ++size) {
    EXPECT_EQ(plain(1, 2, ZEL_ETH_TYPE_IPV6, size), plain(1, 2, ZEL_ETH_TYPE_ARP, 60)) << size;
  }
}

TEST(TeamHash, OfAConversationLooksAtThePorts) {
  const auto bytes = UdpFrame(Station(1), Station(2), 1, 2, 10, 20);
  EXPECT_EQ(Conversation(bytes), Conversation(UdpFrame(Station(1), Station(2), 1, 2, 10, 20)));
  EXPECT_NE(Conversation(bytes), Conversation(UdpFrame(Station(1), Station(2), 1, 2, 11, 20)));
  EXPECT_NE(Conversation(bytes), Conversation(UdpFrame(Station(1), Station(2), 1, 2, 10, 21)));
  EXPECT_NE(Conversation(bytes), Conversation(UdpFrame(Station(3), Station(2), 1, 2, 10, 20)));
}

TEST(TeamHash, KeepsTheFragmentsOfAPacketTogether) {
  auto first = UdpFrame(Station(1), Station(2), 1, 2, 10, 20);
  auto second = UdpFrame(Station(1), Station(2), 1, 2, 77, 88);
  constexpr std::size_t kFragmentAt = 14 + 6;
  first[kFragmentAt] = 0x20;       // more fragments
  second[kFragmentAt + 1] = 0x02;  // an offset
  EXPECT_EQ(Conversation(first), Conversation(second));
}

TEST(TeamHash, OfIpv6LooksAtItsAddressesAndPorts) {
  const auto packet = [](std::uint8_t source, std::uint8_t destination, std::uint16_t port) {
    FrameWriter writer;
    writer.Put(Station(2)).Put(Station(1)).Put(static_cast<std::uint16_t>(ZEL_ETH_TYPE_IPV6));
    writer.Put(std::uint32_t{0x60000000}).Put(std::uint16_t{8}).Put(static_cast<std::uint8_t>(ZEL_IP_PROTO_TCP));
    writer.Put(std::uint8_t{64}).PutZeros(15).Put(source).PutZeros(15).Put(destination).Put(port).PutZeros(18);
    return writer.Take();
  };
  EXPECT_EQ(Stations(packet(1, 2, 80)), Stations(packet(1, 2, 81)));
  EXPECT_NE(Stations(packet(1, 2, 80)), Stations(packet(3, 2, 80)));
  EXPECT_NE(Stations(packet(1, 2, 80)), Stations(packet(1, 3, 80)));
  EXPECT_NE(Conversation(packet(1, 2, 80)), Conversation(packet(1, 2, 81)));
}

/** Numbers that differ little go to all members in about equal parts. */
TEST(TeamHash, SpreadsEvenly) {
  for (const std::size_t members : {2, 3, 4, 5, 7, 8, 16, 32}) {
    constexpr int kMany = 32000;
    std::vector<int> by_address(members);
    std::vector<int> by_stations(members);
    std::vector<int> by_conversation(members);
    for (int i = 0; i < kMany; ++i) {
      const MacAddress address = AddressOfHash(static_cast<std::uint32_t>(i));
      ++by_address[HashOfAddress(address) % members];
      ++by_stations[Stations(UdpFrame(Station(1), Station(2), static_cast<std::uint32_t>(i), 2)) % members];
      const auto one = UdpFrame(Station(1), Station(2), 1, 2, static_cast<std::uint16_t>(i));
      ++by_conversation[Conversation(one) % members];
    }
    const double fair = static_cast<double>(kMany) / static_cast<double>(members);
    for (std::size_t i = 0; i < members; ++i) {
      EXPECT_NEAR(by_address[i], fair, fair / 5) << members;
      EXPECT_NEAR(by_stations[i], fair, fair / 5) << members;
      EXPECT_NEAR(by_conversation[i], fair, fair / 5) << members;
    }
  }
}

}  // namespace
}  // namespace kestrel::host
