/* Mirror sessions as tests write them down. */
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/mirroring/mirror_table.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {

/** Fills `record` with an address and its version. */
template <typename Record>
void SetAddress(Record &record, const std::string &text) {
  record.isIPv6 = text.find(':') == std::string::npos ? 0 : 1;
  inet_pton(record.isIPv6 != 0 ? AF_INET6 : AF_INET, text.c_str(), reinterpret_cast<char *>(&record) + 4);
}

inline DVMirrorEntity EntityOfPort(std::string_view name) {
  DVMirrorEntity entity{};
  name.copy(entity.dvPortId, sizeof entity.dvPortId - 1);
  return entity;
}
inline DVMirrorEntity EntityOfUplink(std::string_view name) {
  DVMirrorEntity entity = EntityOfPort(name);
  entity.type = MIRROR_ENTTYPE_UPLINK;
  return entity;
}
inline DVMirrorEntity EntityOfNumber(PortId port) {
  DVMirrorEntity entity{};
  entity.type = MIRROR_ENTTYPE_PORT;
  entity.portId = port;
  return entity;
}
inline DVMirrorEntity EntityOfVlan(VlanId vlan) {
  DVMirrorEntity entity{};
  entity.type = MIRROR_ENTTYPE_VLAN;
  entity.vlan = vlan;
  return entity;
}
inline DVMirrorEntity EntityOfAddress(const std::string &text) {
  DVMirrorEntity entity{};
  entity.type = MIRROR_ENTTYPE_IP;
  SetAddress(entity.ip, text);
  return entity;
}
inline DVMirrorEntity EntityOfStation(const MacAddress &station) {
  DVMirrorEntity entity{};
  entity.type = MIRROR_ENTTYPE_MAC;
  std::ranges::copy(station, entity.mac);
  return entity;
}

/** A rule as its parts; addresses are written as 10.0.0.0/8. */
struct TestRule {
  DVMirrorFilterAction action = ACTION_MIRROR;
  std::vector<std::string> sources{};
  std::vector<std::string> destinations{};
  int protocol = -1;
  std::pair<int, int> source_ports{-1, -1};
  std::pair<int, int> destination_ports{-1, -1};
};

inline MirrorRule RuleFrom(const TestRule &rule) {
  MirrorRule made{};
  made.head.action = rule.action;
  made.head.numSrcIPs = static_cast<zel_uint16>(rule.sources.size());
  made.head.numDstIPs = static_cast<zel_uint16>(rule.destinations.size());
  for (const auto *texts : {&rule.sources, &rule.destinations}) {
    for (const std::string &text : *texts) {
      const auto slash = text.find('/');
      DVMirrorIpPrefix prefix{};
      SetAddress(prefix, text.substr(0, slash));
      prefix.prefix_length = static_cast<zel_uint8>(std::stoi(text.substr(slash + 1)));
      made.prefixes.push_back(prefix);
    }
  }
  const auto range = [](std::pair<int, int> ports) {
    return DVMirrorPortRanage{static_cast<zel_uint16>(ports.first), static_cast<zel_uint16>(ports.second)};
  };
  if (rule.protocol >= 0) {
    made.head.has_protocol = 1;
    made.head.protocol = static_cast<zel_uint16>(rule.protocol);
  }
  if (rule.source_ports.first >= 0) {
    made.head.has_srcports = 1;
    made.head.srcPorts = range(rule.source_ports);
  }
  if (rule.destination_ports.first >= 0) {
    made.head.has_dstports = 1;
    made.head.dstPorts = range(rule.destination_ports);
  }
  return made;
}

struct TestSession {
  std::string id = "s";
  DVMirrorSessionType type = VS_DVMIRROR_SESSIONTYPE_MIXDST;
  /** VS_DVMIRROR_FLAG_*. */
  long long flags = 0;
  std::vector<DVMirrorEntity> to{};
  std::vector<DVMirrorEntity> in{};
  std::vector<DVMirrorEntity> out{};
  std::vector<TestRule> rules{};
  zel_uint16 encap_vlan = 0;
  zel_uint16 wild_in = 0;
  zel_uint16 wild_out = 0;
  zel_uint32 snap = static_cast<zel_uint32>(VS_DVMIRROR_SNAPLEN_COMPLETE);
  zel_uint32 rate = 0;
  DVMirrorFilterType uplink_filter = MIRROR_UPLINK_FILTER_NONE;
  DVMirrorEncapType encap = DVMIRROR_ENCAP_GRE;
  zel_uint32 gre_key = 0;
  bool own_stack = false;
  zel_uint16 erspan_id = 0;
};

inline MirrorSession SessionFrom(const TestSession &session) {
  MirrorSession made{};
  DVMirrorSession &head = made.head;
  session.id.copy(head.sid, sizeof head.sid - 1);
  ("name of " + session.id).copy(head.dname, sizeof head.dname - 1);
  head.type = session.type;
  head.flags = static_cast<zel_uint32>(session.flags);
  head.encapVlan = session.encap_vlan;
  head.wildIn = session.wild_in;
  head.wildOut = session.wild_out;
  head.snapLen = session.snap;
  head.samplingRate = session.rate;
  head.uplinkFilter = session.uplink_filter;
  head.encapType = session.encap;
  head.greKey = session.gre_key;
  head.stack = session.own_stack ? 1 : 0;
  head.erspanID = session.erspan_id;
  head.numDstEntities = static_cast<zel_uint32>(session.to.size());
  head.numSrcInEntities = static_cast<zel_uint32>(session.in.size());
  head.numSrcOutEntities = static_cast<zel_uint32>(session.out.size());
  head.numFilterRules = static_cast<zel_uint16>(session.rules.size());
  for (const auto *entities : {&session.to, &session.in, &session.out}) {
    made.entities.insert(made.entities.end(), entities->begin(), entities->end());
  }
  for (const TestRule &rule : session.rules) made.rules.push_back(RuleFrom(rule));
  return made;
}

inline std::string TableFrom(const std::vector<TestSession> &sessions) {
  MirrorTable table;
  for (const TestSession &session : sessions) table.sessions.push_back(SessionFrom(session));
  return Pack(table);
}

inline void SetPortSessions(Host &host, std::string_view port, const std::vector<TestSession> &sessions) {
  host.SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_MIRROR_SESSIONS,
                   {TableFrom(sessions)});
}

inline void SetUplinkSessions(Host &host, const std::vector<TestSession> &sessions) {
  host.SetProperty({.switch_name = kAlias}, VSPROP_SWITCH_UPLINK_MIRROR_SESSIONS, {TableFrom(sessions)});
}

}  // namespace kestrel::host
