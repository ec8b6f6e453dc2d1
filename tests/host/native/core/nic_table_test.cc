#include "host/core/nic_table.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

TEST(NicTable, GivesEveryNicAnAddressOfItsOwn) {
  NicTable table;
  std::set<MacAddress> addresses;
  for (int i = 0; i < 300; ++i) {
    const std::string name = "nic" + std::to_string(i);
    table.Add(name, kUp);
    EXPECT_TRUE(IsStation(table.Get(name).address));
    EXPECT_TRUE(addresses.insert(table.Get(name).address).second);
  }
  NicTable other;
  other.Add("nic7", kDown);
  EXPECT_EQ(other.Get("nic7").address, table.Get("nic7").address) << "out of the name alone";
}

TEST(NicTable, MakesAnotherAddressWhenOneIsTaken) {
  NicTable table;
  NicTable other;
  other.Add("nic", kUp);
  table.Add("thief", Nic{.address = other.Get("nic").address});
  table.Add("nic", kUp);
  EXPECT_NE(table.Get("nic").address, table.Get("thief").address);
}

TEST(NicTable, RefusesWhatNoNicCanBe) {
  NicTable table;
  table.Add("a", kUp);
  table.Add("b", kUp);
  const Nic good = table.Get("a");
  const auto refused = [&](auto change) {
    Nic nic = good;
    change(nic);
    const std::uint64_t before = table.revision();
    const int status = StatusOf([&] { table.Set("a", nic); });
    EXPECT_EQ(table.Get("a"), good);
    EXPECT_EQ(table.revision(), before);
    return status;
  };
  EXPECT_EQ(refused([](Nic &nic) { nic.address = {}; }), ZEL_BAD_PARAM);
  EXPECT_EQ(refused([](Nic &nic) { nic.address = kBroadcast; }), ZEL_BAD_PARAM);
  EXPECT_EQ(refused([](Nic &nic) { nic.error_percent = 101; }), ZEL_BAD_PARAM);
  EXPECT_EQ(refused([](Nic &nic) { nic.link.state = static_cast<zel_LinkState>(2); }), ZEL_BAD_PARAM);
  EXPECT_EQ(refused([](Nic &nic) { nic.link.duplex = static_cast<zel_LinkDuplex>(0); }), ZEL_BAD_PARAM);
  EXPECT_EQ(refused([&](Nic &nic) { nic.address = table.Get("b").address; }), ZEL_EXISTS);
  EXPECT_STATUS(ZEL_NOT_FOUND, table.Set("c", good));
  EXPECT_STATUS(ZEL_EXISTS, table.Add("a", Nic{.address = Station(5)}));
  EXPECT_STATUS(ZEL_EXISTS, table.Add("c", good));
}

TEST(NicTable, TellsThatItHasChanged) {
  NicTable table;
  std::uint64_t last = table.revision();
  const auto has_changed = [&] { return std::exchange(last, table.revision()) != table.revision(); };
  table.Add("a", kUp);
  EXPECT_TRUE(has_changed());
  table.Set("a", table.Get("a"));
  EXPECT_TRUE(has_changed());
  table.Remove("a");
  EXPECT_TRUE(has_changed());
  EXPECT_STATUS(ZEL_NOT_FOUND, table.Remove("a"));
  EXPECT_FALSE(has_changed());
}

TEST(Nic, ComesBackFromItsBytes) {
  const Nic nic{.link = {ZEL_LINK_STATE_UP, 400000, ZEL_LINK_DUPLEX_HALF},
                .is_enabled = false,
                .address = Station(17),
                .has_driver = false,
                .error_percent = 33,
                .is_blocked = true,
                .numa_node = 3,
                .partner = {.mode = LacpMode::kPassive,
                            .system_priority = 5,
                            .system = Station(18),
                            .key = 77,
                            .collects = false,
                            .distributes = false,
                            .short_timeout = true},
                .hears_beacons = false};
  EXPECT_EQ(Nic::Load(nic.Save()), nic);
  const Nic plain{.address = Station(1)};
  EXPECT_EQ(Nic::Load(plain.Save()), plain);
  EXPECT_EQ(plain.CurrentLink(), kNoLink);

  const std::string bytes = nic.Save();
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, Nic::Load(bytes.substr(0, size)));
  }
  EXPECT_STATUS(ZEL_INVALID_METADATA, Nic::Load(bytes + '\0'));
}

}  // namespace
}  // namespace kestrel::host
