/* The recorder platform: three libraries that note every argument as it arrives, answer as told, and jump
   through the exception channel when told. The functions themselves are generated from the headers and call
   these. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- For the generated functions ---- */

void recorder_begin(const char *function);
void recorder_integer(long long value);
/** Notes the address and, where it is not null, the text up to its terminator. */
void recorder_text(const char *text);
/** Notes `size` bytes. */
void recorder_bytes(const void *bytes, size_t size);
void recorder_pointer(const volatile void *pointer);
/** Closes the line; jumps if the test asked for it. */
void recorder_end(void);
/** Copies what the test prepared for parameter `index`, if anything, to where the parameter points. */
void recorder_fill(int index, void *destination);
long long recorder_result(void);

/* ---- For the tests ---- */

/** Forgets notes, answers and jumps. */
void recorder_reset(void);
/** One line a call: the function's name and, each after a tab, "i:" and a number, "t:" and hexadecimal bytes,
   "b:" and hexadecimal bytes, "p:" and a hexadecimal address, or "null". Valid until the next call. */
const char *recorder_log(void);
/** What calls of `function` return from now on; 0 where nothing was said. */
void recorder_answer(const char *function, long long result);
/** What calls of `function` write through parameter `index` (from 0) from now on. */
void recorder_output(const char *function, int index, const void *bytes, size_t size);
/** Makes the next call of `function` jump with `value`, raising `type` with `message`; both must outlive the
 * call. */
void recorder_jump(const char *function, int value, void *type, const char *message);

#ifdef __cplusplus
}
#endif
