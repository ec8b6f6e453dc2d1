#include "host/core/process_host.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/faults.h"
#include "host/core/sample_host.h"
#include "host/core/storage/host_file.h"
#include "host/core/storage/storage.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

/** Where the host of the process is: in a file, or else in memory. Both null until the first call. */
struct Place {
  std::unique_ptr<Host> memory;
  std::unique_ptr<HostFile> file;
  /** For a host in memory: what it was when the open transaction of several calls began. */
  std::unique_ptr<const Host> before;
  /** Whether there is such a transaction. */
  bool is_grouped = false;
};

/** Never destroyed: scripts may still call while the process ends. */
Place &ThePlace() {
  static auto *place = new Place;
  return *place;
}

/** Of the innermost call. */
Access current_access = Access::kRead;

void LeaveFile() {
  if (ThePlace().file != nullptr) ThePlace().file->Leave();
}

void PutIntoFile(Place &place, const std::string &path) {
  static const int leaving = std::atexit(LeaveFile);
  if (leaving != 0) throw StatusError(ZEL_NO_MEMORY);
  place.file = std::make_unique<HostFile>(path, MakeSampleHost);
}

Place &FoundPlace() {
  Place &place = ThePlace();
  if (place.memory != nullptr || place.file != nullptr) return place;
  const char *path = std::getenv("KESTREL_HOST");
  if (path != nullptr && *path != '\0') {
    PutIntoFile(place, path);
  } else {
    place.memory = MakeSampleHost();
  }
  return place;
}

/** Never destroyed either. */
HandleTable &Handles() {
  static auto *handles = new HandleTable;
  return *handles;
}

/** Handles that are stale are dropped when there are twice as many handles as after the last time. */
std::size_t handle_limit = 1024;

bool IsStale(const HandleMeaning &meaning) {
  return ReadHost().NumberOfSwitch(meaning.switch_id) != meaning.switch_number;
}

bool IsGone(const HandleMeaning &meaning) {
  if (IsStale(meaning)) return true;
  if (meaning.port == 0) return false;
  try {
    return ReadHost().FindSwitchById(meaning.switch_id).config.ports().Find(meaning.port) == nullptr;
  } catch (const StatusError &) {
    return false;  // released for now
  }
}

Host &TheHost() {
  const Place &place = FoundPlace();
  return place.file != nullptr ? place.file->host() : *place.memory;
}

void Clear(Place &place) {
  Handles().ForgetIf([](const HandleMeaning & /*meaning*/) { return true; });
  place = {};
}

/** Lets what was made to fail succeed again. */
struct MendedStorage {
  MendedStorage() = default;
  ~MendedStorage() {
    if (MeetsFullDisk()) MendStorage();
  }
  MendedStorage(const MendedStorage &) = delete;
  MendedStorage &operator=(const MendedStorage &) = delete;
};

}  // namespace

HostCall::HostCall(Access access) : outer_(current_access) {
  HostFile *file = FoundPlace().file.get();
  if (file != nullptr) {
    if (access == Access::kRead) {
      file->Refresh();
    } else {
      file->Begin();
      is_open_ = true;
    }
  } else if (access == Access::kChange && MeetsFullDisk()) {
    before_ = ThePlace().memory->Snapshot();
  }
  current_access = access;
}

HostCall::~HostCall() {
  current_access = outer_;
  if (is_open_) ThePlace().file->Rollback();
  if (before_ != nullptr) ThePlace().memory->TakeBack(*before_);
}

void HostCall::Commit() {
  HostFile *file = is_open_ ? ThePlace().file.get() : nullptr;
  if (MeetsFullDisk() && current_access == Access::kChange) {
    // What goes into a transaction of several calls, or into memory, meets no disk by itself.
    if (file == nullptr || ThePlace().is_grouped) throw StatusError(ZEL_NO_SPACE);
    FailStorage(StorageOperation::kWrite, StorageFault::kDiskFull, 1, true);
  }
  if (file == nullptr) {
    before_.reset();
    return;
  }
  const MendedStorage mended;
  is_open_ = false;
  file->Commit();
}

void BeginHostTransaction() {
  Place &place = FoundPlace();
  if (place.is_grouped || current_access == Access::kChange) throw StatusError(ZEL_INVALID_TXN);
  if (place.file != nullptr) {
    place.file->Begin();
  } else {
    place.before = place.memory->Snapshot();
  }
  place.is_grouped = true;
}

namespace {

/** The place, whose transaction of several calls ends. */
Place &EndGroup() {
  Place &place = FoundPlace();
  if (!place.is_grouped || current_access == Access::kChange) throw StatusError(ZEL_INVALID_TXN);
  place.is_grouped = false;
  return place;
}

}  // namespace

void CommitHostTransaction() {
  Place &place = EndGroup();
  place.before.reset();
  if (place.file == nullptr) return;
  try {
    place.file->Commit();
  } catch (...) {
    Handles().ForgetIf(IsGone);
    throw;
  }
}

void RollBackHostTransaction() {
  Place &place = EndGroup();
  if (place.file != nullptr) {
    place.file->Rollback();
  } else {
    place.memory->TakeBack(*place.before);
    place.before.reset();
  }
  // Before what comes next gets the numbers of what has never been.
  Handles().ForgetIf(IsGone);
}

const Host &ReadHost() { return TheHost(); }

Host &ChangeHost() {
  if (current_access != Access::kChange) throw FatalError("a call that only reads was about to change the host");
  return TheHost();
}

void *HandleOf(HandleMeaning meaning) {
  meaning.switch_number = ReadHost().FindSwitchById(meaning.switch_id).number;
  if (Handles().size() >= handle_limit) {
    Handles().ForgetIf(IsGone);
    handle_limit = std::max<std::size_t>(handle_limit, 2 * Handles().size());
  }
  return Handles().HandleOf(meaning);
}

const HandleMeaning *FindHandle(const void *handle) {
  const HandleMeaning *meaning = Handles().Find(handle);
  return meaning == nullptr || IsStale(*meaning) ? nullptr : meaning;
}

const std::string &KeepValue(const void *handle, std::string_view value) { return Handles().KeepValue(handle, value); }

void InstallProcessHost(std::unique_ptr<Host> host) {
  Clear(ThePlace());
  ThePlace().memory = host != nullptr ? std::move(host) : MakeSampleHost();
}

void InstallHostFile(const std::string &path) {
  Clear(ThePlace());
  PutIntoFile(ThePlace(), path);
}

HostFile *ProcessHostFile() { return FoundPlace().file.get(); }

}  // namespace kestrel::host
