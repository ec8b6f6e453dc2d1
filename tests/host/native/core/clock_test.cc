#include "host/core/base/clock.h"

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

TEST(VirtualClock, MovesOnlyWhenToldAndOnlyOn) {
  VirtualClock clock;
  EXPECT_EQ(clock.Now(), TimePoint(0));
  clock.Advance(std::chrono::seconds(3));
  clock.Advance(Duration(0));
  EXPECT_EQ(clock.Now(), std::chrono::seconds(3));
  EXPECT_STATUS(ZEL_BAD_PARAM, clock.Advance(Duration(-1)));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, clock.Advance(Duration::max()));
  EXPECT_EQ(clock.Now(), std::chrono::seconds(3));
}

}  // namespace
}  // namespace kestrel::host
