/* Text in a field of fixed width. */
#pragma once

#include <stddef.h>

/** Text up to its first zero byte or, where there is none, up to `width` bytes; null `text` for no text at
   all. Crosses to Python as str, or None. */
typedef struct {
  const char *text;
  size_t width;
} kestrel_Text;
