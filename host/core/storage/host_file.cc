#include "host/core/storage/host_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "host/core/base/errors.h"
#include "host/core/storage/torn_file.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

using std::chrono::steady_clock;

/** How soon a call that only reads sees that there is another file under the name. */
constexpr std::chrono::milliseconds kLookInterval{100};
/** The log is merged into the main file when it has so many pages. A process that opens the file reads the log. */
constexpr char kMergeAt[] = "PRAGMA wal_autocheckpoint = 512";

// ---- Forks ----

std::vector<HostFile *> &OpenFiles() {
  static auto *files = new std::vector<HostFile *>;
  return *files;
}

void BeforeForkOfAll() {
  for (HostFile *file : OpenFiles()) file->BeforeFork();
}

void InChildOfAll() {
  for (HostFile *file : OpenFiles()) file->InChild();
}

void WatchForks() {
  static const int watching = pthread_atfork(BeforeForkOfAll, nullptr, InChildOfAll);
  if (watching != 0) throw StatusError(ZEL_NO_MEMORY);
}

// ---- Files ----

/** Nothing when there is no such file. Throws StorageError. */
std::optional<struct stat> FindFile(const std::string &path) {
  struct stat found{};
  if (::stat(path.c_str(), &found) == 0) return found;
  if (errno == ENOENT) return std::nullopt;
  throw StorageError(StatusOfErrno(errno));
}

