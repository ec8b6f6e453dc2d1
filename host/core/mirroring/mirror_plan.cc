#include "host/core/mirroring/mirror_plan.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "host/core/base/record_bytes.h"
#include "host/core/mirroring/mirror_address.h"

namespace kestrel::host {
namespace {

using Kind = MirrorDestination::Kind;

/** The kinds of destination that a type of session has a way to. */
bool Serves(DVMirrorSessionType type, Kind kind) {
  switch (type) {
    case VS_DVMIRROR_SESSIONTYPE_MIXDST:
      return true;
    case VS_DVMIRROR_SESSIONTYPE_DVPORT:
    case VS_DVMIRROR_SESSIONTYPE_RMIRROR_DST:
    case VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT:
      return kind == Kind::kPorts || kind == Kind::kStation;
    case VS_DVMIRROR_SESSIONTYPE_RMIRROR_SRC:
      return kind == Kind::kPorts || kind == Kind::kVlan;
    case VS_DVMIRROR_SESSIONTYPE_ERMIRROR_SRC:
      return kind == Kind::kCollector;
  }
  return false;
}

bool IsUplink(const SwitchConfig &config, PortId port) { return config.uplinks().Find(port) != nullptr; }

/** The port of a distributed-port id, or, for a session over another controller's ports, of that controller's name for
    it. */
std::vector<PortId> PortsNamed(const SwitchConfig &config, std::string_view name, bool is_logical) {
  if (is_logical) {
    for (const Port &port : config.ports().Items()) {
      if (port.external_id == name) return {port.id};
    }
  }
  const Port *port = config.ports().FindNamed(name);
  return port == nullptr ? std::vector<PortId>{} : std::vector{port->id};
}

/** The uplink of that name, the one with the NIC of that name, or the members of the group of that name. */
std::vector<PortId> UplinksNamed(const SwitchConfig &config, std::string_view name) {
  if (const Uplink *uplink = config.uplinks().FindNamed(name)) return {uplink->id};
  if (const Uplink *uplink = config.UplinkOfNic(name)) return {uplink->id};
  std::vector<PortId> members;
  if (const Lag *lag = config.lags().FindNamed(name)) {
    for (const std::string &member : lag->members) {
      if (const Uplink *uplink = config.uplinks().FindNamed(member)) members.push_back(uplink->id);
    }
  }
  return members;
}

/** The ports that an entity names; none for an entity of another kind. */
std::vector<PortId> PortsOf(const SwitchConfig &config, const DVMirrorEntity &entity, bool is_logical) {
  switch (entity.type) {
    case MIRROR_ENTTYPE_DVPORT:
      return PortsNamed(config, TextOf(entity.dvPortId), is_logical);
    case MIRROR_ENTTYPE_UPLINK:
      return UplinksNamed(config, TextOf(entity.uplink.string));
    case MIRROR_ENTTYPE_PORT:
      if (config.ports().Find(entity.portId) != nullptr) return {entity.portId};
      return {};
    default:
      return {};
  }
}

MacAddress StationOf(const DVMirrorEntity &entity) {
  MacAddress station;
  std::ranges::copy(entity.mac, station.begin());
  return station;
}

/** Whether a client's class is one of VS_DVMIRROR_WILDCARD_*; no client is a console or a test. */
bool IsInWildcard(const Client &client, std::uint16_t wildcard) {
  switch (client.type) {
    case VS_PORT_CLIENT_VNIC:
      return (wildcard & VS_DVMIRROR_WILDCARD_VMM) != 0;
    case VS_PORT_CLIENT_UPLINK:
      return (wildcard & VS_DVMIRROR_WILDCARD_PNIC) != 0;
    case VS_PORT_CLIENT_TCPIP:
      return (wildcard & VS_DVMIRROR_WILDCARD_TCPIP) != 0;
    default:
      return false;
  }
}

MirrorSources SourcesOf(const SwitchConfig &config, std::span<const DVMirrorEntity> entities, std::uint16_t wildcard,
                        bool is_logical) {
  MirrorSources sources;
  for (const DVMirrorEntity &entity : entities) {
    std::ranges::copy(PortsOf(config, entity, is_logical), std::back_inserter(sources.ports));
    if (entity.type == MIRROR_ENTTYPE_VLAN) sources.vlans.push_back(entity.vlan);
    if (entity.type == MIRROR_ENTTYPE_MAC) sources.stations.push_back(StationOf(entity));
    if (entity.type == MIRROR_ENTTYPE_IP) sources.addresses.push_back(AddressOf(entity.ip));
  }
  if (wildcard != 0) {
    for (const Port &port : config.ports().Items()) {
      if (port.client && IsInWildcard(*port.client, wildcard)) sources.ports.push_back(port.id);
    }
  }
  std::ranges::sort(sources.ports);
  return sources;
}

/** What a session that names no sources watches, in both directions: the uplinks, or the port that it belongs to. */
MirrorSources OwnSources(const SwitchConfig &config, const Port *port, bool is_at_uplinks) {
  MirrorSources sources;
  if (is_at_uplinks) {
    for (const Uplink &uplink : config.uplinks().Items()) sources.ports.push_back(uplink.id);
  } else if (port != nullptr) {
    sources.ports.push_back(port->id);
  }
  return sources;
}

MirrorDestination DestinationOf(const SwitchConfig &config, const DVMirrorEntity &entity, bool is_logical) {
  switch (entity.type) {
    case MIRROR_ENTTYPE_VLAN:
      return {.kind = Kind::kVlan, .vlan = entity.vlan};
    case MIRROR_ENTTYPE_MAC:
      return {.kind = Kind::kStation, .station = StationOf(entity)};
    case MIRROR_ENTTYPE_IP:
      return {.kind = Kind::kCollector, .address = AddressOf(entity.ip)};
    default:
      return {.kind = Kind::kPorts, .ports = PortsOf(config, entity, is_logical)};
  }
}

std::vector<MirrorDestination> DestinationsOf(const SwitchConfig &config, std::span<const DVMirrorEntity> entities,
                                              DVMirrorSessionType type) {
  std::vector<MirrorDestination> destinations;
  for (const DVMirrorEntity &entity : entities) {
    MirrorDestination destination = DestinationOf(config, entity, type == VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT);
    const bool is_behind_collector = !destinations.empty() && destinations.back().kind == Kind::kCollector;
    if (destination.kind == Kind::kStation && is_behind_collector && destinations.back().station == kBroadcast) {
      destinations.back().station = destination.station;
      continue;
    }
    if (!Serves(type, destination.kind)) destination = {.kind = Kind::kNone};
    destinations.push_back(std::move(destination));
  }
  return destinations;
}

MirrorSessionPlan SessionPlanOf(const SwitchConfig &config, const MirrorSession &session, const Port *port) {
  const DVMirrorSession &head = session.head;
  const bool is_logical = head.type == VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT;
  // What another switch mirrors comes in from the network.
  const bool is_at_uplinks = port == nullptr || (head.flags & VS_DVMIRROR_FLAG_SRC_UPLINK_MIRROR) != 0 ||
                             head.type == VS_DVMIRROR_SESSIONTYPE_RMIRROR_DST;
  const std::span<const DVMirrorEntity> entities(session.entities);
  const auto sources = entities.subspan(head.numDstEntities);
  MirrorSessionPlan plan{.head = head,
                         .rules = session.rules,
                         .is_at_uplinks = is_at_uplinks,
                         .in = SourcesOf(config, sources.first(head.numSrcInEntities), head.wildIn, is_logical),
                         .out = SourcesOf(config, sources.subspan(head.numSrcInEntities), head.wildOut, is_logical),
                         .destinations = DestinationsOf(config, entities.first(head.numDstEntities), head.type)};
  if (sources.empty() && head.wildIn == 0 && head.wildOut == 0) {
    if (head.type == VS_DVMIRROR_SESSIONTYPE_RMIRROR_DST) {
      plan.in.vlans = {head.encapVlan};
    } else {
      plan.in = plan.out = OwnSources(config, port, is_at_uplinks);
    }
  }
  return plan;
}

void NoteSources(MirrorPlan &plan) {
  for (std::size_t number = 0; number < plan.sessions.size(); ++number) {
    const MirrorSessionPlan &session = plan.sessions[number];
    if (session.in.HasContent() || session.out.HasContent()) {
      plan.by_content.push_back(number);
      continue;
    }
    for (const MirrorSources *sources : {&session.in, &session.out}) {
      for (const PortId port : sources->ports) {
        std::vector<std::size_t> &numbers = plan.by_port[port];
        if (numbers.empty() || numbers.back() != number) numbers.push_back(number);
      }
    }
  }
}

void NoteClosedPorts(const SwitchConfig &config, MirrorPlan &plan) {
  for (const MirrorSessionPlan &session : plan.sessions) {
    for (const MirrorDestination &destination : session.destinations) {
      for (const PortId port : destination.ports) {
        // An uplink serves the whole switch.
        if (IsUplink(config, port)) continue;
        if ((session.head.flags & VS_DVMIRROR_FLAG_DST_NO_INPUT) != 0) plan.closed_in.push_back(port);
        if ((session.head.flags & VS_DVMIRROR_FLAG_DST_NO_OUTPUT) != 0) plan.closed_out.push_back(port);
      }
    }
  }
  std::ranges::sort(plan.closed_in);
  std::ranges::sort(plan.closed_out);
}

PortId ServicePort(const SwitchConfig &config) {
  for (const Port &port : config.ports().Items()) {
    if (port.client && port.client->type == VS_PORT_CLIENT_TCPIP) return port.id;
  }
  return ZEL_VSWITCH_INVALID_PORT_ID;
}

template <typename Value>
bool IsAmong(const std::vector<Value> &values, const Value &value) {
  return std::ranges::find(values, value) != values.end();
}

}  // namespace

std::string_view MirrorSessionPlan::id() const { return TextOf(head.sid); }

bool MirrorSessionPlan::Watches(const SeenFrame &seen) const {
  const bool is_in = seen.direction == MirrorDirection::kIn;
  const MirrorSources &sources = is_in ? in : out;
  if (std::ranges::binary_search(sources.ports, seen.port.id)) return true;
  if (seen.is_at_uplink != is_at_uplinks) return false;
  const MacAddress &station = is_in ? seen.frame.source() : seen.frame.destination();
  if (IsAmong(sources.vlans, seen.vlan) || IsAmong(sources.stations, station)) return true;
  return seen.packet && IsAmong(sources.addresses, is_in ? seen.packet->source : seen.packet->destination);
}

std::optional<VlanId> MirrorSessionPlan::carrier() const {
  const bool has_carrier =
      (head.flags & VS_DVMIRROR_FLAG_DST_ENCAP) != 0 || head.type == VS_DVMIRROR_SESSIONTYPE_RMIRROR_SRC;
  return has_carrier && head.encapVlan != 0 ? std::optional(head.encapVlan) : std::nullopt;
}

MirrorPlan MirrorPlanOf(const SwitchConfig &config) {
  MirrorPlan plan;
  ForEachMirrorTable(config, [&](std::string_view packed, const Port *port) {
    for (const MirrorSession &session : MirrorTableOf(packed).sessions) {
      if ((session.head.flags & VS_DVMIRROR_FLAG_DISABLED) != 0) continue;
      plan.sessions.push_back(SessionPlanOf(config, session, port));
    }
  });
  if (!plan.sessions.empty()) plan.service = ServicePort(config);
  NoteSources(plan);
  NoteClosedPorts(config, plan);
  return plan;
}

void MirrorPlanCache::Renew(const SwitchConfig &config) {
  plan_ = MirrorPlanOf(config);
  revision_ = config.revision();
}

}  // namespace kestrel::host
