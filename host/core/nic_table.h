/* The NICs that a host has, plugged in or not. */
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/core/base/revision.h"
#include "host/core/nic.h"
#include "host/export.h"

namespace kestrel::host {

/** The NICs are equipment: they stay as they are whatever becomes of the switches. */
class KESTREL_HOST_EXPORT NicTable {
 public:
  using Map = std::map<std::string, Nic, std::less<>>;

  /** A NIC as it comes out of the box: with its driver, and with an address that is made from its name. Throws
      StatusError ZEL_EXISTS when the name is taken, and as CheckName does. */
  void Add(std::string name, LinkStatus link);
  /** As it is given. Throws as Add and Set do. */
  void Add(std::string name, const Nic &nic);
  /** Throws StatusError ZEL_NOT_FOUND. */
  void Remove(std::string_view name);
  /** Throws StatusError ZEL_NOT_FOUND; ZEL_BAD_PARAM for an address that no station has, for more than kMaxErrorPercent
      and for a link of an unknown state or duplex; ZEL_EXISTS for an address that another NIC has. */
  void Set(std::string_view name, const Nic &nic);

  /** Null when there is no such NIC. */
  const Nic *Find(std::string_view name) const;
  /** Throws StatusError ZEL_NOT_FOUND. */
  const Nic &Get(std::string_view name) const;
  /** The link as it is in effect; nothing when there is no such NIC. */
  std::optional<LinkStatus> FindLink(std::string_view name) const;

  /** In the order of their names. */
  const Map &Items() const { return nics_; }
  /** Another one with every change. */
  std::uint64_t revision() const { return revision_.number(); }

 private:
  void Check(std::string_view name, const Nic &nic) const;

  Map nics_;
  Revision revision_;
};

}  // namespace kestrel::host
