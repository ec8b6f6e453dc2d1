/* The uplinks of a switch and their links. */
#include <algorithm>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
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
  return Guarded([&] {
    ClearOutputs(tableOut);
    SetOutput(tableOut, UplinksOf(ProcessHost().FindSwitch(SwitchName(switchName)).config));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkLinkState(const char *switchName, const char *uplinkName,
                                                              zel_LinkState *valueOut) {
  return Guarded([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    const Host &host = ProcessHost();
    if (host.FindSwitch(name).config.UplinkOfNic(nic) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetOutput(valueOut, host.LinkOfPluggedNic(nic).state);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkLACPLinkState(const char *switchName, const char *uplinkName,
                                                                  zel_LinkState *valueOut) {
  return Guarded([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    const Host &host = ProcessHost();
    const SwitchConfig &config = host.FindSwitch(name).config;
    const Uplink *uplink = config.UplinkOfNic(nic);
    if (uplink == nullptr) throw StatusError(ZEL_NOT_FOUND);
    const auto is_member = [uplink](const Lag &lag) {
      return std::ranges::find(lag.members, uplink->name) != lag.members.end();
    };
    const bool is_grouped = std::ranges::any_of(config.lags().Items(), is_member);
    SetOutput(valueOut, is_grouped ? host.LinkOfPluggedNic(nic).state : ZEL_LINK_STATE_DOWN);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_SetUplinkAdminLinkState(const char *switchName, const char *uplinkName,
                                                                   zel_LinkState state) {
  return Guarded([&] {
    const auto name = SwitchName(switchName);
    const auto nic = NicName(uplinkName);
    if (state != ZEL_LINK_STATE_UP && state != ZEL_LINK_STATE_DOWN) throw StatusError(ZEL_BAD_PARAM);
    Host &host = ProcessHost();
    if (host.FindSwitch(name).config.UplinkOfNic(nic) == nullptr) throw StatusError(ZEL_NOT_FOUND);
    host.SetNicEnabled(nic, state == ZEL_LINK_STATE_UP);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetUplinkDVPortID(const char *uplinkName, char textOut[48]) {
  return Guarded([&] {
    ClearText(textOut, ZEL_VDS_PORT_ID_MAX_LEN);
    const auto nic = NicName(uplinkName);
    const SwitchConfig &config = ProcessHost().FindSwitchOfNic(nic).config;
    SetTextOutput(textOut, config.ports().Find(config.UplinkOfNic(nic)->id)->name, ZEL_VDS_PORT_ID_MAX_LEN);
  });
}
