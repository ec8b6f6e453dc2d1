#include "native/extents.h"

#include <algorithm>
#include <cstring>

#include "kestrel/constants.h"
#include "native/integers.h"

namespace kestrel::records {

namespace {

constexpr Py_ssize_t kWord = 4;
constexpr Py_ssize_t kPortsetNameWidth = 128;
constexpr Py_ssize_t kAliasWidth = 81;

int TooLong(const RecordClass &cls, const char *what) {
  PyErr_Format(PyExc_ValueError, "%s: the memory does not hold all of %s", cls.spec->name, what);
  return -1;
}

/** The raw value of a counter. */
long long Counter(const RecordClass &cls, const FieldSpec &field, const char *data) {
  const FieldSpec &counter = cls.fields[field.counter];
  const long long number = LoadInteger(counter.element, data + counter.offset);
  if (!field.network_order) return number;
  return Swapped16(static_cast<std::uint16_t>(number));
}

/** How many elements, or bytes of them for a list of options, there are; -1 with ValueError for nonsense. */
Py_ssize_t CountOf(const RecordClass &cls, const FieldSpec &field, const char *data, Py_ssize_t extent) {
  if (field.counter < 0) return extent / field.element.width;
  if (cls.special == Special::kGre) return GreWords(cls, data);
  long long count = Counter(cls, field, data);
  if (cls.special == Special::kOption || cls.special == Special::kOptions) {
    count -= cls.spec->size;
    if (count < 0) count = 0;  // not laid out yet
  }
  if (count < 0) {
    PyErr_Format(PyExc_ValueError, "%s.%s is too small", cls.spec->name, cls.fields[field.counter].name);
    return -1;
  }
  return count;
}

/** The length of a run of varying elements within `limit` bytes; counts what it walks over. */
Py_ssize_t Walk(const RecordClass &cls, const FieldSpec &field, const char *start, Py_ssize_t limit,
                Py_ssize_t *count) {
  const RecordClass *element = ClassAt(field.element.target);
  if (!element) return -1;
  const bool by_length = cls.special == Special::kOptions;
  const Py_ssize_t wanted = *count;
  if (by_length && wanted > limit) return TooLong(cls, field.name);
  const Py_ssize_t end = by_length ? wanted : limit;
  Py_ssize_t position = 0;
  Py_ssize_t walked = 0;
  while (by_length ? position < end : walked < wanted) {
    // Room behind the last option is not an option: a list may have been made larger than what it holds.
    if (by_length && (end - position < kWord || LoadU16(start + position + 2) < kWord)) break;
    const Py_ssize_t step = ExtentOf(*element, start + position, end - position);
    if (step < 0) return -1;
    position += step;
    ++walked;
  }
  *count = walked;
  return by_length ? end : position;
}

/** The stride of a field or, of several that show the same bytes, the least: that much is there in any case. */
Py_ssize_t LeastStride(const RecordClass &cls, std::uint32_t index, const char *data) {
  Py_ssize_t least = StrideOf(cls, cls.fields[index], data);
  for (std::uint32_t i = index + 1; i < cls.spec->fields; ++i) {
    if (cls.fields[i].shape == Shape::kFollows && cls.fields[i].overlaid) {
      least = std::min<Py_ssize_t>(least, cls.fields[i].element.width);
    }
  }
  return least;
}

/** The extent up to and with `last`, or of everything for null; fills `run` for it. */
Py_ssize_t Measure(const RecordClass &cls, const FieldSpec *last, const char *data, Py_ssize_t limit, Run *run) {
  if (limit < static_cast<Py_ssize_t>(cls.spec->size)) return TooLong(cls, "its fixed part");
  Py_ssize_t end = cls.spec->size;
  Py_ssize_t position = -1;
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    if (field.shape != Shape::kFollows || (field.overlaid && &field != last)) continue;
    const Py_ssize_t start = position < 0 || field.overlaid ? field.offset : position;
    Py_ssize_t count = CountOf(cls, field, data, limit);
    if (count < 0) return -1;
    Py_ssize_t length = 0;
    Py_ssize_t stride = 0;
    if (Varies(field)) {
      length = Walk(cls, field, data + start, limit - start, &count);
      if (length < 0) return -1;
    } else {
      stride = &field == last ? StrideOf(cls, field, data) : LeastStride(cls, i, data);
      if (limit < start || count > (limit - start) / stride) return TooLong(cls, field.name);
      length = count * stride;
    }
    position = start + length;
    end = std::max(end, position);
    if (&field == last) {
      *run = {start, count, stride};
      return end;
    }
  }
  if (cls.special == Special::kGroupRecord) {
    const FieldSpec &words = cls.fields[1];
    end += LoadInteger(words.element, data + words.offset) * kWord;
    if (end > limit) return TooLong(cls, "the auxiliary data");
  }
  return end;
}

}  // namespace

