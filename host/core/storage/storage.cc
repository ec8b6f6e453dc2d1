#include "host/core/storage/storage.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "kestrel/constants.h"

namespace kestrel::host {

/** An open file. The one of the system stands behind it in the same piece of memory. */
struct StorageFile {
  sqlite3_file base;
  /** SQLite's, as long as the file is open; null for a file without a name. */
  const char *path;
  /** The index of the write-ahead log, null while it is not open. */
  volatile void *index;
  WalHead at_release;

  sqlite3_file *real() { return reinterpret_cast<sqlite3_file *>(this + 1); }
};

namespace {

/** Offsets in the index's head, as SQLite's file format documents them. */
constexpr std::size_t kPageSizeWord = 3;  // in its upper or lower half, by the order of bytes
constexpr std::size_t kLastFrameWord = 4;
constexpr sqlite3_int64 kWalHeaderSize = 32;
constexpr sqlite3_int64 kFrameHeaderSize = 24;

// ---- Failing on demand ----

struct Failure {
  bool is_armed = false;
  StorageOperation operation{};
  StorageFault fault{};
  std::uint64_t countdown = 0;
  bool forever = false;
};

Failure failure;
std::array<std::uint64_t, kStorageOperations> counts{};
std::uint64_t failed = 0;

StorageWatcher *watcher = nullptr;

/** Counts an operation and gives how it ends: SQLITE_OK, SQLITE_FULL or `io_error`. */
int Meet(StorageOperation operation, int io_error) {
  ++counts[static_cast<std::size_t>(operation)];
  if (!failure.is_armed || failure.operation != operation) return SQLITE_OK;
  if (failure.countdown > 1) {
    --failure.countdown;
    return SQLITE_OK;
  }
  failure.is_armed = failure.forever;
  return failure.fault == StorageFault::kDiskFull ? SQLITE_FULL : io_error;
}

/** The result of an operation, which counts when it is a failure. */
int Counted(int result) {
  if (result != SQLITE_OK && result != SQLITE_IOERR_SHORT_READ) ++failed;
  return result;
}

// ---- Files ----

StorageFile *Own(sqlite3_file *file) { return reinterpret_cast<StorageFile *>(file); }
sqlite3_file *Real(sqlite3_file *file) { return Own(file)->real(); }
bool IsWatched(sqlite3_file *file) { return watcher != nullptr && Own(file)->path != nullptr; }

int Close(sqlite3_file *file) { return Real(file)->pMethods->xClose(Real(file)); }

int Read(sqlite3_file *file, void *bytes, int size, sqlite3_int64 offset) {
  const int fault = Meet(StorageOperation::kRead, SQLITE_IOERR_READ);
  return Counted(fault == SQLITE_OK ? Real(file)->pMethods->xRead(Real(file), bytes, size, offset) : SQLITE_IOERR_READ);
}

int Write(sqlite3_file *file, const void *bytes, int size, sqlite3_int64 offset) {
  const int fault = Meet(StorageOperation::kWrite, SQLITE_IOERR_WRITE);
  const int part = fault == SQLITE_OK ? size : size / 2;
  const int result = Real(file)->pMethods->xWrite(Real(file), bytes, part, offset);
  if (IsWatched(file)) {
    watcher->OnWrite(Own(file)->path, offset, {static_cast<const char *>(bytes), static_cast<std::size_t>(part)});
  }
  return Counted(fault == SQLITE_OK ? result : fault);
}

int Truncate(sqlite3_file *file, sqlite3_int64 size) {
  const int result = Real(file)->pMethods->xTruncate(Real(file), size);
  if (IsWatched(file)) watcher->OnTruncate(Own(file)->path, size);
  return result;
}

int Sync(sqlite3_file *file, int flags) {
  const int fault = Meet(StorageOperation::kSync, SQLITE_IOERR_FSYNC);
  const int result = fault == SQLITE_OK ? Real(file)->pMethods->xSync(Real(file), flags) : fault;
  if (result == SQLITE_OK && IsWatched(file)) watcher->OnSync(Own(file)->path);
  return Counted(result);
}

int FileSize(sqlite3_file *file, sqlite3_int64 *size) { return Real(file)->pMethods->xFileSize(Real(file), size); }
int Lock(sqlite3_file *file, int kind) { return Real(file)->pMethods->xLock(Real(file), kind); }
int Unlock(sqlite3_file *file, int kind) { return Real(file)->pMethods->xUnlock(Real(file), kind); }
int CheckReserved(sqlite3_file *file, int *is_reserved) {
  return Real(file)->pMethods->xCheckReservedLock(Real(file), is_reserved);
}
int Control(sqlite3_file *file, int operation, void *argument) {
  return Real(file)->pMethods->xFileControl(Real(file), operation, argument);
}
int SectorSize(sqlite3_file *file) { return Real(file)->pMethods->xSectorSize(Real(file)); }
int Characteristics(sqlite3_file *file) { return Real(file)->pMethods->xDeviceCharacteristics(Real(file)); }

WalHead HeadOf(const StorageFile &file) {
  WalHead head{};
  const auto *words = static_cast<const volatile std::uint32_t *>(file.index);
  if (words == nullptr) return head;
  for (std::size_t i = 0; i < head.size(); ++i) head[i] = words[i];
  std::atomic_thread_fence(std::memory_order_acquire);
  return head;
}

int MapIndex(sqlite3_file *file, int region, int size, int extend, void volatile **memory) {
  const int result = Real(file)->pMethods->xShmMap(Real(file), region, size, extend, memory);
  if (region == 0) Own(file)->index = result == SQLITE_OK ? *memory : nullptr;
  return result;
}

int LockIndex(sqlite3_file *file, int first, int count, int flags) {
  // The first lock is the writer's place.
  if (first == 0 && (flags & SQLITE_SHM_UNLOCK) != 0 && (flags & SQLITE_SHM_EXCLUSIVE) != 0) {
    Own(file)->at_release = HeadOf(*Own(file));
  }
  return Real(file)->pMethods->xShmLock(Real(file), first, count, flags);
}

void Barrier(sqlite3_file *file) { Real(file)->pMethods->xShmBarrier(Real(file)); }

int UnmapIndex(sqlite3_file *file, int remove) {
  Own(file)->index = nullptr;
  return Real(file)->pMethods->xShmUnmap(Real(file), remove);
}

/** Up to the version without memory-mapped reading, which nobody could make fail. */
constexpr sqlite3_io_methods kMethods{
    .iVersion = 2,
    .xClose = Close,
    .xRead = Read,
    .xWrite = Write,
    .xTruncate = Truncate,
    .xSync = Sync,
    .xFileSize = FileSize,
    .xLock = Lock,
    .xUnlock = Unlock,
    .xCheckReservedLock = CheckReserved,
    .xFileControl = Control,
    .xSectorSize = SectorSize,
    .xDeviceCharacteristics = Characteristics,
    .xShmMap = MapIndex,
    .xShmLock = LockIndex,
    .xShmBarrier = Barrier,
    .xShmUnmap = UnmapIndex,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

// ---- The layer ----

sqlite3_vfs *system_layer = nullptr;

int Open(sqlite3_vfs * /*layer*/, const char *name, sqlite3_file *file, int flags, int *flags_out) {
  StorageFile *own = new (file) StorageFile{.base = {}, .path = name, .index = nullptr, .at_release = {}};
  const int fault = Meet(StorageOperation::kOpen, SQLITE_IOERR);
  if (fault != SQLITE_OK) return fault;
  const int result = system_layer->xOpen(system_layer, name, own->real(), flags, flags_out);
  // A file with methods is closed by SQLite, even one that could not be opened.
  if (own->real()->pMethods != nullptr) own->base.pMethods = &kMethods;
  return result;
}

int Delete(sqlite3_vfs * /*layer*/, const char *name, int sync_folder) {
  const int result = system_layer->xDelete(system_layer, name, sync_folder);
  if (result == SQLITE_OK && watcher != nullptr) watcher->OnDelete(name);
  return result;
}

sqlite3_vfs MakeLayer() {
  sqlite3_vfs layer = *system_layer;
  layer.zName = "kestrel";
  layer.szOsFile = static_cast<int>(sizeof(StorageFile)) + system_layer->szOsFile;
  layer.xOpen = Open;
  layer.xDelete = Delete;
  return layer;
}

}  // namespace

void FailStorage(StorageOperation operation, StorageFault fault, std::uint64_t nth, bool forever) {
  failure = {.is_armed = true, .operation = operation, .fault = fault, .countdown = nth, .forever = forever};
}

void MendStorage() { failure = {}; }

void WatchStorage(StorageWatcher *somebody) { watcher = somebody; }

std::uint64_t FailedStorageOperations() { return failed; }

std::uint64_t StorageOperations(StorageOperation operation) { return counts[static_cast<std::size_t>(operation)]; }

const char *StorageLayer() {
  static sqlite3_vfs layer = [] {
    system_layer = sqlite3_vfs_find("unix");
    if (system_layer == nullptr) throw FatalError("SQLite was built without files");
    return MakeLayer();
  }();
  static const int registered = sqlite3_vfs_register(&layer, 0);
  if (registered != SQLITE_OK) ThrowStorageError(registered, nullptr);
  return layer.zName;
}

void MakeStorageFile(const std::string &path) {
  const int fault = Meet(StorageOperation::kOpen, SQLITE_IOERR);
  if (fault != SQLITE_OK) ThrowStorageError(fault, nullptr);
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor >= 0) {
    ::close(descriptor);
  } else if (errno != EEXIST) {
    throw StorageError(StatusOfErrno(errno));
  }
}

int StatusOfErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ZEL_NOT_A_DIRECTORY;
    case EISDIR:
      return ZEL_IS_A_DIRECTORY;
    case EACCES:
    case EPERM:
      return ZEL_NO_PERMISSION;
    case EROFS:
      return ZEL_READ_ONLY;
    case ENOSPC:
    case EDQUOT:
      return ZEL_NO_SPACE;
    case ENAMETOOLONG:
      return ZEL_NAME_TOO_LONG;
    case EMFILE:
    case ENFILE:
      return ZEL_NUM_FILES_EXCEEDED;
    case ENOMEM:
      return ZEL_NO_MEMORY;
    default:
      return ZEL_IO_ERROR;
  }
}

