#include "native/columns.h"

#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace kestrel::records {

namespace {

void Collect(const RecordClass &cls, const std::string &prefix, Py_ssize_t offset, std::vector<Column> *list) {
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    if (field.overlaid || field.shape == Shape::kFollows || field.element.kind >= Kind::kPointer) continue;
    if (field.element.kind == Kind::kRecord && field.shape == Shape::kValue) {
      Collect(*ClassAt(field.element.target), prefix + field.name + ".", offset + field.offset, list);
    } else {
      list->push_back({prefix + field.name, &cls, &field, offset + field.offset});
    }
  }
}

std::string RecordFormat(const RecordClass &cls);

/** One element with its byte order. */
std::string ElementFormat(const Element &element) {
  switch (element.kind) {
    case Kind::kRecord:
      return RecordFormat(*ClassAt(element.target));
    case Kind::kMac:
    case Kind::kIpv6:
      return std::string("(").append(std::to_string(element.width)).append(")B");
    case Kind::kPointer:
    case Kind::kOwnedText:
    case Kind::kOpaque:
      return "<Q";
    case Kind::kIpv4:
      return ">I";
    default:
      return std::string("<").append(FormatOf(element));
  }
}

std::string RecordFormat(const RecordClass &cls) {
  std::string format = "T{";
  std::size_t position = 0;
  const auto skip = [&](std::size_t end) {
    if (end > position) format.append(std::to_string(end - position)).append("x");
    position = end;
  };
  for (std::uint32_t i = 0; i < cls.spec->fields; ++i) {
    const FieldSpec &field = cls.fields[i];
    if (field.overlaid || field.shape == Shape::kFollows || field.element.kind == Kind::kOpaque) continue;
    std::string name = field.name;
    std::size_t width = field.element.width;
    if (field.element.bit_count) {
      // Bit-fields of one storage unit stand together, under all their names.
      if (field.offset < position) continue;
      for (std::uint32_t k = i + 1; k < cls.spec->fields; ++k) {
        const FieldSpec &next = cls.fields[k];
        if (!next.element.bit_count || next.overlaid || next.offset != field.offset) break;
        name += std::string("|") + next.name;
      }
    }
    if (field.offset < position) continue;
    skip(field.offset);
    if (field.shape == Shape::kFixed) {
      format.append("(").append(std::to_string(field.count)).append(")");
      width *= field.count;
    }
    format.append(ElementFormat(field.element)).append(":").append(name).append(":");
    position += width;
  }
  skip(cls.spec->size);
  return format + "}";
}

}  // namespace

std::string FormatOf(const Element &element) {
  switch (element.kind) {
    case Kind::kU8:
    case Kind::kMac:
    case Kind::kIpv6:
      return "B";
    case Kind::kU16:
      return "H";
    case Kind::kU32:
      return "I";
    case Kind::kU64:
      return "Q";
    case Kind::kS32:
      return "i";
    case Kind::kFlag:
      return "?";
    case Kind::kIpv4:
      return ">I";
    case Kind::kText:
    case Kind::kName:
      return std::to_string(element.width) + "s";
    default:
      return "B";
  }
}

const Columns *ColumnsOf(RecordClass &cls) {
  if (cls.columns) return cls.columns;
  try {
    auto columns = std::make_unique<Columns>();
    Collect(cls, "", 0, &columns->list);
    return cls.columns = columns.release();
  } catch (const std::bad_alloc &) {
    PyErr_NoMemory();
    return nullptr;
  }
}

const char *FormatOf(RecordClass &cls) {
  try {
    if (!cls.format) cls.format = strdup(RecordFormat(cls).c_str());
  } catch (const std::bad_alloc &) {
    // as when there is none for the copy
  }
  if (!cls.format) PyErr_NoMemory();
  return cls.format;
}

}  // namespace kestrel::records
