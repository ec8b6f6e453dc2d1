#include <cstring>
#include <vector>

#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

constexpr int kTrunk = static_cast<int>(VSPORT_VLAN_GUEST_TAGGING);
constexpr int kPrivate = static_cast<int>(VSPORT_VLAN_PVLAN_ENABLED);

class PortVlan : public FaceTest {
 protected:
  using Ranges = std::vector<zel_VDSPortVIDRange>;

  static ZEL_ReturnStatus Set(zel_uint16 vlan, int mode, Ranges ranges = {}, zel_Bool priority = 0,
                              zel_Bool runtime_only = 0, const char *port = "machine") {
    return VSDVS_SetPortVLANPolicy(kAlias, port, vlan, mode, priority, runtime_only, ranges.data(),
                                   static_cast<zel_uint16>(ranges.size()));
  }

  /** The words of the record: flags, VLAN, padding, count, and both ends of each range. */
  static std::vector<zel_uint16> Get(const char *port = "machine") {
    VSPortVlanPolicy *record = Stale<VSPortVlanPolicy>();
    int length = -1;
    EXPECT_EQ(VSDVS_GetPortVLANPolicy(kPortset, port, &record, &length), ZEL_OK);
    std::vector<zel_uint16> words(static_cast<std::size_t>(length) / 2);
    std::memcpy(words.data(), record, static_cast<std::size_t>(length));
    EXPECT_EQ(VSDVS_FreeMemory(record), ZEL_OK);
    return words;
  }
};

using Words = std::vector<zel_uint16>;

TEST_F(PortVlan, IsAccess0WithoutAPolicy) { EXPECT_EQ(Get(), (Words{0, 0, 0, 0})); }

TEST_F(PortVlan, ReadsAsItWasSet) {
  EXPECT_EQ(Set(4094, 0), ZEL_OK);
  EXPECT_EQ(Get(), (Words{0, 4094, 0, 0}));
  EXPECT_EQ(Set(0, 0, {}, 1), ZEL_OK);
  EXPECT_EQ(Get(), (Words{4, 0, 0, 0}));
  EXPECT_EQ(Set(1101, kPrivate), ZEL_OK);
  EXPECT_EQ(Get(), (Words{2, 1101, 0, 0}));
  EXPECT_EQ(Set(5, kTrunk, {{300, 310}, {0, 99}, {100, 100}}, 1), ZEL_OK);
  EXPECT_EQ(Get(), (Words{1 | 4, 5, 0, 3, 300, 310, 0, 99, 100, 100}));
  EXPECT_EQ(Get("service"), (Words{0, 0, 0, 0})) << "of one port only";
}

TEST_F(PortVlan, TakesAnyByteOtherThan0ForTrue) {
  EXPECT_EQ(Set(1, 0, {}, static_cast<zel_Bool>(0x80), static_cast<zel_Bool>(0xff)), ZEL_OK);
  EXPECT_EQ(Get(), (Words{4, 1, 0, 0}));
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(Get(), (Words{0, 0, 0, 0})) << "it was for the runtime only";
}

