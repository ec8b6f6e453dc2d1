#include "tests/fuzz/image_spans.h"

#include "host/core/base/errors.h"

namespace kestrel::host {
namespace {

class Finder {
 public:
  explicit Finder(std::string_view body) : body_(body) {}

  std::vector<ImageSpan> Find(ImageKind kind) {
    try {
      Range whole{0, body_.size()};
      switch (kind) {
        case ImageKind::kState:
          Sections(whole, {});
          break;
        case ImageKind::kPort:
          Text(whole, {});
          Sections(whole, {});
          break;
        case ImageKind::kProperties:
          Properties(whole, {});
          break;
      }
    } catch (const StatusError &) {
      // What comes before is enough.
    }
    return std::move(spans_);
  }

 private:
  using Lengths = std::vector<std::size_t>;

  /** What is left of something; reading goes on from its start. */
  struct Range {
    std::size_t at;
    std::size_t end;
  };

  std::string_view Rest(const Range &range) const { return body_.substr(range.at, range.end - range.at); }

  void Skip(Range &range, std::size_t size) const {
    ByteReader(Rest(range)).GetRaw(size);
    range.at += size;
  }

  /** Notes what follows its length, and skips it. */
  Range Text(Range &range, Lengths lengths, bool is_section = false) {
    const std::size_t size = ByteReader(Rest(range)).GetText().size();
    lengths.push_back(range.at);
    const std::size_t start = range.at + sizeof(std::uint32_t);
    spans_.push_back({.start = start, .size = size, .lengths = std::move(lengths), .is_section = is_section});
    range.at = start + size;
    return {start, start + size};
  }

  void Texts(Range &range, int count, const Lengths &lengths) {
    for (int i = 0; i < count; ++i) Text(range, lengths);
  }

  void Properties(Range range, const Lengths &lengths) {
    while (range.at < range.end) {
      Text(range, lengths);
      Skip(range, sizeof(std::uint32_t));
      Text(range, lengths);
    }
  }

  void Sections(Range range, const Lengths &lengths) {
    while (range.at < range.end) {
      const auto kind = static_cast<SectionKind>(ByteReader(Rest(range)).Get<std::uint32_t>());
      Skip(range, sizeof(std::uint32_t));
      Range inside = Text(range, lengths, true);
      const Lengths within = spans_.back().lengths;
      switch (kind) {
        case SectionKind::kSwitch:
          Texts(inside, 4, within);
          Skip(inside, 4 + 4 + 2 + 2 + 1);
          Sections(inside, within);
          break;
        case SectionKind::kProperties:
          Skip(inside, 2);
          Properties(inside, within);
          break;
        case SectionKind::kPort:
          Skip(inside, sizeof(std::uint32_t));
          Texts(inside, 4, within);
          Sections(inside, within);
          break;
        case SectionKind::kGroup:
          Skip(inside, sizeof(std::uint32_t));
          while (inside.at < inside.end) Text(inside, within);
          break;
      }
    }
  }

  std::string_view body_;
  std::vector<ImageSpan> spans_;
};

void AddTo(std::string &body, std::size_t length_at, std::ptrdiff_t by) {
  const auto length = ByteReader(std::string_view(body).substr(length_at)).Get<std::uint32_t>();
  ByteWriter writer;
  writer.Put(static_cast<std::uint32_t>(length + by));
  body.replace(length_at, sizeof(std::uint32_t), writer.Take());
}

}  // namespace

std::vector<ImageSpan> SpansOf(ImageKind kind, std::string_view body) { return Finder(body).Find(kind); }

void Replace(std::string &body, const ImageSpan &span, std::string_view bytes) {
  const auto by = static_cast<std::ptrdiff_t>(bytes.size()) - static_cast<std::ptrdiff_t>(span.size);
  for (const std::size_t at : span.lengths) AddTo(body, at, by);
  body.replace(span.start, span.size, bytes);
}

void Grow(std::string &body, const ImageSpan &span, std::ptrdiff_t by) {
  for (std::size_t i = 0; i + 1 < span.lengths.size(); ++i) AddTo(body, span.lengths[i], by);
}

}  // namespace kestrel::host
