/* Writes the frames that the fuzzing of multicast tables starts from: multicast_corpus <folder>. */
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/host/native/support/group_frames.h"

namespace kestrel::host {
namespace {

/** Steps of the fuzzed program: a frame through the first port, with its checksums repaired; and time that passes. */
constexpr std::uint8_t kFrame = 12;
constexpr std::uint8_t kTime = 0;

class Corpus {
 public:
  explicit Corpus(std::string folder) : folder_(std::move(folder)) {}

  /** One input that hears some frames, a while apart. */
  void Write(const std::string &name, const std::vector<Octets> &frames) const {
    Octets input;
    for (const Octets &frame : frames) {
      input.push_back(kFrame);
      Append16(input, frame.size());
      input.insert(input.end(), frame.begin(), frame.end());
      Append(input, {kTime, 1});
    }
    std::ofstream file(folder_ + "/" + name, std::ios::binary);
    file.write(reinterpret_cast<const char *>(input.data()), static_cast<std::streamsize>(input.size()));
    if (!file) std::fprintf(stderr, "%s cannot be written\n", name.c_str());
  }

 private:
  std::string folder_;
};

void WriteAll(const Corpus &corpus) {
  for (const IpVersion version : kIpVersions) {
    const std::string prefix = version == IpVersion::kIpV4 ? "igmp-" : "mld-";
    const IpAddress group = GroupOf(version, 1);
    const IpAddress nobody = NobodyOf(version);
    const IpAddress router = NeighbourOf(version, 9);
    const std::vector<IpAddress> sources{SourceOf(version, 1), SourceOf(version, 2)};
    std::vector<GroupRecord> records;
    for (int type = 1; type <= 6; ++type) records.push_back({static_cast<RecordType>(type), group, sources});

    corpus.Write(prefix + "join-leave", {JoinFrame(Generation::kLeave, group), LeaveFrame(Generation::kLeave, group)});
    corpus.Write(prefix + "records", {RecordsFrame(version, records)});
    corpus.Write(prefix + "general-query", {ShortQueryFrame(router, nobody, 100)});
    corpus.Write(prefix + "group-query", {JoinFrame(Generation::kLeave, group), ShortQueryFrame(router, group, 10)});
    corpus.Write(prefix + "sources-query",
                 {RecordsFrame(version, {records[0]}), SourcesQueryFrame(router, group, sources, 10)});
    corpus.Write(prefix + "router", {RouterAdvertisementFrame(version, router, 20),
                                     RouterTerminationFrame(version, router), PimHelloFrame(version, router, 30)});
    corpus.Write(prefix + "data", {JoinFrame(Generation::kSources, group), DataFrame(sources[0], group)});
  }
  corpus.Write("igmp-first", {JoinFrame(Generation::kJoin, GroupOf(IpVersion::kIpV4, 1)),
                              ShortQueryFrame(NeighbourOf(IpVersion::kIpV4, 9), kNoIpV4, 0)});
}

}  // namespace
}  // namespace kestrel::host

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  kestrel::host::WriteAll(kestrel::host::Corpus(argv[1]));
  return 0;
}
