/* How a guarded call ends in a process that has an exception channel, as one with the module loaded has. This program
   defines the channel and the interpreter's exception type, for libmorrow to find by name. */
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>

#include "host/abi/guard.h"
#include "host/core/base/errors.h"
#include "host/core/faults.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"

#define EXPORTED __attribute__((visibility("default")))

extern "C" {
EXPORTED jmp_buf exception_buffer;
EXPORTED int32_t exception_status;
EXPORTED void *exceptionType;
EXPORTED const char *exceptionMsg;
EXPORTED extern void *PyExc_RuntimeError;
EXPORTED extern void *PyExc_OSError;
}

static char runtime_error;
void *PyExc_RuntimeError = &runtime_error;
static char os_error;
void *PyExc_OSError = &os_error;

namespace kestrel::host::abi {
namespace {

constexpr ZEL_ReturnStatus kAborted = -1;

/** Calls as a wrapper of the module does: kAborted when the call came back by a jump. */
ZEL_ReturnStatus CallArmed(ZEL_ReturnStatus (*call)()) {
  exception_status = setjmp(exception_buffer);
  if (exception_status != 0) return kAborted;
  return call();
}

class Channel : public testing::Test {
 protected:
  Channel() {
    exceptionType = nullptr;
    exceptionMsg = nullptr;
  }
};

TEST_F(Channel, CarriesAFatalErrorOut) {
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw FatalError("the model is torn"); }); }), kAborted);
  EXPECT_EQ(exception_status, 1);
  EXPECT_EQ(exceptionType, &runtime_error);
  EXPECT_STREQ(exceptionMsg, "the model is torn");
}

TEST_F(Channel, NamesTheExceptionOrARuntimeErrorInItsPlace) {
  EXPECT_EQ(CallArmed([] { return ReadCall([] { throw FatalError("no link", "OSError"); }); }), kAborted);
  EXPECT_EQ(exceptionType, &os_error);
  EXPECT_EQ(CallArmed([] { return ReadCall([] { throw FatalError("no link", "NoSuchError"); }); }), kAborted);
  EXPECT_EQ(exceptionType, &runtime_error);
  EXPECT_EQ(CallArmed([] { return ReadCall([] { throw FatalError("no link"); }); }), kAborted);
  EXPECT_EQ(exceptionType, &runtime_error) << "the name of the last one is not kept";
}

TEST_F(Channel, IsReachedByArmedFaults) {
  ArmFault({.function = "DVSLoadConfig", .effect = FaultEffect::kAbort, .exception = "OSError", .message = "gone"});
  EXPECT_EQ(CallArmed(DVSLoadConfig), kAborted);
  EXPECT_EQ(exceptionType, &os_error);
  EXPECT_STREQ(exceptionMsg, "gone");
  EXPECT_EQ(CallArmed(DVSLoadConfig), ZEL_OK);
}

TEST_F(Channel, CarriesWhatNobodyForesaw) {
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw std::out_of_range("off the map"); }); }), kAborted);
  EXPECT_STREQ(exceptionMsg, "off the map");
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw 42; }); }), kAborted);
  EXPECT_STREQ(exceptionMsg, "the host failed in a way it cannot name");
}

TEST_F(Channel, IsLeftAloneByOrdinaryOutcomes) {
  EXPECT_EQ(CallArmed([] { return ChangeCall([] {}); }), ZEL_OK);
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw StatusError(ZEL_BUSY); }); }), ZEL_BUSY);
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw std::bad_alloc(); }); }), ZEL_NO_MEMORY);
  EXPECT_EQ(CallArmed(DVSLoadConfig), ZEL_OK);
  EXPECT_EQ(CallArmed([] { return VSZEL_GetVSInfo("nowhere", nullptr); }), ZEL_BAD_PARAM);
  EXPECT_EQ(exception_status, 0);
  EXPECT_EQ(exceptionType, nullptr);
  EXPECT_EQ(exceptionMsg, nullptr);
}

int destroyed = 0;

struct Local {
  ~Local() { ++destroyed; }
};

struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
  ~Thrown() override { ++destroyed; }
};

TEST_F(Channel, OpensOnlyAfterTheErrorIsUnwoundAndDestroyed) {
  destroyed = 0;
  EXPECT_EQ(CallArmed([] {
              return ChangeCall([] {
                const Local local;
                throw Thrown("torn");
              });
            }),
            kAborted);
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(std::current_exception(), nullptr);
  EXPECT_EQ(std::uncaught_exceptions(), 0);
  EXPECT_STREQ(exceptionMsg, "torn") << "the message outlives the error";
}

TEST_F(Channel, ServesOneCallAfterTheOther) {
  for (const char *message : {"first", "second, which is longer", "3"}) {
    static std::string current;
    current = message;
    EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw FatalError(current); }); }), kAborted);
    EXPECT_EQ(exceptionMsg, current);
    EXPECT_EQ(CallArmed([] { return ChangeCall([] {}); }), ZEL_OK);
  }
}

TEST_F(Channel, IsNotUsedAfterACallWasAbortedUntilTheNextOneArmsIt) {
  EXPECT_EQ(CallArmed([] { return ChangeCall([] { throw FatalError("first"); }); }), kAborted);
  testing::internal::CaptureStderr();
  EXPECT_EQ(ChangeCall([] { throw FatalError("nobody armed"); }), ZEL_FAILURE);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Panic: nobody armed\n");
}

}  // namespace
}  // namespace kestrel::host::abi
