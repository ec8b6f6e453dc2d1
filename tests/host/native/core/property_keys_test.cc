#include "host/core/properties/property_keys.h"

#include <gtest/gtest.h>

#include "host/core/properties/property_table.h"

namespace kestrel::host {
namespace {

TEST(PropertyKeys, BelongToThePlatformToVendorsOrToNobody) {
  for (const PropertyRow &row : PropertyRows()) {
    EXPECT_NE(IsPlatformKey(row.key), IsVendorKey(row.key)) << row.key << " has one owner";
  }
  EXPECT_TRUE(IsPlatformKey("com.talvex.anything"));
  EXPECT_TRUE(IsVendorKey(ZEL_CISCO_PROP_SWITCH_CDP));
  EXPECT_TRUE(IsVendorKey("org.example.x"));
  for (const char *key : {"note", "two.labels", "", ".a.b", "a..b", "a.b.", "..", "com.talvex.x.y"}) {
    EXPECT_FALSE(IsVendorKey(key)) << key;
  }
  EXPECT_FALSE(IsPlatformKey("com.talvexx.y"));
}

}  // namespace
}  // namespace kestrel::host
