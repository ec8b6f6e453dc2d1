/* How a guarded call ends in a process that has no exception channel. */
#include "host/abi/guard.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "host/core/base/errors.h"

namespace kestrel::host::abi {
namespace {

TEST(Guard, TurnsOutcomesIntoStatuses) {
  EXPECT_EQ(ChangeCall([] {}), ZEL_OK);
  EXPECT_EQ(ChangeCall([] { throw StatusError(ZEL_BAD_VLANID); }), ZEL_BAD_VLANID);
  EXPECT_EQ(ChangeCall([] { throw std::bad_alloc(); }), ZEL_NO_MEMORY);
  EXPECT_EQ(ChangeCall([] { throw std::bad_array_new_length(); }), ZEL_NO_MEMORY);
}

template <typename Error>
std::string Reported(const Error &error) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ChangeCall([&] { throw error; }), ZEL_FAILURE);
  return testing::internal::GetCapturedStderr();
}

TEST(Guard, ReportsWhatIsFatalAndFails) {
  EXPECT_EQ(Reported(FatalError("the model is torn")), "Panic: the model is torn\n");
  EXPECT_EQ(Reported(std::out_of_range("off the map")), "Panic: off the map\n");
  EXPECT_EQ(Reported(42), "Panic: the host failed in a way it cannot name\n");
  EXPECT_EQ(Reported(FatalError("100% %s")), "Panic: 100% %s\n");
}

TEST(Guard, CutsALongMessageBetweenCharacters) {
  const std::string prefix(510, 'x');
  EXPECT_EQ(Reported(FatalError(prefix + "y")), "Panic: " + prefix + "y\n");
  EXPECT_EQ(Reported(FatalError(prefix + "yz")), "Panic: " + prefix + "y\n");
  EXPECT_EQ(Reported(FatalError(prefix + "\u00e9")), "Panic: " + prefix + "\n") << "two bytes do not fit";
  EXPECT_EQ(Reported(FatalError(prefix.substr(1) + "\u00e9")), "Panic: " + prefix.substr(1) + "\u00e9\n");
  EXPECT_EQ(Reported(FatalError(prefix + "\U0001f40d\U0001f40d")), "Panic: " + prefix + "\n");
}

TEST(Guard, LeavesNothingOfWhatWasThrown) {
  testing::internal::CaptureStderr();
  ChangeCall([] { throw FatalError("gone"); });
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::current_exception(), nullptr);
  EXPECT_EQ(ChangeCall([] {}), ZEL_OK);
}

}  // namespace
}  // namespace kestrel::host::abi
