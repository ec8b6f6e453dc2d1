#include <algorithm>
#include <vector>

#include "kestrel/runtime_queries.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class MacTableFace : public FaceTest {
 protected:
  MacTableFace() : machine_(IdOfPort(host(), "machine")), left_(IdOfPort(host(), "u1")) {}

  static Owned<VSMACTable> Table(VSMACAddrType kind, const char *name = kAlias) {
    VSMACTable *table = Stale<VSMACTable>();
    EXPECT_EQ(VSZEL_GetMACTable(name, kind, &table), ZEL_OK);
    return Owned<VSMACTable>(table);
  }
  static MacAddress AddressOf(const VSMACEntry &entry) {
    MacAddress address;
    std::ranges::copy(entry.macAddress, address.begin());
    return address;
  }

  const PortId machine_;
  const PortId left_;
};

TEST_F(MacTableFace, HasTheClientsBeforeAnythingIsHeard) {
  host().AdvanceClock(seconds(7));
  const auto table = Table(VS_MAC_ADDR_TYPE_ALL);
  EXPECT_EQ(table->totalEntries, 2U);
  ASSERT_EQ(table->numEntries, 2U);
  const VSMACEntry entry = table->macEntries[0];
  const auto &client = host().FindSwitch(kAlias).config.PortNamed("machine").client;
  EXPECT_EQ(AddressOf(entry), client->address);
  EXPECT_EQ(entry.macAddrType, VS_MAC_ADDR_TYPE_STATIC);
  EXPECT_EQ(zel_SwitchPortID{entry.portID}, machine_);
  EXPECT_EQ(zel_VlanID{entry.vid}, 0);
  EXPECT_EQ(entry.aging, 0);
  EXPECT_EQ(zel_uint32{entry.elapsed}, 7U) << "since it was connected";
}

TEST_F(MacTableFace, WhatWasLearnedOfAClientTakesThePlaceOfWhatIsKnown) {
  const MacAddress address = host().FindSwitch(kAlias).config.PortNamed("machine").client->address;
  host().SeeSource(kAlias, left_, {0, address});
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_ALL)->numEntries, 2U);
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_STATIC)->numEntries, 1U);
  EXPECT_EQ(zel_SwitchPortID{Table(VS_MAC_ADDR_TYPE_LEARNED)->macEntries[0].portID}, left_);
}

TEST_F(MacTableFace, RefusesToClearTheAddressOfAClient) {
  const auto table = Table(VS_MAC_ADDR_TYPE_STATIC);
  VSMACEntry entry = table->macEntries[0];
  EXPECT_EQ(VSZEL_ClearPortMACTable(kAlias, "machine", &entry), ZEL_READ_ONLY);
  EXPECT_EQ(VSZEL_ClearPortMACTable(kAlias, "service", &entry), ZEL_NOT_FOUND);
}

TEST_F(MacTableFace, HoldsWhatIsLearnedAndEnteredAndTheClientsThemselves) {
  host().SeeSource(kAlias, machine_, {300, Station(1)});
  host().SeeSource(kAlias, left_, {2, Station(200)});
  host().SeeSource(kAlias, machine_, {2, Station(100)});
  host().EnterAddress(kAlias, left_, {2, Station(150)}, VS_MAC_ADDR_TYPE_USER);
  host().SetPortVlan(kAlias, "service", {.vlan = 2, .ranges = {}}, Persistence::kSaved);
  const auto table = Table(VS_MAC_ADDR_TYPE_ALL, kPortset);
  ASSERT_EQ(table->numEntries, 6U);
  EXPECT_EQ(table->totalEntries, 6U);
  std::vector<MacKey> keys;
  for (const VSMACEntry &entry : std::vector(table->macEntries, table->macEntries + 6)) {
    keys.push_back({entry.vid, AddressOf(entry)});
  }
  const auto &ports = host().FindSwitch(kAlias).config;
  std::ranges::sort(keys);
  const std::vector<MacKey> expected{
      {0, ports.PortNamed("machine").client->address}, {2, Station(100)}, {2, Station(150)}, {2, Station(200)},
      {2, ports.PortNamed("service").client->address}, {300, Station(1)}};
  EXPECT_EQ(keys, expected);
}

