/* Images of the state of switches: docs/state-image.md. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/base/bytes.h"
#include "host/core/switch_config.h"
#include "host/export.h"

namespace kestrel::host {

/** A switch as it is in use and as it is saved. Both consist of the same ports, uplinks, groups and clients; their
    properties may differ. */
struct SwitchState {
  SwitchConfig in_use;
  SwitchConfig saved;

  bool operator==(const SwitchState &) const = default;
};

/** Makes an image of some switches, in the form of the newest version. */
class KESTREL_HOST_EXPORT StateImageWriter {
 public:
  void Add(const SwitchConfig &in_use, const SwitchConfig &saved);
  /** Throws as FrameImage does. */
  std::string Take();

 private:
  ByteWriter body_;
};

/** The switches in an image, any two of which can be on one host. Throws as OpenImage does, StatusError ZEL_BAD_PARAM
   for an image of another kind, ZEL_INVALID_METADATA for contents that are no state. */
KESTREL_HOST_EXPORT std::vector<SwitchState> StateOfImage(std::string_view image);

}  // namespace kestrel::host
