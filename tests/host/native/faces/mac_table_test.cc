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

TEST_F(MacTableFace, IsEmptyBeforeAnythingIsHeard) {
  const auto table = Table(VS_MAC_ADDR_TYPE_ALL);
  EXPECT_EQ(table->totalEntries, 0U);
  EXPECT_EQ(table->numEntries, 0U);
}

TEST_F(MacTableFace, OrdersItsEntriesByVlanThenByAddress) {
  host().SeeSource(kAlias, machine_, {300, Station(1)});
  host().SeeSource(kAlias, left_, {2, Station(200)});
  host().SeeSource(kAlias, machine_, {2, Station(100)});
  host().EnterAddress(kAlias, left_, {2, Station(150)}, VS_MAC_ADDR_TYPE_USER);
  const auto table = Table(VS_MAC_ADDR_TYPE_ALL, kPortset);
  ASSERT_EQ(table->numEntries, 4U);
  EXPECT_EQ(table->totalEntries, 4U);
  std::vector<MacKey> keys;
  for (const VSMACEntry &entry : std::vector(table->macEntries, table->macEntries + 4)) {
    keys.push_back({entry.vid, AddressOf(entry)});
  }
  const std::vector<MacKey> expected{{2, Station(100)}, {2, Station(150)}, {2, Station(200)}, {300, Station(1)}};
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
      {VS_MAC_ADDR_TYPE_STATIC, 2}, {VS_MAC_ADDR_TYPE_USER, 1}, {VS_MAC_ADDR_TYPE_LEARNED, 1}};
  for (const auto &[kind, count] : counts) {
    const auto table = Table(kind);
    EXPECT_EQ(table->totalEntries, 4U);
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
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_ALL)->numEntries, 1U);
  host().AdvanceClock(seconds(1));
  EXPECT_EQ(Table(VS_MAC_ADDR_TYPE_ALL)->numEntries, 0U);
}

TEST_F(MacTableFace, AgesOfCenturiesStayAtTheEndOfTheField) {
  host().EnterAddress(kAlias, machine_, {7, Station(1)}, VS_MAC_ADDR_TYPE_USER);
  host().AdvanceClock(seconds(5'000'000'000));
  EXPECT_EQ(zel_uint32{Table(VS_MAC_ADDR_TYPE_ALL)->macEntries[0].elapsed}, 0xffffffffU);
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
