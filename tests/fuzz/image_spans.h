/* Where in the body of an image its texts and sections are, so that one of them can be changed and all the lengths
   around it put right. */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/images/image_frame.h"

namespace kestrel::host {

/** Bytes that a length stands before. */
struct ImageSpan {
  /** In the body; the length of the span is the four bytes before it. */
  std::size_t start;
  std::size_t size;
  /** Where the lengths of what the span is within are, its own included. */
  std::vector<std::size_t> lengths;
  bool is_section;
};

/** The spans of a body, as far as it can be read. */
std::vector<ImageSpan> SpansOf(ImageKind kind, std::string_view body);

/** Puts other bytes in the place of a span, and the lengths right. */
void Replace(std::string &body, const ImageSpan &span, std::string_view bytes);

/** Adds to the lengths that a span is within, but for its own. */
void Grow(std::string &body, const ImageSpan &span, std::ptrdiff_t by);

}  // namespace kestrel::host
