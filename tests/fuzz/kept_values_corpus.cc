/* The values that the fuzzing of kept values starts from: those of the sample host after some time. */
#include <string>
#include <utility>
#include <vector>

#include "host/core/sample_host.h"
#include "host/core/traffic/port_runtime.h"
#include "tests/fuzz/corpus.h"

namespace kestrel::host {

void WriteInputs(const Corpus &corpus) {
  int number = 0;
  const auto write = [&](char which, const std::string &bytes) {
    corpus.Write("value-" + std::to_string(number++), which + bytes);
  };
  const auto host = MakeSampleHost();
  host->AdvanceClock(std::chrono::minutes(2));
  for (const auto &owner : std::as_const(*host).Switches()) {
    write(0, owner.runtime.multicast.Save());
    write(3, owner.runtime.team.Save());
    write(6, owner.runtime.mirrors.Save());
    for (const auto &[key, entry] : owner.runtime.macs.entries()) write(1, entry.Save());
    for (const Port &port : owner.config.ports().Items()) {
      if (port.client) write(5, port.client->Save());
    }
  }
  write(2, EnhancedDatapath().Save());
  write(4, Nic().Save());
  write(7, PortRuntime().Save());
  std::vector<std::uint16_t> codes;
  for (std::uint16_t code = 0; code < VS_NUM_RT_OPT; ++code) codes.push_back(code);
  write(8, RuntimeOptions().Pack(codes));
}

}  // namespace kestrel::host
