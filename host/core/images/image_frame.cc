#include "host/core/images/image_frame.h"

#include <limits>

#include "host/core/base/errors.h"
#include "host/core/images/crc32c.h"
#include "host/core/switch_config.h"

namespace kestrel::host {
namespace {

constexpr std::string_view kImageMagic = "\x89KSI\r\n\x1a\n";
constexpr std::uint16_t kFormat = 1;
constexpr std::size_t kChecksumAt = 20;
constexpr std::size_t kBodyAt = kChecksumAt + sizeof(std::uint32_t);

std::uint32_t ImageChecksum(std::string_view image) {
  return Crc32c(image.substr(kBodyAt), Crc32c(image.substr(0, kChecksumAt)));
}

}  // namespace

std::string FrameImage(ImageKind kind, std::uint32_t version, std::string_view body) {
  const std::size_t length = kBodyAt + body.size();
  if (length > std::numeric_limits<int>::max()) throw StatusError(ZEL_RESULT_TOO_LARGE);
  ByteWriter writer;
  writer.PutRaw(kImageMagic);
  writer.Put(kFormat);
  writer.Put(static_cast<std::uint16_t>(kind));
  writer.Put(version);
  writer.Put(static_cast<std::uint32_t>(length));
  writer.Put(std::uint32_t{0});
  writer.PutRaw(body);
  std::string image = writer.Take();
  MendChecksum(image);
  return image;
}

OpenedImage OpenImage(std::string_view image) {
  ByteReader reader(image);
  if (reader.GetRaw(kImageMagic.size()) != kImageMagic) throw StatusError(ZEL_INVALID_METADATA);
  if (reader.Get<std::uint16_t>() != kFormat) throw StatusError(ZEL_VERSION_MISMATCH_MAJOR);
  const auto kind = reader.Get<std::uint16_t>();
  const auto version = reader.Get<std::uint32_t>();
  if (reader.Get<std::uint32_t>() != image.size()) throw StatusError(ZEL_INVALID_METADATA);
  if (reader.Get<std::uint32_t>() != ImageChecksum(image)) throw StatusError(ZEL_CHECKSUM_MISMATCH);
  if (kind < static_cast<std::uint16_t>(ImageKind::kState) ||
      kind > static_cast<std::uint16_t>(ImageKind::kProperties)) {
    throw StatusError(ZEL_INVALID_METADATA);
  }
  if (!IsPublishedVersion(version)) throw StatusError(ZEL_VERSION_MISMATCH_MINOR);
  return {.kind = static_cast<ImageKind>(kind), .version = version, .body = image.substr(kBodyAt)};
}

void MendChecksum(std::string &image) {
  if (image.size() < kBodyAt) return;
  ByteWriter checksum;
  checksum.Put(ImageChecksum(image));
  image.replace(kChecksumAt, sizeof(std::uint32_t), checksum.Take());
}

void PutSection(ByteWriter &writer, SectionKind kind, std::string_view payload) {
  writer.Put(static_cast<std::uint32_t>(kind));
  writer.PutText(payload);
}

Section GetSection(ByteReader &reader) {
  const auto kind = reader.Get<std::uint32_t>();
  if (kind < static_cast<std::uint32_t>(SectionKind::kSwitch) ||
      kind > static_cast<std::uint32_t>(SectionKind::kGroup)) {
    throw StatusError(ZEL_INVALID_METADATA);
  }
  return {.kind = static_cast<SectionKind>(kind), .payload = reader.GetText()};
}

}  // namespace kestrel::host
