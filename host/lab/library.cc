/* The laboratory as a library: its version, its messages, its memory. */
#include <cstdlib>

#include "host/export.h"
#include "host/lab/call.h"
#include "kestrel/lab.h"

KESTREL_HOST_EXPORT zel_uint32 kestrel_lab_version(void) { return KESTREL_LAB_VERSION; }

KESTREL_HOST_EXPORT const char *kestrel_lab_message(void) { return kestrel::host::lab::LastMessage(); }

KESTREL_HOST_EXPORT void kestrel_lab_free(void *memory) { std::free(memory); }
