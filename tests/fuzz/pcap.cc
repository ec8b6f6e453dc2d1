/* Pcap files from anywhere: read or refused, and what was read is written and read back as the same. */
#include "host/lab/pcap.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "host/core/base/errors.h"
#include "tests/fuzz/ensure.h"

using namespace kestrel::host;
using namespace kestrel::host::lab;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  try {
    const std::string file(reinterpret_cast<const char *>(data), size);
    const auto packets = PacketsOfPcap(file);
    const std::string written = PcapOf(packets);
    const auto again = PacketsOfPcap(written);
    const bool same = std::ranges::equal(packets, again, [](const PcapPacket &left, const PcapPacket &right) {
      return left.time == right.time && std::ranges::equal(left.bytes, right.bytes);
    });
    Ensure(same);
  } catch (const StatusError &) {  // NOLINT(bugprone-empty-catch): a refusal is one of the two good ends
  }
  return 0;
}
