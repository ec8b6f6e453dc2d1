#include "host/core/vlan.h"

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

VlanPolicy Trunk(std::vector<VlanRange> ranges) { return {.mode = VlanMode::kTrunk, .ranges = std::move(ranges)}; }

int Check(const VlanPolicy &policy, VlanRange valid = kAllVlans) {
  return StatusOf([&] { CheckVlanPolicy(policy, valid); });
}

TEST(Vlan, IdentifiersRunFrom0To4094) {
  for (const VlanMode mode : {VlanMode::kAccess, VlanMode::kPrivate}) {
    EXPECT_EQ(Check({.mode = mode, .vlan = 0, .ranges = {}}), ZEL_OK);
    EXPECT_EQ(Check({.mode = mode, .vlan = 1, .ranges = {}}), ZEL_OK);
    EXPECT_EQ(Check({.mode = mode, .vlan = 4094, .ranges = {}}), ZEL_OK);
    EXPECT_EQ(Check({.mode = mode, .vlan = 4095, .ranges = {}}), ZEL_BAD_VLANID);
    EXPECT_EQ(Check({.mode = mode, .vlan = 65535, .ranges = {}}), ZEL_BAD_VLANID);
  }
}

TEST(Vlan, TheVlanOfATrunkIsCheckedToo) {
  EXPECT_EQ(Check({.mode = VlanMode::kTrunk, .vlan = 4094, .ranges = {{1, 2}}}), ZEL_OK);
  EXPECT_EQ(Check({.mode = VlanMode::kTrunk, .vlan = 4095, .ranges = {{1, 2}}}), ZEL_BAD_VLANID);
}

TEST(Vlan, RangesAreNeitherEmptyNorBeyondTheEnd) {
  EXPECT_EQ(Check(Trunk({{0, 4094}})), ZEL_OK);
  EXPECT_EQ(Check(Trunk({{7, 7}})), ZEL_OK);
  EXPECT_EQ(Check(Trunk({{8, 7}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{0, 4095}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{4095, 4095}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{1, 2}, {65535, 0}})), ZEL_BAD_VLANID);
}

TEST(Vlan, RangesDoNotOverlapInWhateverOrderTheyCome) {
  EXPECT_EQ(Check(Trunk({{1, 9}, {10, 19}})), ZEL_OK);
  EXPECT_EQ(Check(Trunk({{10, 19}, {1, 9}})), ZEL_OK);
  EXPECT_EQ(Check(Trunk({{1, 10}, {10, 19}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{10, 19}, {1, 10}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{5, 5}, {5, 5}})), ZEL_BAD_VLANID);
  EXPECT_EQ(Check(Trunk({{1, 100}, {200, 300}, {50, 60}})), ZEL_BAD_VLANID);
}

TEST(Vlan, EveryIdentifierMayBeARangeOfItsOwn) {
  std::vector<VlanRange> ranges;
  for (VlanId id = 0; id <= kMaxVlanId; ++id) ranges.push_back({id, id});
  EXPECT_EQ(Check(Trunk(ranges)), ZEL_OK);
  ranges.push_back({2000, 2000});
  EXPECT_EQ(Check(Trunk(ranges)), ZEL_BAD_VLANID);
}

TEST(Vlan, RangesBelongToTrunksAndTrunksHaveSome) {
  EXPECT_EQ(Check(Trunk({})), ZEL_BAD_PARAM);
  EXPECT_EQ(Check({.mode = VlanMode::kAccess, .ranges = {{1, 2}}}), ZEL_BAD_PARAM);
  EXPECT_EQ(Check({.mode = VlanMode::kPrivate, .vlan = 5, .ranges = {{1, 2}}}), ZEL_BAD_PARAM);
}

TEST(Vlan, ASwitchMayCarryFewerVlans) {
  constexpr VlanRange valid{100, 200};
  EXPECT_EQ(Check({.vlan = 100, .ranges = {}}, valid), ZEL_OK);
  EXPECT_EQ(Check({.vlan = 99, .ranges = {}}, valid), ZEL_BAD_VLANID);
  EXPECT_EQ(Check({.vlan = 201, .ranges = {}}, valid), ZEL_BAD_VLANID);
  EXPECT_EQ(Check({.mode = VlanMode::kTrunk, .vlan = 100, .ranges = {{100, 200}}}, valid), ZEL_OK);
  EXPECT_EQ(Check({.mode = VlanMode::kTrunk, .vlan = 100, .ranges = {{99, 200}}}, valid), ZEL_BAD_VLANID);
}

TEST(Vlan, ModesAreNumbersOfThree) {
  EXPECT_EQ(VlanModeOf(0), VlanMode::kAccess);
  EXPECT_EQ(VlanModeOf(VSPORT_VLAN_GUEST_TAGGING), VlanMode::kTrunk);
  EXPECT_EQ(VlanModeOf(VSPORT_VLAN_PVLAN_ENABLED), VlanMode::kPrivate);
  for (const int number : {-1, 3, 4, 256, 257, 1 << 16}) EXPECT_STATUS(ZEL_BAD_PARAM, VlanModeOf(number)) << number;
}

}  // namespace
}  // namespace kestrel::host