void ThrowStorageError(int result, sqlite3 *database) {
  const int system = database == nullptr ? 0 : sqlite3_system_errno(database);
  switch (result & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw StorageError(ZEL_BUSY);
    case SQLITE_FULL:
      throw StorageError(ZEL_NO_SPACE);
    case SQLITE_NOMEM:
      throw StorageError(ZEL_NO_MEMORY);
    case SQLITE_READONLY:
      throw StorageError(ZEL_READ_ONLY);
    case SQLITE_PERM:
    case SQLITE_AUTH:
      throw StorageError(ZEL_NO_PERMISSION);
    case SQLITE_CANTOPEN:
      // The file itself was there. What cannot be made beside it SQLite tries to read then, and tells that it is not.
      throw StorageError(system == ENOENT ? int{ZEL_IO_ERROR} : StatusOfErrno(system));
    case SQLITE_IOERR:
      if (result == SQLITE_IOERR_NOMEM) throw StorageError(ZEL_NO_MEMORY);
      throw StorageError(StatusOfErrno(system == ENOSPC || system == EDQUOT ? system : EIO));
    case SQLITE_NOTADB:
      throw StorageError(ZEL_INVALID_TARGET);
    case SQLITE_TOOBIG:
      throw StorageError(ZEL_LIMIT_EXCEEDED);
    // A table or column that is not there, or rows that contradict each other.
    case SQLITE_CORRUPT:
    case SQLITE_ERROR:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
      throw StorageError(ZEL_INVALID_METADATA);
    default:
      throw FatalError("the host file failed unexpectedly: " + std::string(sqlite3_errstr(result)));
  }
}

