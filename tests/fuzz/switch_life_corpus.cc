/* What the fuzzing of a switch's life starts from: the value that each key has of itself, and frames of each
   kind through each port. */
#include <string>

#include "host/core/base/errors.h"
#include "host/core/properties/property_table.h"
#include "tests/fuzz/corpus.h"
#include "tests/host/native/support/group_frames.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

/** Steps of the fuzzed program. */
constexpr char kSet = 0;
constexpr char kTime = 3;
constexpr char kSend = 5;
constexpr char kPorts = 6;

std::string Sized(const std::string &bytes) {
  std::string sized{static_cast<char>(bytes.size() >> 8), static_cast<char>(bytes.size())};
  return sized + bytes;
}

std::string SentFrame(char port, const Octets &frame) {
  return std::string{kSend, port} + Sized(std::string(frame.begin(), frame.end())) + std::string{kTime, 100};
}

/** The value under every key, and a frame behind it. */
std::string SetValue(char place, const PropertyRow &row, const Host &host, const Octets &frame) {
  PropertyOwner owner{.switch_name = kAlias, .level = row.level};
  std::string step{kSet, place};
  if (row.level == PropertyLevel::kPort) owner.port = "machine";
  if (row.level == PropertyLevel::kPort || row.level == PropertyLevel::kUplink) step += '\0';
  std::string value(4, '\0');
  try {
    value = host.PropertyOf(owner, row.key);
  } catch (const StatusError &) {  // NOLINT(bugprone-empty-catch): a key without a value of itself
  }
  return step + Sized(value) + SentFrame(0, frame);
}

}  // namespace

void WriteInputs(const Corpus &corpus) {
  const auto host = MakeTestHost();
  const IpAddress group = GroupOf(IpVersion::kIpV4, 1);
  const Octets data = DataFrame(SourceOf(IpVersion::kIpV4, 1), group);
  char place = 0;
  for (const PropertyRow &row : PropertyRows()) {
    corpus.Write("value-" + std::to_string(place), SetValue(place, row, *host, data));
    ++place;
  }
  Octets tagged(data);
  tagged.insert(tagged.begin() + 12, {0x81, 0, 0, 7});
  Octets slow(60, 0);  // of the protocol that groups uplinks
  const Octets head{1, 0x80, 0xc2, 0, 0, 2, 2, 0, 0, 0, 0, 9, 0x88, 9, 1, 1, 1, 20};
  std::ranges::copy(head, slow.begin());
  std::string all;
  for (char port = 0; port < kPorts; ++port) {
    for (const Octets &frame : {data, tagged, slow, JoinFrame(Generation::kLeave, group)})
      all += SentFrame(port, frame);
  }
  corpus.Write("frames", all);
}

}  // namespace kestrel::host
