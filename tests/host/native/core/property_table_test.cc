#include "host/core/properties/property_table.h"

#include "host/core/base/record_bytes.h"
#include "host/core/host_defaults.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

/** Every text among the constants. */
constexpr std::string_view kTexts[] = {
#define KESTREL_STR(name, text) text,
#include "kestrel/constants.def"
};

PropertyPlace PlaceFor(const PropertyRow &row, const SwitchConfig &config) {
  return {row.level, row.level == PropertyLevel::kPort ? config.PortNamed("machine").id : 0};
}

TEST(PropertyTable, KnowsEveryKeyOfTheSwitch) {
  int known = 0;
  for (const std::string_view key : kTexts) {
    if (!key.starts_with("com.talvex.vswitch.")) continue;
    ++known;
    ASSERT_NE(FindPropertyRow(key), nullptr) << key;
    const std::string_view of_ports = "com.talvex.vswitch.port.";
    EXPECT_EQ(FindPropertyRow(key)->level == PropertyLevel::kPort, key.starts_with(of_ports)) << key;
  }
  EXPECT_GT(known, 25);
}

TEST(PropertyTable, HasDefaultsThatPassTheirOwnChecks) {
  const auto host = MakeTestHost();
  const SwitchConfig &config = host->FindSwitch(kAlias).config;
  for (const std::string_view key : kTexts) {
    const PropertyRow *row = FindPropertyRow(key);
    if (row == nullptr || row->check == nullptr || row->fallback == nullptr) continue;
    const PropertyPlace place = PlaceFor(*row, config);
    const PropertyContext where{kDefaultMacLearning, config, config.ports().Find(place.port)};
    EXPECT_STATUS(ZEL_OK, CheckProperty(key, row->fallback(where), place, kDefaultMacLearning, config)) << key;
  }
}

TEST(PropertyTable, TakesNoRecordThatIsCutOrTooLong) {
  const auto host = MakeTestHost();
  const SwitchConfig &config = host->FindSwitch(kAlias).config;
  for (const std::string_view key : kTexts) {
    const PropertyRow *row = FindPropertyRow(key);
    if (row == nullptr || row->check == nullptr || row->fallback == nullptr) continue;
    const PropertyPlace place = PlaceFor(*row, config);
    const PropertyContext where{kDefaultMacLearning, config, config.ports().Find(place.port)};
    const std::string value = row->fallback(where);
    for (const std::string &wrong :
         {value.substr(0, value.size() - std::min<std::size_t>(value.size(), 1)), value + '\1'}) {
      if (wrong == value) continue;
      EXPECT_STATUS(ZEL_BAD_PARAM, CheckProperty(key, wrong, place, kDefaultMacLearning, config)) << key;
    }
  }
}

TEST(PropertyTable, LeavesOtherKeysAlone) {
  const auto host = MakeTestHost();
  const SwitchConfig &config = host->FindSwitch(kAlias).config;
  for (const PropertyLevel level : {PropertyLevel::kSwitch, PropertyLevel::kHost, PropertyLevel::kUplink}) {
    EXPECT_STATUS(ZEL_OK, CheckProperty("org.example.any", "\xff", {level}, kDefaultMacLearning, config));
    EXPECT_STATUS(ZEL_BAD_PARAM, CheckPropertyKey(VSPROP_PORT_VLAN, level));
  }
}

}  // namespace
}  // namespace kestrel::host
