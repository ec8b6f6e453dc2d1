/* Making frames, and telling what came out. */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/core/frames/frame.h"

namespace kestrel::host {

using FrameData = std::vector<std::uint8_t>;

constexpr VlanTag Tag(VlanId vlan, std::uint8_t priority = 0) { return {.priority = priority, .vlan = vlan}; }

/** A frame with these tags, the outermost first, and a payload of `size` bytes that count up. */
inline FrameData MakeFrame(const MacAddress &to, const MacAddress &from, const std::vector<VlanTag> &tags = {},
                           std::size_t size = 46, std::uint16_t type = 0x88b5) {
  FrameData bytes(to.begin(), to.end());
  bytes.insert(bytes.end(), from.begin(), from.end());
  const auto append = [&bytes](unsigned number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
  };
  for (const VlanTag &tag : tags) {
    append(tag.type);
    append(static_cast<unsigned>(tag.priority << 13 | (tag.drop_eligible ? 1 : 0) << 12 | tag.vlan));
  }
  append(type);
  for (std::size_t i = 0; i < size; ++i) bytes.push_back(static_cast<std::uint8_t>(i));
  return bytes;
}

/** The tags of a frame: "100p3" for VLAN 100 with priority 3, "100" with priority 0, one within the other as "100,7".
 */
inline std::string TagsOf(const FrameData &bytes) {
  std::string text;
  for (std::size_t place = 12; place + 4 <= bytes.size(); place += 4) {
    const unsigned type = bytes[place] << 8U | bytes[place + 1];
    if (type != 0x8100 && type != 0x88a8) break;
    const unsigned control = bytes[place + 2] << 8U | bytes[place + 3];
    if (!text.empty()) text += ',';
    text += std::to_string(control & 0xfffU);
    if (control >> 13U != 0) text += 'p' + std::to_string(control >> 13U);
  }
  return text;
}

}  // namespace kestrel::host
