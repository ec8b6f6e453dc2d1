// How far records reach: what follows their fixed part, and how many.
#pragma once

#include "native/record.h"

namespace kestrel::records {

/** The bytes that the record at `data` takes, with everything that follows it; -1 with ValueError where that is more
    than `limit`. Reads no byte beyond. */
Py_ssize_t ExtentOf(const RecordClass &cls, const char *data, Py_ssize_t limit);

/** Where a sequence lies that follows a record's fixed part. */
struct Run {
  /** From the record's start. */
  Py_ssize_t offset;
  Py_ssize_t count;
  /** Of one element; 0 where they vary. */
  Py_ssize_t stride;
};

/** Finds the run of `field` in a record that reaches `extent` bytes. 0, or -1 with ValueError where the counters say
    more than that. */
int FindRun(const RecordClass &cls, const FieldSpec &field, const char *data, Py_ssize_t extent, Run *run);

/** How many option words a GRE header's flags announce (RFC 2784, RFC 2890): checksum and routing share one. */
Py_ssize_t GreWords(const RecordClass &cls, const char *data);

/** Whether the elements differ in length. */
bool Varies(const FieldSpec &field);

/** What follows a table first. Of several views of it, the one of the longest elements that its memory holds: the
    views do not tell which of them is meant. */
const FieldSpec *Shown(const RecordClass &cls, const char *data, Py_ssize_t extent);

/** Whether a record, in one of its views, takes just these bytes. */
bool EndsAt(const RecordClass &cls, const char *data, Py_ssize_t length);

/** Stores a number of elements, or for varying ones of bytes, in the field's counter. 0, or -1 with OverflowError. */
int StoreCount(const RecordClass &cls, const FieldSpec &field, char *data, Py_ssize_t count);

/** Bytes of one element as the record at `data` has them. */
Py_ssize_t StrideOf(const RecordClass &cls, const FieldSpec &field, const char *data);

}  // namespace kestrel::records
