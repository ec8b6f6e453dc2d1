#include "host/core/mirroring/mirror_encapsulation.h"

#include <algorithm>

#include "host/core/frames/network_bytes.h"

namespace kestrel::host {
namespace {

constexpr std::uint16_t kGreHasKey = 0x2000;
constexpr std::uint16_t kGreHasSequence = 0x1000;

/** What GRE carries. */
constexpr std::uint16_t kTypeBridging = 0x6558;
constexpr std::uint16_t kTypeErspan2 = 0x88be;
constexpr std::uint16_t kTypeErspan3 = 0x22eb;

/** The numbers that the two versions of the header have on the wire. */
constexpr std::uint16_t kVersionOfType2 = 1;
constexpr std::uint16_t kVersionOfType3 = 2;

/** What became of the VLAN tag. */
constexpr std::uint16_t kHadNoTag = 0;
constexpr std::uint16_t kHadTag = 2;
constexpr std::uint16_t kKeepsTag = 3;

void AppendGre(std::vector<std::uint8_t> &packet, const DVMirrorSession &session, std::uint32_t sequence) {
  if (session.encapType == DVMIRROR_ENCAP_GRE) {
    AppendNumber(packet, session.greKey == 0 ? std::uint16_t{0} : kGreHasKey);
    AppendNumber(packet, kTypeBridging);
    if (session.greKey != 0) AppendNumber(packet, session.greKey);
    return;
  }
  AppendNumber(packet, kGreHasSequence);
  AppendNumber(packet, session.encapType == DVMIRROR_ENCAP_ERSPAN2 ? kTypeErspan2 : kTypeErspan3);
  AppendNumber(packet, sequence);
}

/** The first half of the second word of both versions: class of service, two bits of the version's own, whether the
    frame was cut off, and the session. */
std::uint16_t SessionBits(const DVMirrorSession &session, std::uint16_t own, bool is_truncated) {
  return static_cast<std::uint16_t>(session.erspanCOS << 13 | own << 11 | (is_truncated ? 1 : 0) << 10 |
                                    session.erspanID);
}

void AppendErspan2(std::vector<std::uint8_t> &packet, const DVMirrorSession &session, const MirrorLabel &label) {
  const std::uint16_t had_tag = label.vlan == 0 ? kHadNoTag : kHadTag;
  AppendNumber(packet, static_cast<std::uint16_t>(kVersionOfType2 << 12 | label.vlan));
  AppendNumber(packet, SessionBits(session, label.keeps_tag ? kKeepsTag : had_tag, label.is_truncated));
  AppendNumber(packet, label.port & 0xfffff);
}

/** The time in the unit that a granularity stands for; counts round. */
std::uint32_t Timestamp(TimePoint time, std::uint8_t granularity) {
  constexpr Duration kUnits[] = {std::chrono::microseconds(100), Duration(100), Duration(1),
                                 std::chrono::microseconds(1)};
  return static_cast<std::uint32_t>(time / kUnits[granularity % std::size(kUnits)]);
}

void AppendErspan3(std::vector<std::uint8_t> &packet, const DVMirrorSession &session, const MirrorLabel &label) {
  constexpr std::uint16_t kNothingWrong = 0;
  constexpr std::uint16_t kNoGroupTag = 0;
  constexpr std::uint16_t kIsEthernet = 1 << 15;
  AppendNumber(packet, static_cast<std::uint16_t>(kVersionOfType3 << 12 | label.vlan));
  AppendNumber(packet, SessionBits(session, kNothingWrong, label.is_truncated));
  AppendNumber(packet, Timestamp(label.time, session.erspanGra));
  AppendNumber(packet, kNoGroupTag);
  AppendNumber(packet,
               static_cast<std::uint16_t>(kIsEthernet | (label.is_out ? 1 : 0) << 3 | (session.erspanGra & 3) << 1));
}

}  // namespace

std::vector<std::uint8_t> Encapsulated(const DVMirrorSession &session, const MirrorLabel &label, FrameBytes frame) {
  std::vector<std::uint8_t> packet;
  packet.reserve(frame.size() + 20);
  AppendGre(packet, session, label.sequence);
  if (session.encapType == DVMIRROR_ENCAP_ERSPAN2) AppendErspan2(packet, session, label);
  if (session.encapType == DVMIRROR_ENCAP_ERSPAN3) AppendErspan3(packet, session, label);
  AppendBytes(packet, frame);
  return packet;
}

}  // namespace kestrel::host
