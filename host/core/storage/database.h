/* SQLite, as far as the host file needs it. */
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/core/storage/storage.h"

namespace kestrel::host {

/** Bytes that are to be bound as a blob and not as text. */
struct Blob {
  std::string_view bytes;
};

/** A connection to a database file. Operations that fail throw as ThrowStorageError does. */
class Database {
 public:
  /** `name` is a path or a URI, `flags` are those of sqlite3_open_v2. */
  Database(const std::string &name, int flags);

  sqlite3 *get() const { return database_.get(); }
  /** Runs statements that give no rows. */
  void Execute(const char *sql);
  /** The first value of the first row. */
  std::int64_t Integer(const char *sql);
  std::string Text(const char *sql);

  bool IsReadOnly() const { return sqlite3_db_readonly(get(), "main") == 1; }
  bool InTransaction() const { return sqlite3_get_autocommit(get()) == 0; }

 private:
  struct Close {
    void operator()(sqlite3 *database) const noexcept { sqlite3_close_v2(database); }
  };

  std::unique_ptr<sqlite3, Close> database_;
};

/** A statement, prepared when it is first run, for any number of runs. Texts and blobs that are bound must stay where
    they are until the run is over. Operations that fail throw as ThrowStorageError does. */
class Statement {
 public:
  Statement(Database &database, const char *sql) : database_(database), sql_(sql) {}

  /** Binds the parameters from the first on and runs a statement that gives no rows. */
  template <typename... Values>
  void Run(const Values &...values) {
    Begin(values...);
    Next();
  }

  /** Binds the parameters from the first on; the rows follow by Next. */
  template <typename... Values>
  void Begin(const Values &...values) {
    Prepare();
    int place = 0;
    (Bind(++place, values), ...);
  }
  /** Goes to the next row; whether there is one. */
  bool Next();

  bool IsNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }
  /** Of a text or a blob; good until the next row. */
  std::string_view Bytes(int column) const;
  std::string Text(int column) const { return std::string(Bytes(column)); }
  /** Throws StatusError ZEL_INVALID_METADATA for a value that the type cannot hold. */
  template <typename Number>
  Number Get(int column) const {
    const std::int64_t value = sqlite3_column_int64(statement_.get(), column);
    if constexpr (sizeof(Number) < sizeof value) {
      if (!std::in_range<Number>(value)) ThrowStorageError(SQLITE_MISMATCH, nullptr);
    }
    return static_cast<Number>(value);
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt *statement) const noexcept { sqlite3_finalize(statement); }
  };

  void Prepare();
  void Check(int result) const {
    if (result != SQLITE_OK) ThrowStorageError(result, database_.get());
  }

  /** As SQLite's integers are signed, the upper half of unsigned numbers is kept as negative ones. */
  template <std::integral Number>
  void Bind(int place, Number value) {
    Check(sqlite3_bind_int64(statement_.get(), place, static_cast<std::int64_t>(value)));
  }
  void Bind(int place, std::string_view text);
  void Bind(int place, const char *text) { Bind(place, std::string_view(text)); }
  void Bind(int place, Blob blob);
  void Bind(int place, std::nullptr_t /*null*/) { Check(sqlite3_bind_null(statement_.get(), place)); }

  Database &database_;
  const char *sql_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace kestrel::host
