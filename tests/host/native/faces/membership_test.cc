#include "kestrel/state_store.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";

class Membership : public FaceTest {
 protected:
  static int CountPorts(const char *id, DVSPortType type) {
    DVPortList *list = nullptr;
    EXPECT_EQ(DVSZEL_SwitchPortList(id, &list, type), ZEL_OK);
    return Owned<DVPortList>(list)->nports;
  }
  static zel_uint32 PortsetState(const char *id) {
    void *value = nullptr;
    int length = 0;
    EXPECT_EQ(DVSZEL_HostPropGet(id, ZEL_VDSPROP_HOST_PROXY_STATE, &value, &length), ZEL_OK);
    const Owned<void> owned(value);
    return RecordOf<zel_uint32>({static_cast<const char *>(value), static_cast<std::size_t>(length)});
  }
};

TEST_F(Membership, IsWhatClientsNeed) {
  ASSERT_EQ(DVSZEL_SwitchAdd("id", "new", 4, DVS_VERSION_70), ZEL_OK);
  ASSERT_EQ(DVSZEL_PortAdd("id", "port", nullptr, 0), ZEL_OK) << "ports come before the membership, too";
  EXPECT_EQ(CountPorts("id", DVSPORT_TYPE_LOCALCACHE), 1);
  EXPECT_EQ(CountPorts("id", DVSPORT_TYPE_ACTIVE), 0);
  EXPECT_EQ(PortsetState("id"), static_cast<zel_uint32>(ZEL_VDSPORTSET_STATE_DEACTIVE));
  const Client client{VS_PORT_CLIENT_VNIC, "vm.eth1"};
  EXPECT_STATUS(ZEL_IS_DISCONNECTED, host().Connect("new", "port", client));

  EXPECT_EQ(DVSZEL_SwitchAssociate("id"), ZEL_OK);
  EXPECT_EQ(DVSZEL_SwitchAssociate("id"), ZEL_IS_CONNECTED);
  EXPECT_EQ(CountPorts("id", DVSPORT_TYPE_LOCALCACHE), 0);
  EXPECT_EQ(CountPorts("id", DVSPORT_TYPE_ACTIVE), 1);
  EXPECT_EQ(PortsetState("id"), 0U);
  host().Connect("new", "port", client);
}

TEST_F(Membership, EndsWhenNoClientIsLeft) {
  EXPECT_EQ(DVSZEL_SwitchDissociate(kId), ZEL_BUSY);
  for (const char *port : {"machine", "service", "u1", "u3"}) host().Disconnect(kAlias, port);
  EXPECT_EQ(DVSZEL_SwitchDissociate(kId), ZEL_OK);
  EXPECT_EQ(DVSZEL_SwitchDissociate(kId), ZEL_IS_DISCONNECTED);
  EXPECT_EQ(DVSLoadConfig(), ZEL_OK);
  EXPECT_FALSE(host().FindSwitch(kAlias).config.spec().is_member) << "the end of a membership is saved";
}

TEST_F(Membership, IsOfSwitchesThatThereAre) {
  for (const auto function : {DVSZEL_SwitchAssociate, DVSZEL_SwitchDissociate}) {
    EXPECT_EQ(function("nobody"), ZEL_NOT_FOUND);
    EXPECT_EQ(function(nullptr), ZEL_BAD_PARAM);
    EXPECT_EQ(function(std::string(64, 'i').c_str()), ZEL_NAME_TOO_LONG);
  }
}

}  // namespace
}  // namespace kestrel::host
