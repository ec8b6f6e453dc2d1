/* A host whose switch has a team of uplinks, for tests of what teams do. */
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/frames/frame.h"
#include "host/core/frames/frame_writer.h"
#include "host/core/host.h"
#include "host/core/teaming/teaming.h"
#include "kestrel/policy_records.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {

/** What a test asks of a VSTeamPolicy. */
struct PolicyWish {
  std::uint32_t balance = TEAM_FRP_TYPE_LB_SRCID;
  std::vector<std::string> active{};
  std::vector<std::string> standby{};
  std::uint32_t criteria = TEAM_FRP_CRIT_LINK_STATE;
  std::uint32_t flags = 0;
  std::uint8_t percent_error = 0;
  bool full_duplex = false;
  std::uint16_t speed = 0;
};

inline VSTeamPolicy RecordOf(const PolicyWish &wish) {
  VSTeamPolicy record{};
  record.loadBalance = wish.balance;
  record.linkCriteria = wish.criteria;
  record.percentError = wish.percent_error;
  record.fullDuplex = wish.full_duplex ? 1 : 0;
  record.speed = wish.speed;
  record.flags = wish.flags;
  record.numActive = static_cast<zel_uint32>(wish.active.size());
  record.numStandby = static_cast<zel_uint32>(wish.standby.size());
  std::size_t at = 0;
  for (const auto *names : {&wish.active, &wish.standby}) {
    for (const std::string &name : *names) name.copy(record.uplinkPortName[at++], ZEL_VDS_PORT_ALIAS_MAX_LEN - 1);
  }
  return record;
}

/** A switch with the uplinks "up0", "up1", ... on ports of the same names, which hold the NICs "nic0", "nic1", ...
    whose links are up, and with the clients "p0", "p1", ... */
class TeamHost {
 public:
  TeamHost(int uplinks, int clients) : host_(std::make_unique<Host>()) {
    host_->AddSwitch({.id = "8f4c1f0e-1b7a-4d52-9a3f-6f3a52c0d711",
                      .portset = kPortset,
                      .alias = kAlias,
                      .max_ports = static_cast<std::uint32_t>(uplinks + clients + 64)});
    for (int i = 0; i < uplinks; ++i) {
      const std::string number = std::to_string(i);
      host_->AddNic("nic" + number, kUp);
      host_->AddUplink(kAlias, "up" + number, "up" + number);
      host_->Connect(kAlias, "up" + number, {.type = VS_PORT_CLIENT_UPLINK, .name = "nic" + number});
    }
    for (int i = 0; i < clients; ++i) AddClient("p" + std::to_string(i));
  }

  Host *operator->() { return host_.get(); }
  Host &operator*() { return *host_; }
  Switch &owner() { return const_cast<Switch &>(host_->FindSwitch(kAlias)); }
  const Port &port(const std::string &name) { return owner().config.PortNamed(name); }

  void AddClient(const std::string &name, VS_PortClientType type = VS_PORT_CLIENT_VNIC) {
    host_->AddPort(kAlias, name);
    host_->Connect(kAlias, name, {.type = type, .name = name + ".eth0"});
  }
  void SetPolicy(const PolicyWish &wish) {
    host_->SetProperty({.switch_name = kAlias}, VSPROP_SWITCH_TEAMING, {BytesOf(RecordOf(wish))});
  }
  void SetPortPolicy(const std::string &port, const PolicyWish &wish) {
    host_->SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_TEAMING_POLICY,
                       {BytesOf(RecordOf(wish))});
  }
  void SetOption(std::uint16_t code, std::uint32_t value) {
    VSRuntimeOptionHeader head{};
    head.type = code;
    head.length = 8;
    const VSRuntimeOptions list{.totalLength = static_cast<zel_uint32>(sizeof(VSRuntimeOptions) + 8)};
    host_->options().Apply(BytesOf(list) + BytesOf(head) + BytesOf(value));
  }
  void SetLink(int nic, bool is_up) { SetNicLink(*host_, "nic" + std::to_string(nic), is_up ? kUp : kNoLink); }
  template <typename Change>
  void ChangeNic(int number, Change change) {
    const std::string name = "nic" + std::to_string(number);
    Nic nic = host_->nics().Get(name);
    change(nic);
    host_->SetNic(name, nic);
  }

  /** The name of the uplink that carries a frame of a port; empty when there is none. */
  std::string Choice(const std::string &source, const Frame &frame) {
    const Uplink *uplink = ChooseUplink(*host_, owner(), port(source), frame);
    return uplink == nullptr ? std::string() : uplink->name;
  }
  std::string Choice(const std::string &source);
  /** Of each client, in order. */
  std::vector<std::string> Choices(int clients) {
    std::vector<std::string> choices;
    for (int i = 0; i < clients; ++i) choices.push_back(Choice("p" + std::to_string(i)));
    return choices;
  }

 private:
  std::unique_ptr<Host> host_;
};

/** A UDP packet over IPv4 between two machines and two ports of them. */
inline std::vector<std::uint8_t> UdpFrame(const MacAddress &source, const MacAddress &destination,
                                          std::uint32_t source_ip, std::uint32_t destination_ip,
                                          std::uint16_t source_port = 1000, std::uint16_t destination_port = 2000) {
  FrameWriter writer;
  writer.Put(destination).Put(source).Put(static_cast<std::uint16_t>(ZEL_ETH_TYPE_IPV4));
  writer.Put(std::uint8_t{0x45}).PutZeros(1).Put(std::uint16_t{28}).PutZeros(4);
  writer.Put(std::uint8_t{64}).Put(static_cast<std::uint8_t>(ZEL_IP_PROTO_UDP)).PutZeros(2);
  writer.Put(source_ip).Put(destination_ip);
  writer.Put(source_port).Put(destination_port).Put(std::uint16_t{8}).PutZeros(2);
  writer.PadTo(kMinFrameSize);
  return writer.Take();
}

inline std::string TeamHost::Choice(const std::string &source) {
  const auto bytes = UdpFrame(port(source).client->used_address(), Station(99), 0x0a000001, 0x0a000002);
  return Choice(source, Frame(bytes));
}

}  // namespace kestrel::host
