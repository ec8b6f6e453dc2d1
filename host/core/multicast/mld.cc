#include "host/core/multicast/mld.h"
#include "host/core/frames/network_bytes.h"

#include "host/core/frames/internet_checksum.h"
#include "host/core/multicast/group_codes.h"
#include "host/core/multicast/router_discovery.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMldGroupOffset = 8;
constexpr std::size_t kMldShortSize = 24;
constexpr std::size_t kMldQueryWithSourcesSize = 28;

std::uint16_t Checksum(FrameBytes message, const IpAddress &source, const IpAddress &destination) {
  InternetChecksum sum;
  sum.AddPseudoHeader(source, destination, ZEL_IP_PROTO_ICMPV6, message.size());
  sum.Add(message);
  return sum.Value();
}

GroupMessage ReadQueryOfMld(FrameBytes message, const IpAddress &source) {
  GroupQuery query{.generation = Generation::kLeave,
                   .router = source,
                   .group = IpV6At(message.subspan(kMldGroupOffset)),
                   .max_response = milliseconds(WordAt(message, 4))};
  if (query.group != kNoIpV6 && !IsMulticast(query.group)) return MalformedMessage{};
  if (message.size() == kMldShortSize) return query;
  if (message.size() < kMldQueryWithSourcesSize) return MalformedMessage{};
  query.generation = Generation::kSources;
  query.max_response = milliseconds(NumberOfCode(WordAt(message, 4), kWordMantissa));
  if (!ReadSourcesOfQuery(message, kMldShortSize, kIpV6Size, query)) return MalformedMessage{};
  return query;
}

GroupMessage ReadSingleOfMld(FrameBytes message, RecordType type) {
  const IpAddress group = IpV6At(message.subspan(kMldGroupOffset));
  if (!IsMulticast(group)) return MalformedMessage{};
  return GroupReport{.generation = Generation::kLeave, .records = {{type, group}}};
}

}  // namespace

bool IsMld(FrameBytes message) {
  return IsMldReport(message) || (!message.empty() && (message[0] == ZEL_MLD_QUERY || message[0] == ZEL_MLD_MRDADV ||
                                                       message[0] == ZEL_MLD_MRDSOL || message[0] == ZEL_MLD_MRDTERM));
}

bool IsMldReport(FrameBytes message) {
  return !message.empty() &&
         (message[0] == ZEL_MLD_V1REPORT || message[0] == ZEL_MLD_V2REPORT || message[0] == ZEL_MLD_DONE);
}

GroupMessage ReadMld(FrameBytes message, const IpAddress &source, const IpAddress &destination) {
  if (!IsMld(message)) return {};
  // A host that has no address yet reports all the same; switches are whom it tells.
  if (!IsLinkLocalStation(source) && !(source == kNoIpV6 && IsMldReport(message))) return MalformedMessage{};
  if (message.size() < 4 || Checksum(message, source, destination) != 0) return MalformedMessage{};
  switch (message[0]) {
    case ZEL_MLD_MRDADV:
      return ReadRouterAdvertisement(message, source);
    case ZEL_MLD_MRDTERM:
      return RouterNotice{.router = source, .holds = Duration::zero()};
    case ZEL_MLD_MRDSOL:
      return {};
    case ZEL_MLD_V2REPORT:
      return ReadRecords(message, kIpV6Size);
    default:
      break;
  }
  if (message.size() < kMldShortSize) return MalformedMessage{};
  switch (message[0]) {
    case ZEL_MLD_QUERY:
      return ReadQueryOfMld(message, source);
    case ZEL_MLD_V1REPORT:
      return ReadSingleOfMld(message, RecordType::kIsExclude);
    default:
      return ReadSingleOfMld(message, RecordType::kToInclude);
  }
}

std::vector<std::uint8_t> WriteMldQuery(const GroupQuery &query, const IpAddress &destination) {
  const auto told = static_cast<std::uint32_t>(std::chrono::duration_cast<milliseconds>(query.max_response).count());
  const bool has_sources = query.generation == Generation::kSources;
  std::vector<std::uint8_t> message{ZEL_MLD_QUERY, 0, 0, 0};
  AppendNumber(message, static_cast<std::uint16_t>(has_sources ? CodeOfNumber(told, kWordMantissa) : told));
  AppendNumber(message, std::uint16_t{0});
  AppendBytes(message, WireBytes(query.group));
  if (has_sources) AppendSourcesOfQuery(message, query);
  PutWord(message, 2, Checksum(message, query.router, destination));
  return message;
}

}  // namespace kestrel::host
