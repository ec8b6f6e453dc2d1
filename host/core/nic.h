/* A NIC and what it is connected to. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/frames/mac_address.h"
#include "host/core/link.h"
#include "host/export.h"

namespace kestrel::host {

/** How the far end of a link takes part in LACP. */
enum class LacpMode : std::uint8_t {
  /** It is silent, but for the frames that come in. */
  kNone,
  /** It answers. */
  kPassive,
  /** It begins by itself. */
  kActive,
};

/** The far end of a link as LACP meets it, without frames: one that is not silent says at every moment what is written
    here, and agrees with what the host says. */
struct LacpPartner {
  LacpMode mode = LacpMode::kActive;
  std::uint16_t system_priority = 0x8000;
  MacAddress system{0x02, 0x4b, 0xff, 0, 0, 1};
  std::uint16_t key = 1;
  /** Whether it takes in what the host sends through the link. */
  bool collects = true;
  bool distributes = true;
  /** Whether it wants to hear from the host every second and not every 30. */
  bool short_timeout = false;

  bool operator==(const LacpPartner &) const = default;
};

inline constexpr std::uint8_t kMaxErrorPercent = 100;

struct Nic {
  LinkStatus link = kNoLink;
  /** A NIC that is taken down by hand has no link. */
  bool is_enabled = true;
  /** Where its own frames come from. */
  MacAddress address{};
  bool has_driver = true;
  /** Of its frames, 0 to kMaxErrorPercent. */
  std::uint8_t error_percent = 0;
  /** Whether the far end blocks its port: the link is there and carries nothing. */
  bool is_blocked = false;
  /** That the device is near to. */
  std::uint32_t numa_node = 0;
  LacpPartner partner{};
  /** Whether the network behind the link carries beacons between this NIC and the others that hear them. */
  bool hears_beacons = true;

  LinkStatus CurrentLink() const { return is_enabled ? link : kNoLink; }

  std::string Save() const;
  /** Throws StatusError ZEL_INVALID_METADATA for bytes that Save did not write. */
  static Nic Load(std::string_view bytes);

  bool operator==(const Nic &) const = default;
};

}  // namespace kestrel::host
