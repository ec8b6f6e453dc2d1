#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include "kestrel/core.h"

namespace {

struct Row {
  const char *name;
  ZEL_ReturnStatus status;
  const char *text;
};

constexpr Row kRows[] = {
#define KESTREL_STATUS(name, value, text) {#name, value, text},
#include "kestrel/constants.def"
};

std::string TextOf(long long status) { return ZEL_ReturnStatusToString(static_cast<ZEL_ReturnStatus>(status)); }

TEST(StatusText, IsThatOfTheTableForEveryCode) {
  for (const Row &row : kRows) {
    EXPECT_STREQ(ZEL_ReturnStatusToString(row.status), row.text) << row.name;
    EXPECT_NE(*row.text, '\0') << row.name;
  }
}

TEST(StatusText, NamesTheNumberOfAnUnknownCode) {
  std::set<ZEL_ReturnStatus> known;
  for (const Row &row : kRows) known.insert(row.status);
  const long long failures = ZEL_FAILURE;
  for (long long status = failures - 1; status <= ZEL_LAST_ERR + 1; ++status) {
    if (known.contains(static_cast<ZEL_ReturnStatus>(status))) continue;
    EXPECT_NE(TextOf(status).find(std::to_string(status)), std::string::npos) << status;
  }
  EXPECT_EQ(TextOf(1), "Unknown status 0x00000001 (1)");
  EXPECT_EQ(TextOf(-1), "Unknown status 0xffffffff (-1)");
  EXPECT_EQ(TextOf(INT_MIN), "Unknown status 0x80000000 (-2147483648)");
  EXPECT_EQ(TextOf(INT_MAX), "Unknown status 0x7fffffff (2147483647)");
}

TEST(StatusText, SaysWhatTheOperatingSystemSays) {
  const std::string base = TextOf(ZEL_GENERIC_LINUX_ERROR);
  for (const int number : {EPERM, ENOSPC, ENOTRECOVERABLE}) {
    EXPECT_EQ(TextOf(ZEL_GENERIC_LINUX_ERROR + number), base + ": " + std::strerror(number));
  }
  EXPECT_NE(TextOf(ZEL_GENERIC_LINUX_ERROR + 4095).find("4095"), std::string::npos);
  EXPECT_EQ(TextOf(ZEL_GENERIC_LINUX_ERROR + 4096), "Unknown status 0x2bad1000 (732762112)");
  EXPECT_EQ(TextOf(ZEL_GENERIC_LINUX_ERROR - 1LL), "Unknown status 0x2bacffff (732758015)");
}

TEST(StatusText, IsEachThreadsOwn) {
  const char *mine = ZEL_ReturnStatusToString(1);
  std::thread([] { EXPECT_EQ(TextOf(2), "Unknown status 0x00000002 (2)"); }).join();
  EXPECT_STREQ(mine, "Unknown status 0x00000001 (1)");
}

TEST(Panic, ShowsItsTextAsItStandsAndReturns) {
  testing::internal::CaptureStderr();
  Panic("lost %s of %d%n", nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Panic: lost %s of %d%n\n");
  testing::internal::CaptureStderr();
  Panic(nullptr, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Panic: (no message)\n");
}

}  // namespace
