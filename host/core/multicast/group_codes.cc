#include "host/core/multicast/group_codes.h"
#include "host/core/frames/network_bytes.h"

#include <algorithm>
#include <utility>

namespace kestrel::host {
namespace {

constexpr std::size_t kRecordsOffset = 8;
constexpr std::size_t kRecordHead = 4;

bool IsKnown(std::uint8_t type) {
  return type >= static_cast<std::uint8_t>(RecordType::kIsInclude) &&
         type <= static_cast<std::uint8_t>(RecordType::kBlock);
}

IpAddress AddressAt(FrameBytes bytes, std::size_t size) { return size == kIpV4Size ? IpV4At(bytes) : IpV6At(bytes); }

}  // namespace

std::optional<std::vector<IpAddress>> SourcesAt(FrameBytes bytes, std::size_t count, std::size_t size) {
  if (bytes.size() / size < count) return std::nullopt;
  std::vector<IpAddress> sources;
  sources.reserve(count);
  for (std::size_t i = 0; i < count; ++i) sources.push_back(AddressAt(bytes.subspan(i * size), size));
  std::ranges::sort(sources);
  const auto repeated = std::ranges::unique(sources);
  sources.erase(repeated.begin(), repeated.end());
  return sources;
}

GroupMessage ReadRecords(FrameBytes report, std::size_t size) {
  if (report.size() < kRecordsOffset) return MalformedMessage{};
  GroupReport read{.generation = Generation::kSources, .records = {}};
  const std::size_t count = WordAt(report, 6);
  FrameBytes rest = report.subspan(kRecordsOffset);
  for (std::size_t i = 0; i < count; ++i) {
    if (rest.size() < kRecordHead + size) return MalformedMessage{};
    const std::uint8_t type = rest[0];
    const std::size_t auxiliary = std::size_t{rest[1]} * 4;
    const std::size_t source_count = WordAt(rest, 2);
    const IpAddress group = AddressAt(rest.subspan(kRecordHead), size);
    rest = rest.subspan(kRecordHead + size);
    auto sources = SourcesAt(rest, source_count, size);
    if (!sources || rest.size() - source_count * size < auxiliary || !IsMulticast(group)) return MalformedMessage{};
    rest = rest.subspan(source_count * size + auxiliary);
    if (IsKnown(type)) read.records.push_back({static_cast<RecordType>(type), group, std::move(*sources)});
  }
  return read;
}

bool ReadSourcesOfQuery(FrameBytes query, std::size_t offset, std::size_t size, GroupQuery &read) {
  auto sources = SourcesAt(query.subspan(offset + 4), WordAt(query, offset + 2), size);
  if (!sources || (IsUnspecified(read.group) && !sources->empty())) return false;
  read.suppress = (query[offset] >> 3 & 1) != 0;
  read.robustness = query[offset] & 7;
  read.interval = std::chrono::seconds(NumberOfCode(query[offset + 1], kByteMantissa));
  read.sources = std::move(*sources);
  return true;
}

void AppendSourcesOfQuery(std::vector<std::uint8_t> &bytes, const GroupQuery &query) {
  const auto interval = std::chrono::duration_cast<std::chrono::seconds>(query.interval).count();
  bytes.push_back(static_cast<std::uint8_t>((query.suppress ? 8 : 0) | (query.robustness > 7 ? 0 : query.robustness)));
  bytes.push_back(static_cast<std::uint8_t>(CodeOfNumber(static_cast<std::uint32_t>(interval), kByteMantissa)));
  AppendNumber(bytes, static_cast<std::uint16_t>(query.sources.size()));
  for (const IpAddress &source : query.sources) AppendBytes(bytes, WireBytes(source));
}

void PutWord(std::vector<std::uint8_t> &bytes, std::size_t offset, std::uint16_t word) {
  bytes[offset] = static_cast<std::uint8_t>(word >> 8);
  bytes[offset + 1] = static_cast<std::uint8_t>(word);
}

}  // namespace kestrel::host
