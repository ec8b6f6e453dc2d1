/* Preloaded into an interpreter, stands before the C library's allocator: the next allocation of a given size
   fails, or an allocation or release jumps through the module's exception channel. Everything else passes
   through. */
#include <setjmp.h>
#include <stddef.h>

extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void __libc_free(void *memory);

void *malloc(size_t size);
void *calloc(size_t count, size_t size);
void free(void *memory);

/** The next allocation of just `size` bytes gives null. */
void allocator_fail(size_t size);
/** The next allocation of just `size` bytes jumps to `buffer` with `value`. */
void allocator_jump(size_t size, void *buffer, int value);
/** The release of `memory` jumps to `buffer` with `value`; the memory stays allocated. */
void allocator_jump_on_release(void *memory, void *buffer, int value);

static size_t failing_size;
static size_t jumping_size;
static void *jumping_memory;
static void *jump_buffer;
static int jump_value;

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

static void jump(void) { longjmp(*(jmp_buf *)jump_buffer, jump_value); }

/** Whether this allocation is to fail; jumps if it is to jump. */
static int meddled_with(size_t size) {
  if (size == 0) return 0;
  if (size == jumping_size) {
    jumping_size = 0;
    jump();
  }
  if (size != failing_size) return 0;
  failing_size = 0;
  return 1;
}

void *malloc(size_t size) { return meddled_with(size) ? NULL : __libc_malloc(size); }

void *calloc(size_t count, size_t size) { return meddled_with(count * size) ? NULL : __libc_calloc(count, size); }

void free(void *memory) {
  if (memory && memory == jumping_memory) {
    jumping_memory = NULL;
    jump();
  }
  __libc_free(memory);
}
