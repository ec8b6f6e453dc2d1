#include "host/core/frames/ip_address.h"

#include <arpa/inet.h>

#include <string>

namespace kestrel::host {

std::optional<IpAddress> IpAddressOf(std::string_view text) {
  const std::string terminated(text);
  std::array<std::uint8_t, kIpV6Size> bytes{};
  if (inet_pton(AF_INET, terminated.c_str(), bytes.data()) == 1) return IpV4At(bytes);
  if (inet_pton(AF_INET6, terminated.c_str(), bytes.data()) == 1) return IpV6At(bytes);
  return std::nullopt;
}

}  // namespace kestrel::host
