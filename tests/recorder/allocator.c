/* Preloaded into an interpreter, stands before the C library's allocator: the next allocation of a given size fails,
   the nth allocation within a call fails, or an allocation or release jumps through the module's exception channel.
   Everything else passes through, and is counted. */
#include <errno.h>
#include <malloc.h>
#include <setjmp.h>
#include <stddef.h>
#include <stdint.h>

extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *memory, size_t size);
extern void *__libc_memalign(size_t alignment, size_t size);
extern void __libc_free(void *memory);

void *malloc(size_t size);
void *calloc(size_t count, size_t size);
void *realloc(void *memory, size_t size);
void *memalign(size_t alignment, size_t size);
void *aligned_alloc(size_t alignment, size_t size);
int posix_memalign(void **memory, size_t alignment, size_t size);
void free(void *memory);

/** The next allocation of just `size` bytes gives null. */
void allocator_fail(size_t size);
/** The next allocation of just `size` bytes jumps to `buffer` with `value`. */
void allocator_jump(size_t size, void *buffer, int value);
/** The release of `memory` jumps to `buffer` with `value`; the memory stays allocated. */
void allocator_jump_on_release(void *memory, void *buffer, int value);

/** The interpreter's own way to call an object: PyObject_Call. */
typedef void *(*Call)(void *callable, void *arguments, void *keywords);
/** Calls `callable` with a tuple of arguments while its nth allocation fails, 1 being the first, and with `forever` all
    that follow too; with 0 none does. Nothing outside of the call counts or fails. */
void *allocator_call(Call call, void *callable, void *arguments, size_t nth, int forever);
/** How many allocations the last such call asked for, failed ones included. */
size_t allocator_asked(void);
/** Where the first one that failed in it was asked for: an address in the code. */
void *allocator_failed_at(void);
/** Notes how many blocks are allocated, by anybody. */
void allocator_mark(void);
/** How many more there are than when that was noted. */
intptr_t allocator_grown(void);
/** How many more there are than when the last call began. */
intptr_t allocator_grown_by_call(void);

static size_t failing_size;
static size_t jumping_size;
static void *jumping_memory;
static void *jump_buffer;
static int jump_value;

static int is_counting;
static int fails_forever;
static size_t failing_nth;
static size_t asked;
static void *failed_at;
static intptr_t live;
static intptr_t marked;
static intptr_t at_call;

void allocator_fail(size_t size) { failing_size = size; }

void allocator_jump(size_t size, void *buffer, int value) {
  jumping_size = size;
  jump_buffer = buffer;
  jump_value = value;
}

void allocator_jump_on_release(void *memory, void *buffer, int value) {
  jumping_memory = memory;
  jump_buffer = buffer;
  jump_value = value;
}

void *allocator_call(Call call, void *callable, void *arguments, size_t nth, int forever) {
  asked = 0;
  failed_at = NULL;
  failing_nth = nth;
  fails_forever = forever;
  at_call = __atomic_load_n(&live, __ATOMIC_RELAXED);
  is_counting = 1;
  void *result = call(callable, arguments, NULL);
  is_counting = 0;
  return result;
}

size_t allocator_asked(void) { return asked; }
void *allocator_failed_at(void) { return failed_at; }
void allocator_mark(void) { marked = __atomic_load_n(&live, __ATOMIC_RELAXED); }
intptr_t allocator_grown(void) { return __atomic_load_n(&live, __ATOMIC_RELAXED) - marked; }
intptr_t allocator_grown_by_call(void) { return __atomic_load_n(&live, __ATOMIC_RELAXED) - at_call; }

static void jump(void) { longjmp(*(jmp_buf *)jump_buffer, jump_value); }

/** Whether this allocation, asked for at `place`, is to fail; jumps if it is to jump. */
static int meddled_with(size_t size, void *place) {
  if (is_counting) {
    ++asked;
    if (failing_nth && (asked == failing_nth || (fails_forever && asked > failing_nth))) {
      if (!failed_at) failed_at = place;
      errno = ENOMEM;
      return 1;
    }
  }
  if (size == 0) return 0;
  if (size == jumping_size) {
    jumping_size = 0;
    jump();
  }
  if (size != failing_size) return 0;
  failing_size = 0;
  return 1;
}

/** A block that has been allocated, or null. */
static void *counted(void *memory) {
  if (memory) __atomic_add_fetch(&live, 1, __ATOMIC_RELAXED);
  return memory;
}

#define PLACE __builtin_return_address(0)

void *malloc(size_t size) { return meddled_with(size, PLACE) ? NULL : counted(__libc_malloc(size)); }

void *calloc(size_t count, size_t size) {
  return meddled_with(count * size, PLACE) ? NULL : counted(__libc_calloc(count, size));
}

void *realloc(void *memory, size_t size) {
  if (memory && size == 0) {
    free(memory);
    return NULL;
  }
  if (meddled_with(size, PLACE)) return NULL;
  void *moved = __libc_realloc(memory, size);
  return memory ? moved : counted(moved);
}

void *memalign(size_t alignment, size_t size) {
  return meddled_with(size, PLACE) ? NULL : counted(__libc_memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size) {
  return meddled_with(size, PLACE) ? NULL : counted(__libc_memalign(alignment, size));
}

int posix_memalign(void **memory, size_t alignment, size_t size) {
  void *made = meddled_with(size, PLACE) ? NULL : counted(__libc_memalign(alignment, size));
  if (!made) return ENOMEM;
  *memory = made;
  return 0;
}

void free(void *memory) {
  if (memory && memory == jumping_memory) {
    jumping_memory = NULL;
    jump();
  }
  if (memory) __atomic_sub_fetch(&live, 1, __ATOMIC_RELAXED);
  __libc_free(memory);
}
