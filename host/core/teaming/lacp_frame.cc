#include "host/core/teaming/lacp_frame.h"

#include <algorithm>

#include "host/core/frames/frame_writer.h"
#include "host/core/frames/network_bytes.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

constexpr std::uint8_t kLacpSubtype = 1;
constexpr std::uint8_t kLacpVersion = 1;
constexpr std::uint8_t kActorPart = 1;
constexpr std::uint8_t kPartnerPart = 2;
constexpr std::uint8_t kCollectorPart = 3;
/** Of a part that describes an end, its type and size included. */
constexpr std::size_t kEndSize = 20;
constexpr std::size_t kCollectorSize = 16;
constexpr std::size_t kActorAt = 2;
constexpr std::size_t kPartnerAt = kActorAt + kEndSize;
/** What a frame of the least size is, its check sequence apart: 60 bytes behind which LACP still has some to go. */
constexpr std::size_t kFrameSize = 124;

void PutEnd(FrameWriter &writer, std::uint8_t part, const LacpEnd &end) {
  writer.Put(part).Put(static_cast<std::uint8_t>(kEndSize));
  writer.Put(end.system_priority).Put(end.system).Put(end.key).Put(end.port_priority).Put(end.port).Put(end.state);
  writer.PutZeros(3);
}

/** Of a part without its type and size. */
LacpEnd EndIn(FrameBytes part) {
  LacpEnd end;
  end.system_priority = WordAt(part, 0);
  std::ranges::copy(part.subspan(2, end.system.size()), end.system.begin());
  end.key = WordAt(part, 8);
  end.port_priority = WordAt(part, 10);
  end.port = WordAt(part, 12);
  end.state = part[14];
  return end;
}

}  // namespace

std::vector<std::uint8_t> BytesOfLacpdu(const Lacpdu &pdu, const MacAddress &source) {
  FrameWriter writer;
  writer.Put(kSlowProtocols).Put(source).Put(static_cast<std::uint16_t>(ZEL_ETH_TYPE_SLOW));
  writer.Put(kLacpSubtype).Put(kLacpVersion);
  PutEnd(writer, kActorPart, pdu.actor);
  PutEnd(writer, kPartnerPart, pdu.partner);
  writer.Put(kCollectorPart).Put(static_cast<std::uint8_t>(kCollectorSize));
  writer.PadTo(kFrameSize);
  return writer.Take();
}

std::optional<Lacpdu> LacpduIn(const Frame &frame) {
  const FrameBytes bytes = frame.payload();
  if (frame.destination() != kSlowProtocols || frame.type() != ZEL_ETH_TYPE_SLOW) return std::nullopt;
  if (bytes.size() < kPartnerAt + kEndSize || bytes[0] != kLacpSubtype || bytes[1] < kLacpVersion) return std::nullopt;
  const auto is_part = [bytes](std::size_t offset, std::uint8_t part) {
    return bytes[offset] == part && bytes[offset + 1] == kEndSize;
  };
  if (!is_part(kActorAt, kActorPart) || !is_part(kPartnerAt, kPartnerPart)) return std::nullopt;
  return Lacpdu{EndIn(bytes.subspan(kActorAt + 2)), EndIn(bytes.subspan(kPartnerAt + 2))};
}

}  // namespace kestrel::host
