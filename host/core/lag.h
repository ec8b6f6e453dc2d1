/* A link aggregation group. */
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel::host {

struct Lag {
  std::uint32_t id;
  std::string name;
  /** Names of uplinks. One whose uplink has been removed keeps its place, should the uplink come back. */
  std::vector<std::string> members;

  bool operator==(const Lag &) const = default;
};

}  // namespace kestrel::host
