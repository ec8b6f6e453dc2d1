#include <cstdio>

#include "host/export.h"
#include "kestrel/core.h"

/* The text is shown as it stands: scripts pass it without the values that its directives would ask for. */
KESTREL_HOST_EXPORT void Panic(const char *format, ...) {
  std::fprintf(stderr, "Panic: %s\n", format == nullptr ? "(no message)" : format);
}
