#include "host/core/storage/host_file_tables.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/storage/host_file_parts.h"
#include "kestrel/constants.h"

namespace kestrel::host {

namespace {

/** Rows are kept in the order of their keys (WITHOUT ROWID), so that what belongs together is changed together: a
    change costs few pages. A column `state` holds a thing of the model as bytes that it can read back; the columns
   beside it are for people. */
constexpr char kSchema[] = R"sql(
CREATE TABLE host (name TEXT PRIMARY KEY, value INTEGER NOT NULL) STRICT, WITHOUT ROWID;
CREATE TABLE host_runtime (part TEXT PRIMARY KEY, state BLOB NOT NULL) STRICT, WITHOUT ROWID;
CREATE TABLE runtime_options (code INTEGER PRIMARY KEY, value ANY NOT NULL) STRICT;
CREATE TABLE nics (
  name TEXT PRIMARY KEY, link_state INTEGER NOT NULL, speed INTEGER NOT NULL, duplex INTEGER NOT NULL,
  is_enabled INTEGER NOT NULL, state BLOB NOT NULL) STRICT, WITHOUT ROWID;

CREATE TABLE switches (
  switch INTEGER NOT NULL, config TEXT NOT NULL CHECK (config IN ('saved', 'running')),
  id TEXT NOT NULL, portset TEXT NOT NULL, alias TEXT NOT NULL, class TEXT NOT NULL, version INTEGER NOT NULL,
  max_ports INTEGER NOT NULL, first_vlan INTEGER NOT NULL, last_vlan INTEGER NOT NULL, is_member INTEGER NOT NULL,
  PRIMARY KEY (switch, config)) STRICT, WITHOUT ROWID;
CREATE TABLE ports (
  switch INTEGER NOT NULL, id INTEGER NOT NULL, config TEXT NOT NULL,
  name TEXT NOT NULL, external_id TEXT NOT NULL, uplink TEXT,
  client_type INTEGER, client_name TEXT, client_state BLOB,
  PRIMARY KEY (switch, id, config)) STRICT, WITHOUT ROWID;
CREATE TABLE lags (
  switch INTEGER NOT NULL, id INTEGER NOT NULL, config TEXT NOT NULL, name TEXT NOT NULL,
  PRIMARY KEY (switch, id, config)) STRICT, WITHOUT ROWID;
CREATE TABLE lag_members (
  switch INTEGER NOT NULL, lag INTEGER NOT NULL, config TEXT NOT NULL, place INTEGER NOT NULL, uplink TEXT NOT NULL,
  PRIMARY KEY (switch, lag, config, place)) STRICT, WITHOUT ROWID;
CREATE TABLE properties (
  switch INTEGER NOT NULL, level TEXT NOT NULL CHECK (level IN ('switch', 'host', 'port', 'uplink')),
  port INTEGER NOT NULL, key TEXT NOT NULL, config TEXT NOT NULL, type INTEGER NOT NULL, value BLOB NOT NULL,
  PRIMARY KEY (switch, level, port, key, config)) STRICT, WITHOUT ROWID;

CREATE TABLE macs (
  switch INTEGER NOT NULL, vlan INTEGER NOT NULL, address BLOB NOT NULL,
  kind INTEGER NOT NULL, port INTEGER NOT NULL, last_seen INTEGER NOT NULL, moves INTEGER NOT NULL,
  PRIMARY KEY (switch, vlan, address)) STRICT, WITHOUT ROWID;
CREATE TABLE port_runtime (
  switch INTEGER NOT NULL, port INTEGER NOT NULL, state BLOB NOT NULL,
  PRIMARY KEY (switch, port)) STRICT, WITHOUT ROWID;
CREATE TABLE switch_runtime (
  switch INTEGER NOT NULL, part TEXT NOT NULL, state BLOB NOT NULL,
  PRIMARY KEY (switch, part)) STRICT, WITHOUT ROWID;
)sql";

constexpr std::array kTables{"host", "host_runtime", "runtime_options", "nics", "switches",     "ports",
                             "lags", "lag_members",  "properties",      "macs", "port_runtime", "switch_runtime"};

}  // namespace

HostFileTables::HostFileTables(Database &database)
    : statements_(std::make_unique<Statements>(database)), database_(database) {}

HostFileTables::~HostFileTables() = default;

void HostFileTables::Create() {
  database_.Execute(kSchema);
  database_.Execute(("PRAGMA application_id = " + std::to_string(kHostFileMark)).c_str());
  database_.Execute(("PRAGMA user_version = " + std::to_string(kHostFileVersion)).c_str());
}

// ---- Switches ----

void HostFileTables::RemoveSwitch(std::string_view id, Side side) {
  SwitchNumbers &numbers = SwitchNumbersOf(side);
  const auto found = numbers.find(id);
  if (found == numbers.end()) return;
  RemoveConfig(found->second, side);
  if (side == Side::kRunning) RemoveRuntime(found->second);
  numbers.erase(found);
}

template <typename Item>
void HostFileTables::WriteSwitch(Item &item, Side side) {
  SwitchConfig &config = item.config;
  if (item.number == 0) throw FatalError("switch " + config.spec().id + " has no number");
  std::uint64_t &number = SwitchNumbersOf(side)[config.spec().id];
  const bool is_new = number != item.number || !config.changes().is_enabled();
  if (is_new && number != 0) {
    RemoveConfig(number, side);
    if (side == Side::kRunning) RemoveRuntime(number);
  }
  number = item.number;

  const auto changes = config.changes().Take();
  if (is_new || changes.all) {
    WriteConfig(config, number, side);
  } else {
    for (const ConfigPart &part : changes.keys) WritePart(config, part, number, side);
  }
  config.changes().Enable();
  if constexpr (requires { item.runtime; }) {
    WriteRuntime(item, is_new);
    item.runtime.macs.changes().Enable();
    item.runtime.ports.changes().Enable();
  }
}

