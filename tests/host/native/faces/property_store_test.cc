#include <cstring>
#include <vector>

#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";
constexpr char kKey[] = "org.example.note";
constexpr zel_uint32 kConfig = CONFIG_PROP_TYPE;

class PropertyStore : public FaceTest {
 protected:
  /** What a reading function hands out, "refused: <status>" when it does not. */
  template <typename Get>
  static std::string Read(Get get) {
    void *value = Stale<char>();
    int length = -1;
    const ZEL_ReturnStatus status = get(&value, &length);
    if (status != ZEL_OK) {
      EXPECT_EQ(value, nullptr);
      EXPECT_EQ(length, 0);
      return "refused: " + std::to_string(status);
    }
    std::string bytes(static_cast<char *>(value), static_cast<std::size_t>(length));
    DVSZEL_DataFree(value);
    return bytes;
  }
  static std::string Refused(ZEL_ReturnStatus status) { return "refused: " + std::to_string(status); }

  static std::string OfSwitch(const char *key) {
    return Read([&](void **v, int *n) { return DVSZEL_GlobalPropGet(kId, key, v, n); });
  }
  static ZEL_ReturnStatus Set(const char *key, std::string value, zel_uint32 type = kConfig) {
    return DVSZEL_GlobalPropSet(kId, key, value.data(), static_cast<int>(value.size()), type);
  }
};

TEST_F(PropertyStore, IsAThirdDoorToTheSameValues) {
  EXPECT_EQ(OfSwitch(VSPROP_MTU), BytesOf(zel_uint32{2000}));
  EXPECT_EQ(Set(VSPROP_MTU, BytesOf(zel_uint32{1400})), ZEL_OK);
  VSInfo info;
  ASSERT_EQ(VSZEL_GetVSInfo(kAlias, &info), ZEL_OK);
  EXPECT_EQ(info.mtu, 1400U);
  EXPECT_EQ(DVSZEL_GlobalPropClear(kId, VSPROP_MTU), ZEL_OK);
  EXPECT_EQ(DVSZEL_GlobalPropClear(kId, VSPROP_MTU), ZEL_NOT_FOUND);
  EXPECT_EQ(OfSwitch(VSPROP_MTU), BytesOf(zel_uint32{1500}));
}

TEST_F(PropertyStore, KeepsItsLevelsApart) {
  char value[] = "x";
  EXPECT_EQ(DVSZEL_HostPropSet(kId, kKey, value, 1, kConfig), ZEL_OK);
  EXPECT_EQ(DVSZEL_PortDataSet(kId, "machine", kKey, value, 2, kConfig), ZEL_OK);
  EXPECT_EQ(DVSZEL_UplinkDataSet(kId, kKey, 1, value, 0, kConfig), ZEL_OK);
  EXPECT_EQ(OfSwitch(kKey), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_HostPropGet(kId, kKey, v, n); }), "x");
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_PortDataGet(kId, "machine", kKey, v, n); }),
            (std::string("x\0", 2)));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_PortDataGet(kId, "free", kKey, v, n); }), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_UplinkDataGet(kId, kKey, 1, v, n); }), "");
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_UplinkDataGet(kId, kKey, 0, v, n); }), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(DVSZEL_UplinkDataSet(kId, kKey, 3, value, 1, kConfig), ZEL_NOT_FOUND) << "there are three";
  EXPECT_EQ(DVSZEL_HostPropClear(kId, kKey), ZEL_OK);
  EXPECT_EQ(DVSZEL_PortDataClear(kId, "machine", kKey), ZEL_OK);
}

TEST_F(PropertyStore, RefusesWhatIsNoPropertyAndChangesNothing) {
  const SwitchConfig before = host().FindSwitch(kAlias).config;
  EXPECT_EQ(Set(VSPROP_MTU, "abc"), ZEL_BAD_PARAM);
  EXPECT_EQ(Set(kKey, "x", 1), ZEL_BAD_PARAM) << "an unknown type";
  EXPECT_EQ(DVSZEL_GlobalPropSet(kId, kKey, nullptr, 1, kConfig), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSZEL_GlobalPropSet(kId, nullptr, nullptr, 0, kConfig), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSZEL_GlobalPropSet(nullptr, kKey, nullptr, 0, kConfig), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSZEL_GlobalPropSet(kAlias, kKey, nullptr, 0, kConfig), ZEL_NOT_FOUND) << "an alias is no id";
  EXPECT_EQ(host().FindSwitch(kAlias).config, before);
}

