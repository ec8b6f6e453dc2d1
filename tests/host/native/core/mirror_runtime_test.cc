#include "host/core/mirroring/mirror_runtime.h"

#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

MirrorRuntime Sample() {
  MirrorRuntime runtime;
  runtime.At("first") = {.counters = {1, 2, 3, 4, 5}, .passed = 6, .sequence = 7};
  runtime.At("second") = {.counters = {~0ULL, 0, 0, 0, 1ULL << 40}, .passed = 1ULL << 50, .sequence = ~0U};
  return runtime;
}

TEST(MirrorRuntime, ComesBackAsItWasSaved) {
  EXPECT_EQ(MirrorRuntime::Load(Sample().Save()), Sample());
  EXPECT_EQ(MirrorRuntime::Load(MirrorRuntime{}.Save()), MirrorRuntime{});
  EXPECT_FALSE(Sample() == MirrorRuntime{});
}

TEST(MirrorRuntime, IsNotMadeOfOtherBytes) {
  const std::string saved = Sample().Save();
  for (std::size_t size = 0; size < saved.size(); ++size) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, MirrorRuntime::Load(saved.substr(0, size)));
  }
  EXPECT_STATUS(ZEL_INVALID_METADATA, MirrorRuntime::Load(saved + '\0'));
  std::string twice = saved;
  twice.replace(twice.find("second"), 6, "secon2");
  EXPECT_STATUS(ZEL_OK, MirrorRuntime::Load(twice));
  MirrorRuntime one;
  one.At("one");
  const std::string session = one.Save().substr(4);
  EXPECT_STATUS(ZEL_INVALID_METADATA, MirrorRuntime::Load(std::string("\2\0\0\0", 4) + session + session));
}

TEST(MirrorRuntime, HasAnotherRevisionAfterEveryChange) {
  MirrorRuntime runtime = Sample();
  const auto before = runtime.revision();
  runtime.RemoveIf([](std::string_view) { return false; });
  EXPECT_EQ(runtime.revision(), before);
  runtime.RemoveIf([](std::string_view session) { return session == "first"; });
  const auto after = runtime.revision();
  EXPECT_GT(after, before);
  EXPECT_EQ(runtime.Find("first"), nullptr);
  ++runtime.At("second").passed;
  EXPECT_GT(runtime.revision(), after);
}

}  // namespace
}  // namespace kestrel::host
