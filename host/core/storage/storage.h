/* The files that SQLite works on: a layer between it and the system that sees every operation. Through it tests and the
   laboratory let operations fail, and the host file sees without a system call whether another process has written. */
#pragma once

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/base/errors.h"
#include "host/export.h"

namespace kestrel::host {

enum class StorageOperation : std::uint8_t { kOpen, kRead, kWrite, kSync };
inline constexpr std::size_t kStorageOperations = 4;

enum class StorageFault : std::uint8_t { kDiskFull, kIoError };

/** Lets the `nth` operation of a kind from now on fail, 1 being the next, and with `forever` all that follow too. In
   the place of what was asked for before. A write that fails may have written a part. */
KESTREL_HOST_EXPORT void FailStorage(StorageOperation operation, StorageFault fault, std::uint64_t nth, bool forever);
/** Lets everything succeed again. */
KESTREL_HOST_EXPORT void MendStorage();
/** How many operations of a kind there have been, failed ones included. */
KESTREL_HOST_EXPORT std::uint64_t StorageOperations(StorageOperation operation);
/** How many operations have failed, whoever let them. */
std::uint64_t FailedStorageOperations();

/** Is told of everything that changes files, in its order: enough to work out what a loss of power would leave. The
    index of a write-ahead log, which is memory and not kept, is none of it. */
class StorageWatcher {
 public:
  virtual void OnWrite(const std::string &path, std::int64_t offset, std::string_view bytes) = 0;
  virtual void OnTruncate(const std::string &path, std::int64_t size) = 0;
  /** What was written to the file before is safe from now on. */
  virtual void OnSync(const std::string &path) = 0;
  virtual void OnDelete(const std::string &path) = 0;

 protected:
  ~StorageWatcher() = default;
};

/** Lets somebody watch, null for nobody. */
void WatchStorage(StorageWatcher *watcher);

/** The host file could not be read or written. */
class StorageError : public StatusError {
 public:
  using StatusError::StatusError;
};

/** The name of the layer, for sqlite3_open_v2. */
const char *StorageLayer();

/** Makes an empty file that only its owner reads and writes, unless there is one. Throws StorageError with the status
    that StatusOfErrno gives. */
void MakeStorageFile(const std::string &path);

/** The status for a failed system call on the way to a host file. */
int StatusOfErrno(int error);
/** Throws the StorageError for a result of SQLite that is no success, FatalError for one that only a fault in this
    program can bring about. `database` tells more of it, null when there is none. */
[[noreturn]] void ThrowStorageError(int result, sqlite3 *database);

/** What stands at the head of the index of a write-ahead log: two of them are equal when nothing was committed between
    them, by whatever process. */
using WalHead = std::array<std::uint32_t, 12>;

/** Looks into the write-ahead log of an open database. */
class WalView {
 public:
  WalView() = default;
  explicit WalView(sqlite3 *database);

  /** Whether the head is `seen`. Costs next to nothing. False while there is no index. */
  bool Is(const WalHead &seen) const;
  /** All zero while there is no index. */
  WalHead Head() const;
  /** As it was when this process last gave up the writer's place. */
  WalHead HeadAtRelease() const;

  /** Makes a commit that failed after all of it was written unreadable, so that no later recovery takes it for good.
      The caller has the writer's place. Gives a result of SQLite. */
  int EraseUncommitted(sqlite3 *database) const;

 private:
  struct StorageFile *file_ = nullptr;
};

/** The first bytes of the main file, fewer when it is shorter. */
std::string ReadFileHead(sqlite3 *database, int size);

}  // namespace kestrel::host
