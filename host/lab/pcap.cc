#include "host/lab/pcap.h"

#include <chrono>
#include <cstdint>
#include <limits>

#include "host/core/base/bytes.h"
#include "host/lab/refusal.h"
#include "kestrel/constants.h"

namespace kestrel::host::lab {
namespace {

constexpr std::uint32_t kMagicMicro = 0xa1b2c3d4;
constexpr std::uint32_t kMagicNano = 0xa1b23c4d;
/** What a pcapng file begins with, in either byte order. */
constexpr std::uint32_t kMagicNextGeneration = 0x0a0d0d0a;
constexpr std::uint16_t kMajor = 2;
constexpr std::uint16_t kMinor = 4;
constexpr std::uint32_t kEthernet = 1;
/** The longest packet that readers of such files accept. */
constexpr std::uint32_t kSnapLength = 262144;

constexpr std::uint32_t Swapped(std::uint32_t number) { return __builtin_bswap32(number); }
constexpr std::uint16_t Swapped(std::uint16_t number) { return __builtin_bswap16(number); }

/** The numbers of a file in its own byte order. */
class Reader {
 public:
  explicit Reader(std::string_view file) : bytes_(file) {
    magic_ = GetNumber<std::uint32_t>("the header");
    if (magic_ == kMagicNextGeneration) throw Refusal(ZEL_NOT_SUPPORTED, "pcapng files are not read, only pcap");
    is_swapped_ = magic_ == Swapped(kMagicMicro) || magic_ == Swapped(kMagicNano);
    if (is_swapped_) magic_ = Swapped(magic_);
    if (magic_ != kMagicMicro && magic_ != kMagicNano) throw Refusal(ZEL_INVALID_METADATA, "this is no pcap file");
  }

  template <typename Number>
  Number GetNumber(const char *of) {
    Require(sizeof(Number), of);
    const auto number = bytes_.Get<Number>();
    return is_swapped_ ? Swapped(number) : number;
  }
  FrameBytes GetBytes(std::size_t size) {
    Require(size, "a packet");
    const std::string_view bytes = bytes_.GetRaw(size);
    return {reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()};
  }

  bool is_nano() const { return magic_ == kMagicNano; }
  bool is_at_end() const { return bytes_.left() == 0; }

 private:
  void Require(std::size_t size, const char *of) const {
    if (bytes_.left() < size) throw Refusal(ZEL_INVALID_METADATA, std::string("the file ends within ") + of);
  }

  ByteReader bytes_;
  std::uint32_t magic_ = 0;
  bool is_swapped_ = false;
};

void ReadHeader(Reader &reader) {
  constexpr char kOf[] = "the header";
  if (reader.GetNumber<std::uint16_t>(kOf) != kMajor) {
    throw Refusal(ZEL_VERSION_MISMATCH_MAJOR, "the file is of another version of pcap than 2");
  }
  reader.GetNumber<std::uint16_t>(kOf);  // the minor version
  reader.GetNumber<std::uint32_t>(kOf);  // two fields that nobody uses
  reader.GetNumber<std::uint32_t>(kOf);
  reader.GetNumber<std::uint32_t>(kOf);  // the longest packet: each tells its own length
  if (reader.GetNumber<std::uint32_t>(kOf) != kEthernet) {
    throw Refusal(ZEL_NOT_SUPPORTED, "the packets are not of an Ethernet");
  }
}

PcapPacket ReadPacket(Reader &reader) {
  constexpr char kOf[] = "the header of a packet";
  const auto seconds = reader.GetNumber<std::uint32_t>(kOf);
  const auto fraction = reader.GetNumber<std::uint32_t>(kOf);
  const auto length = reader.GetNumber<std::uint32_t>(kOf);
  const auto original_length = reader.GetNumber<std::uint32_t>(kOf);
  const std::uint32_t unit = reader.is_nano() ? 1 : 1000;
  if (fraction >= std::uint32_t{1'000'000'000} / unit) {
    throw Refusal(ZEL_INVALID_METADATA, "the time of a packet is none");
  }
  if (length > kSnapLength) throw Refusal(ZEL_INVALID_METADATA, "a packet is longer than packets are");
  if (length != original_length) throw Refusal(ZEL_NOT_SUPPORTED, "a packet was cut short when it was captured");
  const TimePoint time = std::chrono::seconds(seconds) + Duration(std::uint64_t{fraction} * unit);
  return {.time = time, .bytes = reader.GetBytes(length)};
}

}  // namespace

std::vector<PcapPacket> PacketsOfPcap(std::string_view file) {
  Reader reader(file);
  ReadHeader(reader);
  std::vector<PcapPacket> packets;
  while (!reader.is_at_end()) packets.push_back(ReadPacket(reader));
  return packets;
}

std::string PcapOf(const std::vector<PcapPacket> &packets) {
  ByteWriter file;
  file.Put(kMagicNano);
  file.Put(kMajor);
  file.Put(kMinor);
  file.Put(std::uint32_t{0});
  file.Put(std::uint32_t{0});
  file.Put(kSnapLength);
  file.Put(kEthernet);
  for (const PcapPacket &packet : packets) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(packet.time);
    if (seconds.count() > std::numeric_limits<std::uint32_t>::max()) {
      throw Refusal(ZEL_LIMIT_EXCEEDED, "pcap files tell times up to 136 years");
    }
    file.Put(static_cast<std::uint32_t>(seconds.count()));
    file.Put(static_cast<std::uint32_t>((packet.time - seconds).count()));
    file.Put(static_cast<std::uint32_t>(packet.bytes.size()));
    file.Put(static_cast<std::uint32_t>(packet.bytes.size()));
    file.PutRaw({reinterpret_cast<const char *>(packet.bytes.data()), packet.bytes.size()});
  }
  return file.Take();
}

}  // namespace kestrel::host::lab
