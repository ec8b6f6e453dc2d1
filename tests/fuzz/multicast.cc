/* Fuzzes what multicast tables make of frames. The input is a row of steps: a byte that says what happens, and for a
   frame its size in two bytes and its bytes. Checksums are repaired in most frames, so that the fuzzer gets behind
   them. Broken invariants abort. */
#include <cstdint>
#include <string>
#include <vector>

#include "host/core/base/errors.h"
#include "host/core/frames/internet_checksum.h"
#include "host/core/frames/network_bytes.h"
#include "host/core/multicast/group_codes.h"
#include "host/core/multicast/multicast_table.h"
#include "kestrel/constants.h"
#include "tests/fuzz/ensure.h"
#include "tests/fuzz/steps.h"

namespace kestrel::host {
namespace {

using Octets = std::vector<std::uint8_t>;

/** Sets the checksum field at `offset` of some bytes so that they add up, whatever `more` they are added to. */
void Repair(Octets &bytes, std::size_t start, std::size_t size, std::size_t field, InternetChecksum more = {}) {
  if (start + size > bytes.size() || field + 2 > start + size) return;
  PutWord(bytes, field, 0);
  more.Add(FrameBytes(bytes).subspan(start, size));
  PutWord(bytes, field, more.Value());
}

void RepairIpV4(Octets &frame) {
  constexpr std::size_t kStart = kEthernetHeaderSize;
  if (frame.size() < kStart + 20) return;
  const std::size_t header = (frame[kStart] & 0xfU) * 4;
  const std::size_t total = WordAt(frame, kStart + 2);
  if (header < 20 || total < header) return;
  Repair(frame, kStart, header, kStart + 10);
  Repair(frame, kStart + header, total - header, kStart + header + 2);
}

/** Of a message right behind one row of options, or behind the header. */
void RepairIpV6(Octets &frame) {
  constexpr std::size_t kStart = kEthernetHeaderSize;
  if (frame.size() < kStart + 42) return;
  const bool has_options = frame[kStart + 6] == ZEL_IP_PROTO_IPV6_HOPOPT;
  const std::size_t options = has_options ? (std::size_t{frame[kStart + 41]} + 1) * 8 : 0;
  const std::size_t total = WordAt(frame, kStart + 4);
  if (total < options) return;
  const std::uint8_t protocol = frame[kStart + (has_options ? 40 : 6)];
  InternetChecksum pseudo;
  pseudo.AddPseudoHeader(IpV6At(FrameBytes(frame).subspan(kStart + 8)), IpV6At(FrameBytes(frame).subspan(kStart + 24)),
                         protocol, total - options);
  Repair(frame, kStart + 40 + options, total - options, kStart + 40 + options + 2, pseudo);
}

/** A query that the reader lets pass can be written and read again. */
void CheckQuery(const GroupQuery &query) {
  if (query.generation == Generation::kJoin || IsUnspecified(query.router)) return;
  const auto bytes = WriteQueryFrame(query, {2, 0, 0, 0, 0, 1});
  Ensure(ReadGroupMessage(Frame(bytes)) == GroupMessage(query));
}

class Run {
 public:
  explicit Run(Steps input) : steps_(input) {}

  void Go() {
    while (!steps_.AtEnd()) Step(steps_.Byte());
    const std::string saved = table_.Save();
    Ensure(MulticastTable::Load(saved) == table_);
    for (PortId port = 0; port < kPorts; ++port) table_.ForgetPort(port);
    for (PortId port = 0; port < kPorts; ++port) Ensure(table_.GroupsOf(port).empty());
  }

 private:
  static constexpr PortId kPorts = 3;

  void Step(std::uint8_t what) {
    const PortId port = what % kPorts;
    switch (what / kPorts % 8) {
      case 0:
        now_ = Later(now_, std::chrono::seconds(steps_.Byte()));
        table_.Expire(now_);
        table_.TakeQuestions(now_, settings_);
        table_.TakeGeneralQuery(now_, settings_);
        break;
      case 1:
        if (steps_.Byte() % 16 == 0) table_.ForgetPort(port);
        break;
      case 2:
        settings_.ages = steps_.Byte() % 4 != 0;
        table_.Follow(settings_, now_);
        break;
      default:
        Hear(port, what % 2 == 0 ? VlanId{0} : VlanId{7}, what / kPorts % 8 != 3);
        break;
    }
  }

  void Hear(PortId port, VlanId vlan, bool repairs) {
    const std::string sent = steps_.Bytes();
    if (sent.size() < kEthernetHeaderSize) return;
    Octets bytes(sent.begin(), sent.end());
    if (repairs) WordAt(bytes, 12) == ZEL_ETH_TYPE_IPV4 ? RepairIpV4(bytes) : RepairIpV6(bytes);
    bytes.shrink_to_fit();
    try {
      const Frame frame(bytes);
      const GroupMessage message = ReadGroupMessage(frame);
      if (const auto *query = std::get_if<GroupQuery>(&message)) CheckQuery(*query);
      table_.Note(port, vlan, message, now_, settings_);
      for (PortId to = 0; to < kPorts; ++to) {
        table_.Wants(to, vlan, frame);
        Ensure(table_.GroupsOf(to).size() <= kMaxGroupsOfPort);
      }
    } catch (const StatusError &) {
      // Too short for its tags: none that a switch would look at.
    }
  }

  Steps steps_;
  MulticastTable table_;
  MulticastSettings settings_{.asks = true};
  TimePoint now_{0};
};

}  // namespace
}  // namespace kestrel::host

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  kestrel::host::Run({data, size}).Go();
  return 0;
}