TEST_F(PropertyStore, TypesTellHowLongAValueLasts) {
  EXPECT_EQ(Set("saved", "s"), ZEL_OK);
  EXPECT_EQ(Set("passing", "p", RUNTIME_PROP_TYPE), ZEL_OK);
  EXPECT_EQ(Set("volatile", "v", VOLATILE_PROP_TYPE), ZEL_OK);
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(OfSwitch("saved"), "s");
  EXPECT_EQ(OfSwitch("passing"), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(OfSwitch("volatile"), Refused(ZEL_NOT_FOUND));
}

TEST_F(PropertyStore, ItemsAreGoodAsLongAsTheirProperty) {
  constexpr zel_uint32 kType = CONFIG_PROP_TYPE | POLICY_PROP_TYPE;
  DVSDataItem item = Stale<char>();
  EXPECT_EQ(DVSState_GlobalPropLookup(kId, kKey, &item), ZEL_NOT_FOUND);
  EXPECT_EQ(item, nullptr);
  ASSERT_EQ(Set(kKey, "value", kType), ZEL_OK);
  ASSERT_EQ(DVSState_GlobalPropLookup(kId, kKey, &item), ZEL_OK);
  void *value = nullptr;
  ASSERT_EQ(DVSData_Data(item, &value), 5U);
  EXPECT_EQ(std::memcmp(value, "value", 5), 0);
  EXPECT_STREQ(DVSData_Name(item), kKey);
  EXPECT_EQ(DVSData_PropType(item), kType);
  EXPECT_EQ(DVSData_IsSamePropType(item, CONFIG_PROP_TYPE), 1);
  EXPECT_EQ(DVSData_IsSamePropType(item, RUNTIME_PROP_TYPE), 0);
  ASSERT_EQ(DVSZEL_GlobalPropClear(kId, kKey), ZEL_OK);
  EXPECT_EQ(DVSData_Data(item, &value), 0U);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(DVSData_Name(item), nullptr);
  EXPECT_EQ(DVSData_PropType(nullptr), 0U);
  EXPECT_EQ(DVSData_IsSamePropType(&value, 0), 0);
}

/** Notes the element and goes on until the list is as long as it has room for. */
char Note(void *element, void *context) {
  auto *list = static_cast<std::vector<void *> *>(context);
  list->push_back(element);
  return static_cast<char>(list->size() < list->capacity() ? 1 : 0);
}

TEST_F(PropertyStore, IsWalked) {
  std::vector<void *> found;
  found.reserve(100);
  DVSState_SwitchForEach(Note, &found);
  ASSERT_EQ(found.size(), 1U);
  void *owner = found.front();
  EXPECT_STREQ(DVS_SwitchId(owner), kId);

  found.clear();
  DVSState_PortForEach(owner, Note, &found);
  ASSERT_EQ(found.size(), 6U);
  void *machine = found.front();
  EXPECT_STREQ(DVS_PortId(machine), "machine");
  EXPECT_EQ(machine, DVSState_PortFind(kId, "machine"));

  found.clear();
  DVSState_GlobalPropForEach(owner, Note, &found);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_STREQ(DVSData_Name(found.front()), VSPROP_MTU);

  ASSERT_EQ(VSDVS_SetPortNestedVLANTagging(kAlias, "machine", 1), ZEL_OK);
  found.clear();
  DVSState_PortDataForEach(machine, Note, &found);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_STREQ(DVSData_Name(found.front()), VSPROP_PORT_VLAN_NESTEDTAG);
  found.clear();
  DVSState_HostPropForEach(owner, Note, &found);
  EXPECT_TRUE(found.empty());
}

TEST_F(PropertyStore, EndsAWalkWhereTheCallbackSaysSo) {
  void *owner = DVSState_SwitchFindByAlias(kAlias);
  std::vector<void *> found;
  found.reserve(2);
  DVSState_PortForEach(owner, Note, &found);
  EXPECT_EQ(found.size(), 2U);
  DVSState_PortForEach(owner, nullptr, &found);
  DVSState_PortForEach(nullptr, Note, &found);
  DVSState_PortForEach(&found, Note, &found);
  DVSState_PortDataForEach(owner, Note, &found);
  EXPECT_EQ(found.size(), 2U) << "walks of nothing";
}

}  // namespace
}  // namespace kestrel::host
