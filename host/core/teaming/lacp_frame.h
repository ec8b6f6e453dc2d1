/* LACPDUs, the frames of the link aggregation control protocol (IEEE 802.1AX). */
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/core/frames/frame.h"
#include "host/export.h"

namespace kestrel::host {

/** Bits of LacpEnd::state. */
inline constexpr std::uint8_t kLacpActivity = 0x01;
inline constexpr std::uint8_t kLacpShortTimeout = 0x02;
inline constexpr std::uint8_t kLacpAggregation = 0x04;
inline constexpr std::uint8_t kLacpSynchronization = 0x08;
inline constexpr std::uint8_t kLacpCollecting = 0x10;
inline constexpr std::uint8_t kLacpDistributing = 0x20;
inline constexpr std::uint8_t kLacpDefaulted = 0x40;
inline constexpr std::uint8_t kLacpExpired = 0x80;

/** One end of a link, as an LACPDU describes it. */
struct LacpEnd {
  std::uint16_t system_priority = 0;
  MacAddress system{};
  std::uint16_t key = 0;
  std::uint16_t port_priority = 0;
  std::uint16_t port = 0;
  std::uint8_t state = 0;

  bool Says(std::uint8_t bits) const { return (state & bits) == bits; }
  /** Whether both speak of the same port of the same system with the same key. */
  bool IsSamePort(const LacpEnd &other) const {
    return system_priority == other.system_priority && system == other.system && key == other.key &&
           port_priority == other.port_priority && port == other.port;
  }
  /** Whether both can be in one group. */
  bool IsSameGroup(const LacpEnd &other) const {
    return system_priority == other.system_priority && system == other.system && key == other.key;
  }

  bool operator==(const LacpEnd &) const = default;
};

struct Lacpdu {
  /** Who sent it. */
  LacpEnd actor;
  /** What the sender knows of who receives it. */
  LacpEnd partner;

  bool operator==(const Lacpdu &) const = default;
};

/** Where slow protocols are sent to. */
inline constexpr MacAddress kSlowProtocols{0x01, 0x80, 0xc2, 0, 0, 0x02};

/** The bytes of the frame that a NIC of that address sends. */
KESTREL_HOST_EXPORT std::vector<std::uint8_t> BytesOfLacpdu(const Lacpdu &pdu, const MacAddress &source);

/** Nothing for a frame that is none. */
KESTREL_HOST_EXPORT std::optional<Lacpdu> LacpduIn(const Frame &frame);

}  // namespace kestrel::host
