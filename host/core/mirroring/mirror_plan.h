/* The mirror sessions of a switch, made ready for frames to be held against them. */
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/core/frames/ip_packet.h"
#include "host/core/mirroring/mirror_table.h"
#include "host/core/switch_config.h"
#include "host/export.h"

namespace kestrel::host {

enum class MirrorDirection : std::uint8_t {
  /** From the port into the switch. */
  kIn,
  /** From the switch to the port. */
  kOut,
};

/** A frame at the place where it is seen. */
struct SeenFrame {
  const Port &port;
  bool is_at_uplink;
  MirrorDirection direction;
  /** The one that the switch carries it in. */
  VlanId vlan;
  const Frame &frame;
  std::optional<IpPacket> packet;
};

/** What a session watches in one direction. */
struct MirrorSources {
  std::vector<PortId> ports;
  /** Of the stations that send the frames that come in, or get those that go out. */
  std::vector<VlanId> vlans{};
  std::vector<MacAddress> stations{};
  std::vector<IpAddress> addresses{};

  /** Whether frames are told by what they are, not only by their port. */
  bool HasContent() const { return !vlans.empty() || !stations.empty() || !addresses.empty(); }
};

struct MirrorDestination {
  enum class Kind : std::uint8_t {
    /** The first of `ports` that is at work: the one port, the uplink, or the members of a group. */
    kPorts,
    /** The network, in the VLAN `vlan`. */
    kVlan,
    /** The port behind which `station` is. */
    kStation,
    /** The collector at `address`. */
    kCollector,
    /** One that the type of the session has no way to. */
    kNone,
  };

  Kind kind;
  std::vector<PortId> ports{};
  VlanId vlan = 0;
  /** Of a collector: the one that takes its packets, which is every station where it is not known. */
  MacAddress station = kBroadcast;
  IpAddress address{};
};

struct MirrorSessionPlan {
  DVMirrorSession head;
  std::vector<MirrorRule> rules;
  /** Whether it watches uplinks, else the other ports. What names a port by itself counts wherever it is. */
  bool is_at_uplinks;
  MirrorSources in;
  MirrorSources out;
  std::vector<MirrorDestination> destinations;

  std::string_view id() const;
  bool Watches(const SeenFrame &seen) const;
  /** The VLAN that the session's copies travel in, by a tag around what they are. */
  std::optional<VlanId> carrier() const;
};

struct KESTREL_HOST_EXPORT MirrorPlan {
  /** Those that are at work. */
  std::vector<MirrorSessionPlan> sessions;
  /** The numbers of the sessions that watch a port for itself. */
  std::unordered_map<PortId, std::vector<std::size_t>> by_port;
  /** Of those that look into frames anywhere. */
  std::vector<std::size_t> by_content;
  /** The first port with a service of the host, which packets to collectors are sent from; ZEL_VSWITCH_INVALID_PORT_ID
      without one. */
  PortId service = ZEL_VSWITCH_INVALID_PORT_ID;
  /** Destinations whose client may not send, or gets nothing but copies. */
  std::vector<PortId> closed_in;
  std::vector<PortId> closed_out;
};

KESTREL_HOST_EXPORT MirrorPlan MirrorPlanOf(const SwitchConfig &config);

/** The plan for a configuration, made when it is first asked for and again when the configuration has changed. */
class KESTREL_HOST_EXPORT MirrorPlanCache {
 public:
  const MirrorPlan &For(const SwitchConfig &config) {
    if (config.revision() != revision_) Renew(config);
    return plan_;
  }

 private:
  void Renew(const SwitchConfig &config);

  MirrorPlan plan_;
  /** Of the configuration that the plan is for; none has 0. */
  std::uint64_t revision_ = 0;
};

}  // namespace kestrel::host
