#include "host/core/storage/host_file_tables.h"

#include <algorithm>
#include <array>
#include <type_traits>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/record_bytes.h"
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

constexpr std::string_view kDatapathPart = "datapath";

constexpr std::array kTables{"host", "host_runtime", "runtime_options", "nics", "switches",     "ports",
                             "lags", "lag_members",  "properties",      "macs", "port_runtime", "switch_runtime"};

constexpr std::array<std::string_view, 4> kLevelNames{"switch", "host", "port", "uplink"};

std::string_view NameOf(PropertyLevel level) { return kLevelNames.at(static_cast<std::size_t>(level)); }

PropertyLevel LevelOf(std::string_view name) {
  const auto found = std::ranges::find(kLevelNames, name);
  if (found == kLevelNames.end()) throw StatusError(ZEL_INVALID_METADATA);
  return static_cast<PropertyLevel>(found - kLevelNames.begin());
}

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

std::string_view BytesOfAddress(const MacAddress &address) {
  return {reinterpret_cast<const char *>(address.data()), address.size()};
}

/** The value of one runtime option, out of the packed list of it alone. */
std::string OptionValue(const RuntimeOptions &options, std::uint16_t code) {
  return options.Pack({&code, 1}).substr(sizeof(VSRuntimeOptions) + sizeof(VSRuntimeOptionHeader));
}

std::string PackedOption(std::uint16_t code, std::string_view value) {
  VSRuntimeOptionHeader head{};
  head.type = code;
  head.length = static_cast<zel_uint16>(sizeof head + value.size());
  const VSRuntimeOptions list{.totalLength = static_cast<zel_uint32>(sizeof(VSRuntimeOptions) + head.length)};
  return BytesOf(list) + BytesOf(head) + std::string(value);
}

constexpr bool IsNumberOption(std::uint16_t code) { return code < NUM_RUNTIME_INT_OPTIONS; }

}  // namespace

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

HostFileTables::HostFileTables(Database &database)
    : statements_(std::make_unique<Statements>(database)), database_(database) {}

HostFileTables::~HostFileTables() = default;

void HostFileTables::Create() {
  database_.Execute(kSchema);
  database_.Execute(("PRAGMA application_id = " + std::to_string(kHostFileMark)).c_str());
  database_.Execute(("PRAGMA user_version = " + std::to_string(kHostFileVersion)).c_str());
}

// ---- The host itself ----

namespace {

template <typename Number>
Number In(std::int64_t value) {
  if (!std::in_range<Number>(value)) throw StatusError(ZEL_INVALID_METADATA);
  return static_cast<Number>(value);
}

}  // namespace

const std::vector<HostFileTables::NumberRow> &HostFileTables::NumberRows() {
  static const std::vector<NumberRow> rows{
      {"time_ns", [](const Host &host) -> std::int64_t { return host.clock_.Now().count(); },
       [](Host &host, std::int64_t value) {
         host.clock_ = VirtualClock();
         host.clock_.Advance(Duration(value));
       }},
      {"next_port", [](const Host &host) -> std::int64_t { return host.next_port_id_; },
       [](Host &host, std::int64_t value) { host.next_port_id_ = In<PortId>(value); }},
      {"next_switch", [](const Host &host) { return static_cast<std::int64_t>(host.next_switch_number_); },
       [](Host &host, std::int64_t value) { host.next_switch_number_ = static_cast<std::uint64_t>(value); }},
      {"mac_ageing_s", [](const Host &host) -> std::int64_t { return host.mac_learning_.agingTime; },
       [](Host &host, std::int64_t value) { host.mac_learning_.agingTime = In<zel_uint32>(value); }},
      {"mac_limit", [](const Host &host) -> std::int64_t { return host.mac_learning_.macLimit; },
       [](Host &host, std::int64_t value) { host.mac_learning_.macLimit = In<zel_uint32>(value); }},
      {"mac_learn_static", [](const Host &host) -> std::int64_t { return host.mac_learning_.learnStatic; },
       [](Host &host, std::int64_t value) { host.mac_learning_.learnStatic = static_cast<zel_Bool>(value != 0); }},
      {"mac_allow_static", [](const Host &host) -> std::int64_t { return host.mac_learning_.staticMACAllow; },
       [](Host &host, std::int64_t value) { host.mac_learning_.staticMACAllow = static_cast<zel_Bool>(value != 0); }},
  };
  return rows;
}

std::vector<std::int64_t> HostFileTables::NumbersOf(const Host &host) {
  std::vector<std::int64_t> numbers;
  for (const NumberRow &row : NumberRows()) numbers.push_back(row.get(host));
  return numbers;
}

