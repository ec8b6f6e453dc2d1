#include "host/core/base/kept_text.h"

#include <string>
#include <unordered_set>

#include "host/core/base/text_map.h"

namespace kestrel::host {

const char *KeptText(std::string_view text) {
  // Never destroyed: scripts may still hold texts while the process ends.
  static auto *kept = new std::unordered_set<std::string, TextHash, std::equal_to<>>;
  const auto found = kept->find(text);
  return (found != kept->end() ? found : kept->emplace(text).first)->c_str();
}

}  // namespace kestrel::host