TEST_F(PortVlan, RefusesWhatIsNoPolicyAndStaysAsItWas) {
  ASSERT_EQ(Set(7, kTrunk, {{1, 5}}), ZEL_OK);
  const Words before = Get();
  EXPECT_EQ(Set(4095, 0), ZEL_BAD_VLANID);
  EXPECT_EQ(Set(65535, kPrivate), ZEL_BAD_VLANID);
  EXPECT_EQ(Set(0, kTrunk, {{5, 4}}), ZEL_BAD_VLANID);
  EXPECT_EQ(Set(0, kTrunk, {{1, 5}, {5, 9}}), ZEL_BAD_VLANID);
  EXPECT_EQ(Set(0, kTrunk, {{4000, 4095}}), ZEL_BAD_VLANID);
  EXPECT_EQ(Set(0, kTrunk), ZEL_BAD_PARAM);
  EXPECT_EQ(Set(0, 0, {{1, 5}}), ZEL_BAD_PARAM);
  EXPECT_EQ(Set(0, kPrivate, {{1, 5}}), ZEL_BAD_PARAM);
  for (const int mode : {3, 4, -1, 1 << 8, 1 << 16}) EXPECT_EQ(Set(0, mode, {{1, 5}}), ZEL_BAD_PARAM) << mode;
  EXPECT_EQ(VSDVS_SetPortVLANPolicy(kAlias, "machine", 0, kTrunk, 0, 0, nullptr, 1), ZEL_BAD_PARAM);
  EXPECT_EQ(VSDVS_SetPortVLANPolicy(nullptr, "machine", 0, 0, 0, 0, nullptr, 0), ZEL_BAD_PARAM);
  EXPECT_EQ(VSDVS_SetPortVLANPolicy(kAlias, nullptr, 0, 0, 0, 0, nullptr, 0), ZEL_BAD_PARAM);
  EXPECT_EQ(VSDVS_SetPortVLANPolicy("nowhere", "machine", 0, 0, 0, 0, nullptr, 0), ZEL_NOT_FOUND);
  EXPECT_EQ(Set(0, 0, {}, 0, 0, "nobody"), ZEL_NOT_FOUND);
  EXPECT_EQ(Set(0, 0, {}, 0, 0, std::string(48, 'p').c_str()), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(Get(), before);
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(Get(), before);
}

TEST_F(PortVlan, DoesNotLookAtRangesThatDoNotCount) {
  auto *nowhere = reinterpret_cast<zel_VDSPortVIDRange *>(0x5a5a);
  EXPECT_EQ(VSDVS_SetPortVLANPolicy(kAlias, "machine", 3, 0, 0, 0, nowhere, 0), ZEL_OK);
  EXPECT_EQ(Get(), (Words{0, 3, 0, 0}));
}

TEST_F(PortVlan, TakesRangesFromAnyAddress) {
  alignas(8) char bytes[9] = {};
  const zel_VDSPortVIDRange ranges[] = {{1, 5}, {6, 9}};
  std::memcpy(bytes + 1, ranges, sizeof ranges);
  EXPECT_EQ(VSDVS_SetPortVLANPolicy(kAlias, "machine", 0, kTrunk, 0, 0,
                                    reinterpret_cast<zel_VDSPortVIDRange *>(bytes + 1), 2),
            ZEL_OK);
  EXPECT_EQ(Get(), (Words{1, 0, 0, 2, 1, 5, 6, 9}));
}

TEST_F(PortVlan, CarriesAsManyRangesAsThereAreVlans) {
  Ranges ranges;
  for (zel_uint16 id = 0; id <= 4094; ++id) ranges.push_back({id, id});
  EXPECT_EQ(Set(0, kTrunk, ranges), ZEL_OK);
  const Words words = Get();
  ASSERT_EQ(words.size(), 4U + 2 * 4095);
  EXPECT_EQ(words.back(), 4094);
  ranges.resize(65535, {1, 1});
  EXPECT_EQ(Set(0, kTrunk, ranges), ZEL_BAD_VLANID);
}

TEST_F(PortVlan, IsClearedOnce) {
  ASSERT_EQ(Set(7, 0), ZEL_OK);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(kAlias, "machine"), ZEL_OK);
  EXPECT_EQ(Get(), (Words{0, 0, 0, 0}));
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(kAlias, "machine"), ZEL_NOT_FOUND);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(kAlias, "nobody"), ZEL_NOT_FOUND);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy("nowhere", "machine"), ZEL_NOT_FOUND);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(nullptr, "machine"), ZEL_BAD_PARAM);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(kAlias, nullptr), ZEL_BAD_PARAM);
}

TEST_F(PortVlan, NullsBothOutputsWhenItRefuses) {
  const auto refused = [](const char *name, const char *port) {
    VSPortVlanPolicy *record = Stale<VSPortVlanPolicy>();
    int length = -1;
    const ZEL_ReturnStatus status = VSDVS_GetPortVLANPolicy(name, port, &record, &length);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(length, 0);
    return status;
  };
  EXPECT_EQ(refused("nowhere", "machine"), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, "nobody"), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(nullptr, "machine"), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(kAlias, nullptr), ZEL_BAD_PARAM);
  VSPortVlanPolicy *record = Stale<VSPortVlanPolicy>();
  EXPECT_EQ(VSDVS_GetPortVLANPolicy(kAlias, "machine", &record, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(record, nullptr);
  int length = -1;
  EXPECT_EQ(VSDVS_GetPortVLANPolicy(kAlias, "machine", nullptr, &length), ZEL_BAD_PARAM);
  EXPECT_EQ(length, 0);
}

}  // namespace
}  // namespace kestrel::host
