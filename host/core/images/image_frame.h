/* The frame around every image, and the sections within: docs/state-image.md. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/base/bytes.h"
#include "host/export.h"

namespace kestrel::host {

enum class ImageKind : std::uint16_t { kState = 1, kPort = 2, kProperties = 3 };

/** An image that is sound as a whole; its body has not been looked at. */
struct OpenedImage {
  ImageKind kind;
  /** A published VDSVersion. */
  std::uint32_t version;
  /** Into the image. */
  std::string_view body;
};

/** The image around a body. Throws StatusError ZEL_RESULT_TOO_LARGE when its length does not fit an int, which is what
    callers count with. */
KESTREL_HOST_EXPORT std::string FrameImage(ImageKind kind, std::uint32_t version, std::string_view body);

/** Throws StatusError ZEL_INVALID_METADATA for bytes that are no image, ZEL_VERSION_MISMATCH_MAJOR for another format,
    ZEL_CHECKSUM_MISMATCH for damage, ZEL_VERSION_MISMATCH_MINOR for an unknown version. */
KESTREL_HOST_EXPORT OpenedImage OpenImage(std::string_view image);

/** Gives an image the checksum that its bytes have; no effect on bytes too short to have one. For those who make images
   by hand. */
KESTREL_HOST_EXPORT void MendChecksum(std::string &image);

enum class SectionKind : std::uint32_t { kSwitch = 1, kProperties = 2, kPort = 3, kGroup = 4 };

KESTREL_HOST_EXPORT void PutSection(ByteWriter &writer, SectionKind kind, std::string_view payload);

struct Section {
  SectionKind kind;
  std::string_view payload;
};

[[noreturn]] inline void RefuseImage() { throw StatusError(ZEL_INVALID_METADATA); }

/** What `read()` gives. What it throws because contents contradict each other becomes StatusError ZEL_INVALID_METADATA:
    the fault is the image's, whatever the model calls it. */
template <typename Read>
auto OrInvalid(Read read) {
  try {
    return read();
  } catch (const StatusError &) {
    throw StatusError(ZEL_INVALID_METADATA);
  }
}

/** The section that follows. Throws StatusError ZEL_INVALID_METADATA for an unknown kind and for one that does not end
    where its surroundings do. */
Section GetSection(ByteReader &reader);

}  // namespace kestrel::host
