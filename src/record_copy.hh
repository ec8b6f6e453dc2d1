/* Copies of records that the caller owns. For C++ alone, unlike the headers that declare functions. */
#pragma once

#include <cstdlib>
#include <cstring>

/** A copy in a block of its own from malloc; null when there is no memory. The record need not be aligned. */
template <class Record>
Record *copy_of(const Record *record) {
  auto *copy = static_cast<Record *>(std::malloc(sizeof(Record)));
  if (copy) std::memcpy(copy, record, sizeof(Record));
  return copy;
}
