/* The switches and what they are. */
#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

VSList *ListOf(const Host &host, VSListType kind) {
  const bool by_portset = kind == VS_LIST_PS;
  if (!by_portset && kind != VS_LIST_DVS_ALIAS) throw StatusError(ZEL_BAD_PARAM);
  const std::size_t width = by_portset ? ZEL_PORTSET_NAME_MAX : ZEL_VDS_NAME_MAX_LEN;
  const std::size_t count = host.Switches().size();

  RecordBlock block(sizeof(VSList) + count * width);
  block.Append(VSList{.count = static_cast<zel_int32>(count), .listType = kind, .switches = {}});
  for (const Switch &each : host.Switches()) {
    const SwitchSpec &spec = each.config.spec();
    block.AppendText(by_portset ? spec.portset : spec.alias, width);
  }
  return block.Release<VSList>();
}

VSInfo InfoOf(const Switch &which) {
  const SwitchSpec &spec = which.config.spec();
  VSInfo info{};
  info.mtu = MtuOf(which.config);
  info.minValidVlan = spec.vlans.first;
  info.maxValidVlan = spec.vlans.last;
  info.activePorts = static_cast<zel_uint32>(which.config.active_ports().size());
  info.maxPorts = spec.max_ports;
  info.numSinkPorts = static_cast<zel_uint16>(which.config.CountSinkPorts());
  SetText(info.dvsName, spec.alias);
  SetText(info.vdsID, spec.id);
  return info;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetSwitches(VSListType listType, VSList **listCell) {
  return ReadCall([&] {
    ClearOutputs(listCell);
    SetOutput(listCell, ListOf(ReadHost(), listType));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetVSInfo(const char *switchName, VSInfo *info) {
  return ReadCall([&] {
    RequirePointer(info);
    const VSInfo filled = InfoOf(ReadHost().FindSwitch(SwitchName(switchName)));
    SetOutput(info, filled);
  });
}
