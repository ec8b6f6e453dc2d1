/* The NICs that a host has, plugged in or not. */
#pragma once

#include <string>
#include <string_view>

#include "host/core/link.h"
#include "host/core/text_map.h"

namespace kestrel::host {

/** The NICs are equipment: they stay as they are whatever becomes of the switches. */
class NicTable {
 public:
  /** Throws StatusError ZEL_EXISTS when the name is taken, and as CheckName does. */
  void Add(std::string name, LinkStatus link);
  /** Throws StatusError ZEL_NOT_FOUND. */
  void SetLink(std::string_view name, LinkStatus link);
  /** Null when there is no such NIC. */
  const LinkStatus *FindLink(std::string_view name) const;

 private:
  TextMap<LinkStatus> links_;
};

}  // namespace kestrel::host
