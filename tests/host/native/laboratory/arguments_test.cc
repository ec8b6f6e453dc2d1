/* What the laboratory's functions refuse of callers who keep to no enumeration and end no text. */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kestrel/constants.h"
#include "kestrel/lab.h"

namespace kestrel::host {
namespace {

template <std::size_t width>
void Put(char (&field)[width], const std::string &text) {
  std::memset(field, 0, width);
  text.copy(field, width);
}

KestrelLabNic NicNamed(const std::string &name) {
  KestrelLabNic nic{};
  Put(nic.name, name);
  nic.state = ZEL_LINK_STATE_UP;
  nic.speed = 10000;
  nic.duplex = ZEL_LINK_DUPLEX_FULL;
  return nic;
}

std::vector<std::string> Nics() {
  KestrelLabNic *nics = nullptr;
  std::size_t count = 0;
  EXPECT_EQ(kestrel_lab_list_nics(&nics, &count), ZEL_OK);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < count; ++i) names.emplace_back(nics[i].name);
  kestrel_lab_free(nics);
  return names;
}

class LabArguments : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(kestrel_lab_reset(KESTREL_LAB_EMPTY), ZEL_OK); }
  void TearDown() override { EXPECT_EQ(kestrel_lab_disarm_faults(), ZEL_OK); }

  zel_uint64 number_ = 77;
};

TEST_F(LabArguments, AHostBeginsInKnownWaysOnly) {
  const auto nic = NicNamed("kept");
  ASSERT_EQ(kestrel_lab_plug_nic(&nic), ZEL_OK);
  EXPECT_EQ(kestrel_lab_reset(static_cast<KestrelLabBeginning>(2)), ZEL_BAD_PARAM);
  EXPECT_STREQ(kestrel_lab_message(), "a host begins empty or as the sample");
  EXPECT_EQ(Nics(), std::vector<std::string>{"kept"});
}

TEST_F(LabArguments, ANicIsOfKnownModesAndItsNameEnds) {
  auto nic = NicNamed("one");
  nic.partnerMode = static_cast<KestrelLabLacpMode>(3);
  EXPECT_EQ(kestrel_lab_plug_nic(&nic), ZEL_BAD_PARAM);
  EXPECT_STREQ(kestrel_lab_message(), "LACP has no such mode");
  nic = NicNamed(std::string(sizeof nic.name, 'x'));
  EXPECT_EQ(kestrel_lab_plug_nic(&nic), ZEL_NAME_TOO_LONG);
  EXPECT_TRUE(Nics().empty());
}

TEST_F(LabArguments, AFaultIsOfAKnownEffectAndItsTextsEnd) {
  KestrelLabFault fault{};
  fault.at = fault.times = 1;
  Put(fault.function, "VSDVS_SetMTU");
  fault.effect = static_cast<KestrelLabEffect>(3);
  EXPECT_EQ(kestrel_lab_arm_fault(&fault, &number_), ZEL_BAD_PARAM);
  EXPECT_STREQ(kestrel_lab_message(), "a fault has no such effect");
  EXPECT_EQ(number_, 0);

  fault.effect = KESTREL_LAB_ABORT;
  Put(fault.exception, "OSError");
  Put(fault.message, std::string(sizeof fault.message, 'x'));
  EXPECT_EQ(kestrel_lab_arm_fault(&fault, &number_), ZEL_BAD_PARAM);
  EXPECT_STREQ(kestrel_lab_message(), "a text has no end");
  Put(fault.function, std::string(sizeof fault.function, 'V'));
  EXPECT_EQ(kestrel_lab_arm_fault(&fault, &number_), ZEL_BAD_PARAM);
  EXPECT_EQ(kestrel_lab_disarm_fault(12345), ZEL_NOT_FOUND);
}

TEST_F(LabArguments, SnapshotsAreKnownByTheirNumbers) {
  ASSERT_EQ(kestrel_lab_snapshot(&number_), ZEL_OK);
  EXPECT_EQ(kestrel_lab_restore(number_ + 1), ZEL_NOT_FOUND);
  EXPECT_EQ(kestrel_lab_drop_snapshot(number_ + 1), ZEL_NOT_FOUND);
  EXPECT_EQ(kestrel_lab_drop_snapshot(number_), ZEL_OK);
  EXPECT_EQ(kestrel_lab_drop_snapshot(number_), ZEL_NOT_FOUND);
}

TEST_F(LabArguments, TimeGoesAsFarAsItCanBeTold) {
  EXPECT_EQ(kestrel_lab_advance(std::numeric_limits<zel_uint64>::max()), ZEL_LIMIT_EXCEEDED);
  ASSERT_EQ(kestrel_lab_now(&number_), ZEL_OK);
  EXPECT_EQ(number_, 0);
}

TEST_F(LabArguments, FramesToWriteLieWithinTheirBytes) {
  struct {
    KestrelLabFrame frame{};
    zel_uint8 bytes[60] = {};
  } block;
  const std::string path = testing::TempDir() + "kestrel-frames-" + std::to_string(getpid()) + ".pcap";
  const auto write = [&](zel_uint64 offset, zel_uint64 length, zel_uint64 time) {
    block.frame = {.time = time, .offset = offset, .length = length, .isIncoming = 0};
    return kestrel_lab_write_pcap(path.c_str(), &block.frame, 1, sizeof block.bytes);
  };
  EXPECT_EQ(write(61, 0, 0), ZEL_BAD_PARAM);
  EXPECT_EQ(write(1, 60, 0), ZEL_BAD_PARAM);
  EXPECT_EQ(write(1, std::numeric_limits<zel_uint64>::max(), 0), ZEL_BAD_PARAM);
  EXPECT_STREQ(kestrel_lab_message(), "a frame lies beyond the bytes");
  EXPECT_EQ(write(0, 60, std::numeric_limits<zel_uint64>::max()), ZEL_LIMIT_EXCEEDED);
  EXPECT_NE(access(path.c_str(), F_OK), 0) << "what cannot be told is not begun";
  EXPECT_EQ(write(0, 60, 1), ZEL_OK);
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
  unlink(path.c_str());
}

TEST_F(LabArguments, FilesThatCannotBeWrittenAreNamed) {
  const KestrelLabFrame none{};
  EXPECT_EQ(kestrel_lab_write_pcap("/dev/null/file", &none, 0, 0), ZEL_NOT_A_DIRECTORY);
  EXPECT_STREQ(kestrel_lab_message(), "/dev/null/file: Not a directory");
  EXPECT_EQ(kestrel_lab_write_pcap("/proc/self/nowhere", &none, 0, 0), ZEL_NOT_FOUND);
  EXPECT_EQ(kestrel_lab_write_pcap(testing::TempDir().c_str(), &none, 0, 0), ZEL_IS_A_DIRECTORY);
  EXPECT_EQ(kestrel_lab_write_pcap("/dev/full", &none, 0, 0), ZEL_NO_SPACE);
  struct stat about{};
  ASSERT_EQ(stat("/dev/full", &about), 0);
  EXPECT_TRUE(S_ISCHR(about.st_mode)) << "a device is not removed because writing failed";
}

TEST_F(LabArguments, APathIsHandedOutWhole) {
  char text[64];
  std::ranges::fill(text, 'x');
  EXPECT_EQ(kestrel_lab_host_path(text, sizeof text), ZEL_OK);
  EXPECT_STREQ(text, "");
}

}  // namespace
}  // namespace kestrel::host
