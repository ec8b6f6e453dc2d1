#include "recorder.h"

#include <csetjmp>
#include <cstring>
#include <map>
#include <string>
#include <vector>

// The module's exception channel, found by name in the process as the host's libraries find it.
extern "C" {
extern jmp_buf exception_buffer __attribute__((weak));
extern void *exceptionType __attribute__((weak));
extern const char *exceptionMsg __attribute__((weak));
}

namespace {

struct Jump {
  int value;
  void *type;
  const char *message;
};

struct State {
  std::string log;
  std::string function;
  std::map<std::string, long long> answers;
  std::map<std::string, std::map<int, std::vector<unsigned char>>> outputs;
  std::map<std::string, Jump> jumps;
};

State &state() {
  static State instance;
  return instance;
}

void note_hexadecimal(const char *prefix, const void *bytes, std::size_t size) {
  constexpr char digits[] = "0123456789abcdef";
  std::string &log = state().log;
  log += prefix;
  for (std::size_t i = 0; i < size; ++i) {
    const auto byte = static_cast<const unsigned char *>(bytes)[i];
    log += digits[byte >> 4];
    log += digits[byte & 15];
  }
}

/** Takes the jump prepared for the current function, if there is one. */
bool take_jump(Jump &jump) {
  auto &jumps = state().jumps;
  const auto found = jumps.find(state().function);
  if (found == jumps.end()) return false;
  jump = found->second;
  jumps.erase(found);
  return true;
}

}  // namespace

void recorder_begin(const char *function) {
  state().function = function;
  state().log += function;
}

void recorder_integer(long long value) { state().log += "\ti:" + std::to_string(value); }

void recorder_text(const char *text) {
  if (text) {
    note_hexadecimal("\tt:", text, std::strlen(text));
  } else {
    state().log += "\tnull";
  }
}

void recorder_bytes(const void *bytes, size_t size) {
  if (bytes) {
    note_hexadecimal("\tb:", bytes, size);
  } else {
    state().log += "\tnull";
  }
}

void recorder_pointer(const volatile void *pointer) {
  if (!pointer) {
    state().log += "\tnull";
    return;
  }
  std::uintptr_t address = reinterpret_cast<std::uintptr_t>(pointer);
  unsigned char bytes[sizeof address];
  for (std::size_t i = sizeof bytes; i-- > 0; address >>= 8) bytes[i] = static_cast<unsigned char>(address);
  note_hexadecimal("\tp:", bytes, sizeof bytes);
}

void recorder_end() {
  state().log += '\n';
  Jump jump;
  if (!take_jump(jump)) return;
  exceptionType = jump.type;
  exceptionMsg = jump.message;
  std::longjmp(exception_buffer, jump.value);
}

void recorder_fill(int index, void *destination) {
  const auto &outputs = state().outputs[state().function];
  const auto found = outputs.find(index);
  if (destination && found != outputs.end()) {
    std::memcpy(destination, found->second.data(), found->second.size());
  }
}

long long recorder_result() { return state().answers[state().function]; }

void recorder_reset() { state() = State{}; }

const char *recorder_log() { return state().log.c_str(); }

void recorder_answer(const char *function, long long result) { state().answers[function] = result; }

void recorder_output(const char *function, int index, const void *bytes, size_t size) {
  const auto *first = static_cast<const unsigned char *>(bytes);
  state().outputs[function][index].assign(first, first + size);
}

void recorder_jump(const char *function, int value, void *type, const char *message) {
  state().jumps[function] = {value, type, message};
}
