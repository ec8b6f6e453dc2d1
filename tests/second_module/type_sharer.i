/* A second SWIG module that knows a record of `_libkestrel` by name: the two share one type table. */
%module type_sharer

%{
#include <string.h>

#include "kestrel/base_records.h"

static const char *text_of(zel_Name *name) { return name->string; }

static zel_Name *make(const char *text) {
  static zel_Name name;
  strncpy(name.string, text, sizeof name.string - 1);
  return &name;
}
%}

typedef struct zel_Name zel_Name;
const char *text_of(zel_Name *name);
zel_Name *make(const char *text);
