#include <vector>

#include "host/abi/guard.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";

class SwitchLife : public FaceTest {
 protected:
  static Owned<DVPortList> Ports(const char *id, DVSPortType type) {
    DVPortList *list = Stale<DVPortList>();
    EXPECT_EQ(DVSZEL_SwitchPortList(id, &list, type), ZEL_OK);
    return Owned<DVPortList>(list);
  }
};

TEST_F(SwitchLife, AShadowSwitchHasShadowPorts) {
  ASSERT_EQ(VSDVS_CreateVSwitch("shadow", "shadow-id", "cswitch", 0, 1, 4, 1500, DVS_VERSION_70), ZEL_OK);
  ASSERT_EQ(VSDVS_AddDVPort("shadow", "a", 3), ZEL_OK);
  ASSERT_EQ(VSDVS_AddDVPort("shadow", "b", 4), ZEL_OK);
  EXPECT_EQ(Ports("shadow-id", DVSPORT_TYPE_ACTIVE)->nports, 0);
  const auto ports = Ports("shadow-id", DVSPORT_TYPE_SHADOW);
  ASSERT_EQ(ports->nports, 2);
  const DVPortData *second = ports->dvPort + 1;
  EXPECT_EQ(Bytes(second->dvPortId), Padded("b", 48));
  EXPECT_EQ(second->connectId, 4U);
  DVPortList *list = Stale<DVPortList>();
  EXPECT_EQ(DVSZEL_SwitchPortList("shadow-id", &list, DVSPORT_TYPE_INVALID), ZEL_BAD_PARAM);
  EXPECT_EQ(list, nullptr);
}

TEST_F(SwitchLife, ThePortsetOfANewSwitchIsTheFirstThatIsFree) {
  for (const char *name : {"a", "b"}) EXPECT_EQ(DVSZEL_SwitchAdd(name, name, 4, DVS_VERSION_65), ZEL_OK);
  char portset[128];
  EXPECT_EQ(DVSAliasToPortsetName("b", portset), ZEL_OK);
  EXPECT_EQ(Bytes(portset), Padded("DvsPortset-1", 128));
  EXPECT_EQ(DVSZEL_SwitchRemove("a"), ZEL_OK);
  EXPECT_EQ(DVSZEL_SwitchRemove("a"), ZEL_NOT_FOUND);
  EXPECT_EQ(DVSZEL_SwitchAdd("c", "c", 4, DVS_VERSION_65), ZEL_OK);
  EXPECT_EQ(DVSAliasToPortsetName("c", portset), ZEL_OK);
  EXPECT_EQ(Bytes(portset), Padded("DvsPortset-0", 128));
  EXPECT_EQ(DVSZEL_SwitchAdd("d", "d", 4, 3), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSZEL_SwitchAdd("d", "d", 0, DVS_VERSION_65), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSZEL_SwitchRemove(kId), ZEL_BUSY);
}

TEST_F(SwitchLife, NamesLeadToNames) {
  char id[64];
  EXPECT_EQ(DVSAliasToSwitchId(kAlias, id), ZEL_OK);
  EXPECT_EQ(Bytes(id), Padded(kId, 64));
  EXPECT_EQ(DVSAliasToSwitchIdAllTypes(kPortset, id), ZEL_NOT_FOUND) << "a portset name is no alias";
  EXPECT_EQ(Bytes(id), Padded("", 64));
  EXPECT_EQ(DVSAliasToSwitchId(nullptr, id), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSAliasToSwitchId(kAlias, nullptr), ZEL_BAD_PARAM);
  char alias[128];
  EXPECT_EQ(DVSPortsetNameToAlias(kPortset, alias), ZEL_OK);
  EXPECT_EQ(Bytes(alias), Padded(kAlias, 128));
  char exact[sizeof kId + 1] = {};
  exact[sizeof kId] = '#';
  EXPECT_EQ(VSZEL_DVSAliasToSwitchId(kAlias, exact), ZEL_OK);
  EXPECT_STREQ(exact, kId);
  EXPECT_EQ(exact[sizeof kId], '#') << "nothing behind the terminator is written";
}

