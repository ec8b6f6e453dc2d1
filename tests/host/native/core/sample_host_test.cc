#include "host/core/sample_host.h"

#include <algorithm>
#include <map>

#include "host/core/teaming/lag_status.h"
#include "host/core/traffic/static_entries.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

TEST(SampleHost, HasEveryKindOfThing) {
  const auto host = MakeSampleHost();
  std::map<VS_PortClientType, int> clients;
  std::map<VSMACAddrType, int> addresses;
  std::map<VlanMode, int> policies;
  std::map<zel_LinkState, int> links;
  std::uint32_t moves = 0;
  int free_ports = 0;
  for (const Switch &each : host->Switches()) {
    for (const Port &port : each.config.ports().Items()) {
      if (port.client) {
        ++clients[port.client->type];
      } else {
        ++free_ports;
      }
      if (const auto policy = VlanOf(port)) ++policies[policy->mode];
    }
    for (const Uplink &uplink : each.config.uplinks().Items()) {
      ++links[host->LinkOfPluggedNic(*each.config.NicOf(uplink.id)).state];
    }
    addresses[VS_MAC_ADDR_TYPE_STATIC] += static_cast<int>(StationsOf(*host, each).size());
    for (const auto &[key, entry] : each.runtime.macs.entries()) {
      ++addresses[entry.kind];
      moves += entry.moves;
    }
  }
  EXPECT_EQ(host->Switches().size(), 2U);
  EXPECT_EQ(clients[VS_PORT_CLIENT_VNIC] + clients[VS_PORT_CLIENT_TCPIP] + free_ports, 12);
  EXPECT_GT(clients[VS_PORT_CLIENT_TCPIP], 0);
  EXPECT_EQ(clients[VS_PORT_CLIENT_UPLINK], 6);
  EXPECT_EQ(links[ZEL_LINK_STATE_DOWN], 1);
  EXPECT_EQ(policies.size(), 3U);
  EXPECT_EQ(addresses[VS_MAC_ADDR_TYPE_STATIC], 11) << "every client";
  EXPECT_EQ(addresses.size(), 3U);
  EXPECT_GT(moves, 0U);
}

TEST(SampleHost, HasOneGroupWithAMemberDown) {
  const auto host = MakeSampleHost();
  const Switch &prod = host->FindSwitch("dvs-prod");
  ASSERT_EQ(prod.config.lags().size(), 1U);
  const LagStatus status = StatusOfLag(*host, prod, *prod.config.lags().FindNamed("lag1"));
  EXPECT_EQ(status.nics.size(), 3U);
  EXPECT_EQ(status.up_members, 0b101U);
  EXPECT_EQ(host->FindSwitch("DvsPortset-1").config.lags().size(), 0U);
}

TEST(SampleHost, IsSavedAsItRuns) {
  const auto host = MakeSampleHost();
  const SwitchConfig before = host->FindSwitch("dvs-prod").config;
  host->Cleanup();
  host->LoadConfig();
  EXPECT_EQ(host->FindSwitch("dvs-prod").config, before);
}

TEST(SampleHost, IsTheSameEachTime) {
  const auto one = MakeSampleHost();
  const auto two = MakeSampleHost();
  for (const char *name : {"dvs-prod", "dvs-storage"}) {
    EXPECT_EQ(one->FindSwitch(name).config, two->FindSwitch(name).config);
    EXPECT_TRUE(
        std::ranges::equal(one->FindSwitch(name).runtime.macs.entries(), two->FindSwitch(name).runtime.macs.entries()));
  }
}

}  // namespace
}  // namespace kestrel::host
