#include "host/core/mac_table.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <vector>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr PortId kHere = 1;
constexpr PortId kThere = 2;
constexpr MacKey kKey{100, Station(1)};

TEST(MacTable, LearnsThenRefreshes) {
  MacTable table;
  EXPECT_EQ(table.Learn(kKey, kHere, seconds(5)), Learning::kNew);
  EXPECT_EQ(table.Learn(kKey, kHere, seconds(9)), Learning::kRefreshed);
  EXPECT_EQ(*table.Find(kKey), (MacEntry{VS_MAC_ADDR_TYPE_LEARNED, kHere, seconds(9), 0}));
  EXPECT_EQ(table.entries().size(), 1U);
}

TEST(MacTable, CountsMovesBetweenPorts) {
  MacTable table;
  table.Learn(kKey, kHere, seconds(0));
  EXPECT_EQ(table.Learn(kKey, kThere, seconds(1)), Learning::kMoved);
  EXPECT_EQ(table.Learn(kKey, kThere, seconds(2)), Learning::kRefreshed);
  EXPECT_EQ(table.Learn(kKey, kHere, seconds(3)), Learning::kMoved);
  EXPECT_EQ(*table.Find(kKey), (MacEntry{VS_MAC_ADDR_TYPE_LEARNED, kHere, seconds(3), 2}));
}

TEST(MacTable, OneAddressInTwoVlansIsTwoEntries) {
  MacTable table;
  table.Learn({1, Station(1)}, kHere, seconds(0));
  EXPECT_EQ(table.Learn({2, Station(1)}, kThere, seconds(0)), Learning::kNew);
  EXPECT_EQ(table.entries().size(), 2U);
}

TEST(MacTable, DropsAnEntryWhenItsTimeIsOverAndNotBefore) {
  MacTable table({10, seconds(60)});
  table.Learn(kKey, kHere, seconds(5));
  table.Expire(seconds(65) - Duration(1));
  EXPECT_EQ(table.entries().size(), 1U);
  table.Expire(seconds(65));
  EXPECT_TRUE(table.entries().empty());
}

TEST(MacTable, AFrameMakesAnEntryYoungAgain) {
  MacTable table({10, seconds(60)});
  table.Learn({1, Station(1)}, kHere, seconds(0));
  table.Learn({1, Station(2)}, kHere, seconds(10));
  table.Learn({1, Station(1)}, kHere, seconds(50));
  table.Expire(seconds(70));
  ASSERT_EQ(table.entries().size(), 1U);
  EXPECT_EQ(table.entries().front().key.address, Station(1));
  table.Expire(seconds(110));
  EXPECT_TRUE(table.entries().empty());
}

TEST(MacTable, AgesAsTheConstantsSayUnlessTold) {
  MacTable table;
  table.Learn(kKey, kHere, seconds(0));
  table.Expire(seconds(VS_MAC_LEARNING_AGING_TIME_DEFAULT) - Duration(1));
  EXPECT_EQ(table.entries().size(), 1U);
  table.Expire(seconds(VS_MAC_LEARNING_AGING_TIME_DEFAULT));
  EXPECT_TRUE(table.entries().empty());
}

TEST(MacTable, LearnsUpToItsLimitAndGoesOnRefreshing) {
  MacTable table({2, seconds(60)});
  table.Learn({1, Station(1)}, kHere, seconds(0));
  table.Learn({1, Station(2)}, kHere, seconds(30));
  EXPECT_EQ(table.Learn({1, Station(3)}, kHere, seconds(30)), Learning::kFull);
  EXPECT_EQ(table.Learn({1, Station(2)}, kThere, seconds(31)), Learning::kMoved);
  table.Enter({1, Station(4)}, VS_MAC_ADDR_TYPE_USER, kHere, seconds(31));
  EXPECT_EQ(table.entries().size(), 3U) << "entered addresses do not count";
  table.Expire(seconds(60));
  EXPECT_EQ(table.Learn({1, Station(3)}, kHere, seconds(60)), Learning::kNew);
}

TEST(MacTable, EnteredAddressesStayAsTheyAre) {
  MacTable table({10, seconds(60)});
  table.Enter({1, Station(1)}, VS_MAC_ADDR_TYPE_STATIC, kHere, seconds(0));
  table.Enter({1, Station(2)}, VS_MAC_ADDR_TYPE_USER, kHere, seconds(0));
  const auto before = SortedEntries(table);
  EXPECT_EQ(table.Learn({1, Station(1)}, kThere, seconds(1)), Learning::kFixed);
  EXPECT_EQ(table.Learn({1, Station(2)}, kThere, seconds(1)), Learning::kFixed);
  table.Expire(seconds(1000));
  EXPECT_EQ(SortedEntries(table), before);
}

TEST(MacTable, AnEnteredAddressReplacesALearnedOneAndOutlivesIt) {
  MacTable table({10, seconds(60)});
  table.Learn(kKey, kHere, seconds(0));
  table.Enter(kKey, VS_MAC_ADDR_TYPE_USER, kThere, seconds(1));
  table.Expire(seconds(1000));
  ASSERT_EQ(table.entries().size(), 1U);
  EXPECT_EQ(*table.Find(kKey), (MacEntry{VS_MAC_ADDR_TYPE_USER, kThere, seconds(1), 0}));
}

