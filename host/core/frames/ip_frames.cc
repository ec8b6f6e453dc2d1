#include "host/core/frames/ip_frames.h"

#include <algorithm>

#include "host/core/frames/internet_checksum.h"
#include "host/core/frames/network_bytes.h"

namespace kestrel::host {
namespace {

constexpr std::size_t kFragmentHeaderSize = 8;
/** Offsets of fragments count in so many bytes. */
constexpr std::size_t kFragmentUnit = 8;
/** What the length fields can say. */
constexpr std::size_t kMaxLength = 0xffff;
constexpr std::uint8_t kHops = 64;
constexpr std::uint8_t kProtocolFragment = 44;

/** A piece of a payload. */
struct Piece {
  std::span<const std::uint8_t> bytes;
  /** From the start of the payload. */
  std::size_t offset;
  bool is_last;

  bool IsWhole() const { return offset == 0 && is_last; }
};

std::vector<std::uint8_t> EthernetHeader(const IpPath &path) {
  std::vector<std::uint8_t> bytes;
  AppendBytes(bytes, path.next_station);
  AppendBytes(bytes, path.source_station);
  AppendNumber(bytes, IsIpV4(path.source) ? kTypeIpv4 : kTypeIpv6);
  return bytes;
}

void AppendIpv4(std::vector<std::uint8_t> &frame, const IpPath &path, std::uint8_t protocol, const Piece &piece,
                std::uint32_t identification) {
  std::vector<std::uint8_t> header{0x45, 0};
  AppendNumber(header, static_cast<std::uint16_t>(kIpv4HeaderSize + piece.bytes.size()));
  AppendNumber(header, static_cast<std::uint16_t>(identification));
  AppendNumber(header, static_cast<std::uint16_t>((piece.is_last ? 0 : 0x2000) | piece.offset / kFragmentUnit));
  header.push_back(kHops);
  header.push_back(protocol);
  AppendNumber(header, std::uint16_t{0});
  AppendBytes(header, WireBytes(path.source));
  AppendBytes(header, WireBytes(path.destination));
  const std::uint16_t checksum = ChecksumOf(header);
  header[10] = static_cast<std::uint8_t>(checksum >> 8);
  header[11] = static_cast<std::uint8_t>(checksum);
  AppendBytes(frame, header);
}

void AppendIpv6(std::vector<std::uint8_t> &frame, const IpPath &path, std::uint8_t protocol, const Piece &piece,
                std::uint32_t identification) {
  const std::size_t extension = piece.IsWhole() ? 0 : kFragmentHeaderSize;
  AppendNumber(frame, std::uint32_t{0x60000000});
  AppendNumber(frame, static_cast<std::uint16_t>(extension + piece.bytes.size()));
  frame.push_back(piece.IsWhole() ? protocol : kProtocolFragment);
  frame.push_back(kHops);
  AppendBytes(frame, WireBytes(path.source));
  AppendBytes(frame, WireBytes(path.destination));
  if (piece.IsWhole()) return;
  frame.push_back(protocol);
  frame.push_back(0);
  AppendNumber(frame, static_cast<std::uint16_t>(piece.offset | (piece.is_last ? 0 : 1)));
  AppendNumber(frame, identification);
}

/** How many payload bytes fit into one packet of that many fragments. */
std::size_t PieceSize(bool is_v6, std::size_t payload_size, std::size_t mtu) {
  const std::size_t header_size = is_v6 ? kIpv6HeaderSize : kIpv4HeaderSize;
  if (header_size + payload_size <= mtu) return payload_size;
  const std::size_t room = mtu - header_size - (is_v6 ? kFragmentHeaderSize : 0);
  return room / kFragmentUnit * kFragmentUnit;
}

}  // namespace

std::vector<std::vector<std::uint8_t>> IpFrames(const IpPath &path, std::uint8_t protocol,
                                                std::span<const std::uint8_t> payload, std::uint32_t identification,
                                                std::size_t mtu) {
  const bool is_v6 = !IsIpV4(path.source);
  if (payload.size() > kMaxLength - (is_v6 ? 0 : kIpv4HeaderSize)) return {};
  const std::size_t piece_size = PieceSize(is_v6, payload.size(), mtu);
  std::vector<std::vector<std::uint8_t>> frames;
  std::size_t offset = 0;
  do {
    const std::size_t size = std::min(piece_size, payload.size() - offset);
    const Piece piece{
        .bytes = payload.subspan(offset, size), .offset = offset, .is_last = offset + size == payload.size()};
    std::vector<std::uint8_t> frame = EthernetHeader(path);
    (is_v6 ? AppendIpv6 : AppendIpv4)(frame, path, protocol, piece, identification);
    AppendBytes(frame, piece.bytes);
    frames.push_back(std::move(frame));
    offset += size;
  } while (offset < payload.size());
  return frames;
}

}  // namespace kestrel::host
