#include <cstring>

#include "kestrel/runtime_queries.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

class Switches : public FaceTest {
 protected:
  Switches() {
    host().AddSwitch({.id = "second-id",
                      .portset = std::string(127, 'p'),
                      .alias = std::string(80, 'a'),
                      .max_ports = 3,
                      .vlans = {100, 200}});
  }

  static Owned<VSList> List(VSListType kind) {
    VSList *list = Stale<VSList>();
    EXPECT_EQ(VSZEL_GetSwitches(kind, &list), ZEL_OK);
    return Owned<VSList>(list);
  }
};

TEST_F(Switches, AreListedByPortsetNameInFieldsOf128) {
  const auto list = List(VS_LIST_PS);
  EXPECT_EQ(list->count, 2);
  EXPECT_EQ(list->listType, VS_LIST_PS);
  EXPECT_EQ(std::string(list->switches, 128), Padded(kPortset, 128));
  EXPECT_EQ(std::string(list->switches + 128, 128), Padded(std::string(127, 'p'), 128));
}

TEST_F(Switches, AreListedByAliasInFieldsOf81) {
  const auto list = List(VS_LIST_DVS_ALIAS);
  EXPECT_EQ(list->count, 2);
  EXPECT_EQ(list->listType, VS_LIST_DVS_ALIAS);
  EXPECT_EQ(std::string(list->switches, 81), Padded(kAlias, 81));
  EXPECT_EQ(std::string(list->switches + 81, 81), Padded(std::string(80, 'a'), 81));
}

TEST_F(Switches, AreAnEmptyListOnceReleased) {
  host().Cleanup();
  EXPECT_EQ(List(VS_LIST_PS)->count, 0);
}

TEST_F(Switches, RefuseOtherKindsOfListAndNoCell) {
  for (const int kind : {0, 3, -1, 256 + VS_LIST_PS}) {
    VSList *list = Stale<VSList>();
    EXPECT_EQ(VSZEL_GetSwitches(static_cast<VSListType>(kind), &list), ZEL_BAD_PARAM) << kind;
    EXPECT_EQ(list, nullptr) << kind;
  }
  EXPECT_EQ(VSZEL_GetSwitches(VS_LIST_PS, nullptr), ZEL_BAD_PARAM);
}

TEST_F(Switches, TellWhatTheyAre) {
  for (const char *name : {kPortset, kAlias}) {
    VSInfo info;
    std::memset(&info, 0xa5, sizeof info);
    ASSERT_EQ(VSZEL_GetVSInfo(name, &info), ZEL_OK);
    EXPECT_EQ(info.mtu, 2000U);
    EXPECT_EQ(info.minValidVlan, 0);
    EXPECT_EQ(info.maxValidVlan, 4094);
    EXPECT_EQ(info.activePorts, 4U);
    EXPECT_EQ(info.maxPorts, 8U);
    EXPECT_EQ(info.numSinkPorts, 0);
    EXPECT_EQ(Bytes(info.dvsName), Padded(kAlias, 128));
    EXPECT_EQ(Bytes(info.vdsID), Padded("3f0e8a52-6d17-4c49-b2a0-915e7cd4f803", 64));
  }
  VSInfo info;
  ASSERT_EQ(VSZEL_GetVSInfo(std::string(80, 'a').c_str(), &info), ZEL_OK);
  EXPECT_EQ(info.minValidVlan, 100);
  EXPECT_EQ(info.maxValidVlan, 200);
}

TEST_F(Switches, LeaveTheRecordAloneWhenTheyRefuse) {
  VSInfo info;
  std::memset(&info, 0xa5, sizeof info);
  const VSInfo before = info;
  EXPECT_EQ(VSZEL_GetVSInfo("nowhere", &info), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_GetVSInfo(nullptr, &info), ZEL_BAD_PARAM);
  EXPECT_EQ(VSZEL_GetVSInfo(std::string(127, 'x').c_str(), &info), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_GetVSInfo(std::string(128, 'x').c_str(), &info), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(VSZEL_GetVSInfo(kAlias, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(std::memcmp(&info, &before, sizeof info), 0);
}

}  // namespace
}  // namespace kestrel::host
