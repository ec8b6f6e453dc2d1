#include "host/core/faults.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/text_map.h"

namespace kestrel::host {

bool calls_are_watched = false;

namespace {

struct Watch {
  std::vector<Fault> faults;
  std::uint64_t last_id = 0;
  bool counts = false;
  TextMap<std::uint64_t> calls;
  bool disk_is_full = false;

  void Settle() noexcept { calls_are_watched = counts || disk_is_full || !faults.empty(); }
};

/** Never destroyed: scripts may still call while the process ends. */
Watch &TheWatch() {
  static auto *watch = new Watch;
  return *watch;
}

/** The fault that a call meets; what remains of the others and of itself is counted down. */
std::optional<Fault> Met(Watch &watch, std::string_view function) {
  const Fault *met = nullptr;
  std::optional<Fault> found;
  for (Fault &fault : watch.faults) {
    if (fault.function != function) continue;
    if (fault.calls_before > 0) {
      --fault.calls_before;
    } else if (met == nullptr) {
      met = &fault;
      found = fault;
      --fault.calls_left;
    }
  }
  std::erase_if(watch.faults, [](const Fault &fault) { return fault.calls_left == 0; });
  return found;
}

}  // namespace

std::uint64_t ArmFault(Fault fault) {
  Watch &watch = TheWatch();
  fault.id = watch.last_id + 1;
  watch.faults.push_back(std::move(fault));
  watch.Settle();
  return ++watch.last_id;
}

bool DisarmFault(std::uint64_t id) noexcept {
  Watch &watch = TheWatch();
  const bool was_there = std::erase_if(watch.faults, [id](const Fault &fault) { return fault.id == id; }) != 0;
  watch.Settle();
  return was_there;
}

void DisarmFaults() noexcept {
  Watch &watch = TheWatch();
  watch.faults.clear();
  watch.Settle();
}

const std::vector<Fault> &ArmedFaults() { return TheWatch().faults; }

void CountCalls(bool on) {
  Watch &watch = TheWatch();
  if (on) watch.calls.clear();
  watch.counts = on;
  watch.Settle();
}

std::uint64_t CallsOf(std::string_view function) {
  const TextMap<std::uint64_t> &calls = TheWatch().calls;
  const auto found = calls.find(function);
  return found == calls.end() ? 0 : found->second;
}

bool MeetsFullDisk() noexcept { return calls_are_watched && TheWatch().disk_is_full; }

void MeetWatched(const char *function) {
  Watch &watch = TheWatch();
  if (watch.counts) ++watch.calls[function];
  const std::optional<Fault> met = Met(watch, function);
  watch.disk_is_full = met && met->effect == FaultEffect::kDiskFull;
  watch.Settle();
  if (!met || watch.disk_is_full) return;
  if (met->effect == FaultEffect::kStatus) throw StatusError(met->status);
  throw FatalError(met->message, met->exception);
}

void LeaveWatched() noexcept {
  TheWatch().disk_is_full = false;
  TheWatch().Settle();
}

}  // namespace kestrel::host
