/* What the conveniences return where a plain C type would not say enough. Each has its own rule of conversion. */
#pragma once

#include <stdbool.h>
#include <stddef.h>

#include "kestrel/types.h"

/** Text up to its first zero byte or, where there is none, up to `width` bytes; null `text` for no text at all.
    Crosses to Python as str, or None. */
typedef struct {
  const char *text;
  size_t width;
} kestrel_Text;

/** A text of its own, zero-terminated. Crosses as str, or None where it is absent. */
typedef struct {
  bool present;
  char text[64];
} kestrel_OwnText;

/** `size` bytes. Crosses as bytes, or None for null `data`; a negative size is the interpreter's to refuse. */
typedef struct {
  const char *data;
  ptrdiff_t size;
} kestrel_Bytes;

/** The 32 bytes of a mirror session's identifier. Crosses as bytes; null as a failure without exception. */
typedef struct {
  const char *bytes;
} kestrel_SessionId;

/** The value of a runtime option: zero-terminated text, crossing as bytes, or where that is null a number. */
typedef struct {
  const char *text;
  zel_uint32 number;
} kestrel_OptionValue;
