#include "host/lab/pcap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "host/lab/refusal.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host::lab {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

/** A file in the byte order that is asked for. */
class File {
 public:
  explicit File(bool is_big_endian = false) : is_big_endian_(is_big_endian) {}

  template <typename Number>
  File &Put(Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i) {
      const std::size_t place = is_big_endian_ ? sizeof number - 1 - i : i;
      bytes_ += static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * place));
    }
    return *this;
  }
  File &Header(std::uint32_t magic = 0xa1b2c3d4, std::uint32_t network = 1, std::uint16_t major = 2) {
    return Put(magic).Put(major).Put(std::uint16_t{4}).Put(0U).Put(0U).Put(65535U).Put(network);
  }
  File &Packet(std::uint32_t time, std::uint32_t fraction, const std::string &bytes) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    return PacketHeader(time, fraction, size, size).Raw(bytes);
  }
  File &PacketHeader(std::uint32_t time, std::uint32_t fraction, std::uint32_t length, std::uint32_t original) {
    return Put(time).Put(fraction).Put(length).Put(original);
  }
  File &Raw(const std::string &bytes) {
    bytes_ += bytes;
    return *this;
  }

  const std::string &bytes() const { return bytes_; }

 private:
  bool is_big_endian_;
  std::string bytes_;
};

std::string TextOf(FrameBytes bytes) { return {bytes.begin(), bytes.end()}; }

TEST(Pcap, ReadsEitherByteOrderAndResolution) {
  for (const bool is_big_endian : {false, true}) {
    for (const bool is_nano : {false, true}) {
      const File file = File(is_big_endian)
                            .Header(is_nano ? 0xa1b23c4d : 0xa1b2c3d4)
                            .Packet(3, 999'999, "first frame")
                            .Packet(2, 0, "")
                            .Packet(0xffffffff, 7, "third");
      const auto packets = PacketsOfPcap(file.bytes());
      ASSERT_EQ(packets.size(), 3);
      EXPECT_EQ(packets[0].time, seconds(3) + (is_nano ? Duration(999'999) : microseconds(999'999)));
      EXPECT_EQ(TextOf(packets[0].bytes), "first frame");
      EXPECT_EQ(packets[1].time, seconds(2)) << "in the order of the file, whatever the times";
      EXPECT_EQ(packets[1].bytes.size(), 0);
      EXPECT_EQ(packets[2].time, seconds(0xffffffff) + (is_nano ? Duration(7) : microseconds(7)));
    }
  }
}

TEST(Pcap, OfNoPacketsIsAFileToo) { EXPECT_TRUE(PacketsOfPcap(File().Header().bytes()).empty()); }

TEST(Pcap, ThatEndsTooEarlyIsRefusedWhereverItEnds) {
  const std::string whole = File().Header().Packet(1, 2, "a frame").Packet(3, 4, "another").bytes();
  const std::string one = File().Header().Packet(1, 2, "a frame").bytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    if (size == 24 || size == one.size()) continue;  // between two parts
    EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(whole.substr(0, size))) << size;
  }
}

TEST(Pcap, ThatIsNoneOrNotForUsIsRefused) {
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(std::string(100, '\0')));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(File().Header(0xa1b2c3d5).bytes()));
  EXPECT_STATUS(ZEL_NOT_SUPPORTED, PacketsOfPcap(File().Header(0x0a0d0d0a).bytes()));
  EXPECT_STATUS(ZEL_NOT_SUPPORTED, PacketsOfPcap(File().Header(0xa1b2c3d4, 101).bytes()));
  EXPECT_STATUS(ZEL_NOT_SUPPORTED, PacketsOfPcap(File().Header(0xa1b2c3d4, 0x14000001).bytes()));
  EXPECT_STATUS(ZEL_VERSION_MISMATCH_MAJOR, PacketsOfPcap(File().Header(0xa1b2c3d4, 1, 3).bytes()));
}

TEST(Pcap, WhosePacketsAreNotWhatTheySayIsRefused) {
  const auto with = [](std::uint32_t fraction, std::uint32_t length, std::uint32_t original) {
    return File().Header().PacketHeader(0, fraction, length, original).Raw("a frame").bytes();
  };
  EXPECT_STATUS(ZEL_OK, PacketsOfPcap(with(999'999, 7, 7)));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(with(1'000'000, 7, 7)));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(with(0, 8, 8)));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(with(0, 262145, 262145)));
  EXPECT_STATUS(ZEL_INVALID_METADATA, PacketsOfPcap(with(0, 0xffffffff, 0xffffffff)));
  EXPECT_STATUS(ZEL_NOT_SUPPORTED, PacketsOfPcap(with(0, 7, 1500)));
  EXPECT_STATUS(ZEL_NOT_SUPPORTED, PacketsOfPcap(with(0, 7, 6)));
}

TEST(Pcap, IsReadBackAsItWasWritten) {
  const std::vector<std::string> frames{"one", "", std::string(9014, 'x')};
  std::vector<PcapPacket> packets;
  Duration time{0};
  for (const std::string &frame : frames) {
    packets.push_back({time, {reinterpret_cast<const std::uint8_t *>(frame.data()), frame.size()}});
    time += seconds(5) + Duration(123'456'789);
  }
  const std::string file = PcapOf(packets);
  EXPECT_EQ(file.substr(0, 4), "\x4d\x3c\xb2\xa1");
  const auto read = PacketsOfPcap(file);
  ASSERT_EQ(read.size(), packets.size());
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_EQ(read[i].time, packets[i].time);
    EXPECT_EQ(TextOf(read[i].bytes), frames[i]);
  }
  EXPECT_STATUS(ZEL_OK, PcapOf({{seconds(0xffffffff), {}}}));
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, PcapOf({{seconds(0x100000000), {}}}));
}

TEST(Pcap, TellsWhatIsWrong) {
  try {
    PacketsOfPcap("sho");
    FAIL();
  } catch (const Refusal &refusal) {
    EXPECT_STREQ(refusal.what(), "the file ends within the header");
  }
}

}  // namespace
}  // namespace kestrel::host::lab
