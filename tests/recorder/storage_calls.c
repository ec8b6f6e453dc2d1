/* Preloaded into a process, stands before the system calls by which it changes its host file: the nth of them fails, is
   cut short, or finds a signal. Files are told by their path: those that begin with FAULT_FILE. What becomes of which
   call stands in the environment when the process begins, or is told later by storage_calls_fail:

   FAULT_CALL    open, write, sync, truncate, unlink, map or any
   FAULT_NTH     the call that meets the fault, 1 being the first; 0: none does
   FAULT_EVER    1: all that follow too
   FAULT_EFFECT  an error's number: the call fails with it; 0: a write writes half; negative: the process gets the
   signal of that number, and the call is made afterwards FAULT_REPORT  a file to which the number of such calls is
   written when the process ends */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

enum { kDescriptors = 1024 };
static char is_watched[kDescriptors];
static char call_name[16];
static long failing_nth;
static int fails_forever;
static int effect;
static long counted;

void storage_calls_fail(const char *call, long nth, int forever, int what);
long storage_calls_counted(void);

/** The nth call of a kind from now on meets a fault. */
void storage_calls_fail(const char *call, long nth, int forever, int what) {
  snprintf(call_name, sizeof call_name, "%s", call);
  failing_nth = nth;
  fails_forever = forever;
  effect = what;
  counted = 0;
}

/** How many calls of that kind there have been since. */
long storage_calls_counted(void) { return counted; }

static long number_of(const char *name) {
  const char *text = getenv(name);
  return text ? atol(text) : 0;
}

__attribute__((constructor)) static void begin(void) {
  const char *call = getenv("FAULT_CALL");
  if (call) {
    storage_calls_fail(call, number_of("FAULT_NTH"), (int)number_of("FAULT_EVER"), (int)number_of("FAULT_EFFECT"));
  }
}

__attribute__((destructor)) static void end(void) {
  const char *path = getenv("FAULT_REPORT");
  if (!path) return;
  FILE *file = fopen(path, "w");
  if (!file) return;
  fprintf(file, "%ld\n", counted);
  fclose(file);
}

static int is_ours(const char *path) {
  const char *prefix = getenv("FAULT_FILE");
  return prefix && strncmp(path, prefix, strlen(prefix)) == 0;
}

static int is_open_ours(int descriptor) {
  return descriptor >= 0 && descriptor < kDescriptors && is_watched[descriptor];
}

/** Whether a call of this kind meets the fault: 1 it fails, errno being set, 2 it is cut short. */
static int meets(const char *kind) {
  if (strcmp(call_name, kind) != 0 && strcmp(call_name, "any") != 0) return 0;
  ++counted;
  if (failing_nth == 0 || counted < failing_nth || (counted > failing_nth && !fails_forever)) return 0;
  if (effect < 0) {
    raise(-effect);
    return 0;
  }
  errno = effect;
  return effect == 0 ? 2 : 1;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

static int opened(int descriptor, int ours) {
  if (descriptor >= 0 && descriptor < kDescriptors) is_watched[descriptor] = (char)ours;
  return descriptor;
}

#define OPEN(name)                                      \
  int name(const char *path, int flags, ...) {          \
    va_list rest;                                       \
    va_start(rest, flags);                              \
    const mode_t mode = va_arg(rest, mode_t);           \
    va_end(rest);                                       \
    const int ours = is_ours(path);                     \
    if (ours && meets("open") == 1) return -1;          \
    return opened(REAL(name)(path, flags, mode), ours); \
  }
OPEN(open)
OPEN(open64)

ssize_t write(int descriptor, const void *bytes, size_t size) {
  const int met = is_open_ours(descriptor) ? meets("write") : 0;
  return met == 1 ? -1 : REAL(write)(descriptor, bytes, met == 2 ? (size + 1) / 2 : size);
}

ssize_t pwrite(int descriptor, const void *bytes, size_t size, off_t offset) {
  const int met = is_open_ours(descriptor) ? meets("write") : 0;
  return met == 1 ? -1 : REAL(pwrite)(descriptor, bytes, met == 2 ? (size + 1) / 2 : size, offset);
}

ssize_t pwrite64(int descriptor, const void *bytes, size_t size, off64_t offset) {
  const int met = is_open_ours(descriptor) ? meets("write") : 0;
  return met == 1 ? -1 : REAL(pwrite64)(descriptor, bytes, met == 2 ? (size + 1) / 2 : size, offset);
}

int fsync(int descriptor) { return is_open_ours(descriptor) && meets("sync") == 1 ? -1 : REAL(fsync)(descriptor); }

int fdatasync(int descriptor) {
  return is_open_ours(descriptor) && meets("sync") == 1 ? -1 : REAL(fdatasync)(descriptor);
}

int ftruncate(int descriptor, off_t size) {
  return is_open_ours(descriptor) && meets("truncate") == 1 ? -1 : REAL(ftruncate)(descriptor, size);
}

int ftruncate64(int descriptor, off64_t size) {
  return is_open_ours(descriptor) && meets("truncate") == 1 ? -1 : REAL(ftruncate64)(descriptor, size);
}

int unlink(const char *path) { return is_ours(path) && meets("unlink") == 1 ? -1 : REAL(unlink)(path); }

void *mmap64(void *address, size_t size, int protection, int flags, int descriptor, off64_t offset) {
  if (is_open_ours(descriptor) && meets("map") == 1) return MAP_FAILED;
  return REAL(mmap64)(address, size, protection, flags, descriptor, offset);
}
