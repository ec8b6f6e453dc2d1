#include "host/core/images/crc32c.h"

#include <array>

namespace kestrel::host {
namespace {

/** The polynomial 0x1edc6f41 with its bits in reverse. */
constexpr std::uint32_t kPolynomial = 0x82f63b78;

/** What each byte makes of a remainder of 0. */
constexpr auto kRemainders = [] {
  std::array<std::uint32_t, 256> remainders{};
  for (std::uint32_t byte = 0; byte < remainders.size(); ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kPolynomial : 0);
    remainders[byte] = remainder;
  }
  return remainders;
}();

}  // namespace

std::uint32_t Crc32c(std::string_view bytes, std::uint32_t so_far) {
  std::uint32_t remainder = ~so_far;
  for (const char byte : bytes) {
    remainder = (remainder >> 8) ^ kRemainders[(remainder ^ static_cast<unsigned char>(byte)) & 0xff];
  }
  return ~remainder;
}

}  // namespace kestrel::host
