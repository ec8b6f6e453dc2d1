#include "host/core/properties/property_table.h"

#include <algorithm>
#include <array>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/base/record_bytes.h"
#include "host/core/host_defaults.h"
#include "host/core/mirroring/mirror_table.h"
#include "host/core/properties/property_checks.h"
#include "host/core/teaming/team.h"
#include "host/core/vlan.h"

namespace kestrel::host {
namespace {

using Where = const PropertyContext &;

template <typename Number, long long value>
std::string Always(Where /*where*/) {
  return BytesOf(static_cast<Number>(value));
}
template <typename Record>
std::string Zeros(Where /*where*/) {
  return BytesOf(Record{});
}
std::string Empty(Where /*where*/) { return {}; }

template <std::size_t width>
void CheckTextOf(std::string_view value, Where /*where*/) {
  CheckText(value, width);
}

void CheckPortVlan(std::string_view value, Where where) {
  CheckVlanPolicy(VlanPolicyOfRecord(value), where.config.spec().vlans);
}
void CheckPrivateVlanMap(std::string_view value, Where where) { CheckPrivateVlans(value, where.config.spec().vlans); }

std::string HostMacLearning(Where where) {
  VSPropMACLearning policy{};
  policy.agingTime = where.defaults.agingTime;
  policy.macLimit = where.defaults.macLimit;
  return BytesOf(policy);
}
std::string HostLearnStatic(Where where) { return BytesOf(where.defaults.learnStatic); }
std::string HostStaticMacAllow(Where where) { return BytesOf(where.defaults.staticMACAllow); }

/** Clients keep to their own address unless a port says otherwise. */
constexpr long long kStrict =
    VSPORT_SECURITY_DISALLOW_PROMISC | VSPORT_SECURITY_DISALLOW_MAC_CHANGE | VSPORT_SECURITY_DISALLOW_FORGED_SRC;

std::string NoMacManagement(Where /*where*/) {
  VSPMACManagement policy{};
  policy.portMACLearning.macLimit = VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT;
  policy.portMACLearning.macLimitPolicy = VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW;
  return BytesOf(policy);
}

std::string Alias(Where where) { return where.config.spec().alias; }
std::string Portset(Where where) { return where.config.spec().portset; }
std::string PortsetState(Where where) {
  return BytesOf(static_cast<zel_uint32>(where.config.spec().is_member ? 0 : ZEL_VDSPORTSET_STATE_DEACTIVE));
}
std::string Version(Where where) { return BytesOf(where.config.spec().version); }

/** A count and, for each uplink, a field of `width` bytes. */
template <std::size_t width, typename TextOfUplink>
std::string UplinkTexts(Where where, TextOfUplink text) {
  const auto &uplinks = where.config.uplinks();
  std::string record = BytesOf(static_cast<zel_uint32>(uplinks.size()));
  for (const Uplink &uplink : uplinks.Items()) {
    record += text(uplink);
    record.resize(record.size() + width - text(uplink).size(), '\0');
  }
  return record;
}
std::string UplinkNames(Where where) {
  return UplinkTexts<ZEL_VDS_PORT_ALIAS_MAX_LEN>(where, [](const Uplink &uplink) { return uplink.name; });
}
std::string UplinkPorts(Where where) {
  return UplinkTexts<ZEL_VDS_PORT_ID_MAX_LEN>(
      where, [&where](const Uplink &uplink) { return where.config.ports().Find(uplink.id)->name; });
}

constexpr auto kSwitch = PropertyLevel::kSwitch;
constexpr auto kHost = PropertyLevel::kHost;
constexpr auto kPort = PropertyLevel::kPort;

constexpr auto kPropertyRows = [] {
  auto rows = std::to_array<PropertyRow>({
      {ZEL_VDSPROP_SWITCH_ALIAS, kSwitch, nullptr, Alias},
      {ZEL_VDSPROP_SWITCH_VERSION, kSwitch, nullptr, Version},
      {ZEL_VDSPROP_SWITCH_UPLINKPORTS, kSwitch, nullptr, UplinkNames},
      {ZEL_VDSPROP_HOST_UPLINKPORTS, kHost, nullptr, UplinkPorts},
      {ZEL_VDSPROP_HOST_PROXY, kHost, nullptr, Portset},
      {ZEL_VDSPROP_HOST_PROXY_STATE, kHost, nullptr, PortsetState},
      {ZEL_VDSPROP_PORT_ALIAS, kPort, CheckTextOf<ZEL_VDS_PORT_ALIAS_MAX_LEN>, nullptr},
      {ZEL_VDSPROP_PORT_CONNECTID, kPort, CheckNumber<zel_uint32, 0, 0xffffffff>, nullptr},
      {ZEL_VDSPROP_PORT_BLOCK, kPort, CheckFlag, Zeros<zel_Bool>},
      {ZEL_VDSPROP_PORT_STATUS, kPort, nullptr, nullptr},
      {ZEL_VDSPROP_PORT_TYPE, kPort, nullptr, nullptr},
      {ZEL_VDSPROP_PORT_VLAN, kPort, nullptr, nullptr},
      {ZEL_VDSPROP_PORT_STATISTICS, kPort, nullptr, nullptr},
      {ZEL_VDSPROP_PORT_LINK_STATUS, kPort, nullptr, nullptr},
      {VSPROP_MTU, kSwitch, CheckNumber<zel_uint32, kMinMtu, kMaxMtu>, Always<zel_uint32, kDefaultMtu>},
      {VSPROP_PVLAN_MAP, kSwitch, CheckPrivateVlanMap, Empty},
      {VSPROP_MULTICAST_FILTER, kSwitch,
       CheckNumber<VSMcastFilterMode, VS_MCAST_FILTER_MODE_LEGACY, VS_MCAST_FILTER_MODE_SNOOPING>,
       Always<VSMcastFilterMode, VS_MCAST_FILTER_MODE_LEGACY>},
      {VSPROP_SWITCH_TEAMING, kSwitch, CheckTeamPolicy, DefaultTeamPolicy},
      {VSPROP_SWITCH_FORWARDING_DISABLED, kSwitch, CheckFlag, Zeros<zel_Bool>},
      {VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS, kSwitch, CheckMirrorTable, NoMirrorSessions},
      {VSPROP_SWITCH_MAC_LEARNING, kSwitch, CheckSwitchMacLearning, HostMacLearning, DVS_VERSION_66},
      {VSPROP_SWITCH_MAC_LEARN_STATIC, kSwitch, CheckFlag, HostLearnStatic, DVS_VERSION_66},
      {VSPROP_SWITCH_STATIC_MAC_ALLOW, kSwitch, CheckFlag, HostStaticMacAllow, DVS_VERSION_66},
      {VSPROP_SWITCH_LLSPAN_RX_DISPATCHER, kSwitch, CheckNothing, nullptr},
      {VSPROP_SWITCH_STATUS, kHost, CheckNumber<zel_uint32, ZEL_VDS_STATUS_OK, ZEL_VDS_STATUS_DOWN>, nullptr},
      {VSPROP_RCF_INSN_TYPE, kSwitch, CheckNumber<trv_RCFInsnType, TRV_RCF_INSN_TYPE_CBPF, TRV_RCF_INSN_TYPE_EBPF>,
       Always<trv_RCFInsnType, TRV_RCF_INSN_TYPE_CBPF>, VS_TRV_VDS_VERSION_10},
      {VSPROP_USER_MCAST_ADDRESSES, kSwitch, CheckUserMulticast, Zeros<VSUserMcastLegacyKeys>},
      {VSPROP_LS_TEAMING_POLICY, kSwitch, CheckNamedTeams, NoNamedTeams, VS_TRV_VDS_VERSION_10},
      {VSPROP_PORT_SECURITY, kPort, CheckSecurity, Always<zel_uint32, kStrict>},
      {VSPROP_PORT_TEAMING_POLICY, kPort, CheckTeamPolicy, TeamPolicyOfPort},
      {VSPROP_PORT_TEAMING_OVERRIDE, kPort, CheckTeamingOverride, nullptr},
      {VSPROP_PORT_VLAN, kPort, CheckPortVlan, Zeros<VSPortVlanPolicy>},
      {VSPROP_PORT_PRIORITY, kPort, CheckNumber<zel_uint32, ZEL_VLAN_PRIORITY_MINIMUM, ZEL_VLAN_PRIORITY_MAXIMUM>,
       Always<zel_uint32, ZEL_VLAN_PRIORITY_BEST_EFFORT>},
      {VSPROP_PORT_TX_UPLINK, kPort, CheckFlag, Zeros<zel_Bool>},
      {VSPROP_PORT_MIRROR_SESSIONS, kPort, CheckMirrorTable, NoMirrorSessions},
      {VSPROP_PORT_VLAN_NESTEDTAG, kPort, CheckFlag, Zeros<zel_Bool>},
      {VSPROP_PORT_EXTRA_ETH_FRP, kPort, CheckExtraEthFilter, Zeros<VSExtraEthFilter>},
      {VSPROP_PORT_MAC_MANAGEMENT, kPort, CheckMacManagement, NoMacManagement, DVS_VERSION_66},
      {VSPROP_PORT_MAC_LEARNING_STATS, kPort, nullptr, nullptr, DVS_VERSION_66},
      {VSPROP_PORT_PRIORITY_RETAIN, kPort, CheckFlag, Zeros<zel_Bool>},
      {VSPROP_PORT_USER_MCAST_ADDRESSES, kPort, CheckUserMulticast, Zeros<VSUserMcastLegacyKeys>},
      {VSPROP_PORT_USER_MCAST_ADDRESSES_OVERRIDE, kPort, CheckFlag, Zeros<zel_Bool>},
      {VSPROP_PORT_LS_TEAMING_POLICY, kPort, CheckFollowedTeam, nullptr, VS_TRV_VDS_VERSION_10},
      {TRV_PRP_LAN_TEAMING_POLICY, kSwitch, CheckTeamPolicy, nullptr, VS_TRV_VDS_VERSION_10},
      {TRV_ENS_PRP_TUNABLE_PROP, kSwitch, CheckPrpTunables, nullptr, VS_TRV_VDS_VERSION_10},
  });
  std::ranges::sort(rows, {}, &PropertyRow::key);
  return rows;
}();

static_assert(std::ranges::adjacent_find(kPropertyRows, {}, &PropertyRow::key) == kPropertyRows.end(),
              "a key has two rows");

PropertyContext ContextOf(PropertyPlace place, const VSMACLearningGlobalProps &defaults, const SwitchConfig &config) {
  const Port *port = place.level == PropertyLevel::kPort ? config.ports().Find(place.port) : nullptr;
  return {.defaults = defaults, .config = config, .port = port};
}

void CheckValue(std::string_view key, std::string_view value, PropertyLevel level, Where where) {
  CheckPropertyKey(key, level);
  if (value.size() > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
  const PropertyRow *row = FindPropertyRow(key);
  if (row == nullptr) return;
  if (row->check == nullptr) throw StatusError(ZEL_READ_ONLY);
  row->check(value, where);
}

}  // namespace

std::span<const PropertyRow> PropertyRows() { return kPropertyRows; }

bool IsKnownIn(std::uint32_t version, std::string_view key) {
  const PropertyRow *row = FindPropertyRow(key);
  return row == nullptr || row->since <= version;
}

const PropertyRow *FindPropertyRow(std::string_view key) {
  const auto found = std::ranges::lower_bound(kPropertyRows, key, {}, &PropertyRow::key);
  return found != kPropertyRows.end() && found->key == key ? &*found : nullptr;
}

void CheckPropertyKey(std::string_view key, PropertyLevel level) {
  CheckName(key, kMaxPropertyKey + 1);
  const PropertyRow *row = FindPropertyRow(key);
  if (row != nullptr && row->level != level) throw StatusError(ZEL_BAD_PARAM);
}

void CheckProperty(std::string_view key, std::string_view value, PropertyPlace place,
                   const VSMACLearningGlobalProps &defaults, const SwitchConfig &config) {
  CheckValue(key, value, place.level, ContextOf(place, defaults, config));
}

void CheckKeptProperty(std::string_view key, std::string_view value, PropertyLevel level, const SwitchConfig &config) {
  CheckValue(key, value, level,
             {.defaults = kDefaultMacLearning, .config = config, .port = nullptr, .may_dangle = true});
}

void CheckArrivingProperty(std::string_view key, std::string_view value, const Port &port, const SwitchConfig &config) {
  CheckKeptProperty(key, value, PropertyLevel::kPort, config);
  try {
    CheckValue(key, value, PropertyLevel::kPort, {.defaults = kDefaultMacLearning, .config = config, .port = &port});
  } catch (const StatusError &refusal) {
    if (refusal.status() != ZEL_NOT_FOUND) throw;
  }
}

void CheckClearing(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                   const SwitchConfig &config) {
  CheckPropertyKey(key, place.level);
  const PropertyRow *row = FindPropertyRow(key);
  if (row == nullptr) return;
  if (row->check == nullptr) throw StatusError(ZEL_READ_ONLY);
  if (row->fallback == nullptr || place.level != PropertyLevel::kSwitch) return;
  const PropertyContext where = ContextOf(place, defaults, config);
  row->check(row->fallback(where), where);
}

std::string ReadProperty(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                         const SwitchConfig &config) {
  return ReadProperty(key, place, defaults, config, [](const Property &) { return true; });
}

std::string ReadProperty(std::string_view key, PropertyPlace place, const VSMACLearningGlobalProps &defaults,
                         const SwitchConfig &config, bool (*is_seen)(const Property &)) {
  CheckPropertyKey(key, place.level);
  const Property *set = config.PropertiesAt(place).Find(key);
  if (set != nullptr && is_seen(*set)) return set->value;
  const PropertyRow *row = FindPropertyRow(key);
  if (row == nullptr || row->fallback == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return row->fallback(ContextOf(place, defaults, config));
}

}  // namespace kestrel::host
