// What a record is made of when many stand in a row: its single values, those of records within it included.
#pragma once

#include <string>
#include <vector>

#include "native/record.h"

namespace kestrel::records {

struct Column {
  /** "portStats.numMACsMoved" for a member of a record within. */
  std::string name;
  const RecordClass *cls;
  const FieldSpec *field;
  /** From the start of the outer record. */
  Py_ssize_t offset;
};

struct Columns {
  std::vector<Column> list;
};

/** The columns of a record, overlays, pointers and what follows left out. Null with MemoryError. */
const Columns *ColumnsOf(RecordClass &cls);

/** The buffer format of a record (PEP 3118): little-endian, without alignment, overlays left out. Null with
    MemoryError. */
const char *FormatOf(RecordClass &cls);

/** The format of a single value on its own, and how many bytes stand in a row in it (for addresses). */
std::string FormatOf(const Element &element);

}  // namespace kestrel::records
