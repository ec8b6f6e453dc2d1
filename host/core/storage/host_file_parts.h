/* What the parts of HostFileTables share: the statements, and what is written as a whole. */
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "host/core/storage/host_file_tables.h"

namespace kestrel::host {

struct HostFileTables::PartRevisions {
  std::uint64_t team = 0;
  std::uint64_t multicast = 0;
  std::uint64_t mirrors = 0;
};

struct HostFileTables::Statements {
  explicit Statements(Database &database) : db(database) {}

  Database &db;

  Statement put_number{db, "REPLACE INTO host VALUES (?, ?)"};
  Statement get_numbers{db, "SELECT name, value FROM host"};
  Statement put_host_part{db, "REPLACE INTO host_runtime VALUES (?, ?)"};
  Statement get_host_parts{db, "SELECT part, state FROM host_runtime"};
  Statement put_option{db, "REPLACE INTO runtime_options VALUES (?, ?)"};
  Statement get_options{db, "SELECT code, value FROM runtime_options"};
  Statement put_nic{db, "REPLACE INTO nics VALUES (?, ?, ?, ?, ?, ?)"};
  Statement remove_nic{db, "DELETE FROM nics WHERE name = ?"};
  Statement get_nics{db, "SELECT name, state FROM nics"};

  Statement put_switch{db, "REPLACE INTO switches VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"};
  Statement remove_switch{db, "DELETE FROM switches WHERE switch = ? AND config = ?"};
  Statement get_switches{
      db,
      "SELECT switch, id, portset, alias, class, version, max_ports, first_vlan, last_vlan, is_member"
      " FROM switches WHERE config = ? ORDER BY switch"};
  Statement put_port{db, "REPLACE INTO ports VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"};
  Statement remove_port{db, "DELETE FROM ports WHERE switch = ? AND id = ? AND config = ?"};
  Statement remove_ports{db, "DELETE FROM ports WHERE switch = ? AND config = ?"};
  Statement get_ports{db,
                      "SELECT id, name, external_id, uplink, client_state"
                      " FROM ports WHERE switch = ? AND config = ? ORDER BY id"};
  Statement put_lag{db, "REPLACE INTO lags VALUES (?, ?, ?, ?)"};
  Statement remove_lag{db, "DELETE FROM lags WHERE switch = ? AND id = ? AND config = ?"};
  Statement remove_lags{db, "DELETE FROM lags WHERE switch = ? AND config = ?"};
  Statement get_lags{db, "SELECT id, name FROM lags WHERE switch = ? AND config = ? ORDER BY id"};
  Statement put_member{db, "REPLACE INTO lag_members VALUES (?, ?, ?, ?, ?)"};
  Statement remove_members{db, "DELETE FROM lag_members WHERE switch = ? AND lag = ? AND config = ?"};
  Statement remove_all_members{db, "DELETE FROM lag_members WHERE switch = ? AND config = ?"};
  Statement get_members{db,
                        "SELECT uplink FROM lag_members WHERE switch = ? AND lag = ? AND config = ? ORDER BY place"};
  Statement put_property{db, "REPLACE INTO properties VALUES (?, ?, ?, ?, ?, ?, ?)"};
  Statement remove_property{
      db, "DELETE FROM properties WHERE switch = ? AND level = ? AND port = ? AND key = ? AND config = ?"};
  Statement remove_properties{db, "DELETE FROM properties WHERE switch = ? AND level = ? AND port = ? AND config = ?"};
  Statement remove_all_properties{db, "DELETE FROM properties WHERE switch = ? AND config = ?"};
  Statement get_properties{db, "SELECT level, port, key, type, value FROM properties WHERE switch = ? AND config = ?"};

  Statement put_address{db, "REPLACE INTO macs VALUES (?, ?, ?, ?, ?, ?, ?)"};
  Statement remove_address{db, "DELETE FROM macs WHERE switch = ? AND vlan = ? AND address = ?"};
  Statement remove_addresses{db, "DELETE FROM macs WHERE switch = ?"};
  Statement get_addresses{db, "SELECT vlan, address, kind, port, last_seen, moves FROM macs WHERE switch = ?"};
  Statement put_port_runtime{db, "REPLACE INTO port_runtime VALUES (?, ?, ?)"};
  Statement remove_port_runtime{db, "DELETE FROM port_runtime WHERE switch = ? AND port = ?"};
  Statement remove_port_runtimes{db, "DELETE FROM port_runtime WHERE switch = ?"};
  Statement get_port_runtimes{db, "SELECT port, state FROM port_runtime WHERE switch = ?"};
  Statement put_part{db, "REPLACE INTO switch_runtime VALUES (?, ?, ?)"};
  Statement remove_parts{db, "DELETE FROM switch_runtime WHERE switch = ?"};
  Statement get_parts{db, "SELECT part, state FROM switch_runtime WHERE switch = ?"};
};

template <typename Part>
std::uint64_t RevisionOf(const Part &part) {
  if constexpr (requires { part.revision(); }) {
    return part.revision();
  } else {
    return part.revision;
  }
}

/** Calls `visit(name, part, place of its revision)` for each part of a switch's runtime that is written as a whole. */
template <typename Runtime, typename Revisions, typename Visit>
void ForEachPart(Runtime &runtime, Revisions &revisions, Visit visit) {
  visit("team", runtime.team, revisions.team);
  visit("multicast", runtime.multicast, revisions.multicast);
  visit("mirrors", runtime.mirrors, revisions.mirrors);
}

/** Each key once. */
template <typename Key>
std::vector<Key> Distinct(std::vector<Key> keys) {
  std::ranges::sort(keys);
  const auto [first, last] = std::ranges::unique(keys);
  keys.erase(first, last);
  return keys;
}

}  // namespace kestrel::host
