/* What is kept of traffic comes back as it was. */
#include <algorithm>
#include <random>
#include <vector>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/traffic_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

TEST(TrafficState, ACounterRecordComesBack) {
  PortRuntime runtime;
  runtime.connected_at = seconds(5);
  runtime.in.Count(CastKind::kMulticast, 70);
  runtime.out.Count(CastKind::kBroadcast, 80);
  runtime.dropped_in = 1;
  runtime.dropped_out = 2;
  runtime.exceptions_in = 3;
  runtime.exceptions_out = 4;
  runtime.unlearned = 5;
  runtime.unlearned_by_own_limit = 6;
  runtime.unlearned_dropped = 7;
  runtime.moved_here = 8;
  const std::string saved = runtime.Save();
  EXPECT_EQ(PortRuntime::Load(saved), runtime);
  EXPECT_STATUS(ZEL_INVALID_METADATA, PortRuntime::Load(saved.substr(1)));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PortRuntime::Load(saved + '\0'));
}

TEST(TrafficState, AnEntryComesBack) {
  const MacEntry entry{VS_MAC_ADDR_TYPE_USER, 77, seconds(9), 3};
  const std::string saved = entry.Save();
  EXPECT_EQ(MacEntry::Load(saved), entry);
  EXPECT_STATUS(ZEL_INVALID_METADATA, MacEntry::Load(saved + '\0'));
  EXPECT_STATUS(ZEL_INVALID_METADATA, MacEntry::Load('\x03' + saved.substr(1)));
}

TEST(TrafficState, AClientComesBack) {
  const Client client{
      VS_PORT_CLIENT_TCPIP, "svc", Station(1), {Station(2), ZEL_ETH_FILTER_PROMISC, {{1, 2, 3, 4, 5, 6}}}};
  const std::string saved = client.Save();
  EXPECT_EQ(Client::Load(saved), client);
  EXPECT_STATUS(ZEL_INVALID_METADATA, Client::Load(saved.substr(0, saved.size() - 1)));
}

/** A table as lists, for the truth. */
TEST(TrafficState, ATableIsWhatAListWouldBe) {
  std::mt19937 random(7);
  MacTable table({40, seconds(30)});
  std::vector<MacItem> list;
  TimePoint now{};
  const auto find = [&list](const MacKey &key) { return std::ranges::find(list, key, &MacItem::key); };
  const auto is_learned = [](const MacItem &item) { return item.entry.kind == VS_MAC_ADDR_TYPE_LEARNED; };
  for (int step = 0; step < 20000; ++step) {
    const MacKey key{static_cast<VlanId>(random() % 3), Station(static_cast<std::uint8_t>(random() % 30))};
    const PortId port = 1 + random() % 4;
    const auto place = find(key);
    switch (random() % 8) {
      case 0:
        if (place == list.end() || is_learned(*place)) {
          table.Enter(key, VS_MAC_ADDR_TYPE_USER, port, now);
          if (place != list.end()) list.erase(place);
          list.push_back({key, {VS_MAC_ADDR_TYPE_USER, port, now, 0}});
        } else {
          EXPECT_STATUS(ZEL_EXISTS, table.Enter(key, VS_MAC_ADDR_TYPE_USER, port, now));
        }
        break;
      case 1:
        table.Remove(key);
        if (place != list.end()) list.erase(place);
        break;
      case 2:
        now += seconds(random() % 6);
        table.Expire(now);
        std::erase_if(
            list, [&](const MacItem &item) { return is_learned(item) && now - item.entry.last_seen >= seconds(30); });
        break;
      case 3:
        if (step % 50 != 3) break;
        table.RemoveIf([port](const MacKey &, const MacEntry &entry) { return entry.port == port; });
        std::erase_if(list, [port](const MacItem &item) { return item.entry.port == port; });
        break;
      case 4:
        if (step % 20 == 4) {
          MacTable other({40, seconds(30)});
          other.Restore({table.entries().begin(), table.entries().end()});
          table = other;
        }
        break;
      default: {
        const Learning outcome = table.Learn(key, port, now);
        if (place == list.end()) {
          const bool is_full = std::ranges::count_if(list, is_learned) >= 40;
          ASSERT_EQ(outcome, is_full ? Learning::kFull : Learning::kNew);
          if (!is_full) list.push_back({key, {VS_MAC_ADDR_TYPE_LEARNED, port, now, 0}});
        } else if (is_learned(*place)) {
          ASSERT_EQ(outcome, place->entry.port == port ? Learning::kRefreshed : Learning::kMoved);
          if (place->entry.port != port) ++place->entry.moves;
          place->entry.port = port;
          place->entry.last_seen = now;
        } else {
          ASSERT_EQ(outcome, Learning::kFixed);
        }
      }
    }
    ASSERT_EQ(table.size(), list.size());
    for (PortId behind = 1; behind <= 4; ++behind) {
      const auto count = std::ranges::count_if(
          list, [&](const MacItem &item) { return is_learned(item) && item.entry.port == behind; });
      ASSERT_EQ(table.LearnedBehind(behind), static_cast<std::size_t>(count));
    }
    const MacEntry *found = table.Find(key);
    ASSERT_EQ(found != nullptr, find(key) != list.end());
    if (found != nullptr) {
      ASSERT_EQ(*found, find(key)->entry);
    }
    if (step % 7 == 0) {
      std::vector<MacItem> sorted = list;
      std::ranges::sort(sorted, {}, &MacItem::key);
      ASSERT_EQ(SortedEntries(table), sorted) << step;
    }
  }
}

TEST(TrafficState, ChangesOfATableAreTold) {
  MacTable table({10, seconds(60)});
  table.changes().Enable();
  const MacKey key{1, Station(1)};
  const auto taken = [&table] { return table.changes().Take().keys.size(); };
  table.Learn(key, 1, seconds(1));
  EXPECT_EQ(taken(), 1U);
  table.Learn(key, 1, seconds(1));
  EXPECT_EQ(taken(), 0U) << "nothing is new";
  table.Learn(key, 1, seconds(2));
  EXPECT_EQ(taken(), 1U);
  table.Expire(seconds(62));
  EXPECT_EQ(taken(), 1U);
}

}  // namespace
}  // namespace kestrel::host
