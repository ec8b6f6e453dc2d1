#include <cstring>
#include <string>

#include "kestrel/runtime_queries.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/nic_link.h"

namespace kestrel::host {
namespace {

/** Walks the bytes of a LAG table as they lie. */
class Walk {
 public:
  explicit Walk(const VSLAGTable *table) : at_(reinterpret_cast<const char *>(table)) {}

  template <typename Number>
  Number Next() {
    Number number;
    std::memcpy(&number, at_, sizeof number);
    at_ += sizeof number;
    return number;
  }
  std::string NextField(std::size_t width) {
    const std::string field(at_, width);
    at_ += width;
    return field;
  }

 private:
  const char *at_;
};

class LagTable : public FaceTest {
 protected:
  static Owned<VSLAGTable> Table() {
    VSLAGTable *table = Stale<VSLAGTable>();
    EXPECT_EQ(VSZEL_GetLAGTable(kAlias, &table), ZEL_OK);
    return Owned<VSLAGTable>(table);
  }
};

TEST_F(LagTable, PacksItsGroupsOneBehindTheOther) {
  host().AddUplink(kAlias, "fourth", "u4");
  host().AddNic("nic-4", kUp);
  host().Connect(kAlias, "u4", {VS_PORT_CLIENT_UPLINK, "nic-4"});
  // Has the lower identifier and comes first, though it was made last.
  host().AddLag(kAlias, {.id = 2, .name = std::string(67, 'g'), .members = {"fourth"}});

  const auto table = Table();
  Walk walk(table.get());
  EXPECT_EQ(walk.Next<zel_uint32>(), 2U);

  EXPECT_EQ(walk.Next<zel_int32>(), ZEL_LINK_STATE_UP);
  EXPECT_EQ(walk.Next<zel_uint32>(), 2U);
  EXPECT_EQ(walk.NextField(68), Padded(std::string(67, 'g'), 68));
  EXPECT_EQ(walk.Next<zel_uint64>(), 0b1U);
  EXPECT_EQ(walk.Next<zel_uint32>(), 1U);
  EXPECT_EQ(walk.NextField(32), Padded("nic-4", 32));

  EXPECT_EQ(walk.Next<zel_int32>(), ZEL_LINK_STATE_UP);
  EXPECT_EQ(walk.Next<zel_uint32>(), 5U);
  EXPECT_EQ(walk.NextField(68), Padded("bond", 68));
  EXPECT_EQ(walk.Next<zel_uint64>(), 0b01U);
  EXPECT_EQ(walk.Next<zel_uint32>(), 2U);
  EXPECT_EQ(walk.NextField(32), Padded("nic-l", 32));
  EXPECT_EQ(walk.NextField(32), Padded("nic-r", 32));
}

TEST_F(LagTable, FollowsTheLinks) {
  SetNicLink(host(), "nic-l", kDown);
  const auto table = Table();
  VSLAGStatus status;
  std::memcpy(&status, table.get() + 1, sizeof status);
  EXPECT_EQ(zel_LinkState{status.state}, ZEL_LINK_STATE_DOWN);
  EXPECT_EQ(zel_uint64{status.uplinkLinkupBitmap}, 0U);
}

TEST_F(LagTable, HoldsGroupsWithoutANic) {
  host().Disconnect(kAlias, "u1");
  host().Disconnect(kAlias, "u3");
  const auto table = Table();
  VSLAGStatus status;
  std::memcpy(&status, table.get() + 1, sizeof status);
  EXPECT_EQ(zel_uint32{status.numUplinks}, 0U);
  EXPECT_EQ(zel_LinkState{status.state}, ZEL_LINK_STATE_DOWN);
}

TEST_F(LagTable, IsACountOf0WithoutGroups) {
  host().AddSwitch({.id = "other-id", .portset = "other-portset", .alias = "other", .max_ports = 4});
  VSLAGTable *table = nullptr;
  ASSERT_EQ(VSZEL_GetLAGTable("other", &table), ZEL_OK);
  EXPECT_EQ(table->numLAGs, 0U);
  EXPECT_EQ(VSZEL_FreeMemory(table), ZEL_OK);
}

TEST_F(LagTable, NullsItsOutputWhenItRefuses) {
  VSLAGTable *table = Stale<VSLAGTable>();
  EXPECT_EQ(VSZEL_GetLAGTable("nowhere", &table), ZEL_NOT_FOUND);
  EXPECT_EQ(table, nullptr);
  table = Stale<VSLAGTable>();
  EXPECT_EQ(VSZEL_GetLAGTable(nullptr, &table), ZEL_BAD_PARAM);
  EXPECT_EQ(table, nullptr);
  EXPECT_EQ(VSZEL_GetLAGTable(kAlias, nullptr), ZEL_BAD_PARAM);
}

}  // namespace
}  // namespace kestrel::host
