/* What the fuzzing of images takes as its input: a byte for the kind, one for the version, and a body. The frame around
   it, with its checksum, is made anew for each input, so that what is behind it is reached. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/images/image_frame.h"
#include "host/core/switch_config.h"

namespace kestrel::host {

inline constexpr std::size_t kImageInputHead = 2;

inline ImageKind KindOfInput(std::string_view input) {
  return static_cast<ImageKind>(1 + static_cast<unsigned char>(input[0]) % 3);
}

/** Mostly the newest one, which has everything. */
inline std::uint32_t VersionOfInput(std::string_view input) {
  const auto number = static_cast<unsigned char>(input[1]);
  return IsPublishedVersion(number) ? number : kNewestVersion;
}

inline std::string ImageOfInput(std::string_view input) {
  return FrameImage(KindOfInput(input), VersionOfInput(input), input.substr(kImageInputHead));
}

/** The input that an image is made of. */
inline std::string InputOfImage(std::string_view image) {
  const OpenedImage opened = OpenImage(image);
  std::string input;
  input += static_cast<char>(static_cast<int>(opened.kind) - 1);
  input += static_cast<char>(opened.version);
  return input.append(opened.body);
}

}  // namespace kestrel::host
