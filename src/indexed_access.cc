#include "indexed_access.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/** Whether `index` is below `count`, both unsigned; reports one that is not. */
bool in_bounds(int index, std::uint32_t count) {
  if (static_cast<std::uint32_t>(index) < count) return true;
  std::fputs("Invalid array index.", stdout);
  return false;
}

/** A copy of element `index` of the run that starts at `first`. */
template <class Record>
Record *copy_of(const Record *first, std::ptrdiff_t index) {
  auto *copy = static_cast<Record *>(std::malloc(sizeof(Record)));
  if (copy) std::memcpy(copy, first + index, sizeof(Record));
  return copy;
}

/** `n` elements, or null where that many bytes cannot be counted. */
template <class Record>
Record *make_array(std::size_t n) {
  std::size_t size = 0;
  if (__builtin_mul_overflow(n, sizeof(Record), &size)) return nullptr;
  return static_cast<Record *>(std::malloc(size));
}

}  // namespace

int VSUplinks___len__(VSUplinks *uplinks) { return static_cast<int>(uplinks->numEntries); }

kestrel_Text VSUplinks___getitem__(VSUplinks *uplinks, int index) {
  if (!in_bounds(index, uplinks->numEntries)) return {nullptr, 0};
  const zel_Name &name = uplinks->entries[static_cast<std::uint32_t>(index)].name;
  return {name.string, sizeof name.string};
}

VSMACEntry *VSMACEntry___getitem__(VSMACEntry *entry, int index) { return copy_of(entry, index); }

vidrangeArray *new_vidrangeArray(size_t n) { return make_array<zel_VDSPortVIDRange>(n); }

zel_VDSPortVIDRange vidrangeArray_getitem(vidrangeArray *array, size_t index) { return array[index]; }

void vidrangeArray_setitem(vidrangeArray *array, size_t index, zel_VDSPortVIDRange value) {
  array[index] = value;
}

pvlanmapentryArray *new_pvlanmapentryArray(size_t n) { return make_array<VSPvlanMapEntry>(n); }

VSPvlanMapEntry pvlanmapentryArray_getitem(pvlanmapentryArray *array, size_t index) { return array[index]; }

void pvlanmapentryArray_setitem(pvlanmapentryArray *array, size_t index, VSPvlanMapEntry value) {
  array[index] = value;
}