void HostFileTables::WriteHost(const Host &host) {
  const std::vector<std::int64_t> numbers = NumbersOf(host);
  const bool is_new = numbers_.empty();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (is_new || numbers_[i] != numbers[i]) statements_->put_number.Run(NumberRows()[i].name, numbers[i]);
  }
  numbers_ = numbers;

  if (is_new || host.options_ != options_) {
    for (std::uint16_t code = 0; code < VS_NUM_RT_OPT; ++code) {
      const std::string value = OptionValue(host.options_, code);
      if (IsNumberOption(code)) {
        statements_->put_option.Run(code, RecordOf<std::uint32_t>(value));
      } else {
        statements_->put_option.Run(code, TextOf(std::string_view(value)));
      }
    }
    options_ = host.options_;
  }

  if (host.datapath_ != datapath_) {
    const std::string state = host.datapath_.Save();
    statements_->put_host_part.Run(kDatapathPart, Blob{state});
    datapath_ = host.datapath_;
  }

  if (host.nics_.Items() == nics_.Items()) return;
  for (const auto &[name, nic] : nics_.Items()) {
    if (!host.nics_.Items().contains(name)) statements_->remove_nic.Run(name);
  }
  for (const auto &[name, nic] : host.nics_.Items()) {
    const auto former = nics_.Items().find(name);
    if (former != nics_.Items().end() && former->second == nic) continue;
    const std::string state = nic.Save();
    statements_->put_nic.Run(name, static_cast<int>(nic.link.state), nic.link.speed, static_cast<int>(nic.link.duplex),
                             nic.is_enabled, Blob{state});
  }
  nics_ = host.nics_;
}

void HostFileTables::ReadHost(Host &host) {
  Statement &numbers = statements_->get_numbers;
  std::vector<bool> is_set(NumberRows().size());
  numbers.Begin();
  while (numbers.Next()) {
    const auto row = std::ranges::find(NumberRows(), numbers.Bytes(0), &NumberRow::name);
    if (row == NumberRows().end()) throw StatusError(ZEL_INVALID_METADATA);
    row->set(host, numbers.Get<std::int64_t>(1));
    is_set[static_cast<std::size_t>(row - NumberRows().begin())] = true;
  }
  if (std::ranges::find(is_set, false) != is_set.end()) throw StatusError(ZEL_INVALID_METADATA);

  Statement &options = statements_->get_options;
  options.Begin();
  while (options.Next()) {
    const auto code = options.Get<std::uint16_t>(0);
    const std::string value =
        IsNumberOption(code) ? BytesOf(options.Get<std::uint32_t>(1)) : options.Text(1) + std::string(1, '\0');
    host.options_.Apply(PackedOption(code, value));
  }

  Statement &parts = statements_->get_host_parts;
  parts.Begin();
  while (parts.Next()) {
    if (parts.Bytes(0) == kDatapathPart) host.datapath_ = EnhancedDatapath::Load(parts.Bytes(1));
  }

  Statement &nics = statements_->get_nics;
  nics.Begin();
  while (nics.Next()) {
    host.nics_.Add(nics.Text(0), Nic::Load(nics.Bytes(1)));
  }
}

// ---- Configurations ----

void HostFileTables::WriteSpec(const SwitchSpec &spec, std::uint64_t number, Side side) {
  statements_->put_switch.Run(number, NameOf(side), spec.id, spec.portset, spec.alias, spec.class_name, spec.version,
                              spec.max_ports, spec.vlans.first, spec.vlans.last, spec.is_member ? 1 : 0);
}

void HostFileTables::WritePort(const SwitchConfig &config, const Port &port, std::uint64_t number, Side side) {
  const Uplink *uplink = config.uplinks().Find(port.id);
  // Null, where there is nothing, is another type than what there else is.
  const auto put = [&](const auto &uplink_name, const auto &...client) {
    statements_->put_port.Run(number, port.id, NameOf(side), port.name, port.external_id, uplink_name, client...);
  };
  const auto with_client = [&](const auto &uplink_name) {
    if (!port.client) return put(uplink_name, nullptr, nullptr, nullptr);
    const std::string state = port.client->Save();
    put(uplink_name, static_cast<int>(port.client->type), port.client->name, Blob{state});
  };
  if (uplink == nullptr) {
    with_client(nullptr);
  } else {
    with_client(uplink->name);
  }
}

void HostFileTables::WriteLag(const Lag &lag, std::uint64_t number, Side side) {
  statements_->put_lag.Run(number, lag.id, NameOf(side), lag.name);
  int place = 0;
  for (const std::string &member : lag.members) {
    statements_->put_member.Run(number, lag.id, NameOf(side), place++, member);
  }
}

