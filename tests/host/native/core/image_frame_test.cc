#include "host/core/images/image_frame.h"

#include "host/core/images/crc32c.h"
#include "host/core/switch_config.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

/** The values that the iSCSI standard (RFC 3720, B.4) gives, and the usual check value. */
TEST(Crc32c, HasThePublishedValues) {
  EXPECT_EQ(Crc32c("123456789"), 0xe3069283U);
  EXPECT_EQ(Crc32c(std::string(32, '\0')), 0x8a9136aaU);
  EXPECT_EQ(Crc32c(std::string(32, '\xff')), 0x62a8ab43U);
  std::string ascending, descending;
  for (char i = 0; i < 32; ++i) {
    ascending += i;
    descending += static_cast<char>(31 - i);
  }
  EXPECT_EQ(Crc32c(ascending), 0x46dd794eU);
  EXPECT_EQ(Crc32c(descending), 0x113fdb5cU);
  EXPECT_EQ(Crc32c(""), 0U);
}

TEST(Crc32c, OfPiecesIsThatOfTheWhole) { EXPECT_EQ(Crc32c("6789", Crc32c("12345")), Crc32c("123456789")); }

const std::string kImage = FrameImage(ImageKind::kPort, DVS_VERSION_66, "body");

TEST(ImageFrame, IsAsDocumented) {
  const std::string head = kImage.substr(0, 20);
  EXPECT_EQ(head, std::string("\x89KSI\r\n\x1a\n\1\0\2\0\6\0\0\0\34\0\0\0", 20));
  EXPECT_EQ(kImage.substr(24), "body");
  const OpenedImage opened = OpenImage(kImage);
  EXPECT_EQ(opened.kind, ImageKind::kPort);
  EXPECT_EQ(opened.version, static_cast<std::uint32_t>(DVS_VERSION_66));
  EXPECT_EQ(opened.body, "body");
}

/** The status with which an image is refused that has `byte` at `offset`, and the right checksum. */
int With(std::size_t offset, int byte) {
  std::string image = kImage;
  image[offset] = static_cast<char>(byte);
  MendChecksum(image);
  return StatusOf([&] { OpenImage(image); });
}

TEST(ImageFrame, TellsWhatIsWrongWithAnImage) {
  EXPECT_EQ(With(0, 0x89), ZEL_OK);
  EXPECT_EQ(With(0, 0x09), ZEL_INVALID_METADATA);
  EXPECT_EQ(With(7, '\r'), ZEL_INVALID_METADATA);
  EXPECT_EQ(With(8, 0), ZEL_VERSION_MISMATCH_MAJOR);
  EXPECT_EQ(With(8, 2), ZEL_VERSION_MISMATCH_MAJOR);
  EXPECT_EQ(With(9, 1), ZEL_VERSION_MISMATCH_MAJOR);
  EXPECT_EQ(With(10, 0), ZEL_INVALID_METADATA);
  EXPECT_EQ(With(10, 4), ZEL_INVALID_METADATA);
  EXPECT_EQ(With(12, 3), ZEL_VERSION_MISMATCH_MINOR);
  EXPECT_EQ(With(12, 8), ZEL_VERSION_MISMATCH_MINOR);
  EXPECT_EQ(With(12, VS_TRVT_ON_DVS70_VERSION), ZEL_OK);
  EXPECT_EQ(With(16, 29), ZEL_INVALID_METADATA);
  EXPECT_EQ(With(19, 0x80), ZEL_INVALID_METADATA);
  std::string damaged = kImage;
  damaged[20] = static_cast<char>(damaged[20] ^ 1);
  EXPECT_STATUS(ZEL_CHECKSUM_MISMATCH, OpenImage(damaged));
}

TEST(ImageFrame, HoldsAsManyBytesAsItSays) {
  for (std::size_t length = 0; length < kImage.size(); ++length) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, OpenImage(std::string_view(kImage).substr(0, length))) << length;
  }
  EXPECT_STATUS(ZEL_INVALID_METADATA, OpenImage(kImage + '\0'));
}

TEST(ImageFrame, MendingLeavesASoundImageAndATooShortOneAlone) {
  std::string image = kImage;
  MendChecksum(image);
  EXPECT_EQ(image, kImage);
  std::string stub = kImage.substr(0, 23);
  MendChecksum(stub);
  EXPECT_EQ(stub, kImage.substr(0, 23));
}

}  // namespace
}  // namespace kestrel::host
