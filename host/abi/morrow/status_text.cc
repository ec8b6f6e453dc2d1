/* The sentences that explain status codes. */
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "host/export.h"
#include "kestrel/core.h"

namespace {

struct Sentence {
  ZEL_ReturnStatus status;
  const char *text;
};

constexpr auto kSentences = [] {
  constexpr Sentence kRows[] = {
#define KESTREL_STATUS(name, value, text) Sentence{value, text},
#include "kestrel/constants.def"
  };
  auto sentences = std::to_array(kRows);
  std::ranges::sort(sentences, {}, &Sentence::status);
  return sentences;
}();

static_assert(std::ranges::adjacent_find(kSentences, {}, &Sentence::status) == kSentences.end(),
              "two status codes have one value");

/** Null for a value that is no status code. */
const char *FindSentence(ZEL_ReturnStatus status) {
  const auto found = std::ranges::lower_bound(kSentences, status, {}, &Sentence::status);
  return found != kSentences.end() && found->status == status ? found->text : nullptr;
}

/** The numbers that Linux keeps for errors end here. */
constexpr int kMaxErrorNumber = 4095;

/** For texts that are put together; good until the thread asks for the next one. */
thread_local char composed[256];

// strerror_r comes in two forms, of which the C library has one.
[[maybe_unused]] const char *ErrorWords(int, const char *buffer) { return buffer; }
[[maybe_unused]] const char *ErrorWords(const char *words, const char *) { return words; }

const char *OperatingSystemError(int number) {
  char buffer[128] = "";
  const char *words = ErrorWords(strerror_r(number, buffer, sizeof buffer), buffer);
  std::snprintf(composed, sizeof composed, "%s: %s", FindSentence(ZEL_GENERIC_LINUX_ERROR), words);
  return composed;
}

}  // namespace

KESTREL_HOST_EXPORT const char *ZEL_ReturnStatusToString(ZEL_ReturnStatus status) {
  if (const char *text = FindSentence(status)) return text;
  const long long error_number = status - static_cast<long long>(ZEL_GENERIC_LINUX_ERROR);
  if (error_number > 0 && error_number <= kMaxErrorNumber) return OperatingSystemError(static_cast<int>(error_number));
  std::snprintf(composed, sizeof composed, "Unknown status 0x%08x (%d)", static_cast<unsigned>(status), status);
  return composed;
}
