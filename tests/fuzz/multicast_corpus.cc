/* The frames that the fuzzing of multicast tables starts from. */
#include <string>

#include "tests/fuzz/corpus.h"
#include "tests/host/native/support/group_frames.h"

namespace kestrel::host {
namespace {

/** Steps of the fuzzed program: a frame through the first port, with its checksums repaired; and time that passes. */
constexpr std::uint8_t kFrame = 12;
constexpr std::uint8_t kTime = 0;

/** One input that hears some frames, a while apart. */
void WriteFrames(const Corpus &corpus, const std::string &name, const std::vector<Octets> &frames) {
  Octets input;
  for (const Octets &frame : frames) {
    input.push_back(kFrame);
    Append16(input, frame.size());
    input.insert(input.end(), frame.begin(), frame.end());
    Append(input, {kTime, 1});
  }
  corpus.Write(name, std::string(input.begin(), input.end()));
}

}  // namespace

void WriteInputs(const Corpus &corpus) {
  for (const IpVersion version : kIpVersions) {
    const std::string prefix = version == IpVersion::kIpV4 ? "igmp-" : "mld-";
    const IpAddress group = GroupOf(version, 1);
    const IpAddress nobody = NobodyOf(version);
    const IpAddress router = NeighbourOf(version, 9);
    const std::vector<IpAddress> sources{SourceOf(version, 1), SourceOf(version, 2)};
    std::vector<GroupRecord> records;
    for (int type = 1; type <= 6; ++type) records.push_back({static_cast<RecordType>(type), group, sources});

    WriteFrames(corpus, prefix + "join-leave",
                {JoinFrame(Generation::kLeave, group), LeaveFrame(Generation::kLeave, group)});
    WriteFrames(corpus, prefix + "records", {RecordsFrame(version, records)});
    WriteFrames(corpus, prefix + "general-query", {ShortQueryFrame(router, nobody, 100)});
    WriteFrames(corpus, prefix + "group-query",
                {JoinFrame(Generation::kLeave, group), ShortQueryFrame(router, group, 10)});
    WriteFrames(corpus, prefix + "sources-query",
                {RecordsFrame(version, {records[0]}), SourcesQueryFrame(router, group, sources, 10)});
    WriteFrames(corpus, prefix + "router",
                {RouterAdvertisementFrame(version, router, 20), RouterTerminationFrame(version, router),
                 PimHelloFrame(version, router, 30)});
    WriteFrames(corpus, prefix + "data", {JoinFrame(Generation::kSources, group), DataFrame(sources[0], group)});
  }
  WriteFrames(corpus, "igmp-first",
              {JoinFrame(Generation::kJoin, GroupOf(IpVersion::kIpV4, 1)),
               ShortQueryFrame(NeighbourOf(IpVersion::kIpV4, 9), kNoIpV4, 0)});
}

}  // namespace kestrel::host
