#include "tests/host/native/support/random_config.h"

#include <set>

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

TEST(RandomConfigs, AreDeterminedByTheirSeed) {
  RandomConfigs one(7), same(7), other(8);
  for (int i = 0; i < 20; ++i) {
    const SwitchConfig config = one.Next();
    EXPECT_EQ(config, same.Next());
    EXPECT_NE(config, other.Next());
  }
}

TEST(RandomConfigs, HoldOnlyWhatAHostLetsIn) {
  RandomConfigs configs(1);
  std::set<std::string> keys;
  std::set<std::uint32_t> types;
  for (int i = 0; i < 400; ++i) {
    const SwitchConfig config = configs.Next();
    const auto check = [&](PropertyPlace place) {
      for (const auto &[key, property] : config.PropertiesAt(place).Items()) {
        EXPECT_STATUS(ZEL_OK, CheckKeptProperty(key, property.value, place.level, config)) << key;
        EXPECT_TRUE(IsPropertyType(property.type));
        if (FindPropertyRow(key) != nullptr) keys.insert(key);
        types.insert(property.type);
      }
    };
    check({PropertyLevel::kSwitch});
    check({PropertyLevel::kHost});
    for (const Port &port : config.ports().Items()) check({PropertyLevel::kPort, port.id});
    for (const Uplink &uplink : config.uplinks().Items()) check({PropertyLevel::kUplink, uplink.id});
  }
  for (const PropertyRow &row : PropertyRows()) {
    EXPECT_TRUE(row.check == nullptr || keys.contains(std::string(row.key))) << row.key << " never came";
  }
  for (const PropertyTypeRow &row : PropertyTypeRows()) EXPECT_TRUE(types.contains(row.type)) << row.name;
}

}  // namespace
}  // namespace kestrel::host