TEST_F(MacTableFace, TellsPortAgeAndMovesOfAnEntry) {
  host().SeeSource(kAlias, machine_, {7, Station(1)});
  host().SeeSource(kAlias, left_, {7, Station(1)});
  host().AdvanceClock(milliseconds(59999));
  const auto table = Table(VS_MAC_ADDR_TYPE_LEARNED);
  ASSERT_EQ(table->numEntries, 1U);
  const VSMACEntry entry = table->macEntries[0];
  EXPECT_EQ(AddressOf(entry), Station(1));
  EXPECT_EQ(entry.macAddrType, VS_MAC_ADDR_TYPE_LEARNED);
  EXPECT_EQ(zel_SwitchPortID{entry.portID}, left_);
  EXPECT_EQ(entry.aging, 1);
  EXPECT_EQ(zel_VlanID{entry.vid}, 7);
  EXPECT_EQ(zel_uint32{entry.vni}, 0U);
  EXPECT_EQ(zel_uint32{entry.elapsed}, 59U);
  EXPECT_EQ(zel_uint32{entry.macMove}, 1U);
}

TEST_F(MacTableFace, GivesOneKindOutOfAll) {
  host().SeeSource(kAlias, machine_, {7, Station(1)});
  host().EnterAddress(kAlias, machine_, {7, Station(2)}, VS_MAC_ADDR_TYPE_USER);
  host().EnterAddress(kAlias, machine_, {7, Station(3)}, VS_MAC_ADDR_TYPE_STATIC);
  host().EnterAddress(kAlias, machine_, {7, Station(4)}, VS_MAC_ADDR_TYPE_STATIC);
  const std::vector<std::pair<VSMACAddrType, unsigned>> counts{
      {VS_MAC_ADDR_TYPE_STATIC, 4}, {VS_MAC_ADDR_TYPE_USER, 1}, {VS_MAC_ADDR_TYPE_LEARNED, 1}};
  for (const auto &[kind, count] : counts) {
    const auto table = Table(kind);
    EXPECT_EQ(table->totalEntries, 6U);
    ASSERT_EQ(table->numEntries, count);
    for (unsigned i = 0; i < count; ++i) {
      EXPECT_EQ(table->macEntries[i].macAddrType, kind);
      EXPECT_EQ(table->macEntries[i].aging, kind == VS_MAC_ADDR_TYPE_LEARNED ? 1 : 0);
    }
  }
}

TEST_F(MacTableFace, ForgetsWhatHasGrownOld) {
  host().SeeSource(kAlias, machine_, {7, Station(1)});
  host().AdvanceClock(seconds(599));
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_LEARNED)->numEntries, 1U);
  host().AdvanceClock(seconds(1));
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_LEARNED)->numEntries, 0U);
}

TEST_F(MacTableFace, AgesOfCenturiesStayAtTheEndOfTheField) {
  host().EnterAddress(kAlias, machine_, {7, Station(1)}, VS_MAC_ADDR_TYPE_USER);
  host().AdvanceClock(seconds(5'000'000'000));
  EXPECT_EQ(zel_uint32{Table(VS_MAC_ADDR_TYPE_USER)->macEntries[0].elapsed}, 0xffffffffU);
}

TEST_F(MacTableFace, NullsItsOutputWhenItRefuses) {
  const auto refused = [](const char *name, VSMACAddrType kind) {
    VSMACTable *table = Stale<VSMACTable>();
    const ZEL_ReturnStatus status = VSZEL_GetMACTable(name, kind, &table);
    EXPECT_EQ(table, nullptr);
    return status;
  };
  EXPECT_EQ(refused("nowhere", VS_MAC_ADDR_TYPE_ALL), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(nullptr, VS_MAC_ADDR_TYPE_ALL), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(std::string(128, 'x').c_str(), VS_MAC_ADDR_TYPE_ALL), ZEL_NAME_TOO_LONG);
  for (const unsigned kind : {VS_MAC_ADDR_TYPE_ALL + 1U, 0xffU}) {
    // Callers pass any byte. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    EXPECT_EQ(refused(kAlias, static_cast<VSMACAddrType>(kind)), ZEL_BAD_PARAM) << kind;
  }
  EXPECT_EQ(VSZEL_GetMACTable(kAlias, VS_MAC_ADDR_TYPE_ALL, nullptr), ZEL_BAD_PARAM);
}

}  // namespace
}  // namespace kestrel::host