void HostFileTables::WriteProperty(PropertyPlace place, std::string_view key, const Property &property,
                                   std::uint64_t number, Side side) {
  statements_->put_property.Run(number, kestrel::host::NameOf(place.level), place.port, key, NameOf(side),
                                property.type, Blob{property.value});
}

void HostFileTables::WriteProperties(const PropertySet &properties, PropertyPlace place, std::uint64_t number,
                                     Side side) {
  for (const auto &[key, property] : properties.Items()) WriteProperty(place, key, property, number, side);
}

void HostFileTables::RemoveConfig(std::uint64_t number, Side side) {
  for (Statement *remove : {&statements_->remove_switch, &statements_->remove_ports, &statements_->remove_lags,
                            &statements_->remove_all_members, &statements_->remove_all_properties}) {
    remove->Run(number, NameOf(side));
  }
}

void HostFileTables::WriteConfig(const SwitchConfig &config, std::uint64_t number, Side side) {
  RemoveConfig(number, side);
  WriteSpec(config.spec(), number, side);
  WriteProperties(config.PropertiesAt({PropertyLevel::kSwitch}), {PropertyLevel::kSwitch}, number, side);
  WriteProperties(config.PropertiesAt({PropertyLevel::kHost}), {PropertyLevel::kHost}, number, side);
  for (const Port &port : config.ports().Items()) {
    WritePort(config, port, number, side);
    WriteProperties(port.properties, {PropertyLevel::kPort, port.id}, number, side);
  }
  for (const Uplink &uplink : config.uplinks().Items()) {
    WriteProperties(uplink.properties, {PropertyLevel::kUplink, uplink.id}, number, side);
  }
  for (const Lag &lag : config.lags().Items()) WriteLag(lag, number, side);
}

namespace {

/** The properties of an owner; null when it is gone. */
const PropertySet *FindProperties(const SwitchConfig &config, PropertyPlace place) {
  const bool is_gone = (place.level == PropertyLevel::kPort && config.ports().Find(place.port) == nullptr) ||
                       (place.level == PropertyLevel::kUplink && config.uplinks().Find(place.port) == nullptr);
  return is_gone ? nullptr : &config.PropertiesAt(place);
}

}  // namespace

void HostFileTables::WritePart(const SwitchConfig &config, const ConfigPart &part, std::uint64_t number, Side side) {
  switch (part.kind) {
    case ConfigPart::Kind::kSpec:
      return WriteSpec(config.spec(), number, side);
    case ConfigPart::Kind::kPort:
      if (const Port *port = config.ports().Find(part.id)) return WritePort(config, *port, number, side);
      return statements_->remove_port.Run(number, part.id, NameOf(side));
    case ConfigPart::Kind::kLag:
      statements_->remove_members.Run(number, part.id, NameOf(side));
      if (const Lag *lag = config.lags().Find(part.id)) return WriteLag(*lag, number, side);
      return statements_->remove_lag.Run(number, part.id, NameOf(side));
    case ConfigPart::Kind::kProperty: {
      const PropertySet *properties = FindProperties(config, part.place);
      const Property *property = properties == nullptr ? nullptr : properties->Find(part.key);
      if (property != nullptr) return WriteProperty(part.place, part.key, *property, number, side);
      return statements_->remove_property.Run(number, kestrel::host::NameOf(part.place.level), part.place.port,
                                              part.key, NameOf(side));
    }
    case ConfigPart::Kind::kProperties:
      statements_->remove_properties.Run(number, kestrel::host::NameOf(part.place.level), part.place.port,
                                         NameOf(side));
      if (const PropertySet *properties = FindProperties(config, part.place)) {
        WriteProperties(*properties, part.place, number, side);
      }
      return;
  }
}

void HostFileTables::ReadConfig(SwitchConfig &config, std::uint64_t number, Side side) {
  Statement &ports = statements_->get_ports;
  ports.Begin(number, NameOf(side));
  while (ports.Next()) {
    Port port{.id = ports.Get<PortId>(0), .name = ports.Text(1), .external_id = ports.Text(2)};
    const PortId id = port.id;
    if (ports.IsNull(3)) {
      config.AddPort(std::move(port));
    } else {
      config.AddUplink(ports.Text(3), std::move(port));
    }
    if (!ports.IsNull(4)) config.Connect(id, Client::Load(ports.Bytes(4)));
  }

  Statement &lags = statements_->get_lags;
  lags.Begin(number, NameOf(side));
  while (lags.Next()) {
    Lag lag{.id = lags.Get<std::uint32_t>(0), .name = lags.Text(1), .members = {}};
    Statement &members = statements_->get_members;
    members.Begin(number, lag.id, NameOf(side));
    while (members.Next()) lag.members.push_back(members.Text(0));
    config.AddKeptLag(std::move(lag));
  }

  Statement &properties = statements_->get_properties;
  properties.Begin(number, NameOf(side));
  while (properties.Next()) {
    const PropertyPlace place{LevelOf(properties.Bytes(0)), properties.Get<PortId>(1)};
    config.PutProperty(place,
                       PropertySet::Ready(properties.Bytes(2), {properties.Text(4), properties.Get<std::uint32_t>(3)}));
  }
}

