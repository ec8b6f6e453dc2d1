/* A host that lives in a file, and the transactions of its calls. docs/host-file.md says what users may rely on. */
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "host/core/host.h"
#include "host/core/storage/database.h"
#include "host/core/storage/host_file_tables.h"
#include "host/core/storage/storage.h"
#include "host/export.h"

namespace kestrel::host {

/** For how long a change waits for the writer's place. */
inline constexpr std::chrono::milliseconds kDefaultPatience{5000};

/** The host in the file of that name, which several processes may share. The model is in memory; a transaction brings
    what it changes into the file. Operations fail with a StatusError that says why, and when one has failed the host
   and the file are as they were:

    ZEL_NO_SPACE a full disk, ZEL_IO_ERROR one that fails, ZEL_READ_ONLY a file that cannot be written,
    ZEL_INVALID_TARGET a file that is no host's, ZEL_VERSION_MISMATCH_MAJOR one of a later version,
    ZEL_INVALID_METADATA a damaged one, ZEL_BUSY one that others kept locked too long, ZEL_NOT_A_DIRECTORY a folder that
    is not there, ZEL_IS_A_DIRECTORY, ZEL_NO_PERMISSION, ZEL_NAME_TOO_LONG and ZEL_NUM_FILES_EXCEEDED what they say. The
    next operation tries again. */
class KESTREL_HOST_EXPORT HostFile {
 public:
  /** Does not open the file yet. A file that is not there is made then, and holds the host that `make` gives. */
  HostFile(const std::string &path, std::unique_ptr<Host> (*make)());
  ~HostFile();
  HostFile(const HostFile &) = delete;
  HostFile &operator=(const HostFile &) = delete;

  const std::string &path() const { return path_; }
  /** As it was when Refresh or Begin was last called, with the changes since. Stays at its address; what it consists of
      does not. */
  Host &host() { return host_; }

  /** Brings the host up to date with what others have committed. Within a transaction there is nothing to do. */
  void Refresh() {
    if (depth_ == 0 && !IsCurrent()) Update();
  }

  /** Begins a transaction, with an up-to-date host that nobody else can change; or a step within the one that is
      open. */
  void Begin();
  /** Ends what began last. The end of a transaction makes its changes last, that of a step keeps them for its
      transaction. When it throws, it is as if Rollback had been called. */
  void Commit();
  /** Ends what began last and takes its changes back. */
  void Rollback() noexcept;
  bool InTransaction() const { return depth_ > 0; }

  /** Leaves the file; the next operation opens it again. */
  void Leave() noexcept;

  /** How long a change waits for its turn. */
  void SetPatience(std::chrono::milliseconds patience) { patience_ = patience; }
  /** How much of the file is kept in memory at most, in KiB. Holds when the file is opened next. */
  void SetCache(int size) { cache_size_ = size; }

  /** Around a fork: no connection may be in two processes. */
  void BeforeFork() noexcept;
  void InChild() noexcept;

 private:
  /** An open file. */
  struct Connection {
    Connection(const std::string &name, int flags) : database(name, flags), log(database.get()), tables(database) {}

    Database database;
    WalView log;
    HostFileTables tables;
    Statement begin_reading{database, "BEGIN"};
    Statement begin{database, "BEGIN IMMEDIATE"};
    Statement commit{database, "COMMIT"};
    Statement rollback{database, "ROLLBACK"};
    Statement begin_step{database, "SAVEPOINT step"};
    Statement commit_step{database, "RELEASE step"};
    Statement rollback_step{database, "ROLLBACK TO step"};
    bool is_read_only = false;
    /** Nobody writes the file while it is open: there is no log to look at, and no lock. */
    bool is_still = false;
  };

  /** Whether a call that only reads can answer from host_. Costs next to nothing. */
  bool IsCurrent();
  void Update();
  void RequireUsable() const;

  void Open();
  std::unique_ptr<Connection> Connect();
  void Prepare(Connection &connection);
  /** Whether a database is still to be made a host file, in a transaction of the caller. Throws StorageError for one
      that is another's, later or damaged. */
  static bool IsEmpty(Database &database);
  static void CheckPages(Database &database);
  void UseLog(Database &database) const;
  void Create(Connection &connection);
  void CloseIfReplaced();
  void Close() noexcept;
  void CloseIfInTransaction() noexcept;
  /** Closes what could not be read. */
  void GiveUp() noexcept;
  /** The last process to leave a file merges its log into it; not, while it is not known to be in order. */
  static void MergeOnClose(Connection &connection);
  void LeaveNoEmptyLog(Connection &connection) const noexcept;
  static int WaitForTurn(void *file, int tries);

  /** Reads the file into host_, which is as it was when it throws, but not loaded. */
  void Load();
  void Reload() noexcept;

  void BeginTransaction();
  void WriteChanges();
  void TakeBack(bool is_changed, int status) noexcept;
  void TakeStepBack(int status) noexcept;
  static void RollBack(Connection &connection) noexcept;
  void EraseUncommitted();

  std::string path_;
  std::unique_ptr<Host> (*make_)();
  Host host_;
  bool is_loaded_ = false;
  std::unique_ptr<Connection> connection_;
  /** The file that is open, to see when there is another under its name. */
  struct stat opened_{};
  std::chrono::steady_clock::time_point next_look_{};
  /** The state of the log that host_ is from. */
  WalHead seen_{};

  int depth_ = 0;
  /** Whether the open transaction has written anything. */
  bool has_written_ = false;
  /** Why the open transaction cannot go on, ZEL_OK while it can. */
  int transaction_failure_ = ZEL_OK;
  /** Whether a commit failed after it may have been written. */
  bool has_uncommitted_ = false;
  /** Whether a parent process had a transaction open when it made this one. */
  bool is_inherited_ = false;
  std::chrono::milliseconds patience_ = kDefaultPatience;
  /** KiB of pages in use: enough for a transaction of a million addresses to write each of them once. */
  int cache_size_ = 64 << 10;
  std::chrono::steady_clock::time_point give_up_{};
};

}  // namespace kestrel::host
