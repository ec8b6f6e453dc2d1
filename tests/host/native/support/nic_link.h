/* Cables, pulled and plugged. */
#pragma once

#include <string_view>

#include "host/core/host.h"

namespace kestrel::host {

/** Changes the link of a NIC and nothing else of it. Throws as NicTable::Set does. */
inline void SetNicLink(Host &host, std::string_view name, LinkStatus link) {
  Nic nic = host.nics().Get(name);
  nic.link = link;
  host.SetNic(name, nic);
}

}  // namespace kestrel::host