bool IsSameFile(const struct stat &one, const struct stat &other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool IsUnchanged(const struct stat &one, const struct stat &other) {
  return IsSameFile(one, other) && one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
         one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

/** A file that nobody may write is read-only for those too whom the system would let. */
bool MayWrite(const std::string &path, const struct stat &file) {
  return (file.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0 &&
         ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

bool HasLog(const std::string &path) {
  const auto log = FindFile(path + "-wal");
  return log && log->st_size > 0;
}

std::string StillUri(const std::string &path) {
  std::string uri = "file:";
  for (const char byte : path) {
    if (byte == '%' || byte == '?' || byte == '#') {
      constexpr char kDigits[] = "0123456789abcdef";
      uri += {'%', kDigits[static_cast<unsigned char>(byte) >> 4], kDigits[byte & 0xf]};
    } else {
      uri += byte;
    }
  }
  return uri + "?immutable=1";
}

std::uint32_t BigEndian(std::string_view bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (const char byte : bytes.substr(offset, sizeof number)) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

/** Whether what is in the main file can be a host file: before SQLite looks into it, which would tidy up another's. */
bool MayBeHostFile(sqlite3 *database, const struct stat &file) {
  constexpr int kHeadSize = 100;
  constexpr std::string_view kMagic{"SQLite format 3\0", 16};
  const std::string head = ReadFileHead(database, kHeadSize);
  if (head.empty()) return true;
  if (head.size() < kHeadSize || !head.starts_with(kMagic)) return false;
  const std::uint32_t mark = BigEndian(head, 68);
  if (mark == kHostFileMark) return true;
  // One that is being made has nothing but its first page, while the rest is in the log.
  return mark == 0 && file.st_size <= static_cast<off_t>(BigEndian(head, 16) >> 16);
}

}  // namespace

HostFile::HostFile(const std::string &path, std::unique_ptr<Host> (*make)())
    : path_(std::filesystem::absolute(path)), make_(make) {
  WatchForks();
  OpenFiles().push_back(this);
}

HostFile::~HostFile() {
  Leave();
  std::erase(OpenFiles(), this);
}

// ---- Opening and closing ----

int HostFile::WaitForTurn(void *file, int tries) {
  if (steady_clock::now() >= static_cast<HostFile *>(file)->give_up_) return 0;
  std::this_thread::sleep_for(std::chrono::microseconds(std::min(200 * (tries + 1), 5000)));
  return 1;
}

void HostFile::RequireUsable() const {
  if (is_inherited_) throw StatusError(ZEL_BUSY);
}

void HostFile::Open() {
  give_up_ = steady_clock::now() + patience_;
  auto connection = Connect();
  connection_ = std::move(connection);
  is_loaded_ = false;
}

std::unique_ptr<HostFile::Connection> HostFile::Connect() {
  auto found = FindFile(path_);
  if (!found) {
    MakeStorageFile(path_);
    found = FindFile(path_);
    if (!found) throw StorageError(ZEL_NOT_A_DIRECTORY);
  }
  if (S_ISDIR(found->st_mode)) throw StorageError(ZEL_IS_A_DIRECTORY);
  if (!S_ISREG(found->st_mode)) throw StorageError(ZEL_INVALID_TARGET);

  const bool may_write = MayWrite(path_, *found);
  const bool is_still = !may_write && !HasLog(path_);
  auto connection = is_still
                        ? std::make_unique<Connection>(StillUri(path_), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI)
                        : std::make_unique<Connection>(path_, may_write ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
  Database &database = connection->database;
  connection->is_still = is_still;
  connection->is_read_only = database.IsReadOnly();
  // Where opening for writing fails SQLite opens for reading, and stays with that when the failure is over.
  if (may_write && connection->is_read_only) throw StorageError(ZEL_IO_ERROR);
  sqlite3_busy_handler(database.get(), WaitForTurn, this);
  // Until it is known to be ours, nothing in it is changed.
  sqlite3_db_config(database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_db_config(database.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database.get(), SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  try {
    if (!MayBeHostFile(database.get(), *found) && !IsTornHostFile(path_)) throw StorageError(ZEL_INVALID_TARGET);
    Prepare(*connection);
  } catch (...) {
    LeaveNoEmptyLog(*connection);
    throw;
  }
  opened_ = *found;
  return connection;
}

void HostFile::Prepare(Connection &connection) {
  Database &database = connection.database;
  database.Execute("PRAGMA cell_size_check = ON; PRAGMA secure_delete = OFF; PRAGMA temp_store = MEMORY");
  database.Execute(("PRAGMA cache_size = -" + std::to_string(cache_size_)).c_str());
  // As of one moment: another process may just be making it.
  connection.begin_reading.Run();
  const bool is_empty = IsEmpty(database);
  connection.commit.Run();
  if (is_empty) {
    Create(connection);
  } else {
    CheckPages(database);
  }
  if (connection.is_read_only) return;
  UseLog(database);
  database.Execute("PRAGMA synchronous = FULL");
  database.Execute(kMergeAt);
}

bool HostFile::IsEmpty(Database &database) {
  const std::int64_t mark = database.Integer("PRAGMA application_id");
  if (mark == 0 && database.Integer("SELECT count(*) FROM sqlite_schema") == 0) return true;
  if (mark != kHostFileMark) throw StorageError(ZEL_INVALID_TARGET);
  const std::int64_t version = database.Integer("PRAGMA user_version");
  if (version > kHostFileVersion) throw StorageError(ZEL_VERSION_MISMATCH_MAJOR);
  if (version < 1) throw StorageError(ZEL_INVALID_METADATA);
  return false;
}

void HostFile::CheckPages(Database &database) {
  const std::uint64_t failed = FailedStorageOperations();
  if (database.Text("PRAGMA quick_check(1)") == "ok") return;
  // The check takes a page that cannot be read for a damaged one.
  const bool could_read = FailedStorageOperations() == failed;
  throw StorageError(could_read ? int{ZEL_INVALID_METADATA} : int{ZEL_IO_ERROR});
}

void HostFile::UseLog(Database &database) const {
  // Another process that is just doing the same keeps this one out without making it wait.
  while (database.Text("PRAGMA journal_mode") != "wal") {
    try {
      if (database.Text("PRAGMA journal_mode = WAL") != "wal") throw StorageError(ZEL_INVALID_FS);
    } catch (const StatusError &refusal) {
      if (refusal.status() != ZEL_BUSY || steady_clock::now() >= give_up_) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
}

void HostFile::Create(Connection &connection) {
  if (connection.is_read_only) throw StorageError(ZEL_READ_ONLY);
  UseLog(connection.database);
  connection.database.Execute("PRAGMA synchronous = FULL");
  auto made = make_();
  connection.begin.Run();
  try {
    // Unless another process came first.
    if (IsEmpty(connection.database)) {
      connection.tables.Create();
      connection.tables.WriteAll(*made);
    }
    connection.commit.Run();
  } catch (...) {
    RollBack(connection);
    throw;
  }
}

void HostFile::RollBack(Connection &connection) noexcept {
  try {
    if (connection.database.InTransaction()) connection.rollback.Run();
  } catch (const std::exception &) {
    // What could not be rolled back is not committed either; the next who reads the file sees nothing of it.
  }
}

void HostFile::MergeOnClose(Connection &connection) {
  sqlite3_db_config(connection.database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void HostFile::CloseIfReplaced() {
  const auto found = FindFile(path_);
  const bool is_same =
      found && (connection_->is_still ? IsUnchanged(*found, opened_) && !HasLog(path_) : IsSameFile(*found, opened_));
  if (!is_same) Close();
}

void HostFile::Close() noexcept {
  connection_.reset();
  is_loaded_ = false;
}

void HostFile::CloseIfInTransaction() noexcept {
  // Rolling back takes memory too. Without its connection the transaction ends all the same.
  if (connection_->database.InTransaction()) Close();
}

void HostFile::LeaveNoEmptyLog(Connection &connection) const noexcept {
  try {
    if (!HasLog(path_)) MergeOnClose(connection);
  } catch (const std::exception &) {
    // Then an empty log stays beside the file, which does no harm.
  }
}

void HostFile::Leave() noexcept {
  try {
    if (connection_ != nullptr) CloseIfReplaced();
  } catch (const std::exception &) {
    Close();
  }
  if (connection_ != nullptr) MergeOnClose(*connection_);
  Close();
  depth_ = 0;
}

void HostFile::GiveUp() noexcept {
  host_ = Host();
  RollBack(*connection_);
  LeaveNoEmptyLog(*connection_);
  Close();
}

void HostFile::BeforeFork() noexcept {
  if (depth_ == 0) Close();
}

void HostFile::InChild() noexcept {
  if (depth_ == 0) return;
  // The transaction is the parent's. Its connection must not even be closed here.
  static_cast<void>(connection_.release());
  is_loaded_ = false;
  depth_ = 0;
  is_inherited_ = true;
}

// ---- Reading ----

bool HostFile::IsCurrent() {
  return is_loaded_ && !connection_->is_still && connection_->log.Is(seen_) && steady_clock::now() < next_look_;
}

void HostFile::Update() {
  RequireUsable();
  if (connection_ != nullptr) CloseIfReplaced();
  if (connection_ == nullptr) Open();
  next_look_ = steady_clock::now() + kLookInterval;
  if (is_loaded_ && (connection_->is_still || connection_->log.Is(seen_))) return;

  give_up_ = steady_clock::now() + patience_;
  try {
    Load();
  } catch (...) {
    GiveUp();
    throw;
  }
}

void HostFile::Load() {
  is_loaded_ = false;
  // What is read may be newer than the head; then the next call reads once more.
  const WalHead head = connection_->is_still ? WalHead{} : connection_->log.Head();
  if (connection_->database.InTransaction()) {
    connection_->tables.Read(host_);
  } else {
    connection_->begin_reading.Run();
    connection_->tables.Read(host_);
    connection_->commit.Run();
  }
  seen_ = head;
  is_loaded_ = true;
}

void HostFile::Reload() noexcept {
  if (connection_ == nullptr) {
    host_ = Host();
    return;
  }
  try {
    Load();
  } catch (const std::exception &) {
    // The next call tries again, and says why if it fails.
    host_ = Host();
    if (depth_ > 0) return;
    RollBack(*connection_);
    CloseIfInTransaction();
  }
}

// ---- Transactions ----

void HostFile::Begin() {
  if (depth_ == 0) return BeginTransaction();
  if (transaction_failure_ != ZEL_OK) throw StatusError(transaction_failure_);
  // What the transaction has changed so far has to outlive the step.
  WriteChanges();
  connection_->begin_step.Run();
  ++depth_;
}

void HostFile::BeginTransaction() {
  RequireUsable();
  if (connection_ != nullptr) CloseIfReplaced();
  if (connection_ == nullptr) Open();
  if (connection_->is_read_only) throw StorageError(ZEL_READ_ONLY);
  give_up_ = steady_clock::now() + patience_;
  try {
    connection_->begin.Run();
  } catch (...) {
    CloseIfInTransaction();
    throw;
  }
  try {
    if (has_uncommitted_) EraseUncommitted();
    if (!is_loaded_ || connection_->log.Head() != seen_) Load();
  } catch (...) {
    GiveUp();
    throw;
  }
  depth_ = 1;
  has_written_ = false;
  transaction_failure_ = ZEL_OK;
}

void HostFile::WriteChanges() {
  if (!connection_->tables.HasChanges(host_)) return;
  has_written_ = true;
  connection_->tables.Write(host_);
}

void HostFile::Commit() {
  try {
    if (transaction_failure_ != ZEL_OK) throw StatusError(transaction_failure_);
    WriteChanges();
    if (depth_ > 1) {
      connection_->commit_step.Run();
    } else {
      has_uncommitted_ = true;
      connection_->commit.Run();
      has_uncommitted_ = false;
      seen_ = connection_->log.HeadAtRelease();
    }
    --depth_;
  } catch (const StatusError &refusal) {
    TakeBack(true, refusal.status());
    throw;
  } catch (...) {
    TakeBack(true, ZEL_NO_MEMORY);
    throw;
  }
}

void HostFile::Rollback() noexcept {
  bool is_changed = true;
  try {
    is_changed = connection_->tables.HasChanges(host_);
  } catch (const std::exception &) {
    // As if there were some.
  }
  TakeBack(is_changed, ZEL_ABORTED);
}

void HostFile::TakeBack(bool is_changed, int status) noexcept {
  if (depth_ > 1) {
    TakeStepBack(status);
  } else {
    is_changed = is_changed || has_written_;
    RollBack(*connection_);
    seen_ = connection_->log.HeadAtRelease();
    transaction_failure_ = ZEL_OK;
    CloseIfInTransaction();
  }
  --depth_;
  if (depth_ == 0 && has_uncommitted_ && connection_ != nullptr) {
    try {
      connection_->begin.Run();
      EraseUncommitted();
    } catch (const std::exception &) {
      // The next transaction tries again.
    }
    RollBack(*connection_);
    CloseIfInTransaction();
  }
  if (is_changed) Reload();
}

void HostFile::TakeStepBack(int status) noexcept {
  if (transaction_failure_ != ZEL_OK) return;
  try {
    if (connection_->database.InTransaction()) {
      connection_->rollback_step.Run();
      connection_->commit_step.Run();
      return;
    }
  } catch (const std::exception &) {
    RollBack(*connection_);
  }
  // A failure can take the whole transaction with it.
  transaction_failure_ = status;
}

void HostFile::EraseUncommitted() {
  const int result = connection_->log.EraseUncommitted(connection_->database.get());
  if (result != SQLITE_OK) ThrowStorageError(result, connection_->database.get());
  has_uncommitted_ = false;
}

}  // namespace kestrel::host