TEST(MacTable, RefusesASecondEntryAndOtherKinds) {
  MacTable table;
  table.Enter(kKey, VS_MAC_ADDR_TYPE_STATIC, kHere, seconds(0));
  const auto before = SortedEntries(table);
  EXPECT_STATUS(ZEL_EXISTS, table.Enter(kKey, VS_MAC_ADDR_TYPE_USER, kThere, seconds(1)));
  EXPECT_STATUS(ZEL_BAD_PARAM, table.Enter({1, Station(9)}, VS_MAC_ADDR_TYPE_LEARNED, kHere, seconds(1)));
  EXPECT_STATUS(ZEL_BAD_PARAM, table.Enter({1, Station(9)}, VS_MAC_ADDR_TYPE_ALL, kHere, seconds(1)));
  EXPECT_EQ(SortedEntries(table), before);
}

TEST(MacTable, ForgetsWhatItIsToldToAndLearnsItAgain) {
  MacTable table({2, seconds(60)});
  table.Learn({1, Station(1)}, kHere, seconds(0));
  table.Learn({1, Station(2)}, kThere, seconds(0));
  table.RemoveIf([](const MacKey &, const MacEntry &entry) { return entry.port == kHere; });
  ASSERT_EQ(table.entries().size(), 1U);
  EXPECT_EQ(table.entries().front().entry.port, kThere);
  EXPECT_EQ(table.Learn({1, Station(1)}, kHere, seconds(40)), Learning::kNew);
  table.Expire(seconds(60));
  EXPECT_EQ(table.entries().front().key.address, Station(1)) << "its age counts from the second time";
}

/** What is behind a port by looking at everything, and what the table says of it: the same. */
void ExpectPartIsKnown(const MacTable &table, PortId port) {
  std::vector<MacItem> wanted;
  std::ranges::copy_if(table.entries(), std::back_inserter(wanted),
                       [port](const MacItem &item) { return item.entry.port == port; });
  std::vector<MacItem> visited;
  table.ForEachBehind(port, [&visited](const MacItem &item) { visited.push_back(item); });
  std::ranges::sort(wanted, {}, &MacItem::key);
  std::ranges::sort(visited, {}, &MacItem::key);
  EXPECT_EQ(visited, wanted);
  const auto count = [&wanted](VSMACAddrType kind) {
    return static_cast<std::size_t>(
        std::ranges::count(wanted, kind, [](const MacItem &item) { return item.entry.kind; }));
  };
  EXPECT_EQ(table.SizeBehind(port), wanted.size());
  EXPECT_EQ(table.LearnedBehind(port), count(VS_MAC_ADDR_TYPE_LEARNED));
  EXPECT_EQ(table.UsersBehind(port), count(VS_MAC_ADDR_TYPE_USER));
}

TEST(MacTable, KnowsWhatIsBehindEachPortWhateverHappens) {
  constexpr PortId kPorts = 4;
  std::mt19937 random(20);
  const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  MacTable table({40, seconds(60)});
  for (int step = 0; step < 4000; ++step) {
    const TimePoint now = seconds(step / 4);
    const MacKey key{static_cast<VlanId>(below(3)), Station(1 + below(30))};
    const PortId port = below(kPorts);
    switch (below(16)) {
      case 0:
        table.RemoveBehind(port);
        EXPECT_EQ(table.SizeBehind(port), 0U);
        break;
      case 1:
        table.RemoveIf([&key](const MacKey &each, const MacEntry &) { return each.vlan == key.vlan; });
        break;
      case 2:
        table.Expire(now);
        break;
      case 3:
      case 4:
        table.Remove(key);
        break;
      case 5:
      case 6:
        if (const MacEntry *found = table.Find(key); found == nullptr || found->kind == VS_MAC_ADDR_TYPE_LEARNED) {
          table.Enter(key, below(2) == 0 ? VS_MAC_ADDR_TYPE_USER : VS_MAC_ADDR_TYPE_STATIC, port, now);
        }
        break;
      case 7:
        table.Restore({{key, {VS_MAC_ADDR_TYPE_LEARNED, port, now, 0}}});
        break;
      default:
        table.Learn(key, port, now);
    }
    for (PortId each = 0; each < kPorts; ++each) ExpectPartIsKnown(table, each);
  }
}

TEST(MacTable, StationsAreNeitherGroupsNorNobody) {
  EXPECT_TRUE(IsStation({0x02, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(IsStation({0, 0, 0, 0, 0, 1}));
  EXPECT_FALSE(IsStation({}));
  EXPECT_FALSE(IsStation({0x01, 0, 0x5e, 0, 0, 1}));
  EXPECT_FALSE(IsStation({0xff, 0xff, 0xff, 0xff, 0xff, 0xff}));
}

}  // namespace
}  // namespace kestrel::host
