#include "host/core/properties/property_keys.h"

#include <cstddef>

namespace kestrel::host {

bool IsPlatformKey(std::string_view key) { return key.starts_with("com.talvex."); }

bool IsVendorKey(std::string_view key) {
  if (IsPlatformKey(key)) return false;
  std::size_t labels = 1;
  for (std::size_t dot = key.find('.'), start = 0; dot != std::string_view::npos; dot = key.find('.', start)) {
    if (dot == start) return false;
    start = dot + 1;
    ++labels;
  }
  return labels >= 3 && key.back() != '.';
}

}  // namespace kestrel::host
