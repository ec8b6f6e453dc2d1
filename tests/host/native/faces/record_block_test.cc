#include "host/abi/record_block.h"

#include <gtest/gtest.h>

#include "kestrel/base_records.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host::abi {
namespace {

constexpr zel_VDSPortVIDRange kRecord{1, 2};

TEST(RecordBlock, IsNotHandedOutBeforeItIsFull) {
  RecordBlock block(sizeof kRecord + 1);
  block.Append(kRecord);
  EXPECT_THROW(Owned<char>(block.Release<char>()), FatalError);
}

TEST(RecordBlock, TakesNoMoreThanItWasMadeFor) {
  RecordBlock block(sizeof kRecord + 1);
  block.Append(kRecord);
  EXPECT_THROW(block.Append(kRecord), FatalError);
}

TEST(RecordBlock, HoldsItsRecordsOneBehindTheOther) {
  RecordBlock block(sizeof kRecord + 5);
  block.Append(kRecord);
  block.AppendText("abc", 5);
  const Owned<char> bytes(block.Release<char>());
  EXPECT_EQ(std::string(bytes.get(), 9), std::string("\1\0\2\0abc\0\0", 9));
}

TEST(SetText, AlwaysEndsWithAZeroAndClearsTheRest) {
  zel_Name name;
  const auto bytes = [&name](std::string_view text) {
    std::memset(&name, 0xa5, sizeof name);
    SetText(name.string, text);
    return Bytes(name.string);
  };
  EXPECT_EQ(bytes(""), Padded("", 32));
  EXPECT_EQ(bytes("vmnic0"), Padded("vmnic0", 32));
  EXPECT_EQ(bytes(std::string(31, 'n')), Padded(std::string(31, 'n'), 32));
  EXPECT_EQ(bytes(std::string(32, 'n')), Padded(std::string(31, 'n'), 32));
}

}  // namespace
}  // namespace kestrel::host::abi
