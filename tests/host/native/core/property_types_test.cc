#include "host/core/properties/property_types.h"

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

TEST(PropertyTypes, AreAllKnownAndNamedOnce) {
  std::uint32_t all = 0;
  for (const PropertyTypeRow &row : PropertyTypeRows()) {
    EXPECT_EQ(all & row.type, 0U) << row.name;
    EXPECT_FALSE(row.name.empty());
    EXPECT_TRUE(IsPropertyType(row.type));
    EXPECT_EQ(PropertyTypeOfRequest(row.type), row.type);
    all |= row.type;
  }
  EXPECT_EQ(all, kAllPropertyTypes);
  EXPECT_TRUE(IsPropertyType(all));
}

TEST(PropertyTypes, ARequestWithoutOneIsForConfiguration) {
  EXPECT_EQ(PropertyTypeOfRequest(0), static_cast<std::uint32_t>(CONFIG_PROP_TYPE));
  EXPECT_FALSE(IsPropertyType(0)) << "what is kept always has one";
  for (int bit = 0; bit < 32; ++bit) {
    const std::uint32_t type = 1U << bit;
    const int expected = (type & kAllPropertyTypes) != 0 ? int{ZEL_OK} : int{ZEL_BAD_PARAM};
    EXPECT_STATUS(expected, PropertyTypeOfRequest(type)) << bit;
  }
}

TEST(PropertyTypes, SeveralTogetherAreWhatEachLetsThemBe) {
  const auto rows = PropertyTypeRows();
  for (const PropertyTypeRow &one : rows) {
    for (const PropertyTypeRow &other : rows) {
      const std::uint32_t both = one.type | other.type;
      EXPECT_EQ(IsSaved(both), one.is_saved && other.is_saved) << one.name << ' ' << other.name;
      EXPECT_EQ(IsReplicated(both), one.is_replicated && other.is_replicated) << one.name << ' ' << other.name;
      EXPECT_EQ(IsSynchronised(both), one.is_synchronised && other.is_synchronised) << one.name << ' ' << other.name;
      EXPECT_EQ(IsListed(both, ALL_PUBLIC_PROP_TYPE), one.is_public && other.is_public)
          << one.name << ' ' << other.name;
      EXPECT_EQ(IsListed(both, one.type), one.type == other.type || other.is_public) << one.name << ' ' << other.name;
      EXPECT_TRUE(IsListed(both, both));
      EXPECT_FALSE(IsListed(both, 0));
    }
  }
}

TEST(PropertyTypes, OnlyThoseAskedForAreListed) {
  EXPECT_FALSE(IsListed(CONFIG_PROP_TYPE, RUNTIME_PROP_TYPE));
  EXPECT_TRUE(IsListed(CONFIG_PROP_TYPE | POLICY_PROP_TYPE, POLICY_PROP_TYPE));
}

}  // namespace
}  // namespace kestrel::host
