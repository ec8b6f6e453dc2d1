#include "host/core/teaming/teaming.h"

#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/team_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

class TeamingFaces : public FaceTest {
 protected:
  /** The test host with a policy that fails over from "left" to "right", whose link is up too. */
  TeamingFaces() {
    SetNicLink(host(), "nic-r", kUp);
    const VSTeamPolicy policy = RecordOf({.balance = TEAM_FRP_TYPE_FO_EXPLICIT,
                                          .active = {"left"},
                                          .standby = {"right"},
                                          .flags = TEAM_FRP_FLAG_NOTIFY_SWITCH});
    EXPECT_EQ(VSDVS_SetTeamingPolicy(kAlias, &policy), ZEL_OK);
    host().AdvanceClock(std::chrono::hours(1));
  }

  static VSRARPStats Rarps() {
    VSRARPStats stats{};
    EXPECT_EQ(VSZEL_GetRARPStats(kAlias, &stats), ZEL_OK);
    return stats;
  }
  std::string Hint(const char *port) {
    zel_Name name{};
    const ZEL_ReturnStatus status = VSZEL_PortGetTeamUplinkHint(IdOfPort(host(), port), &name);
    return status == ZEL_OK ? std::string(name.string) : std::to_string(status);
  }
  Switch &owner() { return const_cast<Switch &>(host().FindSwitch(kAlias)); }
};

TEST_F(TeamingFaces, ALinkThatIsTakenDownByHandMovesPortsAndTellsTheNetwork) {
  EXPECT_EQ(Hint("machine"), "nic-l");
  const VSRARPStats before = Rarps();
  ASSERT_EQ(VSZEL_SetUplinkAdminLinkState(kAlias, "nic-l", ZEL_LINK_STATE_DOWN), ZEL_OK);
  EXPECT_EQ(Hint("machine"), "nic-r");
  const VSRARPStats after = Rarps();
  EXPECT_EQ(zel_uint32{after.rarpPktsSent} - zel_uint32{before.rarpPktsSent}, 2U) << "the machine and the service";
  EXPECT_EQ(zel_uint64{after.rarpTime}, zel_uint64{before.rarpTime}) << "both at once";
  host().AdvanceClock(seconds(1));
  EXPECT_EQ(zel_uint32{Rarps().rarpPktsSent} - zel_uint32{after.rarpPktsSent}, 2U);
}

TEST_F(TeamingFaces, TheHintIsTheChoice) {
  const auto bytes = UdpFrame(Station(1), Station(2), 1, 2);
  for (const bool is_left_up : {true, false}) {
    host().SetNicEnabled("nic-l", is_left_up);
    host().AdvanceClock(seconds(1));
    const Uplink *uplink = ChooseUplink(host(), owner(), owner().config.PortNamed("machine"), Frame(bytes));
    ASSERT_NE(uplink, nullptr);
    EXPECT_EQ(Hint("machine"), *owner().config.NicOf(uplink->id));
  }
}

TEST_F(TeamingFaces, GroupsAreUpWhileLacpHasMembersInService) {
  const auto lacp = [](const char *nic) {
    zel_LinkState state = ZEL_LINK_STATE_DOWN;
    EXPECT_EQ(VSZEL_GetUplinkLACPLinkState(kAlias, nic, &state), ZEL_OK);
    return state;
  };
  EXPECT_EQ(lacp("nic-l"), ZEL_LINK_STATE_UP);
  EXPECT_EQ(lacp("nic-r"), ZEL_LINK_STATE_UP);
  Nic nic = host().nics().Get("nic-r");
  nic.partner.collects = false;
  host().SetNic("nic-r", nic);
  EXPECT_EQ(lacp("nic-l"), ZEL_LINK_STATE_UP);
  EXPECT_EQ(lacp("nic-r"), ZEL_LINK_STATE_DOWN);
  zel_LinkState link = ZEL_LINK_STATE_DOWN;
  EXPECT_EQ(VSZEL_GetUplinkLinkState(kAlias, "nic-r", &link), ZEL_OK);
  EXPECT_EQ(link, ZEL_LINK_STATE_UP) << "the link itself is there";
}

TEST_F(TeamingFaces, CountServices) {
  const auto stats = [] {
    VSServicePortTeamingStats stats{};
    EXPECT_EQ(VSZEL_GetServicePortTeamingStats(kPortset, &stats), ZEL_OK);
    return stats;
  };
  EXPECT_EQ(BytesOf(stats()), BytesOf(VSServicePortTeamingStats{}));
  const Port &service = owner().config.PortNamed("service");
  const auto bytes = UdpFrame(service.client->used_address(), Station(2), 1, 2);
  ChooseUplink(host(), owner(), service, Frame(bytes));
  EXPECT_TRUE(AcceptsFromUplink(host(), owner(), service, IdOfPort(host(), "u1"), Frame(bytes)));
  const VSServicePortTeamingStats counted = stats();
  EXPECT_EQ(zel_uint64{counted.txFromSrvPort}, 1U);
  EXPECT_EQ(zel_uint64{counted.txUsingSrvPortFRP}, 1U);
  EXPECT_EQ(zel_uint64{counted.txUsingPktSrcPortFRP}, 0U);
  EXPECT_EQ(zel_uint64{counted.txErrors}, 0U);
  EXPECT_EQ(zel_uint64{counted.rxToSrvPort}, 1U);
  EXPECT_EQ(zel_uint64{counted.rxRpfOverride}, 0U);
}

TEST_F(TeamingFaces, RefuseWhatIsNotThere) {
  VSRARPStats rarps{.rarpPktsSent = 5, .maxRARPTime = 5, .rarpTime = 5};
  EXPECT_EQ(VSZEL_GetRARPStats("nowhere", &rarps), ZEL_NOT_FOUND);
  EXPECT_EQ(BytesOf(rarps), BytesOf(VSRARPStats{}));
  EXPECT_EQ(VSZEL_GetRARPStats(nullptr, &rarps), ZEL_BAD_PARAM);
  EXPECT_EQ(VSZEL_GetRARPStats(kAlias, nullptr), ZEL_BAD_PARAM);
  VSServicePortTeamingStats services{};
  EXPECT_EQ(VSZEL_GetServicePortTeamingStats("nowhere", &services), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_GetServicePortTeamingStats(kAlias, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(VSZEL_RefreshDevNUMAInfo("nowhere"), ZEL_NOT_FOUND);
  EXPECT_EQ(VSZEL_RefreshDevNUMAInfo(kAlias), ZEL_OK);
}

}  // namespace
}  // namespace kestrel::host
