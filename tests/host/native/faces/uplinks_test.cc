#include "kestrel/runtime_queries.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/nic_link.h"

namespace kestrel::host {
namespace {

using Uplinks = FaceTest;

TEST_F(Uplinks, AreThoseThatHaveANic) {
  VSUplinks *out = Stale<VSUplinks>();
  ASSERT_EQ(VSZEL_GetUplinks(kAlias, &out), ZEL_OK);
  const Owned<VSUplinks> table(out);
  EXPECT_EQ(table->totalEntries, 2U);
  ASSERT_EQ(table->numEntries, 2U);
  EXPECT_EQ(Bytes(table->entries[0].name.string), Padded("nic-l", 32));
  EXPECT_EQ(zel_SwitchPortID{table->entries[0].portID}, IdOfPort(host(), "u1"));
  EXPECT_EQ(Bytes(table->entries[1].name.string), Padded("nic-r", 32));
  EXPECT_EQ(zel_SwitchPortID{table->entries[1].portID}, IdOfPort(host(), "u3"));
}

TEST_F(Uplinks, NullTheirOutputWhenTheyRefuse) {
  VSUplinks *table = Stale<VSUplinks>();
  EXPECT_EQ(VSZEL_GetUplinks("nowhere", &table), ZEL_NOT_FOUND);
  EXPECT_EQ(table, nullptr);
  table = Stale<VSUplinks>();
  EXPECT_EQ(VSZEL_GetUplinks(nullptr, &table), ZEL_BAD_PARAM);
  EXPECT_EQ(table, nullptr);
  EXPECT_EQ(VSZEL_GetUplinks(kAlias, nullptr), ZEL_BAD_PARAM);
}

TEST_F(Uplinks, HaveTheLinkOfTheirNic) {
  zel_LinkState state = ZEL_LINK_STATE_DOWN;
  ASSERT_EQ(VSZEL_GetUplinkLinkState(kAlias, "nic-l", &state), ZEL_OK);
  EXPECT_EQ(state, ZEL_LINK_STATE_UP);
  ASSERT_EQ(VSZEL_GetUplinkLinkState(kPortset, "nic-r", &state), ZEL_OK);
  EXPECT_EQ(state, ZEL_LINK_STATE_DOWN);
  SetNicLink(host(), "nic-r", kUp);
  ASSERT_EQ(VSZEL_GetUplinkLinkState(kAlias, "nic-r", &state), ZEL_OK);
  EXPECT_EQ(state, ZEL_LINK_STATE_UP);
}

TEST_F(Uplinks, AreThoseOfTheSwitchThatIsAsked) {
  host().AddNic("nic-x", kUp);
  host().AddSwitch({.id = "other-id", .portset = "other-portset", .alias = "other", .max_ports = 4});
  host().AddUplink("other", "up", "u");
  host().Connect("other", "u", {VS_PORT_CLIENT_UPLINK, "nic-x"});
  zel_LinkState state = ZEL_LINK_STATE_UP;
  EXPECT_EQ(VSZEL_GetUplinkLinkState(kAlias, "nic-x", &state), ZEL_NOT_FOUND);
  EXPECT_EQ(state, 0);
  EXPECT_EQ(VSZEL_GetUplinkLinkState("other", "nic-x", &state), ZEL_OK);
  EXPECT_EQ(state, ZEL_LINK_STATE_UP);
}

TEST_F(Uplinks, ClearTheLinkStateWhenTheyRefuse) {
  const auto refused = [](const char *name, const char *nic) {
    zel_LinkState state = ZEL_LINK_STATE_UP;
    const ZEL_ReturnStatus status = VSZEL_GetUplinkLinkState(name, nic, &state);
    EXPECT_EQ(state, 0);
    return status;
  };
  EXPECT_EQ(refused("nowhere", "nic-l"), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, "left"), ZEL_NOT_FOUND) << "an uplink's name is not its NIC's";
  EXPECT_EQ(refused(kAlias, "vm.eth0"), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, ""), ZEL_NOT_FOUND);
  EXPECT_EQ(refused("nowhere", nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(nullptr, "nic-l"), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(kAlias, std::string(31, 'n').c_str()), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, std::string(32, 'n').c_str()), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(VSZEL_GetUplinkLinkState(kAlias, "nic-l", nullptr), ZEL_BAD_PARAM);
}

}  // namespace
}  // namespace kestrel::host
