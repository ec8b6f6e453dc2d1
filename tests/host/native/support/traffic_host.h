/* A switch to plug things into and to send frames through. */
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/host.h"
#include "host/core/port_status.h"
#include "kestrel/policy_records.h"
#include "tests/host/native/support/frames.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {

/** Which ports got a frame, each with the tags of the frames that it got, "" for none. */
using Arrivals = std::multimap<std::string, std::string>;

class TrafficHost {
 public:
  TrafficHost() {
    host_.AddSwitch(
        {.id = "d5d3b8f5-3a54-4f8d-9a52-94c8a6b3f001", .portset = kPortset, .alias = kAlias, .max_ports = 1000});
  }

  Host &host() { return host_; }
  const Switch &which() const { return host_.FindSwitch(kAlias); }
  PortId IdOf(const std::string &port) const { return which().config.PortNamed(port).id; }

  /** A port with a virtual machine of the address Station(number). */
  void AddMachine(const std::string &port, std::uint8_t number) {
    host_.AddPort(kAlias, port);
    host_.Connect(kAlias, port, {VS_PORT_CLIENT_VNIC, port + ".eth0", Station(number)});
    Watch(port);
  }
  /** An uplink of that name on a port of the same name, with a NIC of a good link. */
  void AddUplink(const std::string &name) {
    host_.AddNic("nic-" + name, kUp);
    host_.AddUplink(kAlias, name, name);
    host_.Connect(kAlias, name, {VS_PORT_CLIENT_UPLINK, "nic-" + name});
    Watch(name);
  }

  void Send(const std::string &port, const FrameData &bytes) { host_.SendFrame(kAlias, port, bytes); }
  /** What has left the ports since the last time. */
  Arrivals Take() {
    Arrivals arrivals;
    for (const std::string &port : watched_) {
      for (const CapturedFrame &frame : host_.TakeCapture(kAlias, port).frames) {
        arrivals.emplace(port, TagsOf(frame.bytes));
      }
    }
    return arrivals;
  }
  Arrivals After(const std::string &port, const FrameData &bytes) {
    Send(port, bytes);
    return Take();
  }

  template <typename Record>
  void SetPort(const std::string &port, std::string_view key, const Record &value) {
    host_.SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port}, key, {BytesOf(value)});
  }
  void SetPortFlag(const std::string &port, std::string_view key, bool on) {
    SetPort(port, key, static_cast<zel_Bool>(on ? 1 : 0));
  }
  template <typename Record>
  void SetSwitch(std::string_view key, const Record &value) {
    host_.SetProperty({.switch_name = kAlias}, key, {BytesOf(value)});
  }
  void SetSwitchFlag(std::string_view key, bool on) { SetSwitch(key, static_cast<zel_Bool>(on ? 1 : 0)); }
  void SetVlan(const std::string &port, const VlanPolicy &policy) {
    host_.SetPortVlan(kAlias, port, policy, Persistence::kSaved);
  }
  void SetAccess(const std::string &port, VlanId vlan) { SetVlan(port, {.vlan = vlan, .ranges = {}}); }
  void SetTrunk(const std::string &port, std::vector<VlanRange> ranges, VlanId native = 0) {
    SetVlan(port, {.mode = VlanMode::kTrunk, .vlan = native, .ranges = std::move(ranges)});
  }
  void SetPrivate(const std::string &port, VlanId vlan) {
    SetVlan(port, {.mode = VlanMode::kPrivate, .vlan = vlan, .ranges = {}});
  }
  void SetPrivateMap(const std::vector<VSPvlanMapEntry> &entries) {
    std::string map;
    for (const VSPvlanMapEntry &entry : entries) map += BytesOf(entry);
    host_.SetProperty({.switch_name = kAlias}, VSPROP_PVLAN_MAP, {map});
  }
  void SetSecurity(const std::string &port, zel_uint32 flags) { SetPort(port, VSPROP_PORT_SECURITY, flags); }
  void SetLearning(const std::string &port, const VSPMACLearning &learning) {
    SetPort(port, VSPROP_PORT_MAC_MANAGEMENT, VSPMACManagement{.macChangeAllowed = 0, .portMACLearning = learning});
  }
  void SetExtraFilter(const std::string &port, zel_uint32 flags) {
    VSExtraEthFilter filter{};
    filter.flags = flags;
    SetPort(port, VSPROP_PORT_EXTRA_ETH_FRP, filter);
  }

  PortRuntime Counters(const std::string &port) const {
    const PortRuntime *runtime = which().runtime.ports.Find(IdOf(port));
    return runtime == nullptr ? PortRuntime{} : *runtime;
  }
  /** The name of the port that an address is behind, "" for none. */
  std::string PortOf(VlanId vlan, const MacAddress &address) const {
    const MacEntry *entry = which().runtime.macs.Find({vlan, address});
    return entry == nullptr ? "" : which().config.ports().Find(entry->port)->name;
  }

 private:
  void Watch(const std::string &port) {
    host_.StartCapture(kAlias, port);
    watched_.push_back(port);
  }

  Host host_;
  std::vector<std::string> watched_;
};

inline constexpr VSPMACLearning kLearns{.learning = 1,
                                        .flooding = 0,
                                        .macLimit = VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT,
                                        .macLimitPolicy = VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW};

}  // namespace kestrel::host
