#include "host/core/storage/database.h"

#include <new>

namespace kestrel::host {

Database::Database(const std::string &name, int flags) {
  sqlite3 *opened = nullptr;
  const int result =
      sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, StorageLayer());
  database_.reset(opened);
  if (result != SQLITE_OK) ThrowStorageError(result, opened);
}

void Database::Execute(const char *sql) {
  const int result = sqlite3_exec(get(), sql, nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) ThrowStorageError(result, get());
}

std::int64_t Database::Integer(const char *sql) {
  Statement statement(*this, sql);
  statement.Begin();
  return statement.Next() ? statement.Get<std::int64_t>(0) : 0;
}

std::string Database::Text(const char *sql) {
  Statement statement(*this, sql);
  statement.Begin();
  return statement.Next() ? statement.Text(0) : std::string();
}

void Statement::Prepare() {
  if (statement_ != nullptr) {
    sqlite3_reset(statement_.get());
    return;
  }
  sqlite3_stmt *prepared = nullptr;
  Check(sqlite3_prepare_v3(database_.get(), sql_, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr));
  statement_.reset(prepared);
}

bool Statement::Next() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  // The run is over, and the statement must not keep what it has locked. A failure is told by both.
  sqlite3_reset(statement_.get());
  if (result != SQLITE_DONE) ThrowStorageError(result, database_.get());
  return false;
}

std::string_view Statement::Bytes(int column) const {
  const void *bytes = sqlite3_column_blob(statement_.get(), column);
  if (bytes == nullptr) return {};
  return {static_cast<const char *>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

void Statement::Bind(int place, std::string_view text) {
  // Null would be no text.
  const char *bytes = text.data() == nullptr ? "" : text.data();
  Check(sqlite3_bind_text64(statement_.get(), place, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::Bind(int place, Blob blob) {
  const char *bytes = blob.bytes.data() == nullptr ? "" : blob.bytes.data();
  Check(sqlite3_bind_blob64(statement_.get(), place, bytes, blob.bytes.size(), SQLITE_STATIC));
}

}  // namespace kestrel::host
