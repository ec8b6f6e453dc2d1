#include "host/core/handles.h"

#include <gtest/gtest.h>

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

using Kind = HandleMeaning::Kind;

TEST(Handles, AreOneForOneThing) {
  HandleTable table;
  void *first = table.HandleOf({.kind = Kind::kSwitch, .switch_id = "a"});
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(table.HandleOf({.kind = Kind::kSwitch, .switch_id = "a"}), first);
  EXPECT_NE(table.HandleOf({.kind = Kind::kSwitch, .switch_id = "b"}), first);
  EXPECT_NE(table.HandleOf({.kind = Kind::kPort, .switch_id = "a", .port = 1}), first);
  ASSERT_NE(table.Find(first), nullptr);
  EXPECT_EQ(table.Find(first)->switch_id, "a");
}

TEST(Handles, OfNothingAreNone) {
  const HandleTable table;
  int object = 0;
  EXPECT_EQ(table.Find(nullptr), nullptr);
  EXPECT_EQ(table.Find(&object), nullptr);
}

TEST(Handles, EndWithWhatTheyStandForAndAreNotUsedAgain) {
  HandleTable table;
  const HandleMeaning owner{.kind = Kind::kSwitch, .switch_id = "a"};
  const HandleMeaning port{.kind = Kind::kPort, .switch_id = "a", .port = 1};
  const HandleMeaning property{
      .kind = Kind::kProperty, .switch_id = "a", .port = 1, .level = PropertyLevel::kPort, .key = "k"};
  void *of_owner = table.HandleOf(owner);
  void *of_port = table.HandleOf(port);
  void *of_property = table.HandleOf(property);
  void *of_other = table.HandleOf({.kind = Kind::kPort, .switch_id = "b", .port = 2});

  table.ForgetIf([](const HandleMeaning &meaning) { return meaning.port == 1; });
  EXPECT_EQ(table.Find(of_port), nullptr);
  EXPECT_EQ(table.Find(of_property), nullptr);
  EXPECT_NE(table.Find(of_owner), nullptr);
  EXPECT_NE(table.HandleOf(port), of_port);

  table.ForgetIf([](const HandleMeaning &meaning) { return meaning.switch_id == "a"; });
  EXPECT_EQ(table.Find(of_owner), nullptr);
  EXPECT_NE(table.HandleOf(owner), of_owner);
  EXPECT_NE(table.Find(of_other), nullptr);
}

TEST(Handles, KeepValuesAtOneAddressWhileTheyAreTheSame) {
  HandleTable table;
  void *handle = table.HandleOf({.kind = Kind::kProperty, .switch_id = "a", .key = "k"});
  const char *kept = table.KeepValue(handle, "value").data();
  EXPECT_EQ(table.KeepValue(handle, "value").data(), kept);
  EXPECT_EQ(table.KeepValue(handle, "other"), "other");
  EXPECT_STATUS(ZEL_INVALID_HANDLE, table.KeepValue(&table, "value"));
}

}  // namespace
}  // namespace kestrel::host
