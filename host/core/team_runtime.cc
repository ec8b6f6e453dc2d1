#include "host/core/team_runtime.h"

#include <iterator>

#include "host/core/team_bytes.h"

namespace kestrel::host {
namespace {

void Put(ByteWriter &writer, std::uint32_t number) { writer.Put(number); }
void Put(ByteWriter &writer, std::uint64_t number) { writer.Put(number); }
void Put(ByteWriter &writer, const std::string &text) { writer.PutText(text); }
void Put(ByteWriter &writer, const std::vector<std::uint8_t> &bytes) {
  writer.PutText({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

void Put(ByteWriter &writer, const LacpEnd &end) {
  writer.Put(end.system_priority);
  Put(writer, end.system);
  writer.Put(end.key);
  writer.Put(end.port_priority);
  writer.Put(end.port);
  writer.Put(end.state);
}

template <typename Value>
void Put(ByteWriter &writer, const std::optional<Value> &value) {
  Put(writer, value.has_value());
  if (value) Put(writer, *value);
}

void Put(ByteWriter &writer, const UplinkRuntime &uplink) {
  Put(writer, uplink.used_from);
  Put(writer, uplink.lacp_partner);
  Put(writer, uplink.lacp_heard_until);
  Put(writer, uplink.lacp_due);
  Put(writer, uplink.beacon_heard);
  Put(writer, uplink.is_beacon_lost);
}

void Put(ByteWriter &writer, const MacKey &key) {
  writer.Put(key.vlan);
  Put(writer, key.address);
}

void Put(ByteWriter &writer, const Announcement &announcement) {
  writer.Put(announcement.port);
  writer.Put(announcement.table_vlan);
  Put(writer, announcement.due);
  Put(writer, announcement.gap);
  Put(writer, announcement.until);
  Put(writer, announcement.was_sent);
}

template <typename Key, typename Value>
void Put(ByteWriter &writer, const std::map<Key, Value> &map) {
  writer.Put(static_cast<std::uint32_t>(map.size()));
  for (const auto &[key, value] : map) {
    Put(writer, key);
    Put(writer, value);
  }
}

template <typename Number>
  requires std::unsigned_integral<Number>
void Get(ByteReader &reader, Number &number) {
  number = reader.Get<Number>();
}
void Get(ByteReader &reader, bool &flag) { flag = GetFlag(reader); }
void Get(ByteReader &reader, Duration &time) { time = GetTime(reader); }
void Get(ByteReader &reader, MacAddress &address) { address = GetAddress(reader); }
void Get(ByteReader &reader, std::string &text) { text = reader.GetText(); }
void Get(ByteReader &reader, std::vector<std::uint8_t> &bytes) {
  const std::string_view text = reader.GetText();
  bytes.assign(text.begin(), text.end());
}

void Get(ByteReader &reader, LacpEnd &end) {
  Get(reader, end.system_priority);
  Get(reader, end.system);
  Get(reader, end.key);
  Get(reader, end.port_priority);
  Get(reader, end.port);
  Get(reader, end.state);
}

template <typename Value>
void Get(ByteReader &reader, std::optional<Value> &value) {
  if (!GetFlag(reader)) return;
  Get(reader, value.emplace());
}

void Get(ByteReader &reader, UplinkRuntime &uplink) {
  Get(reader, uplink.used_from);
  Get(reader, uplink.lacp_partner);
  Get(reader, uplink.lacp_heard_until);
  Get(reader, uplink.lacp_due);
  Get(reader, uplink.beacon_heard);
  Get(reader, uplink.is_beacon_lost);
}

void Get(ByteReader &reader, MacKey &key) {
  Get(reader, key.vlan);
  Get(reader, key.address);
}

void Get(ByteReader &reader, Announcement &announcement) {
  Get(reader, announcement.port);
  Get(reader, announcement.table_vlan);
  Get(reader, announcement.due);
  Get(reader, announcement.gap);
  Get(reader, announcement.until);
  Get(reader, announcement.was_sent);
}

template <typename Key, typename Value>
void Get(ByteReader &reader, std::map<Key, Value> &map) {
  for (auto count = reader.Get<std::uint32_t>(); count > 0; --count) {
    Key key{};
    Get(reader, key);
    // In order and once each, as they were written.
    if (!map.empty() && key <= std::prev(map.end())->first) throw StatusError(ZEL_INVALID_METADATA);
    Get(reader, map[key]);
  }
}

/** Calls `visit(member)` for each part of a state, in the order in which it is kept. */
template <typename State, typename Visit>
void VisitParts(State &state, Visit visit) {
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

}  // namespace

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
  VisitParts(state_, [&writer](const auto &part) { Put(writer, part); });
  return writer.Take();
}

TeamRuntime TeamRuntime::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  TeamRuntime loaded;
  VisitParts(loaded.state_, [&reader](auto &part) { Get(reader, part); });
  reader.RequireEnd();
  return loaded;
}

}  // namespace kestrel::host
