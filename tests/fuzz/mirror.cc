/* Any bytes as a packed table of mirror sessions, then any bytes as a frame that the sessions watch.
 *
 * Input: the length of the frame (one byte), its VLAN (one byte), the frame, the table. */
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "host/core/base/errors.h"
#include "host/core/mirroring/mirroring.h"
#include "tests/fuzz/ensure.h"
#include "tests/host/native/support/test_host.h"

using namespace kestrel::host;

namespace {

/** Nothing for bytes that are no table. What a table was taken apart into makes the same table again, unless it shares
    so much that it is too long without. */
std::optional<MirrorTable> TableIn(std::string_view packed) {
  std::optional<MirrorTable> table;
  try {
    table = MirrorTableOf(packed);
  } catch (const StatusError &) {
    return std::nullopt;
  }
  try {
    const std::string own_slots = Pack(*table);
    Ensure(Pack(MirrorTableOf(own_slots)) == own_slots);
  } catch (const StatusError &refusal) {
    Ensure(refusal.status() == ZEL_LIMIT_EXCEEDED);
  }
  return table;
}

std::optional<Frame> FrameIn(FrameBytes bytes) {
  try {
    return Frame(bytes);
  } catch (const StatusError &) {
    return std::nullopt;
  }
}

/** Every copy is a frame, and what happened to the original is counted once for each session. */
void Pass(Host &host, const Frame &frame, VlanId vlan) {
  auto &owner = const_cast<Switch &>(std::as_const(host).FindSwitch(kAlias));
  for (const char *name : {"machine", "u1"}) {
    for (const auto direction : {MirrorDirection::kIn, MirrorDirection::kOut}) {
      const Port &port = owner.config.PortNamed(name);
      for (const MirrorCopy &copy : MirrorCopies(host, owner, port, direction, vlan, frame)) {
        Ensure(owner.config.ports().Find(copy.port)->client.has_value());
        Ensure(FrameIn(copy.bytes).has_value());
      }
    }
  }
  for (const std::string &session : MirrorSessionsOf(owner.config)) {
    const MirrorProgress *progress = owner.runtime.mirrors.Find(session);
    if (progress == nullptr) continue;
    const MirrorCounters &counters = progress->counters;
    const std::uint64_t seen = counters.mirrored + counters.discarded + counters.failed;
    Ensure(seen >= 1 && seen <= 4 && counters.mirrored <= counters.copies && progress->passed <= seen);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < 2) return 0;
  const FrameBytes rest(data + 2, size - 2);
  const FrameBytes bytes = rest.first(std::min<std::size_t>(data[0], rest.size()));
  const std::string_view packed(reinterpret_cast<const char *>(rest.data()) + bytes.size(), rest.size() - bytes.size());
  const auto table = TableIn(packed);
  const auto frame = FrameIn(bytes);
  if (!table || !frame) return 0;

  const bool is_of_switch = data[1] % 2 != 0;
  const auto host = MakeTestHost();
  const PropertyOwner owner = is_of_switch
                                  ? PropertyOwner{.switch_name = kAlias}
                                  : PropertyOwner{.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "free"};
  host->SetProperty(owner, is_of_switch ? VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS : VSPROP_PORT_MIRROR_SESSIONS,
                    {std::string(packed)});
  Pass(*host, *frame, data[1] / 2);
  return 0;
}
