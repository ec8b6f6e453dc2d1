#include "host/core/base/named_table.h"

#include <string>
#include <vector>

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

struct Item {
  unsigned id;
  std::string name;

  bool operator==(const Item &) const = default;
};

std::vector<Item> Contents(const NamedTable<Item> &table) { return {table.Items().begin(), table.Items().end()}; }

TEST(NamedTable, FindsByBothKeysAndKeepsTheOrderOfIdentifiers) {
  NamedTable<Item> table;
  table.Add({2, "b"});
  table.Add({1, "c"});
  table.Add({3, "a"});
  EXPECT_EQ(Contents(table), (std::vector<Item>{{1, "c"}, {2, "b"}, {3, "a"}}));
  EXPECT_EQ(table.Find(3U), table.FindNamed("a"));
  EXPECT_EQ(table.FindNamed("b")->id, 2U);
  EXPECT_EQ(table.Find(4U), nullptr);
  EXPECT_EQ(table.FindNamed("d"), nullptr);
  EXPECT_EQ(table.FindNamed(""), nullptr);
}

TEST(NamedTable, RefusesASecondItemOfEitherKey) {
  NamedTable<Item> table;
  table.Add({1, "a"});
  const NamedTable<Item> before = table;
  EXPECT_STATUS(ZEL_EXISTS, table.Add({1, "b"}));
  EXPECT_STATUS(ZEL_EXISTS, table.Add({2, "a"}));
  EXPECT_EQ(table, before);
}

TEST(NamedTable, RemovedItemsFreeBothKeys) {
  NamedTable<Item> table;
  for (unsigned id = 1; id <= 4; ++id) table.Add({id, std::string(1, static_cast<char>('a' + id))});
  table.Remove(1);
  table.Remove(9);
  table.RemoveIf([](const Item &item) { return item.id % 2 == 0; });
  EXPECT_EQ(Contents(table), (std::vector<Item>{{3, "d"}}));
  table.Add({2, "b"});
  table.Add({1, "c"});
  EXPECT_EQ(table.size(), 3U);
}

}  // namespace
}  // namespace kestrel::host
