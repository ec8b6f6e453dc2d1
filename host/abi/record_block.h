/* Records of varying length, which go to the caller as one block of memory. */
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

#include "host/core/base/errors.h"

namespace kestrel::host::abi {

/** Copies `text` into the first bytes of a field and fills the rest with zeros, one of which always remains. */
template <typename Byte, std::size_t width>
void SetText(Byte (&field)[width], std::string_view text) {
  static_assert(sizeof(Byte) == 1);
  const std::size_t length = text.copy(reinterpret_cast<char *>(field), width - 1);
  std::memset(field + length, 0, width - length);
}

/** A block from malloc of known size, filled from its start with packed records one after another. */
class RecordBlock {
 public:
  /** Throws std::bad_alloc. */
  explicit RecordBlock(std::size_t size) : size_(size), bytes_(static_cast<char *>(std::malloc(size == 0 ? 1 : size))) {
    if (bytes_ == nullptr) throw std::bad_alloc();
  }

  template <typename Record>
  void Append(const Record &record) {
    static_assert(std::is_trivially_copyable_v<Record> && alignof(Record) == 1);
    Take(sizeof record, &record);
  }

  /** Bytes that are laid out as records already. */
  void AppendBytes(std::string_view bytes) { Take(bytes.size(), bytes.data()); }

  /** A text in a field of its own; must be shorter than `width`. */
  void AppendText(std::string_view text, std::size_t width) {
    Take(text.size(), text.data());
    Take(width - text.size(), nullptr);
  }

  /** Where the records that come next can be written in place, as far as the block reaches; Fill says how far they did.
      Their bytes are of any value before. */
  template <typename Record>
  Record *Room() {
    static_assert(std::is_trivially_copyable_v<Record> && alignof(Record) == 1);
    return reinterpret_cast<Record *>(bytes_.get() + used_);
  }
  void Fill(std::size_t size) {
    if (size > size_ - used_) throw FatalError("a record was filled beyond its end");
    used_ += size;
  }

  /** Gives back what has not been filled. */
  void Trim() noexcept {
    if (used_ == size_) return;
    // Where a smaller block cannot be had, the larger one serves.
    auto *const smaller = static_cast<char *>(std::realloc(bytes_.get(), used_ == 0 ? 1 : used_));
    if (smaller != nullptr) {
      static_cast<void>(bytes_.release());
      bytes_.reset(smaller);
    }
    size_ = used_;
  }

  /** Hands the block out; the caller gives it to free. */
  template <typename Record>
  Record *Release() {
    if (used_ != size_) throw FatalError("a record was not filled to its end");
    return reinterpret_cast<Record *>(bytes_.release());
  }

 private:
  struct Free {
    void operator()(char *bytes) const { std::free(bytes); }
  };

  /** Zeros where `source` is null. */
  void Take(std::size_t size, const void *source) {
    char *const place = bytes_.get() + used_;
    Fill(size);
    if (source != nullptr) {
      std::memcpy(place, source, size);
    } else {
      std::memset(place, 0, size);
    }
  }

  std::size_t size_;
  std::size_t used_ = 0;
  std::unique_ptr<char, Free> bytes_;
};

/** Bytes as a block of their own. */
template <typename Record>
Record *BlockOf(std::string_view bytes) {
  RecordBlock block(bytes.size());
  block.AppendBytes(bytes);
  return block.Release<Record>();
}

}  // namespace kestrel::host::abi
