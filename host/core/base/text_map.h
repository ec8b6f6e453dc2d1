/* A hash map from text that is searched without making a string. */
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kestrel::host {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
};

template <typename Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

}  // namespace kestrel::host
