#include "kestrel/state_store.h"

#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

class StateStore : public FaceTest {
 protected:
  static ZEL_ReturnStatus SetVlan(zel_uint16 vlan, zel_Bool runtime_only) {
    return VSDVS_SetPortVLANPolicy(kAlias, "machine", vlan, 0, 0, runtime_only, nullptr, 0);
  }
  static zel_uint16 Vlan() {
    VSPortVlanPolicy *record = nullptr;
    int length = 0;
    EXPECT_EQ(VSDVS_GetPortVLANPolicy(kAlias, "machine", &record, &length), ZEL_OK);
    return Owned<VSPortVlanPolicy>(record)->vlanID;
  }
  static zel_uint32 Mtu() {
    VSInfo info;
    EXPECT_EQ(VSZEL_GetVSInfo(kAlias, &info), ZEL_OK);
    return info.mtu;
  }
};

TEST_F(StateStore, LoadsWhatWasSaved) {
  EXPECT_EQ(SetVlan(10, 0), ZEL_OK);
  EXPECT_EQ(SetVlan(20, 1), ZEL_OK);
  EXPECT_EQ(Vlan(), 20);
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(Vlan(), 10);
}

TEST_F(StateStore, ReleasesItsStateAndLoadsItAgain) {
  EXPECT_EQ(SetVlan(10, 0), ZEL_OK);
  EXPECT_EQ(DVSZEL_StateCleanup(), ZEL_OK);
  VSInfo info;
  EXPECT_EQ(VSZEL_GetVSInfo(kAlias, &info), ZEL_NOT_FOUND);
  EXPECT_EQ(SetVlan(30, 0), ZEL_NOT_FOUND);
  EXPECT_EQ(DVSZEL_StateCleanup(), ZEL_OK) << "a second time changes nothing";
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(Vlan(), 10);
}

TEST_F(StateStore, ResetsForGood) {
  EXPECT_EQ(SetVlan(10, 0), ZEL_OK);
  EXPECT_EQ(Mtu(), 2000U);
  EXPECT_EQ(DVSState_ConfigReset(), ZEL_OK);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy(kAlias, "machine"), ZEL_NOT_FOUND);
  EXPECT_EQ(Mtu(), 1500U);
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_EQ(Vlan(), 0);
  EXPECT_EQ(Mtu(), 1500U);
}

TEST_F(StateStore, SanitizesAddressesBehindFreePorts) {
  host().SeeSource(kAlias, IdOfPort(host(), "machine"), {0, Station(1)});
  host().Disconnect(kAlias, "machine");
  EXPECT_EQ(DVSZEL_StateSanitize(), ZEL_OK);
  VSMACTable *table = nullptr;
  ASSERT_EQ(VSZEL_GetMACTable(kAlias, VS_MAC_ADDR_TYPE_LEARNED, &table), ZEL_OK);
  EXPECT_EQ(Owned<VSMACTable>(table)->numEntries, 0U);
}

}  // namespace
}  // namespace kestrel::host
