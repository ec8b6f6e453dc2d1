/* Everything that a host is, as text, to compare hosts and files by. */
#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "host/core/storage/database.h"
#include "host/core/storage/host_file_tables.h"
#include "tests/host/native/support/test_folder.h"

namespace kestrel::host {

/** Every row of every table, a line each. */
inline std::string DumpOf(Database &database) {
  std::vector<std::string> tables;
  Statement names(database, "SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name");
  names.Begin();
  while (names.Next()) tables.push_back(names.Text(0));

  std::string dump;
  for (const std::string &table : tables) {
    sqlite3_stmt *rows = nullptr;
    const std::string sql = "SELECT * FROM " + table + " ORDER BY 1, 2";
    if (sqlite3_prepare_v2(database.get(), sql.c_str(), -1, &rows, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(database.get()));
    }
    while (sqlite3_step(rows) == SQLITE_ROW) {
      dump += table;
      for (int i = 0; i < sqlite3_column_count(rows); ++i) {
        const auto *bytes = static_cast<const unsigned char *>(sqlite3_column_blob(rows, i));
        const bool is_blob = sqlite3_column_type(rows, i) == SQLITE_BLOB;
        dump += '|';
        for (int at = 0; at < sqlite3_column_bytes(rows, i); ++at) {
          constexpr char kDigits[] = "0123456789abcdef";
          if (is_blob) {
            dump += {kDigits[bytes[at] >> 4], kDigits[bytes[at] & 0xf]};
          } else {
            dump += static_cast<char>(bytes[at]);
          }
        }
      }
      dump += '\n';
    }
    sqlite3_finalize(rows);
  }
  return dump;
}

/** What a file holds for those who open it now. */
inline std::string DumpOf(const std::string &file) {
  Database database(file, SQLITE_OPEN_READWRITE);
  return DumpOf(database);
}

/** What a host would be in a file. */
inline std::string DumpOf(const Host &host) {
  Host copy;
  copy.TakeBack(*host.Snapshot());
  Database database(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  HostFileTables tables(database);
  tables.Create();
  tables.WriteAll(copy);
  return DumpOf(database);
}

}  // namespace kestrel::host
