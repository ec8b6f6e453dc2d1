#include "host/core/teaming/team_runtime.h"

#include "host/core/base/kept_values.h"

namespace kestrel::host {

template <Is<LacpEnd> End, typename Visit>
void VisitMembers(End &end, Visit visit) {
  visit(end.system_priority);
  visit(end.system);
  visit(end.key);
  visit(end.port_priority);
  visit(end.port);
  visit(end.state);
}

template <Is<UplinkRuntime> Runtime, typename Visit>
void VisitMembers(Runtime &uplink, Visit visit) {
  visit(uplink.used_from);
  visit(uplink.lacp_partner);
  visit(uplink.lacp_heard_until);
  visit(uplink.lacp_due);
  visit(uplink.beacon_heard);
  visit(uplink.is_beacon_lost);
}

template <Is<MacKey> Key, typename Visit>
void VisitMembers(Key &key, Visit visit) {
  visit(key.vlan);
  visit(key.address);
}

template <Is<Announcement> Sent, typename Visit>
void VisitMembers(Sent &announcement, Visit visit) {
  visit(announcement.port);
  visit(announcement.table_vlan);
  visit(announcement.due);
  visit(announcement.gap);
  visit(announcement.until);
  visit(announcement.was_sent);
}

template <Is<TeamState> State, typename Visit>
void VisitMembers(State &state, Visit visit) {
  visit(state.uplinks);
  visit(state.held);
  auto &announcements = state.announcements;
  visit(announcements.waiting);
  visit(announcements.interval_start);
  visit(announcements.sent_in_interval);
  visit(announcements.round_start);
  visit(announcements.sent);
  visit(announcements.longest_round);
  visit(announcements.all_rounds);
  auto &load = state.load;
  visit(load.window_start);
  visit(load.of_ports);
  visit(load.of_uplinks);
  visit(load.placements);
  auto &services = state.services;
  visit(services.sent);
  visit(services.by_service_policy);
  visit(services.by_source_policy);
  visit(services.errors);
  visit(services.received);
  visit(services.overrides);
  visit(state.beacon_due);
  visit(state.beacon_number);
  visit(state.client_nodes);
  visit(state.uplink_nodes);
}

void TeamRuntime::ForgetPort(PortId port) noexcept {
  TeamState &state = ChangeChoices();
  state.uplinks.erase(port);
  state.uplink_nodes.erase(port);
  state.client_nodes.erase(port);
  state.load.of_ports.erase(port);
  state.load.of_uplinks.erase(port);
  state.load.placements.erase(port);
  std::erase_if(state.announcements.waiting, [port](const auto &waiting) { return waiting.second.port == port; });
}

std::string TeamRuntime::Save() const {
  ByteWriter writer;
  Put(writer, state_);
  return writer.Take();
}

TeamRuntime TeamRuntime::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  TeamRuntime loaded;
  Get(reader, loaded.state_);
  reader.RequireEnd();
  return loaded;
}

}  // namespace kestrel::host
