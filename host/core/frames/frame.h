/* An Ethernet frame and what its headers say. */
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/core/frames/mac_address.h"
#include "host/core/vlan.h"
#include "host/export.h"

namespace kestrel::host {

using FrameBytes = std::span<const std::uint8_t>;

/** Destination, source and EtherType. */
inline constexpr std::size_t kEthernetHeaderSize = 14;
inline constexpr std::size_t kVlanTagSize = 4;

/** A VLAN tag (IEEE 802.1Q). */
struct VlanTag {
  /** The EtherType that announces it, 0x8100 or 0x88a8. */
  std::uint16_t type = 0x8100;
  /** 0 to 7. */
  std::uint8_t priority = 0;
  bool drop_eligible = false;
  /** 0 for a tag that only says a priority. */
  VlanId vlan = 0;

  bool operator==(const VlanTag &) const = default;
};

/** A view of a frame, without its frame check sequence; the bytes must stay where they are. */
class KESTREL_HOST_EXPORT Frame {
 public:
  /** Throws StatusError ZEL_BAD_PARAM for bytes that are too few for an Ethernet header and its tags. */
  explicit Frame(FrameBytes bytes);

  FrameBytes bytes() const { return bytes_; }
  const MacAddress &destination() const { return destination_; }
  const MacAddress &source() const { return source_; }
  /** The outermost tag. */
  const std::optional<VlanTag> &tag() const { return tag_; }
  /** How many tags there are, one within the other. */
  std::size_t tag_count() const { return tag_count_; }
  /** The type of the payload, behind all tags. */
  std::uint16_t type() const { return type_; }
  /** What is behind the tags and the type. */
  FrameBytes payload() const { return bytes_.subspan(payload_offset_); }
  /** In bytes, as an MTU counts: without the Ethernet header and the outermost tag. */
  std::size_t mtu_size() const { return bytes_.size() - kEthernetHeaderSize - (tag_ ? kVlanTagSize : 0); }

 private:
  FrameBytes bytes_;
  MacAddress destination_{};
  MacAddress source_{};
  std::optional<VlanTag> tag_;
  std::size_t tag_count_ = 0;
  std::uint16_t type_ = 0;
  std::size_t payload_offset_ = kEthernetHeaderSize;
};

/** The EtherTypes that announce a tag. */
inline constexpr std::uint16_t kCustomerTag = 0x8100;
inline constexpr std::uint16_t kServiceTag = 0x88a8;

/** The bytes of a frame with another outermost tag, or none, in the place of the one it has. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> BytesWithTag(const Frame &frame, const std::optional<VlanTag> &tag);

/** The same with a tag before all those that it has. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> BytesWithTagBefore(const Frame &frame, const VlanTag &tag);

}  // namespace kestrel::host
