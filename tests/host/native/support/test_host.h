/* A host that tests know by heart. */
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/host.h"

namespace kestrel::host {

inline constexpr char kPortset[] = "DvsPortset-7";
inline constexpr char kAlias[] = "dvs-test";

inline constexpr LinkStatus kUp{ZEL_LINK_STATE_UP, 10000, ZEL_LINK_DUPLEX_FULL};
inline constexpr LinkStatus kDown{ZEL_LINK_STATE_DOWN, 0, ZEL_LINK_DUPLEX_AUTO};

constexpr MacAddress Station(std::uint8_t number) { return {0x02, 0, 0, 0, 0, number}; }

/** One switch of MTU 2000 and six ports: "machine" and "service" with clients, "free" without, and the uplinks "left",
    "middle", "right" on the ports "u1" to "u3", of which "left" and "right" hold the NICs "nic-l" (up) and "nic-r"
    (down) and "middle" holds none. All three form group 5, "bond". */
inline std::unique_ptr<Host> MakeTestHost() {
  auto host = std::make_unique<Host>();
  host->AddSwitch({.id = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803", .portset = kPortset, .alias = kAlias, .max_ports = 8});
  host->SetProperty({.switch_name = kAlias}, VSPROP_MTU, {BytesOf(std::uint32_t{2000})});
  host->AddNic("nic-l", kUp);
  host->AddNic("nic-r", kDown);
  host->AddPort(kAlias, "machine");
  host->AddPort(kAlias, "service");
  host->AddPort(kAlias, "free");
  host->AddUplink(kAlias, "left", "u1");
  host->AddUplink(kAlias, "middle", "u2");
  host->AddUplink(kAlias, "right", "u3");
  host->AddLag(kAlias, {.id = 5, .name = "bond", .members = {"left", "middle", "right"}});
  host->Connect(kAlias, "machine", {VS_PORT_CLIENT_VNIC, "vm.eth0"});
  host->Connect(kAlias, "service", {VS_PORT_CLIENT_TCPIP, "svc0"});
  host->Connect(kAlias, "u1", {VS_PORT_CLIENT_UPLINK, "nic-l"});
  host->Connect(kAlias, "u3", {VS_PORT_CLIENT_UPLINK, "nic-r"});
  return host;
}

inline PortId IdOfPort(const Host &host, const char *port) { return host.FindSwitch(kAlias).config.PortNamed(port).id; }

/** The entries of a table by VLAN, then by address. */
inline std::vector<MacItem> SortedEntries(const MacTable &table) {
  std::vector<MacItem> items(table.entries().begin(), table.entries().end());
  std::ranges::sort(items, {}, &MacItem::key);
  return items;
}

}  // namespace kestrel::host
