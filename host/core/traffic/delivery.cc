#include "host/core/traffic/delivery.h"

#include "host/core/traffic/passage.h"

namespace kestrel::host {

void Deliver(Host &host, PortRuntime &runtime, PortId port, const Frame &frame, const std::optional<VlanTag> &tag) {
  const std::size_t former_tag = frame.tag() ? kVlanTagSize : 0;
  const std::size_t size = frame.bytes().size() - former_tag + (tag ? kVlanTagSize : 0);
  runtime.out.Count(CastKindOf(frame.destination()), size);
  // The bytes are put together for who looks at them.
  CaptureTable &captures = host.captures();
  if (!captures.IsEmpty() && captures.IsWanted(port, false)) {
    captures.Note(port, false, host.clock().Now(), BytesWithTag(frame, tag));
  }
}

}  // namespace kestrel::host
