#include "host/core/images/port_image.h"

#include "host/core/images/image_frame.h"
#include "tests/host/native/support/random_state.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

TEST(PortImage, OfAnyPortIsThatPortAgain) {
  RandomConfigs configs(11);
  for (int i = 0; i < 500; ++i) {
    const PortState port = NextPortState(configs);
    const std::string image = ImageOfPort(port, kNewestVersion);
    ASSERT_EQ(PortOfImage(image), port) << i;
    ASSERT_EQ(ImageOfPort(PortOfImage(image), kNewestVersion), image) << i;
  }
}

PropertySet Set(std::initializer_list<std::pair<std::string_view, Property>> properties) {
  PropertySet set;
  for (const auto &[key, property] : properties) set.Put(PropertySet::Ready(key, property));
  return set;
}

TEST(PortImage, LeavesOutWhatIsNotReplicated) {
  const PortState port{.external_id = {},
                       .properties = LayersOf(Set({{"here", {"1", CONFIG_PROP_TYPE | NO_REPLICATE_PROP_TYPE}},
                                                   {"now", {"2", VOLATILE_PROP_TYPE}},
                                                   {"there", {"3"}}}))};
  EXPECT_EQ(PortOfImage(ImageOfPort(port, kNewestVersion)).properties, LayersOf(Set({{"there", {"3"}}})));
}

TEST(PortImage, LeavesOutWhatItsVersionDoesNotKnow) {
  const PropertySet all = Set({{VSPROP_PORT_LS_TEAMING_POLICY, {"team"}},
                               {VSPROP_PORT_MAC_MANAGEMENT, {"any"}},
                               {VSPROP_PORT_PRIORITY, {"any"}},
                               {"com.example.new", {"any"}}});
  const auto count = [&](std::uint32_t version) {
    const std::string of_port = ImageOfPort({.external_id = {}, .properties = LayersOf(all)}, version);
    const std::size_t found = PortOfImage(of_port).properties.in_use.Items().size();
    EXPECT_EQ(PropertiesOfImage(OpenImage(ImageOfProperties(all, version))).Items().size(), found);
    return found;
  };
  EXPECT_EQ(count(DVS_VERSION_60), 2U);
  EXPECT_EQ(count(DVS_VERSION_66), 3U);
  EXPECT_EQ(count(DVS_VERSION_70), 3U);
  EXPECT_EQ(count(VS_TRV_VDS_VERSION_10), 4U);
  EXPECT_EQ(count(VS_TRVT_ON_DVS70_VERSION), 4U);
  EXPECT_STATUS(ZEL_BAD_PARAM, ImageOfPort({}, 3));
  EXPECT_STATUS(ZEL_BAD_PARAM, ImageOfProperties({}, 8));
}

TEST(PortImage, MayBeThatOfACollection) {
  const PropertySet all = Set({{"saved", {"1"}}, {"passing", {"2", RUNTIME_PROP_TYPE}}});
  const PortState port = PortOfImage(ImageOfProperties(all, DVS_VERSION_65));
  EXPECT_EQ(port.properties.in_use, all);
  EXPECT_EQ(port.properties.saved, Set({{"saved", {"1"}}}));
  EXPECT_EQ(port.external_id, "");
}

TEST(PortImage, IsNoImageOfAState) {
  EXPECT_STATUS(ZEL_BAD_PARAM, PortOfImage(ImageOf({})));
  EXPECT_STATUS(ZEL_BAD_PARAM, PropertiesOfImage(OpenImage(ImageOf({}))));
}

TEST(PortImage, WithOtherBytesAndARightChecksumIsRefusedOrAnotherPort) {
  RandomConfigs configs(12, {.value = 8});
  int accepted = 0;
  for (int i = 0; i < 60; ++i) {
    const std::string image = ImageOfPort(NextPortState(configs), kNewestVersion);
    for (std::size_t at = 24; at < image.size(); ++at) {
      std::string other = image;
      other[at] = static_cast<char>(other[at] ^ (1 << configs.chance().Below(8)));
      MendChecksum(other);
      const int status =
          StatusOf([&] { ASSERT_EQ(ImageOfPort(PortOfImage(other), kNewestVersion), other) << i << ' ' << at; });
      ASSERT_TRUE(status == ZEL_INVALID_METADATA || status == ZEL_OK) << status;
      accepted += status == ZEL_OK ? 1 : 0;
    }
  }
  EXPECT_GT(accepted, 0);
}

}  // namespace
}  // namespace kestrel::host
