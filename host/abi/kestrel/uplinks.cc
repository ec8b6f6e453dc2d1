/* The uplinks of a switch and their links. */
#include <algorithm>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "host/core/teaming/lacp.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** Uplinks without a NIC have no link and no name in the kernel, and are left out. */
VSUplinks *UplinksOf(const SwitchConfig &config) {
  const auto has_nic = [&config](const Uplink &uplink) { return config.NicOf(uplink.id) != nullptr; };
  const auto count = static_cast<zel_uint32>(std::ranges::count_if(config.uplinks().Items(), has_nic));

  RecordBlock block(sizeof(VSUplinks) + count * sizeof(VSUplinks_entries));
  block.Append(VSUplinks{.totalEntries = count, .numEntries = count, .entries = {}});
  for (const Uplink &uplink : config.uplinks().Items()) {
    if (!has_nic(uplink)) continue;
    VSUplinks_entries record{};
    SetText(record.name.string, *config.NicOf(uplink.id));
    record.portID = uplink.id;
    block.Append(record);
  }
  return block.Release<VSUplinks>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinks(const char *switchName, VSUplinks **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    SetOutput(tableOut, UplinksOf(ReadHost().FindSwitch(SwitchName(switchName)).config));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkLinkState(const char *switchName, const char *uplinkName,
                                                              zel_LinkState *valueOut) {
  return ReadCall([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    const Host &host = ReadHost();
    if (host.FindSwitch(name).config.UplinkOfNic(nic) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetOutput(valueOut, host.LinkOfPluggedNic(nic).state);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkLACPLinkState(const char *switchName, const char *uplinkName,
                                                                  zel_LinkState *valueOut) {
  return ReadCall([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    const Host &host = ReadHost();
    const SwitchConfig &config = host.FindSwitch(name).config;
    const Uplink *uplink = config.UplinkOfNic(nic);
    if (uplink == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetOutput(valueOut, IsInService(host, host.FindSwitch(name), *uplink) ? ZEL_LINK_STATE_UP : ZEL_LINK_STATE_DOWN);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetUplinkAdminLinkState(const char *switchName, const char *uplinkName,
                                                                   zel_LinkState state) {
  return ChangeCall([&] {
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    if (state != ZEL_LINK_STATE_UP && state != ZEL_LINK_STATE_DOWN) throw StatusError(ZEL_BAD_PARAM);
    Host &host = ChangeHost();
    if (host.FindSwitch(name).config.UplinkOfNic(nic) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    host.SetNicEnabled(nic, state == ZEL_LINK_STATE_UP);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkDVPortID(const char *uplinkName, char textOut[48]) {
  return ReadCall([&] {
    ClearText(textOut, ZEL_VDS_PORT_ID_MAX_LEN);
    const auto nic = NicName(uplinkName);
    const SwitchConfig &config = ReadHost().FindSwitchOfNic(nic).config;
    SetTextOutput(textOut, config.ports().Find(config.UplinkOfNic(nic)->id)->name, ZEL_VDS_PORT_ID_MAX_LEN);
  });
}
