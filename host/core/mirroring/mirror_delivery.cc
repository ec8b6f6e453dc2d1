#include "host/core/mirroring/mirror_delivery.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/core/base/fnv_hash.h"
#include "host/core/frames/ip_frames.h"
#include "host/core/frames/mac_address.h"
#include "host/core/mirroring/mirror_encapsulation.h"
#include "host/core/teaming/teaming.h"
#include "host/core/traffic/delivery.h"
#include "host/core/traffic/vlan_rules.h"

namespace kestrel::host {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Kind = MirrorDestination::Kind;

Bytes WithOuterTag(const Bytes &frame, const VlanTag &tag) { return BytesWithTagBefore(Frame(frame), tag); }

/** The outermost tag of a frame if it is the one that the switch goes by, rather than the client's own within it. */
std::optional<VlanTag> SwitchTagOf(const SeenFrame &seen) {
  const auto &tag = seen.frame.tag();
  return tag && (tag->vlan == seen.vlan || tag->vlan == 0) ? tag : std::nullopt;
}

/** Who sends the packets to collectors: the service of the host behind a port, else the switch itself. */
MacAddress SenderOf(const Switch &owner, const Port *service) {
  if (service != nullptr && service->client) return service->client->used_address();
  return AddressOfHash(FnvHash{}.Add(owner.config.spec().id).value());
}

/** The link-local address that a station gives itself, of the version of `peer`. */
IpAddress LinkLocalOf(const MacAddress &station, const IpAddress &peer) {
  if (IsIpV4(peer)) return IpV4(169, 254, static_cast<std::uint8_t>(1 + station[4] % 254), station[5]);
  const auto [a, b, c, d, e, f] = station;
  return {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(a ^ 0x02), b, c, 0xff, 0xfe, d, e, f}};
}

class Delivery {
 public:
  Delivery(const Host &host, Switch &owner, const MirrorPlan &plan, const MirrorSessionPlan &session,
           const MirrorOriginal &original, std::vector<MirrorCopy> &copies)
      : host_(host),
        owner_(owner),
        traffic_(PlanOf(host, owner)),
        plan_(plan),
        session_(session),
        original_(original),
        copies_(copies) {}

  MirrorOutcome To(const MirrorDestination &destination) {
    switch (destination.kind) {
      case Kind::kPorts:
        return ToPorts(destination.ports);
      case Kind::kVlan:
        return ToVlan(destination.vlan);
      case Kind::kStation: {
        const PortPlan *port = PortBehind(original_.seen.vlan, destination.station);
        return port == nullptr ? MirrorOutcome::kFailed : ToPorts({port->id});
      }
      case Kind::kCollector:
        return ToCollector(destination);
      case Kind::kNone:
        break;
    }
    return MirrorOutcome::kFailed;
  }

 private:
  /** The plan of a port that a frame can go to; null for another. */
  const PortPlan *OpenPort(PortId id) const {
    const PortPlan *port = traffic_.Find(id);
    return port != nullptr && IsOpen(host_, owner_, traffic_, *port) ? port : nullptr;
  }

  /** Null when the switch does not know where a station is. */
  const PortPlan *PortBehind(VlanId vlan, const MacAddress &station) const {
    const MacEntry *entry = owner_.runtime.macs.Find({traffic_.TableVlanOf(vlan), station});
    return entry == nullptr ? nullptr : traffic_.Find(entry->port);
  }

  /** The tag for frames of a VLAN that leave through a port; nothing when they leave without. */
  std::optional<VlanTag> TagIn(const PortPlan &port, VlanId vlan) const {
    return TagAt(port, {.tag = {.vlan = vlan}, .table_vlan = traffic_.TableVlanOf(vlan)});
  }

  MirrorOutcome ToPorts(const std::vector<PortId> &ports) {
    MirrorOutcome outcome = MirrorOutcome::kFailed;
    for (const PortId id : ports) {
      const PortPlan *port = OpenPort(id);
      if (port == nullptr) continue;
      if (!IsMeantFor(*port)) {
        outcome = MirrorOutcome::kNotMeant;
        continue;
      }
      copies_.push_back({id, CopyFor(*port)});
      return MirrorOutcome::kSent;
    }
    return outcome;
  }

  /** Nobody is sent the frame again that has just passed, except in a VLAN of the session's own. */
  bool IsMeantFor(const PortPlan &port) const {
    if (port.id == original_.seen.port.id && !session_.carrier()) return false;
    return !IsLegacy() || IsInVlan(traffic_, port, original_.seen.vlan);
  }

  bool IsLegacy() const { return (session_.head.flags & VS_DVMIRROR_FLAG_LEGACY) != 0; }

