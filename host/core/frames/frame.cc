#include "host/core/frames/frame.h"

#include <algorithm>

#include "host/core/base/errors.h"
#include "host/core/frames/network_bytes.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

constexpr std::size_t kTypeOffset = 12;

/** A word of a header, of a frame that may end before it. */
std::uint16_t HeaderWord(FrameBytes bytes, std::size_t offset) {
  if (bytes.size() < offset + 2) throw StatusError(ZEL_BAD_PARAM);
  return WordAt(bytes, offset);
}

/** The bytes of a frame with a tag, or none, in the place of the first `replaced` bytes behind the addresses. */
std::vector<std::uint8_t> Tagged(const Frame &frame, const VlanTag *tag, std::size_t replaced) {
  const FrameBytes former = frame.bytes();
  std::vector<std::uint8_t> bytes;
  bytes.reserve(former.size() + kVlanTagSize);
  AppendBytes(bytes, former.first(kTypeOffset));
  if (tag != nullptr) {
    AppendNumber(bytes, tag->type);
    AppendNumber(bytes,
                 static_cast<std::uint16_t>(tag->priority << 13 | (tag->drop_eligible ? 1 : 0) << 12 | tag->vlan));
  }
  AppendBytes(bytes, former.subspan(kTypeOffset + replaced));
  return bytes;
}

}  // namespace

Frame::Frame(FrameBytes bytes) : bytes_(bytes) {
  type_ = HeaderWord(bytes, kTypeOffset);
  std::ranges::copy(bytes.first<6>(), destination_.begin());
  std::ranges::copy(bytes.subspan<6, 6>(), source_.begin());
  while (type_ == kCustomerTag || type_ == kServiceTag) {
    const std::uint16_t control = HeaderWord(bytes, payload_offset_);
    if (tag_count_++ == 0) {
      tag_ = VlanTag{.type = type_,
                     .priority = static_cast<std::uint8_t>(control >> 13),
                     .drop_eligible = (control >> 12 & 1) != 0,
                     .vlan = static_cast<VlanId>(control & 0xfff)};
    }
    type_ = HeaderWord(bytes, payload_offset_ + 2);
    payload_offset_ += kVlanTagSize;
  }
}

std::vector<std::uint8_t> BytesWithTag(const Frame &frame, const std::optional<VlanTag> &tag) {
  return Tagged(frame, tag ? &*tag : nullptr, frame.tag() ? kVlanTagSize : 0);
}

std::vector<std::uint8_t> BytesWithTagBefore(const Frame &frame, const VlanTag &tag) { return Tagged(frame, &tag, 0); }

}  // namespace kestrel::host