TEST_F(SwitchLife, AnotherControllersPortIsFoundByItsNameThere) {
  const std::string external(127, 'e');
  EXPECT_EQ(VSDVS_AddOpaqueDVPort(kAlias, "opaque", external.c_str()), ZEL_OK);
  EXPECT_EQ(VSDVS_AddOpaqueDVPort(kAlias, "opaque2", (external + 'e').c_str()), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(VSDVS_AddOpaqueDVPort(kAlias, "opaque2", ""), ZEL_INVALID_NAME);
  OpaqueDVPortData *data = Stale<OpaqueDVPortData>();
  ASSERT_EQ(DVSZEL_PortGetByExternalId(kId, external.c_str(), &data), ZEL_OK);
  EXPECT_EQ(Bytes(Owned<OpaqueDVPortData>(data)->dvPortId), Padded("opaque", 48));
  EXPECT_EQ(DVSZEL_PortGetByExternalId(kId, "nobody", &data), ZEL_NOT_FOUND);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(DVSZEL_PortGetByExternalId(kId, "", &data), ZEL_INVALID_NAME);
}

TEST_F(SwitchLife, ARemovedPortTakesItsAddressesAlong) {
  host().SeeSource(kAlias, IdOfPort(host(), "free"), {0, Station(1)});
  EXPECT_EQ(VSDVS_RemoveDVPort(kAlias, "u2"), ZEL_BUSY) << "it is an uplink's";
  EXPECT_EQ(DVSZEL_PortRemove(kId, "machine"), ZEL_BUSY);
  EXPECT_EQ(DVSZEL_PortRemove(kId, "free"), ZEL_OK);
  EXPECT_TRUE(host().FindSwitch(kAlias).runtime.macs.entries().empty());
  EXPECT_EQ(DVSZEL_PortAdd(kId, "free", nullptr, 0), ZEL_OK);
  char image[] = "image";
  EXPECT_EQ(DVSZEL_PortAdd(kId, "other", image, 5), ZEL_INVALID_METADATA);
}

TEST_F(SwitchLife, ReplacedUplinksKeepTheirNics) {
  host().ReplaceUplinks(kAlias, {{"left", "u1"}, {"right", "u3"}});
  EXPECT_EQ(*host().FindSwitch(kAlias).config.NicOf(IdOfPort(host(), "u1")), "nic-l");
  const SwitchConfig before = host().FindSwitch(kAlias).config;
  const auto refused = [this](const std::vector<UplinkSpec> &uplinks) {
    return abi::ChangeCall([&] { host().ReplaceUplinks(kAlias, uplinks); });
  };
  EXPECT_EQ(refused({{"left", "u1"}}), ZEL_BUSY);
  EXPECT_EQ(refused({{"left", "u9"}, {"right", "u3"}}), ZEL_BUSY) << "on another port it is another";
  EXPECT_EQ(refused({{"left", "u1"}, {"right", "u3"}, {"new", "machine"}}), ZEL_EXISTS);
  EXPECT_EQ(refused({{"left", "u1"}, {"right", "u3"}, {"bond", "u4"}}), ZEL_EXISTS);
  EXPECT_EQ(host().FindSwitch(kAlias).config, before);
  host().LoadConfig();
  EXPECT_EQ(host().FindSwitch(kAlias).config, before);
}

TEST_F(SwitchLife, AgeingFollowsThePolicyOfTheSwitch) {
  const VSPropMACLearning policy{.agingTime = 10, .reserved = 0, .macLimit = 1};
  ASSERT_EQ(VSDVS_SetMACLearning(kAlias, &policy), ZEL_OK);
  const PortId machine = IdOfPort(host(), "machine");
  EXPECT_EQ(host().SeeSource(kAlias, machine, {0, Station(1)}), Learning::kNew);
  EXPECT_EQ(host().SeeSource(kAlias, machine, {0, Station(2)}), Learning::kFull);
  VSPMACLearningStats stats;
  ASSERT_EQ(VSZEL_GetPortMACLearningStats(kAlias, "machine", &stats), ZEL_OK);
  EXPECT_EQ(stats.numMACsLearned, 1U);
  EXPECT_EQ(stats.noLearningAllowedPkts, 1U);
  host().AdvanceClock(std::chrono::seconds(9));
  EXPECT_EQ(host().FindSwitch(kAlias).runtime.macs.entries().size(), 1U);
  host().AdvanceClock(std::chrono::seconds(1));
  EXPECT_TRUE(host().FindSwitch(kAlias).runtime.macs.entries().empty());
}

}  // namespace
}  // namespace kestrel::host
