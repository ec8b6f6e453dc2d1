/* Which uplinks carry the frames of switches and ports. */
#include "host/core/teaming/teaming.h"
#include "host/abi/property_access.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace kestrel::host::abi {
namespace {

constexpr std::size_t kPolicyNameWidth = sizeof(LSTeamPolicy::name);

/** The table that a caller handed in. */
std::string_view BytesOfTable(const LSTeamTable *table) {
  RequirePointer(table);
  const std::size_t count = table->numLSTeam;
  if (count > kMaxPropertyValue / sizeof(LSTeamPolicy)) throw StatusError(ZEL_LIMIT_EXCEEDED);
  return {reinterpret_cast<const char *>(table), sizeof *table + count * sizeof(LSTeamPolicy)};
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetTeamingPolicy(const char *switchName, const VSTeamPolicy *policy) {
  return SetRecord(SwitchProperty{switchName, VSPROP_SWITCH_TEAMING}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetTeamingPolicy(const char *switchName, VSTeamPolicy *policy) {
  return FillRecord(SwitchProperty{switchName, VSPROP_SWITCH_TEAMING}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearTeamingPolicy(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_SWITCH_TEAMING});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetTeamingPolicyFromDVSID(const char *switchId, VSTeamPolicy *policy) {
  return FillRecord(SwitchIdProperty{switchId, VSPROP_SWITCH_TEAMING}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortTeamingPolicy(const char *switchName, const char *portName,
                                                                const VSTeamPolicy *policy) {
  return SetRecord(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_POLICY}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortTeamingPolicy(const char *switchName, const char *portName,
                                                                VSTeamPolicy *policy) {
  return FillRecord(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_POLICY}, policy);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortTeamingPolicy(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_POLICY});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortTeamingOverride(const char *switchName, const char *portName,
                                                                  const char *uplinkName) {
  return SetText(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_OVERRIDE}, uplinkName,
                 ZEL_VDS_PORT_ALIAS_MAX_LEN);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortTeamingOverride(const char *switchName, const char *portName,
                                                                  char textOut[81]) {
  return GetText(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_OVERRIDE}, textOut, ZEL_VDS_PORT_ALIAS_MAX_LEN);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortTeamingOverride(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_TEAMING_OVERRIDE});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetTxUplinkAlways(const char *switchName, const char *portName,
                                                             zel_Bool always) {
  return SetFlag(PortProperty{switchName, portName, VSPROP_PORT_TX_UPLINK}, always);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetTxUplinkAlways(const char *switchName, const char *portName,
                                                             zel_Bool *flagOut) {
  return GetFlag(PortProperty{switchName, portName, VSPROP_PORT_TX_UPLINK}, flagOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetLSTeamingPolicy(const char *switchName, const LSTeamTable *table) {
  return ChangeCall(
      [&] { SetValue(SwitchProperty{switchName, VSPROP_LS_TEAMING_POLICY}, std::string(BytesOfTable(table))); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetLSTeamingPolicyTable(const char *switchName, LSTeamTable **tableOut) {
  return GetBlock(SwitchProperty{switchName, VSPROP_LS_TEAMING_POLICY}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetLSTeamingPolicyTable(char *switchName, LSTeamTable **tableOut) {
  return GetBlock(SwitchProperty{switchName, VSPROP_LS_TEAMING_POLICY}, tableOut);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearLSTeamingPolicy(const char *switchName) {
  return ClearValue(SwitchProperty{switchName, VSPROP_LS_TEAMING_POLICY});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_SetPortLSTeamingPolicy(const char *switchName, const char *portName,
                                                                  const char *policyName) {
  return SetText(PortProperty{switchName, portName, VSPROP_PORT_LS_TEAMING_POLICY}, policyName, kPolicyNameWidth);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_GetPortLSTeamingPolicyName(const char *switchName, const char *portName,
                                                                      char textOut[136]) {
  return GetText(PortProperty{switchName, portName, VSPROP_PORT_LS_TEAMING_POLICY}, textOut, kPolicyNameWidth);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_ClearPortLSTeamingPolicy(const char *switchName, const char *portName) {
  return ClearValue(PortProperty{switchName, portName, VSPROP_PORT_LS_TEAMING_POLICY});
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetPortLSTeamingPolicyName(zel_SwitchPortID portID, char textOut[136]) {
  return ReadCall([&] {
    ClearText(textOut, kPolicyNameWidth);
    const SwitchConfig &config = ReadHost().FindSwitchOfPort(portID).config;
    const Property *followed = config.ports().Find(portID)->properties.Find(VSPROP_PORT_LS_TEAMING_POLICY);
    if (followed == nullptr) throw StatusError(ZEL_NOT_FOUND);
    SetTextOutput(textOut, TextOf(std::string_view(followed->value)), kPolicyNameWidth);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_PortGetTeamUplinkHint(zel_SwitchPortID portID, zel_Name *uplink) {
  return ReadCall([&] {
    RequirePointer(uplink);
    const Host &host = ReadHost();
    const Switch &owner = host.FindSwitchOfPort(portID);
    zel_Name name{};
    kestrel::host::abi::SetText(name.string, TeamUplinkOf(host, owner, *owner.config.ports().Find(portID)));
    SetOutput(uplink, name);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetServicePortTeamingStats(const char *switchName,
                                                                      VSServicePortTeamingStats *stats) {
  return ReadCall([&] {
    RequirePointer(stats);
    *stats = {};
    const ServiceTraffic &traffic = ReadHost().FindSwitch(SwitchName(switchName)).runtime.team.state().services;
    VSServicePortTeamingStats record{};
    record.txFromSrvPort = traffic.sent;
    record.txUsingSrvPortFRP = traffic.by_service_policy;
    record.txUsingPktSrcPortFRP = traffic.by_source_policy;
    record.txErrors = traffic.errors;
    record.rxToSrvPort = traffic.received;
    record.rxRpfOverride = traffic.overrides;
    SetOutput(stats, record);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetRARPStats(const char *switchName, VSRARPStats *stats) {
  return ReadCall([&] {
    RequirePointer(stats);
    *stats = {};
    const AnnouncementState &state = ReadHost().FindSwitch(SwitchName(switchName)).runtime.team.state().announcements;
    VSRARPStats record{};
    record.rarpPktsSent = state.sent;
    record.maxRARPTime = state.longest_round;
    record.rarpTime = state.all_rounds;
    SetOutput(stats, record);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_RefreshDevNUMAInfo(const char *switchName) {
  return ChangeCall([&] { ChangeHost().RefreshNumaNodes(SwitchName(switchName)); });
}
