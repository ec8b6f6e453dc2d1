#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

using Ports = FaceTest;

TEST_F(Ports, HaveTheIdentifierThatTheSwitchGaveThem) {
  for (const char *port : {"machine", "free", "u2"}) {
    zel_SwitchPortID id = 0;
    EXPECT_EQ(VSDVS_DvPortIDToPortID(kPortset, port, &id), ZEL_OK);
    EXPECT_EQ(id, IdOfPort(host(), port));
  }
}

TEST_F(Ports, ClearTheIdentifierWhenTheyRefuse) {
  const auto refused = [](const char *name, const char *port) {
    zel_SwitchPortID id = 0x5a5a;
    const ZEL_ReturnStatus status = VSDVS_DvPortIDToPortID(name, port, &id);
    EXPECT_EQ(id, static_cast<zel_SwitchPortID>(ZEL_VSWITCH_INVALID_PORT_ID));
    return status;
  };
  EXPECT_EQ(refused("nowhere", "machine"), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, "left"), ZEL_NOT_FOUND) << "the name of an uplink is not its port's";
  EXPECT_EQ(refused(nullptr, "machine"), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(kAlias, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(refused("nowhere", nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(refused(kAlias, std::string(47, 'p').c_str()), ZEL_NOT_FOUND);
  EXPECT_EQ(refused(kAlias, std::string(48, 'p').c_str()), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(VSDVS_DvPortIDToPortID(kAlias, "machine", nullptr), ZEL_BAD_PARAM);
}

}  // namespace
}  // namespace kestrel::host