// ---- What traffic made of switches ----

void HostFileTables::RemoveRuntime(std::uint64_t number) {
  for (Statement *remove :
       {&statements_->remove_addresses, &statements_->remove_port_runtimes, &statements_->remove_parts}) {
    remove->Run(number);
  }
  revisions_.erase(number);
}

void HostFileTables::WriteAddresses(MacTable &macs, std::uint64_t number, bool everything) {
  const auto put = [&](const MacKey &key, const MacEntry &entry) {
    statements_->put_address.Run(number, key.vlan, Blob{BytesOfAddress(key.address)}, static_cast<int>(entry.kind),
                                 entry.port, entry.last_seen.count(), entry.moves);
  };
  auto changes = macs.changes().Take();
  if (everything || changes.all) {
    statements_->remove_addresses.Run(number);
    for (const auto &[key, entry] : macs.entries()) put(key, entry);
    return;
  }
  for (const MacKey &key : Distinct(std::move(changes.keys))) {
    if (const MacEntry *entry = macs.Find(key)) {
      put(key, *entry);
    } else {
      statements_->remove_address.Run(number, key.vlan, Blob{BytesOfAddress(key.address)});
    }
  }
}

void HostFileTables::WritePorts(PortRuntimeTable &ports, std::uint64_t number, bool everything) {
  const auto put = [&](PortId port, const PortRuntime &runtime) {
    const std::string state = runtime.Save();
    statements_->put_port_runtime.Run(number, port, Blob{state});
  };
  auto changes = ports.changes().Take();
  if (everything || changes.all) {
    statements_->remove_port_runtimes.Run(number);
    for (const auto &[port, runtime] : ports.Items()) put(port, runtime);
    return;
  }
  for (const PortId port : Distinct(std::move(changes.keys))) {
    if (const PortRuntime *runtime = ports.Find(port)) {
      put(port, *runtime);
    } else {
      statements_->remove_port_runtime.Run(number, port);
    }
  }
}

void HostFileTables::WriteRuntime(Switch &running, bool everything) {
  WriteAddresses(running.runtime.macs, running.number, everything);
  WritePorts(running.runtime.ports, running.number, everything);
  ForEachPart(running.runtime, revisions_[running.number],
              [&](const char *name, const auto &part, std::uint64_t &revision) {
                if (!everything && revision == RevisionOf(part)) return;
                const std::string state = part.Save();
                statements_->put_part.Run(running.number, name, Blob{state});
                revision = RevisionOf(part);
              });
}

void HostFileTables::ReadRuntime(SwitchRuntime &runtime, std::uint64_t number) {
  std::vector<MacItem> items;
  Statement &addresses = statements_->get_addresses;
  addresses.Begin(number);
  while (addresses.Next()) {
    MacItem item{.key = {.vlan = addresses.Get<VlanId>(0), .address = {}},
                 .entry = {.kind = static_cast<VSMACAddrType>(addresses.Get<int>(2)),
                           .port = addresses.Get<PortId>(3),
                           .last_seen = TimePoint(addresses.Get<std::int64_t>(4)),
                           .moves = addresses.Get<std::uint32_t>(5)}};
    const std::string_view address = addresses.Bytes(1);
    if (address.size() != item.key.address.size()) throw StatusError(ZEL_INVALID_METADATA);
    std::ranges::copy(address, item.key.address.begin());
    items.push_back(item);
  }
  runtime.macs.Restore(std::move(items));

  Statement &ports = statements_->get_port_runtimes;
  ports.Begin(number);
  while (ports.Next()) runtime.ports.At(ports.Get<PortId>(0)) = PortRuntime::Load(ports.Bytes(1));

  Statement &parts = statements_->get_parts;
  parts.Begin(number);
  PartRevisions revisions;
  while (parts.Next()) {
    ForEachPart(runtime, revisions, [&](const char *name, auto &part, std::uint64_t & /*revision*/) {
      if (parts.Bytes(0) == name) part = std::decay_t<decltype(part)>::Load(parts.Bytes(1));
    });
  }
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