Py_ssize_t GreWords(const RecordClass &cls, const char *data) {
  const auto flag = [&](const char *name) {
    for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
      if (std::strcmp(cls.fields[i].name, name) == 0)
        return LoadInteger(cls.fields[i].element, data + cls.fields[i].offset);
    }
    return 0LL;
  };
  return (flag("checksumPresent") | flag("routingPresent")) + flag("keyPresent") + flag("sequencePresent") +
         flag("ackPresent");
}

bool Varies(const FieldSpec &field) {
  if (field.element.kind != Kind::kRecord) return false;
  const RecordClass *element = ClassAt(field.element.target);
  return element && element->spec->table;
}

Py_ssize_t StrideOf(const RecordClass &cls, const FieldSpec &field, const char *data) {
  if (cls.special != Special::kNames) return field.element.width;
  const FieldSpec &list_type = cls.fields[1];
  return LoadInteger(list_type.element, data + list_type.offset) == VS_LIST_PS ? kPortsetNameWidth : kAliasWidth;
}

Py_ssize_t ExtentOf(const RecordClass &cls, const char *data, Py_ssize_t limit) {
  return Measure(cls, nullptr, data, limit, nullptr);
}

int FindRun(const RecordClass &cls, const FieldSpec &field, const char *data, Py_ssize_t extent, Run *run) {
  return Measure(cls, &field, data, extent, run) < 0 ? -1 : 0;
}

const FieldSpec *Shown(const RecordClass &cls, const char *data, Py_ssize_t extent) {
  const FieldSpec *shown = nullptr;
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    if (field.shape != Shape::kFollows || (shown && !field.overlaid)) continue;
    if (!shown) {
      shown = &field;
      if (i + 1 == cls.spec->fields || !cls.fields[i + 1].overlaid) return shown;
    }
    Run run;
    Run best;
    if (FindRun(cls, field, data, extent, &run) < 0) {
      PyErr_Clear();
    } else if (FindRun(cls, *shown, data, extent, &best) < 0) {
      PyErr_Clear();
      shown = &field;
    } else if (run.stride > best.stride) {
      shown = &field;
    }
  }
  return shown;
}

bool EndsAt(const RecordClass &cls, const char *data, Py_ssize_t length) {
  const Py_ssize_t extent = ExtentOf(cls, data, length);
  bool exact = extent == length;
  for (std::uint32_t i = 0; extent >= 0 && i < cls.spec->fields; ++i) {
    Run run{};
    if (!cls.fields[i].overlaid || cls.fields[i].shape != Shape::kFollows) continue;
    if (FindRun(cls, cls.fields[i], data, length, &run) == 0) exact |= run.offset + run.count * run.stride == length;
    PyErr_Clear();
    const FieldSpec &first = cls.fields[i - 1];
    if (FindRun(cls, first, data, length, &run) == 0) exact |= run.offset + run.count * run.stride == length;
    PyErr_Clear();
  }
  return exact;
}

int StoreCount(const RecordClass &cls, const FieldSpec &field, char *data, Py_ssize_t count) {
  if (field.counter < 0 || cls.special == Special::kGre) return 0;
  const FieldSpec &counter = cls.fields[field.counter];
  if (cls.special == Special::kOption || cls.special == Special::kOptions) count += cls.spec->size;
  if (!FitsInteger(counter.element, count)) {
    PyErr_Format(PyExc_OverflowError, "%s.%s cannot count %zd", cls.spec->name, counter.name, count);
    return -1;
  }
  if (field.network_order) count = Swapped16(static_cast<std::uint16_t>(count));
  StoreInteger(counter.element, data + counter.offset, count);
  return 0;
}

}  // namespace kestrel::records
