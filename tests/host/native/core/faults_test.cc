#include "host/core/faults.h"

#include <gtest/gtest.h>

#include <string>

#include "host/core/base/errors.h"
#include "kestrel/constants.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

class Faults : public testing::Test {
 protected:
  ~Faults() override {
    DisarmFaults();
    CountCalls(false);
  }

  static Fault Gives(const char *function, int status) {
    return {.function = function, .effect = FaultEffect::kStatus, .status = status};
  }
  /** How calls of `function` end, one after the other. */
  static std::string Calls(const char *function, int count) {
    std::string ends;
    for (int i = 0; i < count; ++i) ends += StatusOf([&] { const FaultScope call(function); }) == ZEL_OK ? '.' : 'x';
    return ends;
  }
};

TEST_F(Faults, AreMetByTheNextCallOfTheirFunctionOnce) {
  ArmFault(Gives("F", ZEL_BUSY));
  EXPECT_EQ(Calls("G", 1), ".");
  EXPECT_STATUS(ZEL_BUSY, const FaultScope call("F"));
  EXPECT_EQ(Calls("F", 3), "...");
  EXPECT_FALSE(calls_are_watched) << "a fault that was met costs nothing any more";
}

TEST_F(Faults, WaitForTheirCallAndLastForTheirCalls) {
  Fault fault = Gives("F", ZEL_BUSY);
  fault.calls_before = 2;
  fault.calls_left = 3;
  ArmFault(fault);
  EXPECT_EQ(Calls("F", 7), "..xxx..");
}

TEST_F(Faults, OfOneCallAreMetInTheOrderInWhichTheyWereArmed) {
  ArmFault(Gives("F", ZEL_BUSY));
  ArmFault(Gives("F", ZEL_TIMEOUT));
  EXPECT_STATUS(ZEL_BUSY, const FaultScope call("F"));
  EXPECT_STATUS(ZEL_TIMEOUT, const FaultScope call("F"));
  EXPECT_STATUS(ZEL_OK, const FaultScope call("F"));
}

TEST_F(Faults, CountCallsThatOthersFail) {
  ArmFault(Gives("F", ZEL_BUSY));
  Fault second = Gives("F", ZEL_TIMEOUT);
  second.calls_before = 1;
  ArmFault(second);
  EXPECT_STATUS(ZEL_BUSY, const FaultScope call("F"));
  EXPECT_STATUS(ZEL_TIMEOUT, const FaultScope call("F"));
}

TEST_F(Faults, AbortWithTypeAndMessage) {
  ArmFault({.function = "F", .effect = FaultEffect::kAbort, .exception = "OSError", .message = "gone"});
  try {
    const FaultScope call("F");
    FAIL() << "the call was not aborted";
  } catch (const FatalError &error) {
    EXPECT_STREQ(error.what(), "gone");
    EXPECT_EQ(error.exception(), "OSError");
  }
}

TEST_F(Faults, FillTheDiskForOneCall) {
  EXPECT_FALSE(MeetsFullDisk());
  ArmFault({.function = "F", .effect = FaultEffect::kDiskFull});
  {
    const FaultScope call("G");
    EXPECT_FALSE(MeetsFullDisk());
  }
  {
    const FaultScope call("F");
    EXPECT_TRUE(MeetsFullDisk());
    DisarmFaults();
    EXPECT_TRUE(MeetsFullDisk());
  }
  EXPECT_FALSE(MeetsFullDisk());
  EXPECT_FALSE(calls_are_watched);
}

TEST_F(Faults, AreDisarmedOneByOneOrAll) {
  const auto first = ArmFault(Gives("F", ZEL_BUSY));
  const auto second = ArmFault(Gives("G", ZEL_BUSY));
  EXPECT_NE(first, second);
  EXPECT_TRUE(DisarmFault(first));
  EXPECT_FALSE(DisarmFault(first));
  ASSERT_EQ(ArmedFaults().size(), 1);
  EXPECT_EQ(ArmedFaults()[0].function, "G");
  EXPECT_TRUE(calls_are_watched);
  DisarmFaults();
  EXPECT_EQ(Calls("F", 1) + Calls("G", 1), "..");
  EXPECT_FALSE(calls_are_watched);
}

TEST_F(Faults, CallsAreCountedOnlyWhenAsked) {
  Calls("F", 1);
  CountCalls(true);
  EXPECT_EQ(CallsOf("F"), 0);
  ArmFault(Gives("F", ZEL_BUSY));
  Calls("F", 3);
  Calls("G", 1);
  EXPECT_EQ(CallsOf("F"), 3) << "those that met a fault too";
  EXPECT_EQ(CallsOf("G"), 1);
  CountCalls(false);
  EXPECT_FALSE(calls_are_watched);
  Calls("F", 1);
  EXPECT_EQ(CallsOf("F"), 3);
  CountCalls(true);
  EXPECT_EQ(CallsOf("F"), 0);
}

}  // namespace
}  // namespace kestrel::host
