/* The enhanced datapath: requests over portsets, over modules of a portset and over ports. */
#include "host/core/enhanced_datapath.h"

#include <string>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/core/base/record_bytes.h"
#include "host/core/process_host.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

/** More portsets or modules than a host has are none that a script could have meant. */
constexpr zel_uint32 kMaxEntries = 1024;

void CheckRequest(zel_uint32 count, RTMIOCtlMode mode) {
  if (count == 0) throw StatusError(ZEL_BAD_PARAM);
  if (count > kMaxEntries) throw StatusError(ZEL_LIMIT_EXCEEDED);
  if (mode != RTM_IOCCMD_ENS_ACTIVATE && mode != RTM_IOCCMD_ENS_DEACTIVATE) throw StatusError(ZEL_BAD_PARAM);
}

/** The portset of that name; aliases of switches do not count. */
std::string PortsetNamed(const Host &host, const char (&field)[128]) {
  const std::string_view name = TextOf(field);
  if (name.size() == sizeof field) throw StatusError(ZEL_NAME_TOO_LONG);
  const Switch &found = host.FindSwitch(name);
  if (found.config.spec().portset != name) throw StatusError(ZEL_NOT_FOUND);
  return std::string(name);
}

std::vector<DatapathPortset> PortsetsOf(const Host &host, const RTMIOCtlQuery &query) {
  std::vector<DatapathPortset> portsets;
  for (zel_uint32 i = 0; i < query.numPortsets; ++i) {
    const RTM_Portset &asked = query.rtmPs[i];
    portsets.push_back({PortsetNamed(host, asked.psName), asked.ensSwitchMode, asked.ensPsMode});
  }
  return portsets;
}

std::vector<std::int32_t> ModulesOf(const RTMModIOCtlQuery &query) {
  std::vector<std::int32_t> modules;
  modules.reserve(query.numMod);
  for (zel_uint32 i = 0; i < query.numMod; ++i) modules.push_back(query.rtmModId[i].ModID);
  return modules;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_RTMOp(RTMIOCtlQuery *query, RTMIOCtlMode mode) {
  return ChangeCall([&] {
    RequirePointer(query);
    CheckRequest(query->numPortsets, mode);
    const auto portsets = PortsetsOf(ReadHost(), *query);
    EnhancedDatapath &datapath = ChangeHost().datapath();
    if (mode == RTM_IOCCMD_ENS_ACTIVATE) {
      datapath.Activate(portsets);
    } else {
      datapath.Deactivate(portsets);
    }
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_RTMModOp(RTMModIOCtlQuery *query, RTMIOCtlMode mode) {
  return ChangeCall([&] {
    RequirePointer(query);
    CheckRequest(query->numMod, mode);
    const std::string portset = PortsetNamed(ReadHost(), query->psName);
    const auto modules = ModulesOf(*query);
    EnhancedDatapath &datapath = ChangeHost().datapath();
    if (mode == RTM_IOCCMD_ENS_ACTIVATE) {
      datapath.ActivateModules(portset, modules);
    } else {
      datapath.DeactivateModules(portset, modules);
    }
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_RTMPortOp(zel_WorldID worldID, zel_SwitchPortID portID, zel_Bool associate) {
  return ChangeCall([&] {
    ReadHost().FindSwitchOfPort(portID);
    EnhancedDatapath &datapath = ChangeHost().datapath();
    if (associate != 0) {
      datapath.Associate(portID, worldID);
    } else {
      datapath.Dissociate(portID, worldID);
    }
  });
}
