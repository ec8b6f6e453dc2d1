/* Writes the values that the fuzzing of kept values starts from, those of the sample host after some traffic:
   kept_values_corpus <folder> */
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "host/core/sample_host.h"
#include "host/core/traffic/port_runtime.h"

namespace kestrel::host {
namespace {

class Corpus {
 public:
  explicit Corpus(std::string folder) : folder_(std::move(folder)) {}

  void Write(char which, const std::string &bytes) {
    std::ofstream file(folder_ + "/value-" + std::to_string(number_++), std::ios::binary);
    file << which << bytes;
    if (!file) std::fprintf(stderr, "an input cannot be written\n");
  }

 private:
  std::string folder_;
  int number_ = 0;
};

void WriteAll(Corpus corpus) {
  const auto host = MakeSampleHost();
  host->AdvanceClock(std::chrono::minutes(2));
  for (const auto &owner : std::as_const(*host).Switches()) {
    corpus.Write(0, owner.runtime.multicast.Save());
    corpus.Write(3, owner.runtime.team.Save());
    corpus.Write(6, owner.runtime.mirrors.Save());
    for (const auto &[key, entry] : owner.runtime.macs.entries()) corpus.Write(1, entry.Save());
    for (const Port &port : owner.config.ports().Items()) {
      if (port.client) corpus.Write(5, port.client->Save());
    }
  }
  corpus.Write(2, EnhancedDatapath().Save());
  corpus.Write(4, Nic().Save());
  corpus.Write(7, PortRuntime().Save());
  std::vector<std::uint16_t> codes;
  for (std::uint16_t code = 0; code < VS_NUM_RT_OPT; ++code) codes.push_back(code);
  corpus.Write(8, RuntimeOptions().Pack(codes));
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