  Bytes CopyFor(const PortPlan &port) const {
    std::optional<VlanTag> tag;
    if (const auto carrier = session_.carrier()) {
      tag = VlanTag{.vlan = *carrier};
    } else if (IsLegacy() && !original_.keeps_tag) {
      tag = TagIn(port, original_.seen.vlan);
    }
    return tag ? WithOuterTag(original_.bytes, *tag) : original_.bytes;
  }

  MirrorOutcome ToVlan(VlanId vlan) {
    const PortPlan *uplink = UplinkFor(original_.seen.port, original_.seen.frame);
    if (uplink == nullptr) return MirrorOutcome::kFailed;
    copies_.push_back({uplink->id, WithOuterTag(original_.bytes, VlanTag{.vlan = vlan})});
    return MirrorOutcome::kSent;
  }

  MirrorOutcome ToCollector(const MirrorDestination &collector) {
    const Port *service = session_.head.stack != 0 ? nullptr : owner_.config.ports().Find(plan_.service);
    const VlanId service_vlan = service == nullptr ? VlanId{0} : VlanOf(*service).value_or(VlanPolicy{}).vlan;
    const VlanId vlan = session_.carrier().value_or(service_vlan);
    const MacAddress station = SenderOf(owner_, service);
    const IpPath path{.source = LinkLocalOf(station, collector.address),
                      .destination = collector.address,
                      .source_station = station,
                      .next_station = collector.station};
    const SeenFrame &seen = original_.seen;
    const MirrorLabel label{.sequence = original_.sequence,
                            .time = host_.clock().Now(),
                            .vlan = seen.vlan,
                            .keeps_tag = original_.keeps_tag,
                            .is_truncated = original_.is_truncated,
                            .is_out = seen.direction == MirrorDirection::kOut,
                            .port = seen.port.id};
    const auto frames = IpFrames(path, kProtocolGre, Encapsulated(session_.head, label, original_.bytes),
                                 original_.sequence, MtuOf(owner_.config));
    if (frames.empty()) return MirrorOutcome::kFailed;

    const PortPlan *way_out = PortBehind(vlan, collector.station);
    if (way_out == nullptr || way_out->is_uplink) {
      way_out = UplinkFor(service != nullptr ? *service : seen.port, Frame(frames.front()));
    }
    if (way_out == nullptr || OpenPort(way_out->id) == nullptr) return MirrorOutcome::kFailed;
    const auto tag = TagIn(*way_out, vlan);
    for (const Bytes &frame : frames) copies_.push_back({way_out->id, tag ? WithOuterTag(frame, *tag) : frame});
    return MirrorOutcome::kSent;
  }

  /** The uplink that carries a frame from a port to the network, which is the port itself if it is one; null when none
      can. */
  const PortPlan *UplinkFor(const Port &source, const Frame &frame) const {
    if (owner_.config.uplinks().Find(source.id) != nullptr) return OpenPort(source.id);
    const Uplink *uplink = ChooseUplink(host_, owner_, source, frame);
    return uplink == nullptr ? nullptr : OpenPort(uplink->id);
  }

  const Host &host_;
  Switch &owner_;
  const SwitchPlan &traffic_;
  const MirrorPlan &plan_;
  const MirrorSessionPlan &session_;
  const MirrorOriginal &original_;
  std::vector<MirrorCopy> &copies_;
};

}  // namespace

MirrorOriginal MirrorOriginalOf(const DVMirrorSession &session, const SeenFrame &seen, std::uint32_t sequence) {
  const auto switch_tag = SwitchTagOf(seen);
  const bool keeps_tag = (session.flags & VS_DVMIRROR_FLAG_DST_ORIG_VLAN) != 0 && seen.vlan != 0;
  VlanTag tag = switch_tag.value_or(VlanTag{});
  tag.vlan = seen.vlan;
  Bytes bytes(seen.frame.bytes().begin(), seen.frame.bytes().end());
  if (switch_tag) bytes = BytesWithTag(seen.frame, std::nullopt);
  if (keeps_tag) bytes = WithOuterTag(bytes, tag);

  // What is left is a frame still.
  const std::size_t whole_size = bytes.size();
  const std::size_t header_size = whole_size - Frame(bytes).payload().size();
  if (session.snapLen != 0) {
    bytes.resize(std::min(whole_size, std::max<std::size_t>(session.snapLen, header_size)));
  }
  const bool is_truncated = bytes.size() < whole_size;
  return {.seen = seen,
          .bytes = std::move(bytes),
          .keeps_tag = keeps_tag,
          .is_truncated = is_truncated,
          .sequence = sequence};
}

MirrorOutcome Deliver(const Host &host, Switch &owner, const MirrorPlan &plan, const MirrorSessionPlan &session,
                      const MirrorOriginal &original, const MirrorDestination &destination,
                      std::vector<MirrorCopy> &copies) {
  return Delivery(host, owner, plan, session, original, copies).To(destination);
}

}  // namespace kestrel::host