template <typename Item>
void HostFileTables::WriteSwitches(SwitchSet<Item> &switches, Side side) {
  auto changes = switches.changes().Take();
  if (changes.all) {
    changes.keys.clear();
    for (const auto &[id, number] : SwitchNumbersOf(side)) changes.keys.push_back(id);
    for (const Item &item : std::as_const(switches).Items()) changes.keys.push_back(item.config.spec().id);
  }
  for (const std::string &id : Distinct(std::move(changes.keys))) {
    const Item *item = std::as_const(switches).FindById(id);
    if (item == nullptr) {
      RemoveSwitch(id, side);
    } else {
      // Writing a switch down is no change of it, which the set would note.
      WriteSwitch(const_cast<Item &>(*item), side);
    }
  }
}

template <typename Item>
void HostFileTables::ReadSwitches(SwitchSet<Item> &switches, Side side) {
  Statement &rows = statements_->get_switches;
  SwitchNumbers &numbers = SwitchNumbersOf(side);
  rows.Begin(NameOf(side));
  while (rows.Next()) {
    const auto number = rows.Get<std::uint64_t>(0);
    if (number == 0) throw StatusError(ZEL_INVALID_METADATA);
    SwitchSpec spec{.id = rows.Text(1),
                    .portset = rows.Text(2),
                    .alias = rows.Text(3),
                    .max_ports = rows.Get<std::uint32_t>(6),
                    .class_name = rows.Text(4),
                    .version = rows.Get<std::uint32_t>(5),
                    .vlans = {rows.Get<VlanId>(7), rows.Get<VlanId>(8)},
                    .is_member = rows.Get<int>(9) != 0};
    Item item{.config = SwitchConfig(std::move(spec)), .number = number};
    ReadConfig(item.config, number, side);
    if constexpr (requires { item.runtime; }) ReadRuntime(item.runtime, number);
    Item &added = switches.Add(std::move(item));
    numbers[added.config.spec().id] = number;
    added.config.changes().Enable();
    if constexpr (requires { added.runtime; }) {
      added.runtime.macs.changes().Enable();
      added.runtime.ports.changes().Enable();
      ForEachPart(
          added.runtime, revisions_[number],
          [](const char * /*name*/, const auto &part, std::uint64_t &revision) { revision = RevisionOf(part); });
    }
  }
}

// ---- The file as a whole ----

bool HostFileTables::HasChanges(const Switch &running) const {
  const auto revisions = revisions_.find(running.number);
  if (revisions == revisions_.end()) return true;
  bool is_changed =
      !running.runtime.macs.changes().Pending().empty() || !running.runtime.ports.changes().Pending().empty();
  ForEachPart(running.runtime, revisions->second, [&](const char * /*name*/, const auto &part, std::uint64_t revision) {
    is_changed = is_changed || revision != RevisionOf(part);
  });
  return is_changed;
}

template <typename Item>
bool HostFileTables::HasChanges(const SwitchSet<Item> &switches) const {
  const auto &changes = switches.changes().Pending();
  return changes.all || std::ranges::any_of(changes.keys, [&](const std::string &id) {
           const Item *item = switches.FindById(id);
           if (item == nullptr || !item->config.changes().is_enabled()) return true;
           if (!item->config.changes().Pending().empty()) return true;
           if constexpr (requires { item->runtime; }) return HasChanges(*item);
           return false;
         });
}

bool HostFileTables::HasChanges(const Host &host) const {
  return NumbersOf(host) != numbers_ || host.options_ != options_ || host.nics_.Items() != nics_.Items() ||
         host.datapath_ != datapath_ || HasChanges(host.store_.switches()) || HasChanges(host.switches_);
}

void HostFileTables::Write(Host &host) {
  WriteHost(host);
  WriteSwitches(host.store_.switches(), Side::kSaved);
  WriteSwitches(host.switches_, Side::kRunning);
}

void HostFileTables::WriteAll(Host &host) {
  for (const char *table : kTables) database_.Execute((std::string("DELETE FROM ") + table).c_str());
  Forget();
  host.store_.switches().changes().Enable();
  host.store_.switches().changes().NoteAll();
  host.switches_.changes().Enable();
  host.switches_.changes().NoteAll();
  Write(host);
}

void HostFileTables::Read(Host &host) {
  Forget();
  Host loaded;
  try {
    ReadHost(loaded);
    ReadSwitches(loaded.store_.switches(), Side::kSaved);
    ReadSwitches(loaded.switches_, Side::kRunning);
    for (const Switch &running : std::as_const(loaded).Switches()) {
      if (loaded.store_.FindById(running.config.spec().id) == nullptr) throw StatusError(ZEL_INVALID_METADATA);
    }
  } catch (const StorageError &) {
    throw;
  } catch (const StatusError &) {
    // What the model refuses was never written.
    throw StatusError(ZEL_INVALID_METADATA);
  }
  // What this process has seen pass is its own.
  loaded.captures_ = std::move(host.captures_);
  numbers_ = NumbersOf(loaded);
  nics_ = loaded.nics_;
  options_ = loaded.options_;
  datapath_ = loaded.datapath_;
  host = std::move(loaded);
  host.store_.switches().changes().Enable();
  host.store_.switches().changes().Take();
  host.switches_.changes().Enable();
  host.switches_.changes().Take();
}

void HostFileTables::Forget() {
  numbers_.clear();
  nics_ = {};
  options_ = {};
  datapath_ = {};
  revisions_.clear();
  saved_numbers_.clear();
  running_numbers_.clear();
}

}  // namespace kestrel::host
