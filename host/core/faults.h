/* Faults that are to be met by calls, for rehearsals. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/export.h"

namespace kestrel::host {

/** What becomes of a call that meets a fault. */
enum class FaultEffect : std::uint8_t {
  /** It gives a status and does nothing. */
  kStatus,
  /** It ends with an exception. */
  kAbort,
  /** It finds the disk full when it comes to write. */
  kDiskFull,
};

/** A fault as it is armed. */
struct Fault {
  /** The declared function that meets it. */
  std::string function;
  FaultEffect effect;
  /** For kStatus: any but ZEL_OK. */
  int status = 0;
  /** For kAbort: the name of the interpreter's exception class, and the message in UTF-8. */
  std::string exception{};
  std::string message{};
  /** How many calls of the function still go before the first that meets it. */
  std::uint64_t calls_before = 0;
  /** How many calls in a row still meet it; when that is 0 it is gone. */
  std::uint64_t calls_left = 1;
  /** Given when it is armed: never 0, never used twice. */
  std::uint64_t id = 0;
};

/** Arms a fault and gives its number. Of faults that one call would meet the one armed first is met; the others count
    that call too. */
KESTREL_HOST_EXPORT std::uint64_t ArmFault(Fault fault);
/** Gives whether there was such a fault. */
KESTREL_HOST_EXPORT bool DisarmFault(std::uint64_t id) noexcept;
KESTREL_HOST_EXPORT void DisarmFaults() noexcept;
/** In the order in which they were armed. */
KESTREL_HOST_EXPORT const std::vector<Fault> &ArmedFaults();

/** Counts calls from here on, beginning at 0, or no longer. */
KESTREL_HOST_EXPORT void CountCalls(bool on);
/** How often a function was called while calls were counted. */
KESTREL_HOST_EXPORT std::uint64_t CallsOf(std::string_view function);

/** Whether the call in progress, which is one of a FaultScope, is to find the disk full. */
KESTREL_HOST_EXPORT bool MeetsFullDisk() noexcept;

/** True while a fault is armed or calls are counted. */
extern KESTREL_HOST_EXPORT bool calls_are_watched;
KESTREL_HOST_EXPORT void MeetWatched(const char *function);
KESTREL_HOST_EXPORT void LeaveWatched() noexcept;

/** A call into the libraries, as far as faults go. */
class FaultScope {
 public:
  /** Takes the declared function's name. Throws what the fault that the call meets asks for: StatusError, FatalError,
      or nothing. */
  explicit FaultScope(const char *function) {
    if (calls_are_watched) [[unlikely]] {
      MeetWatched(function);
    }
  }
  ~FaultScope() {
    if (calls_are_watched) [[unlikely]] {
      LeaveWatched();
    }
  }
  FaultScope(const FaultScope &) = delete;
  FaultScope &operator=(const FaultScope &) = delete;
};

}  // namespace kestrel::host
