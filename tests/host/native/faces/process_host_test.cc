#include <cstdlib>

#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

TEST(ProcessHost, IsTheSampleHostUnlessAnotherIsInstalled) {
  InstallProcessHost(nullptr);
  VSInfo info;
  EXPECT_EQ(VSZEL_GetVSInfo("dvs-prod", &info), ZEL_OK);
  EXPECT_EQ(VSZEL_GetVSInfo(kAlias, &info), ZEL_NOT_FOUND);
  InstallProcessHost(MakeTestHost());
  EXPECT_EQ(VSZEL_GetVSInfo("dvs-prod", &info), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_GetVSInfo(kAlias, &info), ZEL_OK);
  InstallProcessHost(nullptr);
}

TEST(ProcessHost, LivesUntilTheNextIsInstalled) {
  InstallProcessHost(nullptr);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy("dvs-prod", "10"), ZEL_OK);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy("dvs-prod", "10"), ZEL_NOT_FOUND);
  InstallProcessHost(nullptr);
  EXPECT_EQ(VSDVS_ClearPortVLANPolicy("dvs-prod", "10"), ZEL_OK);
  InstallProcessHost(nullptr);
}

TEST(Memory, IsTakenBackAndSoIsNull) {
  EXPECT_EQ(VSZEL_FreeMemory(nullptr), ZEL_OK);
  EXPECT_EQ(VSDVS_FreeMemory(nullptr), ZEL_OK);
  EXPECT_EQ(VSZEL_FreeMemory(std::malloc(1)), ZEL_OK);
  EXPECT_EQ(VSDVS_FreeMemory(std::malloc(1)), ZEL_OK);
}

}  // namespace
}  // namespace kestrel::host
