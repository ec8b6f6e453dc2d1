/* The life of the host as a whole. */
#include <cstring>
#include <map>
#include <memory>

#include "host/abi/arguments.h"
#include "host/core/sample_host.h"
#include "host/core/storage/host_file.h"
#include "host/lab/call.h"
#include "host/lab/refusal.h"
#include "kestrel/lab.h"

namespace kestrel::host::lab {
namespace {

/** By number. Never destroyed: scripts may still call while the process ends. */
std::map<zel_uint64, std::unique_ptr<const Host>> &Snapshots() {
  static auto *snapshots = new std::map<zel_uint64, std::unique_ptr<const Host>>;
  return *snapshots;
}

zel_uint64 last_snapshot = 0;

std::unique_ptr<Host> MakeHost(const KestrelLabBeginning &beginning) {
  int number = 0;  // an enumeration of C holds any
  static_assert(sizeof number == sizeof beginning);
  std::memcpy(&number, &beginning, sizeof number);
  switch (number) {
    case KESTREL_LAB_EMPTY:
      return std::make_unique<Host>();
    case KESTREL_LAB_SAMPLE:
      return MakeSampleHost();
    default:
      throw Refusal(ZEL_BAD_PARAM, "a host begins empty or as the sample");
  }
}

}  // namespace
}  // namespace kestrel::host::lab

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_reset(KestrelLabBeginning beginning) {
  return ChangeInLab([&] { ChangeHost().Restore(*MakeHost(beginning)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_restart(void) {
  return ChangeInLab([] { ChangeHost().Restart(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_snapshot(zel_uint64 *snapshotOut) {
  return ReadInLab([&] {
    abi::ClearOutputs(snapshotOut);
    Snapshots()[last_snapshot + 1] = ReadHost().Snapshot();
    abi::SetOutput(snapshotOut, ++last_snapshot);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_restore(zel_uint64 snapshot) {
  return ChangeInLab([&] {
    const auto found = Snapshots().find(snapshot);
    if (found == Snapshots().end()) throw StatusError(ZEL_NOT_FOUND);
    ChangeHost().Restore(*found->second);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_drop_snapshot(zel_uint64 snapshot) {
  return WithoutHost([&] {
    if (Snapshots().erase(snapshot) == 0) throw StatusError(ZEL_NOT_FOUND);
  });
}

// A transaction is opened and closed outside of every call.

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_begin(void) {
  return WithoutHost([] { BeginHostTransaction(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_commit(void) {
  return WithoutHost([] { CommitHostTransaction(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_rollback(void) {
  return WithoutHost([] { RollBackHostTransaction(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_host_path(char *textOut, size_t width) {
  return WithoutHost([&] {
    abi::ClearText(textOut, width);
    const HostFile *file = ProcessHostFile();
    if (file == nullptr) return;
    if (file->path().size() >= width) throw StatusError(ZEL_BUF_TOO_SMALL);
    abi::SetTextOutput(textOut, file->path(), width);
  });
}
