#include "host/core/multicast/router_discovery.h"

#include "host/core/frames/internet_checksum.h"
#include "host/core/frames/network_bytes.h"
#include "host/core/multicast/group_codes.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr std::size_t kAdvertisementSize = 8;
constexpr std::uint8_t kLeastAdvertisementInterval = 4;
constexpr std::uint8_t kMostAdvertisementInterval = 180;
/** A router that stays away for so many intervals is gone. */
constexpr int kMissedAdvertisements = 3;

/** Version 2 in the high half, type 0 in the low one. */
constexpr std::uint8_t kPimHello = 0x20;
constexpr std::size_t kPimHeaderSize = 4;
constexpr std::uint16_t kPimHoldTime = 1;
constexpr std::uint16_t kPimForEver = 0xffff;
constexpr Duration kPimDefaultHold = seconds(105);

bool HasPimChecksum(FrameBytes message, const IpAddress &source, const IpAddress &destination) {
  InternetChecksum sum;
  if (!IsIpV4(source)) sum.AddPseudoHeader(source, destination, ZEL_IP_PROTO_PIM, message.size());
  sum.Add(message);
  return sum.Value() == 0;
}

}  // namespace

GroupMessage ReadRouterAdvertisement(FrameBytes message, const IpAddress &source) {
  if (message.size() < kAdvertisementSize) return MalformedMessage{};
  const std::uint8_t interval = message[1];
  if (interval < kLeastAdvertisementInterval || interval > kMostAdvertisementInterval) return MalformedMessage{};
  return RouterNotice{.router = source, .holds = kMissedAdvertisements * seconds(interval)};
}

GroupMessage ReadPim(FrameBytes message, const IpAddress &source, const IpAddress &destination) {
  if (message.size() < kPimHeaderSize) return MalformedMessage{};
  if (message[0] != kPimHello) return {};
  if (!HasPimChecksum(message, source, destination)) return MalformedMessage{};
  Duration holds = kPimDefaultHold;
  for (FrameBytes rest = message.subspan(kPimHeaderSize); !rest.empty();) {
    if (rest.size() < 4) return MalformedMessage{};
    const std::size_t size = WordAt(rest, 2);
    if (rest.size() - 4 < size) return MalformedMessage{};
    if (WordAt(rest, 0) == kPimHoldTime) {
      if (size != 2) return MalformedMessage{};
      const std::uint16_t told = WordAt(rest, 4);
      holds = told == kPimForEver ? Duration::max() : Duration(seconds(told));
    }
    rest = rest.subspan(4 + size);
  }
  return RouterNotice{.router = source, .holds = holds};
}

}  // namespace kestrel::host