WalView::WalView(sqlite3 *database) {
  sqlite3_file *file = nullptr;
  const int result = sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (result != SQLITE_OK) ThrowStorageError(result, database);
  file_ = Own(file);
}

bool WalView::Is(const WalHead &seen) const {
  if (file_ == nullptr || file_->index == nullptr) return false;
  return HeadOf(*file_) == seen;
}

WalHead WalView::Head() const { return HeadOf(*file_); }

WalHead WalView::HeadAtRelease() const { return file_->at_release; }

int WalView::EraseUncommitted(sqlite3 *database) const {
  const WalHead head = Head();
  std::uint16_t sizes[2];
  static_assert(sizeof sizes == sizeof head[kPageSizeWord]);
  std::memcpy(sizes, &head[kPageSizeWord], sizeof sizes);
  // The second half holds it, 65536 as 1.
  const sqlite3_int64 page = sizes[1] == 1 ? 65536 : sizes[1];
  const sqlite3_int64 offset = kWalHeaderSize + sqlite3_int64{head[kLastFrameWord]} * (page + kFrameHeaderSize);

  sqlite3_file *log = nullptr;
  int result = sqlite3_file_control(database, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
  if (result != SQLITE_OK || log == nullptr || log->pMethods == nullptr) return result;
  sqlite3_int64 size = 0;
  result = log->pMethods->xFileSize(log, &size);
  if (result != SQLITE_OK || size <= offset) return result;
  constexpr char kNothing[kFrameHeaderSize] = {};
  result = log->pMethods->xWrite(log, kNothing, sizeof kNothing, offset);
  return result == SQLITE_OK ? log->pMethods->xSync(log, SQLITE_SYNC_FULL) : result;
}

std::string ReadFileHead(sqlite3 *database, int size) {
  sqlite3_file *file = nullptr;
  int result = sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (result != SQLITE_OK) ThrowStorageError(result, database);
  sqlite3_int64 there = 0;
  result = file->pMethods->xFileSize(file, &there);
  std::string head(static_cast<std::size_t>(std::min<sqlite3_int64>(size, there)), '\0');
  if (result == SQLITE_OK && !head.empty()) {
    result = file->pMethods->xRead(file, head.data(), static_cast<int>(head.size()), 0);
  }
  if (result != SQLITE_OK) ThrowStorageError(result, database);
  return head;
}

}  // namespace kestrel::host
