/* What the functions tell of traffic. */
#include <cstring>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/frames.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";

class TrafficFace : public FaceTest {
 protected:
  MacAddress AddressOf(const char *port) { return host().FindSwitch(kAlias).config.PortNamed(port).client->address; }
  void SetFlag(const char *port, const char *key, char on) {
    ASSERT_EQ(DVSZEL_PortDataSet(kId, port, key, &on, 1, CONFIG_PROP_TYPE), ZEL_OK);
  }
  template <typename Record>
  static Record Read(const char *port, const char *key) {
    void *value = nullptr;
    int length = 0;
    EXPECT_EQ(DVSZEL_PortDataGet(kId, port, key, &value, &length), ZEL_OK) << key;
    EXPECT_EQ(static_cast<std::size_t>(length), sizeof(Record));
    Record record{};
    std::memcpy(&record, value, sizeof record);
    DVSZEL_DataFree(value);
    return record;
  }
  static Owned<VSStaticLeCtxEntries> Contexts(const char *port = nullptr) {
    VSStaticLeCtxEntries *table = Stale<VSStaticLeCtxEntries>();
    EXPECT_EQ(port == nullptr ? VSZEL_GetStaticLectx(kAlias, &table) : VSZEL_GetPortStaticLectx(kAlias, port, &table),
              ZEL_OK);
    return Owned<VSStaticLeCtxEntries>(table);
  }
  std::vector<PortId> Promiscuous() {
    VSPromiscSessionActiveDsts *table = Stale<VSPromiscSessionActiveDsts>();
    EXPECT_EQ(VSZEL_GetPromiscSessionActiveDsts(kAlias, &table), ZEL_OK);
    const Owned<VSPromiscSessionActiveDsts> owned(table);
    EXPECT_EQ(zel_uint32{table->totalEntries}, zel_uint32{table->numEntries});
    std::vector<PortId> ports;
    for (zel_uint32 i = 0; i < table->numEntries; ++i) ports.push_back(table->entries[i]);
    return ports;
  }
};

TEST_F(TrafficFace, StatisticsOfAPortAreAProperty) {
  host().SendFrame(kAlias, "machine", MakeFrame(kBroadcast, AddressOf("machine")));
  host().SendFrame(kAlias, "machine", MakeFrame(AddressOf("service"), AddressOf("machine"), {}, 100));
  host().SendFrame(kAlias, "machine", MakeFrame(kBroadcast, Station(9)));
  const auto in = Read<zel_VDSPortStatistics>("machine", ZEL_VDSPROP_PORT_STATISTICS);
  EXPECT_EQ(zel_uint64{in.pktsInUnicast}, 1U);
  EXPECT_EQ(zel_uint64{in.bytesInUnicast}, 114U);
  EXPECT_EQ(zel_uint64{in.pktsInBroadcast}, 2U);
  EXPECT_EQ(zel_uint64{in.pktsInDropped}, 1U);
  const auto out = Read<zel_VDSPortStatistics>("service", ZEL_VDSPROP_PORT_STATISTICS);
  EXPECT_EQ(zel_uint64{out.pktsOutUnicast}, 1U);
  EXPECT_EQ(zel_uint64{out.pktsOutBroadcast}, 1U);
  char byte = 0;
  EXPECT_EQ(DVSZEL_PortDataSet(kId, "machine", ZEL_VDSPROP_PORT_STATISTICS, &byte, 1, CONFIG_PROP_TYPE), ZEL_READ_ONLY);
}

TEST_F(TrafficFace, TheStatusOfAPortIsAProperty) {
  const auto flags = [](const char *port) {
    return zel_uint64{Read<zel_VDSPortStatus>(port, ZEL_VDSPROP_PORT_STATUS).flags};
  };
  EXPECT_EQ(flags("machine"), zel_uint64{ZEL_VDSPORT_STATUS_INUSE | ZEL_VDSPORT_STATUS_LINKUP});
  EXPECT_EQ(flags("free"), 0U);
  EXPECT_EQ(flags("u1"), zel_uint64{ZEL_VDSPORT_STATUS_INUSE | ZEL_VDSPORT_STATUS_LINKUP});
  EXPECT_EQ(flags("u3"), zel_uint64{ZEL_VDSPORT_STATUS_INUSE}) << "its NIC has no link";
  SetFlag("machine", ZEL_VDSPROP_PORT_BLOCK, 1);
  EXPECT_EQ(flags("machine") & ZEL_VDSPORT_STATUS_BLOCKED, zel_uint64{ZEL_VDSPORT_STATUS_BLOCKED});
  EXPECT_EQ(Bytes(Read<zel_VDSPortStatus>("machine", ZEL_VDSPROP_PORT_STATUS).displayStr), Padded("vm.eth0", 80));
  const auto link = Read<zel_LinkStatus>("u1", ZEL_VDSPROP_PORT_LINK_STATUS);
  EXPECT_EQ(link.state, ZEL_LINK_STATE_UP);
  EXPECT_EQ(zel_uint32{link.speed}, 10000U);
  EXPECT_EQ(Read<DVSPortType>("free", ZEL_VDSPROP_PORT_TYPE), DVSPORT_TYPE_ACTIVE);
}

