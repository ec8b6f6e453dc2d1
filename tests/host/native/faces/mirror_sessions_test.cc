/* The counters of mirror sessions, through the C functions. */
#include "tests/host/native/support/mirror_sessions.h"
#include "host/core/mirroring/mirroring.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/ip_frames.h"

namespace kestrel::host {
namespace {

class MirrorSessions : public FaceTest {
 protected:
  MirrorSessions() {
    SetPortSessions(host(), "machine",
                    {{.id = "mixed", .to = {EntityOfPort("service"), EntityOfPort("free")}, .rate = 2},
                     {.id = "failing", .to = {EntityOfPort("free")}},
                     {.id = "idle", .in = {EntityOfPort("free")}}});
    auto &owner = const_cast<Switch &>(std::as_const(host()).FindSwitch(kAlias));
    const Octets frame = FrameOf({});
    for (int i = 0; i < 5; ++i) {
      MirrorCopies(host(), owner, owner.config.PortNamed("machine"), MirrorDirection::kIn, 0, Frame(frame));
    }
  }

  static VSDVMirrorSessionStats StatsOf(const char *session) {
    VSDVMirrorSessionStats stats;
    std::memset(&stats, 0x5a, sizeof stats);
    EXPECT_EQ(VSZEL_GetDVMirrorSessionStats(kPortset, session, &stats), ZEL_OK);
    return stats;
  }
};

TEST_F(MirrorSessions, TellWhatTheyDid) {
  const VSDVMirrorSessionStats mixed = StatsOf("mixed");
  EXPECT_EQ(mixed.mirrorPktCnt, 3U);
  EXPECT_EQ(mixed.mirrorPktFailCnt, 3U);
  EXPECT_EQ(mixed.mirroredPkts, 3U);
  EXPECT_EQ(mixed.discardedPkts, 2U);
  EXPECT_EQ(mixed.failedPkts, 0U);
  EXPECT_EQ(Bytes(mixed.name), Padded("name of mixed", sizeof mixed.name));
  const VSDVMirrorSessionStats failing = StatsOf("failing");
  EXPECT_EQ(failing.mirrorPktFailCnt, 5U);
  EXPECT_EQ(failing.failedPkts, 5U);
  const VSDVMirrorSessionStats idle = StatsOf("idle");
  EXPECT_EQ(idle.mirrorPktCnt + idle.mirrorPktFailCnt + idle.mirroredPkts + idle.discardedPkts + idle.failedPkts, 0U);
  EXPECT_EQ(Bytes(idle.name), Padded("name of idle", sizeof idle.name));
}

TEST_F(MirrorSessions, EmptyTheCountersWhereTheyRefuse) {
  const std::string long_id(32, 'x');
  const struct {
    const char *owner;
    const char *session;
    int status;
  } cases[] = {{kAlias, "nobody", ZEL_NOT_FOUND},   {kAlias, "", ZEL_NOT_FOUND},
               {"nowhere", "mixed", ZEL_NOT_FOUND}, {kAlias, nullptr, ZEL_BAD_PARAM},
               {nullptr, "mixed", ZEL_BAD_PARAM},   {kAlias, long_id.c_str(), ZEL_NAME_TOO_LONG}};
  for (const auto &[owner, session, status] : cases) {
    VSDVMirrorSessionStats stats;
    std::memset(&stats, 0x5a, sizeof stats);
    EXPECT_EQ(VSZEL_GetDVMirrorSessionStats(owner, session, &stats), status);
    EXPECT_EQ(BytesOf(stats), std::string(sizeof stats, '\0'));
  }
  EXPECT_EQ(VSZEL_GetDVMirrorSessionStats(kAlias, "mixed", nullptr), ZEL_BAD_PARAM);
}

TEST_F(MirrorSessions, AreNotThereOnceTheyAreRemoved) {
  ASSERT_EQ(VSDVS_RemoveDVMirrorSession(kAlias, "machine", "mixed"), ZEL_OK);
  VSDVMirrorSessionStats stats;
  EXPECT_EQ(VSZEL_GetDVMirrorSessionStats(kAlias, "mixed", &stats), ZEL_NOT_FOUND);
  EXPECT_EQ(StatsOf("failing").failedPkts, 5U);
}

}  // namespace
}  // namespace kestrel::host
