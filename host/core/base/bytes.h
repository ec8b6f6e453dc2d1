/* Values as bytes, little-endian whatever the processor, for what is kept in files and images. */
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {

class ByteWriter {
 public:
  template <std::unsigned_integral Number>
  void Put(Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i) bytes_ += static_cast<char>(number >> (8 * i));
  }
  /** As they stand, without their count. */
  void PutRaw(std::string_view bytes) { bytes_ += bytes; }
  /** With their count before them. */
  void PutText(std::string_view bytes) {
    Put(static_cast<std::uint32_t>(bytes.size()));
    PutRaw(bytes);
  }

  std::string Take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

/** Reads what a ByteWriter wrote. Every operation throws StatusError ZEL_INVALID_METADATA where the bytes end before
    the value does. */
class ByteReader {
 public:
  /** The bytes must stay where they are; the views that are read are into them. */
  explicit ByteReader(std::string_view bytes) : rest_(bytes) {}

  template <std::unsigned_integral Number>
  Number Get() {
    const std::string_view bytes = GetRaw(sizeof(Number));
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      number |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return static_cast<Number>(number);
  }
  std::string_view GetRaw(std::size_t size) {
    if (size > rest_.size()) throw StatusError(ZEL_INVALID_METADATA);
    const std::string_view bytes = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return bytes;
  }
  std::string_view GetText() { return GetRaw(Get<std::uint32_t>()); }

  /** How many bytes are left. */
  std::size_t left() const { return rest_.size(); }
  /** Throws StatusError ZEL_INVALID_METADATA when something is left. */
  void RequireEnd() const {
    if (!rest_.empty()) throw StatusError(ZEL_INVALID_METADATA);
  }

 private:
  std::string_view rest_;
};

}  // namespace kestrel::host