TEST_F(TrafficFace, StaticContextsTellTheVlansOfClientsAndEnteredAddresses) {
  host().SetPortVlan(kAlias, "machine", {.mode = VlanMode::kTrunk, .vlan = 70, .ranges = {{0, 1}, {4094, 4094}}},
                     Persistence::kSaved);
  host().SetPortVlan(kAlias, "service", {.vlan = 64, .ranges = {}}, Persistence::kSaved);
  host().EnterAddress(kAlias, IdOfPort(host(), "u1"), {3, Station(200)}, VS_MAC_ADDR_TYPE_USER);
  host().SeeSource(kAlias, IdOfPort(host(), "u1"), {3, Station(201)});
  const auto table = Contexts();
  EXPECT_EQ(table->totalEntries, 3U);
  ASSERT_EQ(table->numEntries, 3U);
  const VSStaticLEEntry machine = table->staticLECtxEntries[0];
  EXPECT_EQ(std::memcmp(machine.macAddress, AddressOf("machine").data(), 6), 0);
  EXPECT_EQ(machine.macAddrType, VS_MAC_ADDR_TYPE_STATIC);
  EXPECT_EQ(zel_SwitchPortID{machine.portID}, IdOfPort(host(), "machine"));
  EXPECT_EQ(zel_uint64{machine.vlanBitmap.bits[0]}, 2U) << "not VLAN 0, since untagged frames are of VLAN 70";
  EXPECT_EQ(zel_uint64{machine.vlanBitmap.bits[1]}, zel_uint64{1} << (70 - 64));
  EXPECT_EQ(zel_uint64{machine.vlanBitmap.bits[63]}, zel_uint64{1} << (4094 - 63 * 64));
  EXPECT_EQ(zel_uint64{table->staticLECtxEntries[1].vlanBitmap.bits[1]}, 1U);
  EXPECT_EQ(table->staticLECtxEntries[2].macAddrType, VS_MAC_ADDR_TYPE_USER);
  EXPECT_EQ(zel_uint64{table->staticLECtxEntries[2].vlanBitmap.bits[0]}, zel_uint64{1} << 3);

  ASSERT_EQ(Contexts("service")->numEntries, 1U);
  EXPECT_EQ(Contexts("free")->numEntries, 0U);
  VSStaticLeCtxEntries *none = Stale<VSStaticLeCtxEntries>();
  EXPECT_EQ(VSZEL_GetPortStaticLectx(kAlias, "nowhere", &none), ZEL_NOT_FOUND);
  EXPECT_EQ(none, nullptr);
}

TEST_F(TrafficFace, PromiscuousDestinationsAreThoseThatWouldBeServedNow) {
  EXPECT_EQ(Promiscuous(), std::vector<PortId>{});
  for (const char *port : {"machine", "service"}) host().SetAdapter(kAlias, port, {.filter = ZEL_ETH_FILTER_PROMISC});
  EXPECT_EQ(Promiscuous(), std::vector<PortId>{}) << "they may not";
  for (const char *port : {"machine", "service"}) {
    host().SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_SECURITY,
                       {BytesOf(VSPropSecurity{})});
  }
  EXPECT_EQ(Promiscuous(), (std::vector<PortId>{IdOfPort(host(), "machine"), IdOfPort(host(), "service")}));
  SetFlag("machine", ZEL_VDSPROP_PORT_BLOCK, 1);
  EXPECT_EQ(Promiscuous(), std::vector<PortId>{IdOfPort(host(), "service")});
  host().Disconnect(kAlias, "service");
  EXPECT_EQ(Promiscuous(), std::vector<PortId>{});
}

TEST_F(TrafficFace, LearningIsCountedForPortAndTeam) {
  VSMACLearningSwitchInfo info{};
  host().SendFrame(kAlias, "u1", MakeFrame(kBroadcast, Station(100)));
  ASSERT_EQ(VSZEL_GetSwitchMACLearningInfo(kAlias, &info), ZEL_OK);
  EXPECT_EQ(info.teamNumMACsLearned, 1U);
  EXPECT_EQ(info.numMACsLearned, 0U);
  EXPECT_EQ(zel_uint32{info.teamMACLearning.macLimit}, zel_uint32{TEAM_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT});
  EXPECT_EQ(info.numLearningPorts, 0U);
  const auto stats = Read<VSPMACLearningStats>("u1", VSPROP_PORT_MAC_LEARNING_STATS);
  EXPECT_EQ(zel_uint32{stats.numMACsLearned}, 1U);
}

}  // namespace
}  // namespace kestrel::host
