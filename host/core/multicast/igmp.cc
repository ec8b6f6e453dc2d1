#include "host/core/multicast/igmp.h"
#include "host/core/frames/network_bytes.h"

#include "host/core/frames/internet_checksum.h"
#include "host/core/multicast/group_codes.h"
#include "host/core/multicast/router_discovery.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

using Tenths = std::chrono::duration<std::uint32_t, std::deci>;

constexpr std::size_t kIgmpGroupOffset = 4;
constexpr std::size_t kIgmpShortSize = 8;
constexpr std::size_t kIgmpQueryWithSourcesSize = 12;

GroupMessage ReadQueryOfIgmp(FrameBytes message, const IpAddress &source) {
  GroupQuery query{
      .generation = Generation::kLeave, .router = source, .group = IpV4At(message.subspan(kIgmpGroupOffset))};
  if (query.group != kNoIpV4 && !IsMulticast(query.group)) return MalformedMessage{};
  const std::uint8_t code = message[1];
  if (message.size() == kIgmpShortSize) {
    if (code == 0) {
      query.generation = Generation::kJoin;
      query.group = kNoIpV4;  // what the first version has there is not looked at
    } else {
      query.max_response = Tenths(code);
    }
    return query;
  }
  if (message.size() < kIgmpQueryWithSourcesSize) return MalformedMessage{};
  query.generation = Generation::kSources;
  query.max_response = Tenths(NumberOfCode(code, kByteMantissa));
  if (!ReadSourcesOfQuery(message, kIgmpShortSize, kIpV4Size, query)) return MalformedMessage{};
  return query;
}

GroupMessage ReadSingleOfIgmp(FrameBytes message, Generation generation, RecordType type) {
  const IpAddress group = IpV4At(message.subspan(kIgmpGroupOffset));
  if (!IsMulticast(group)) return MalformedMessage{};
  return GroupReport{.generation = generation, .records = {{type, group}}};
}

}  // namespace

GroupMessage ReadIgmp(FrameBytes message, const IpAddress &source) {
  if (message.size() < 4 || ChecksumOf(message) != 0) return MalformedMessage{};
  switch (message[0]) {
    case ZEL_IGMP_MRDADV:
      return ReadRouterAdvertisement(message, source);
    case ZEL_IGMP_MRDTERM:
      return RouterNotice{.router = source, .holds = Duration::zero()};
    case ZEL_IGMP_QUERY:
    case ZEL_IGMP_V1REPORT:
    case ZEL_IGMP_V2REPORT:
    case ZEL_IGMP_V2LEAVE:
    case ZEL_IGMP_V3REPORT:
      break;
    default:
      return {};
  }
  if (message.size() < kIgmpShortSize) return MalformedMessage{};
  switch (message[0]) {
    case ZEL_IGMP_QUERY:
      return ReadQueryOfIgmp(message, source);
    case ZEL_IGMP_V1REPORT:
      return ReadSingleOfIgmp(message, Generation::kJoin, RecordType::kIsExclude);
    case ZEL_IGMP_V2REPORT:
      return ReadSingleOfIgmp(message, Generation::kLeave, RecordType::kIsExclude);
    case ZEL_IGMP_V2LEAVE:
      return ReadSingleOfIgmp(message, Generation::kLeave, RecordType::kToInclude);
    default:
      return ReadRecords(message, kIpV4Size);
  }
}

bool IsIgmpReport(FrameBytes message) {
  if (message.empty()) return false;
  const std::uint8_t type = message[0];
  return type == ZEL_IGMP_V1REPORT || type == ZEL_IGMP_V2REPORT || type == ZEL_IGMP_V2LEAVE ||
         type == ZEL_IGMP_V3REPORT;
}

std::vector<std::uint8_t> WriteIgmpQuery(const GroupQuery &query) {
  const auto tenths = std::chrono::duration_cast<Tenths>(query.max_response).count();
  std::uint32_t code = 0;
  if (query.generation == Generation::kLeave) code = tenths;
  if (query.generation == Generation::kSources) code = CodeOfNumber(tenths, kByteMantissa);
  std::vector<std::uint8_t> message{ZEL_IGMP_QUERY, static_cast<std::uint8_t>(code), 0, 0};
  AppendBytes(message, WireBytes(query.group));
  if (query.generation == Generation::kSources) AppendSourcesOfQuery(message, query);
  PutWord(message, 2, ChecksumOf(message));
  return message;
}

}  // namespace kestrel::host
