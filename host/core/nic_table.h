/* The NICs that a host has, plugged in or not. */
#pragma once

#include <optional>
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
  /** A NIC that is not enabled has no link. Throws StatusError ZEL_NOT_FOUND. */
  void SetEnabled(std::string_view name, bool enabled);
  /** Nothing when there is no such NIC. */
  std::optional<LinkStatus> FindLink(std::string_view name) const;

 private:
  struct Nic {
    LinkStatus link;
    bool is_enabled = true;
  };

  Nic &Get(std::string_view name);

  TextMap<Nic> nics_;
};

}  // namespace kestrel::host
