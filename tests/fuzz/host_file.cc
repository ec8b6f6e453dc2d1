/* A host file in whose tables anything may stand: rows are changed, added and taken away, and the file is read. It is
   refused and the host is what it was, or the host that was read works, and is written and read again.

   Input: a row of changes, each a table, what is done, a column, a row, and a value. */
#include "host/core/storage/host_file_tables.h"

#include <array>
#include <vector>

#include "host/core/base/errors.h"
#include "host/core/frames/mac_address.h"
#include "tests/fuzz/ensure.h"
#include "tests/fuzz/steps.h"
#include "tests/host/native/support/test_host.h"

using namespace kestrel::host;

namespace {

constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY;

constexpr std::array<std::uint8_t, 60> kGreeting{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2, 0, 0, 0, 0, 77, 8, 0};

struct Table {
  std::string name;
  std::vector<std::string> columns;
};

/** A file with a host in it, and what its tables are. */
struct Original {
  Original() : database(":memory:", kFlags) {
    HostFileTables tables(database);
    tables.Create();
    const auto host = MakeTestHost();
    host->AddSwitch({.id = "other", .portset = "DvsPortset-8", .alias = "other", .max_ports = 8});
    host->SendFrame(kAlias, "machine", kGreeting);
    tables.WriteAll(*host);
    Statement names(database, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name");
    names.Begin();
    while (names.Next()) found.push_back({names.Text(0), {}});
    for (Table &table : found) {
      Statement columns(database, "SELECT name FROM pragma_table_info(?1)");
      columns.Begin(table.name);
      while (columns.Next()) table.columns.push_back(columns.Text(0));
    }
  }

  Database database;
  std::vector<Table> found;
};

Original &TheOriginal() {
  static Original original;
  return original;
}

void Bind(sqlite3_stmt *statement, Steps &steps) {
  switch (steps.Choice(5)) {
    case 0:
      sqlite3_bind_int64(statement, 1, static_cast<std::int64_t>(steps.Number(8)));
      break;
    case 1:
      sqlite3_bind_int64(statement, 1, static_cast<std::int8_t>(steps.Byte()));
      break;
    case 2: {
      const std::string text = steps.Bytes();
      sqlite3_bind_text(statement, 1, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
      break;
    }
    case 3: {
      const std::string blob = steps.Bytes();
      sqlite3_bind_blob(statement, 1, blob.data(), static_cast<int>(blob.size()), SQLITE_TRANSIENT);
      break;
    }
    default:
      break;  // null
  }
}

/** The change as SQL with one parameter, the value. */
std::string Change(Steps &steps, const Table &table) {
  const std::size_t column = steps.Choice(table.columns.size());
  const std::size_t what = steps.Choice(8);
  const std::string row = " LIMIT 1 OFFSET " + std::to_string(steps.Byte());
  if (what == 0) return "DELETE FROM " + table.name;
  if (what == 1) return "UPDATE OR IGNORE " + table.name + " SET " + table.columns[column] + " = ?1";
  std::string values;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    if (i > 0) values += ", ";
    values += i == column ? "?1" : table.columns[i];
  }
  return "INSERT OR REPLACE INTO " + table.name + " SELECT " + values + " FROM " + table.name + row;
}

/** Changes that the tables themselves refuse are none. */
void Edit(Database &database, Steps &steps) {
  const auto &tables = TheOriginal().found;
  for (int i = 0; i < 8 && !steps.AtEnd(); ++i) {
    const std::string sql = Change(steps, tables[steps.Choice(tables.size())]);
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
      Bind(statement, steps);
      sqlite3_step(statement);
    }
    sqlite3_finalize(statement);
  }
}

/** What people do with a host: frames pass, time goes by, states are taken. */
void Use(Host &host) {
  std::vector<std::pair<std::string, std::string>> places;
  for (const auto &owner : std::as_const(host).Switches()) {
    for (const Port &port : owner.config.ports().Items()) places.emplace_back(owner.config.spec().id, port.name);
  }
  for (const auto &[owner, port] : places) {
    try {
      host.SendFrame(owner, port, kGreeting);
    } catch (const StatusError &) {  // NOLINT(bugprone-empty-catch): nobody is there who could send
    }
  }
  host.AdvanceClock(std::chrono::seconds(3));
  host.ImageOfState();
  host.ImageOfSavedState();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Database database(":memory:", kFlags);
  sqlite3_backup *copy = sqlite3_backup_init(database.get(), "main", TheOriginal().database.get(), "main");
  sqlite3_backup_step(copy, -1);
  sqlite3_backup_finish(copy);
  Steps steps(data, size);
  Edit(database, steps);

  Host host;
  try {
    HostFileTables(database).Read(host);
  } catch (const StatusError &refusal) {
    Ensure(refusal.status() == ZEL_INVALID_METADATA);
    Ensure(host.Switches().empty());
    return 0;
  }
  Use(host);
  Database other(":memory:", kFlags);
  HostFileTables tables(other);
  tables.Create();
  tables.WriteAll(host);
  Host again;
  HostFileTables(other).Read(again);
  Ensure(again.ImageOfState() == host.ImageOfState());
  return 0;
}
