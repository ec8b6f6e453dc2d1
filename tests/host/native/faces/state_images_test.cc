#include <cstring>

#include "host/core/images/image_frame.h"
#include "host/core/images/property_image.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";

class StateImages : public FaceTest {
 protected:
  /** The bytes that a function hands out, "refused: <status>" when it does not. */
  template <typename Length = int, typename Get>
  static std::string Read(Get get) {
    void *bytes = Stale<char>();
    Length length = 77;
    const ZEL_ReturnStatus status = get(&bytes, &length);
    if (status != ZEL_OK) {
      EXPECT_EQ(bytes, nullptr);
      EXPECT_EQ(length, Length{0});
      return Refused(status);
    }
    std::string read(static_cast<char *>(bytes), static_cast<std::size_t>(length));
    DVSZEL_DataFree(bytes);
    return read;
  }
  static std::string Refused(ZEL_ReturnStatus status) { return "refused: " + std::to_string(status); }
  static std::string Live() { return Read(DVSZEL_StateGet); }
  static std::string Saved() { return Read(DVSZEL_PersistentStateGet); }
  static std::string OfPort(const char *port) {
    return Read([&](void **v, int *n) { return DVSZEL_PortStateGet(kId, port, v, n); });
  }
  static std::string Command(const char *command, std::string input = {}) {
    return Read([&](void **v, int *n) {
      return DVSZEL_CmdExec(kId, command, input.data(), static_cast<int>(input.size()), v, n);
    });
  }
  template <typename Take>
  static ZEL_ReturnStatus Give(Take take, std::string image) {
    return take(image.data(), static_cast<int>(image.size()));
  }
  static ZEL_ReturnStatus AddPort(const char *port, std::string image) {
    return DVSZEL_PortAdd(kId, port, image.data(), static_cast<int>(image.size()));
  }
};

TEST_F(StateImages, PutASwitchBack) {
  const std::string live = Live(), saved = Saved();
  ASSERT_EQ(VSDVS_SetMTU(kAlias, 1300), ZEL_OK);
  ASSERT_EQ(DVSZEL_PortRemove(kId, "free"), ZEL_OK);
  EXPECT_NE(Live(), live);
  EXPECT_EQ(Give(DVSZEL_StateInit, live), ZEL_OK);
  EXPECT_EQ(Live(), live);
  EXPECT_EQ(Saved(), saved);
  ASSERT_EQ(VSDVS_SetMTU(kAlias, 1300), ZEL_OK);
  EXPECT_EQ(Give(DVSState_ConfigDeserialize, live), ZEL_OK);
  EXPECT_EQ(Live(), live);
}

TEST_F(StateImages, NeedBytes) {
  std::string image = Live();
  for (const auto take : {DVSZEL_StateInit, DVSState_ConfigDeserialize}) {
    EXPECT_EQ(take(nullptr, 0), ZEL_BAD_PARAM);
    EXPECT_EQ(take(nullptr, 24), ZEL_BAD_PARAM);
    EXPECT_EQ(take(image.data(), 0), ZEL_BAD_PARAM);
    EXPECT_EQ(take(image.data(), -1), ZEL_BAD_PARAM);
    EXPECT_EQ(take(image.data(), 23), ZEL_INVALID_METADATA);
  }
  EXPECT_EQ(DVSZEL_StateGet(nullptr, nullptr), ZEL_BAD_PARAM);
  void *cell = Stale<char>();
  EXPECT_EQ(DVSZEL_StateGet(&cell, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(cell, nullptr);
  EXPECT_EQ(Live(), image);
}

TEST_F(StateImages, OfPortsMoveThem) {
  ASSERT_EQ(VSDVS_SetPortVLANPolicy(kAlias, "free", 12, 0, 0, 0, nullptr, 0), ZEL_OK);
  const std::string image = OfPort("free");
  ASSERT_EQ(DVSZEL_PortRemove(kId, "free"), ZEL_OK);
  EXPECT_EQ(OfPort("free"), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(AddPort("free", image), ZEL_OK);
  EXPECT_EQ(OfPort("free"), image);
  EXPECT_EQ(AddPort("free", image), ZEL_EXISTS);
  EXPECT_EQ(AddPort("copy", image), ZEL_OK);
  EXPECT_EQ(OfPort("copy"), image) << "a port's image does not tell its name";
  EXPECT_EQ(AddPort("third", Live()), ZEL_BAD_PARAM) << "of another kind";
  const auto saved = [](VDSVersion version) {
    return Read([&](void **v, int *n) { return DVSZEL_PersistentPortStateGet(kId, "free", version, v, n); });
  };
  EXPECT_EQ(saved(kNewestVersion), image);
  EXPECT_EQ(saved(3), Refused(ZEL_BAD_PARAM));
}

// ---- Collections ----

class Collections : public StateImages {
 protected:
  static PropertySet Content(DVSDataHandle handle) {
    const std::string image =
        Read<zel_uint32>([&](void **v, zel_uint32 *n) { return DVSData_Serialize(handle, v, n, kNewestVersion); });
    return PropertiesOfImage(OpenImage(image));
  }
  static ZEL_ReturnStatus Update(DVSDataHandle handle, const char *key, std::string value,
                                 zel_uint32 type = CONFIG_PROP_TYPE) {
    return DVSData_Update(handle, key, value.data(), static_cast<zel_uint32>(value.size()), type);
  }
  static DVSDataHandle Make() {
    DVSDataHandle handle = nullptr;
    EXPECT_EQ(DVSData_Alloc(&handle, nullptr, nullptr), ZEL_OK);
    return handle;
  }
};

TEST_F(Collections, AreBuiltAndMakePorts) {
  DVSDataHandle handle = Make();
  EXPECT_TRUE(Content(handle).Items().empty());
  EXPECT_EQ(Update(handle, "note", "old"), ZEL_OK);
  EXPECT_EQ(Update(handle, "note", "new", RUNTIME_PROP_TYPE), ZEL_OK);
  EXPECT_EQ(Update(handle, "empty", "", 0), ZEL_OK);
  PropertySet expected;
  expected.Append("empty", {"", CONFIG_PROP_TYPE});
  expected.Append("note", {"new", RUNTIME_PROP_TYPE});
  EXPECT_EQ(Content(handle), expected);

  const std::string image =
      Read<zel_uint32>([&](void **v, zel_uint32 *n) { return DVSData_Serialize(handle, v, n, DVS_VERSION_60); });
  EXPECT_EQ(AddPort("made", image), ZEL_OK);
  EXPECT_EQ(host().FindSwitch(kAlias).config.PortNamed("made").properties, expected);

  DVSData_Free(handle);
  EXPECT_EQ(Update(handle, "note", "x"), ZEL_INVALID_HANDLE);
  DVSData_Free(handle);
  DVSData_Free(nullptr);
  EXPECT_NE(Make(), handle) << "a handle is not used again";
}

TEST_F(Collections, RefuseWhatIsNoProperty) {
  DVSDataHandle handle = Make();
  EXPECT_EQ(Update(handle, nullptr, "x"), ZEL_BAD_PARAM);
  EXPECT_EQ(Update(handle, "", "x"), ZEL_INVALID_NAME);
  EXPECT_EQ(Update(handle, std::string(255, 'k').c_str(), "x"), ZEL_OK);
  EXPECT_EQ(Update(handle, std::string(256, 'k').c_str(), "x"), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(Update(handle, "key", "x", 1), ZEL_BAD_PARAM);
  EXPECT_EQ(Update(handle, "key", std::string(kMaxPropertyValue + 1, 'v')), ZEL_LIMIT_EXCEEDED);
  EXPECT_EQ(DVSData_Update(handle, "key", nullptr, 1, CONFIG_PROP_TYPE), ZEL_BAD_PARAM);
  EXPECT_EQ(Update(&handle, "key", "x"), ZEL_INVALID_HANDLE);
  EXPECT_EQ(Update(DVSState_SwitchFindByAlias(kAlias), "key", "x"), ZEL_INVALID_HANDLE);
  EXPECT_EQ(Content(handle).Items().size(), 1U);
  EXPECT_EQ(Read<zel_uint32>([&](void **v, zel_uint32 *n) { return DVSData_Serialize(handle, v, n, 3); }),
            Refused(ZEL_BAD_PARAM));
  EXPECT_EQ(Read<zel_uint32>([&](void **v, zel_uint32 *n) { return DVSData_Serialize(nullptr, v, n, 7); }),
            Refused(ZEL_INVALID_HANDLE));
  EXPECT_EQ(DVSData_Alloc(nullptr, nullptr, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSData_Name(handle), nullptr) << "a collection is no property";
  DVSData_Free(handle);
}

int blocks_out = 0, blocks_left = 0;

void *CountedAllocate(size_t size) {
  if (blocks_left-- <= 0) return nullptr;
  ++blocks_out;
  return std::malloc(size);
}

void CountedRelease(void *memory) {
  --blocks_out;
  std::free(memory);
}

TEST_F(Collections, LiveInTheCallersMemory) {
  DVSDataHandle handle = Stale<char>();
  EXPECT_EQ(DVSData_Alloc(&handle, CountedAllocate, nullptr), ZEL_BAD_PARAM);
  EXPECT_EQ(DVSData_Alloc(&handle, nullptr, CountedRelease), ZEL_BAD_PARAM);
  EXPECT_EQ(handle, nullptr);
  ASSERT_EQ(DVSData_Alloc(&handle, CountedAllocate, CountedRelease), ZEL_OK);
  const std::string value(100, 'v');
  blocks_left = 100;
  EXPECT_EQ(Update(handle, std::string(100, 'k').c_str(), value), ZEL_OK);
  EXPECT_GE(blocks_out, 2) << "key and value";
  const PropertySet before = Content(handle);
  const int blocks_before = blocks_out;
  for (int limit = 0;; ++limit) {
    blocks_left = limit;
    const ZEL_ReturnStatus status = Update(handle, std::string(101, 'k').c_str(), value);
    if (status == ZEL_OK) {
      EXPECT_GE(limit, 2);
      break;
    }
    ASSERT_EQ(status, ZEL_NO_MEMORY);
    ASSERT_EQ(Content(handle), before);
    ASSERT_EQ(blocks_out, blocks_before) << "what was taken for nothing goes back";
  }
  DVSData_Free(handle);
  EXPECT_EQ(blocks_out, 0);
}

TEST_F(Collections, ListPropertiesByVendorAndType) {
  const auto set = [](const char *key, zel_uint32 type) {
    char value[] = "v";
    EXPECT_EQ(DVSZEL_GlobalPropSet(kId, key, value, 1, type), ZEL_OK);
    EXPECT_EQ(DVSZEL_HostPropSet(kId, key, value, 1, type), ZEL_OK);
    EXPECT_EQ(DVSZEL_PortDataSet(kId, "machine", key, value, 1, type), ZEL_OK);
  };
  set("com.example.a", CONFIG_PROP_TYPE);
  set("com.example.b", RUNTIME_PROP_TYPE);
  set("com.example.hidden", CONFIG_PROP_TYPE | static_cast<zel_uint32>(NO_SYNC_PROP_TYPE));
  set("com.talvex.future", CONFIG_PROP_TYPE);
  set("note", CONFIG_PROP_TYPE);
  set("two.labels", CONFIG_PROP_TYPE);
  const auto keys = [](auto list) {
    DVSDataHandle handle = nullptr;
    EXPECT_EQ(list(&handle), ZEL_OK);
    std::string keys;
    const PropertySet content = Content(handle);
    for (const auto &[key, property] : content.Items()) keys += key + ' ';
    DVSData_Free(handle);
    return keys;
  };
  constexpr zel_uint32 kPublic = ALL_PUBLIC_PROP_TYPE;
  const auto vendor = [&](zel_uint32 mask) {
    const std::string found = keys([&](auto *cell) { return DVSZEL_VendorGlobalPropList(kId, cell, mask); });
    EXPECT_EQ(keys([&](auto *cell) { return DVSZEL_VendorHostPropList(kId, cell, mask); }), found);
    EXPECT_EQ(keys([&](auto *cell) { return DVSZEL_VendorPortPropList(kId, "machine", cell, mask); }), found);
    return found;
  };
  EXPECT_EQ(vendor(kPublic), "com.example.a com.example.b ");
  EXPECT_EQ(vendor(RUNTIME_PROP_TYPE), "com.example.b ");
  EXPECT_EQ(vendor(static_cast<zel_uint32>(ALL_PROP_TYPE)), "com.example.a com.example.b com.example.hidden ");
  EXPECT_EQ(vendor(0), "");
  const std::string extra = "com.example.a com.example.b note two.labels ";
  EXPECT_EQ(keys([](auto *cell) { return DVSZEL_ExtraConfigPropList(kId, cell, kPublic); }), extra);
  EXPECT_EQ(keys([](auto *cell) { return DVSZEL_ExtraConfigPortPropList(kId, "machine", cell, kPublic); }), extra);
  EXPECT_EQ(keys([](auto *cell) { return DVSZEL_ExtraConfigPortPropList(kId, "free", cell, kPublic); }), "");

  DVSDataHandle handle = Stale<char>();
  EXPECT_EQ(DVSZEL_VendorGlobalPropList(kId, &handle, 1), ZEL_BAD_PARAM);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(DVSZEL_VendorGlobalPropList("nobody", &handle, kPublic), ZEL_NOT_FOUND);
  EXPECT_EQ(DVSZEL_VendorPortPropList(kId, "nobody", &handle, kPublic), ZEL_NOT_FOUND);
  EXPECT_EQ(DVSZEL_ExtraConfigPropList(kId, nullptr, kPublic), ZEL_BAD_PARAM);
}

// ---- What an offload device sees ----

TEST_F(StateImages, TheSmartNicSeesWhatIsReplicated) {
  char value[] = "v";
  ASSERT_EQ(DVSZEL_PortDataSet(kId, "machine", "there", value, 1, CONFIG_PROP_TYPE), ZEL_OK);
  ASSERT_EQ(DVSZEL_PortDataSet(kId, "machine", "here", value, 1, NO_REPLICATE_PROP_TYPE), ZEL_OK);
  ASSERT_EQ(DVSZEL_HostPropSet(kId, "now", value, 1, VOLATILE_PROP_TYPE), ZEL_OK);
  const auto port = [](const char *key) {
    return Read([&](void **v, int *n) { return DVSZEL_SmartNICPortDataGet(kId, "machine", key, v, n); });
  };
  EXPECT_EQ(port("there"), "v");
  EXPECT_EQ(port("here"), Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_SmartNICHostPropGet(kId, "now", v, n); }),
            Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_SmartNICHostPropGet(kId, ZEL_VDSPROP_HOST_PROXY, v, n); }),
            kPortset);
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_SmartNICGlobalPropGet(kId, VSPROP_MTU, v, n); }),
            BytesOf(zel_uint32{2000}));
}

// ---- Commands ----

TEST_F(StateImages, ComeFromCommandsToo) {
  const std::string image = Command("image");
  EXPECT_EQ(image, Live()) << "there is one switch";
  host().AddSwitch({.id = "second", .portset = "DvsPortset-8", .alias = "dvs-second", .max_ports = 4});
  EXPECT_EQ(Command("image"), image);
  ASSERT_EQ(VSDVS_SetMTU(kAlias, 1300), ZEL_OK);
  EXPECT_EQ(Command("restore", image), "");
  EXPECT_EQ(Command("image"), image);
  EXPECT_EQ(host().Switches().size(), 2U) << "others are left alone";
  EXPECT_EQ(Command("restore", Live()), Refused(ZEL_BAD_PARAM)) << "of two switches";
  EXPECT_EQ(Command("restore"), Refused(ZEL_INVALID_METADATA));
  host().AddPort("dvs-second", "p");
  EXPECT_EQ(
      Command("restore", Read([](void **v, int *n) { return DVSZEL_CmdExec("second", "image", nullptr, 0, v, n); })),
      Refused(ZEL_BAD_PARAM))
      << "of another switch";
}

TEST_F(StateImages, OfOneSwitchComeNotInTheWayOfOthers) {
  const std::string image = Command("image");
  host().Disconnect(kAlias, "u1");
  ASSERT_EQ(DVSZEL_PortRemove(kId, "free"), ZEL_OK);
  host().AddSwitch({.id = "second", .portset = "DvsPortset-8", .alias = "dvs-second", .max_ports = 4});
  host().AddUplink("dvs-second", "up", "u1");
  host().Connect("dvs-second", "u1", {VS_PORT_CLIENT_UPLINK, "nic-l"});
  EXPECT_EQ(Command("restore", image), Refused(ZEL_IS_CONNECTED));
  host().Disconnect("dvs-second", "u1");
  EXPECT_EQ(Command("restore", image), "");
  EXPECT_EQ(Command("image"), image);
}

TEST_F(StateImages, CommandsTellOfASwitch) {
  const std::string help = Command("help");
  for (const char *name : {"flush", "help", "image", "properties", "restore", "show"}) {
    EXPECT_NE(help.find(std::string(name) + ' '), std::string::npos) << name;
  }
  const std::string shown = Command("show");
  for (const char *line :
       {"alias \"dvs-test\"\n", "mtu 2000\n", "ports 6 of 8\n", "member yes\n", "uplink \"left\" client \"nic-l\"\n",
        "lag \"bond\" id 5 member \"left\" member \"middle\" member \"right\"\n"}) {
    EXPECT_NE(shown.find(line), std::string::npos) << line;
  }
  char value[] = "v";
  ASSERT_EQ(DVSZEL_PortDataSet(kId, "free", "line\n", value, 1, CONFIG_PROP_TYPE | POLICY_PROP_TYPE), ZEL_OK);
  EXPECT_EQ(Command("properties"),
            "switch \"com.talvex.vswitch.mtu\" config 4 bytes\nport \"free\" \"line\\x0a\" policy|config 1 bytes\n");
  host().SeeSource(kAlias, IdOfPort(host(), "machine"), {0, Station(1)});
  host().EnterAddress(kAlias, IdOfPort(host(), "machine"), {0, Station(2)}, VS_MAC_ADDR_TYPE_USER);
  EXPECT_EQ(Command("flush"), "1\n");
  EXPECT_EQ(Command("flush"), "0\n");
}

TEST_F(StateImages, CommandsThatThereAreNotAreRefused) {
  EXPECT_EQ(Command("dance"), Refused(ZEL_NOT_IMPLEMENTED));
  EXPECT_EQ(Command(""), Refused(ZEL_NOT_IMPLEMENTED));
  EXPECT_EQ(Command("show", "x"), Refused(ZEL_BAD_PARAM));
  EXPECT_EQ(Command(nullptr), Refused(ZEL_BAD_PARAM));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_CmdExec("nobody", "show", nullptr, 0, v, n); }),
            Refused(ZEL_NOT_FOUND));
  EXPECT_EQ(Read([](void **v, int *n) { return DVSZEL_CmdExec(kId, "show", nullptr, -1, v, n); }),
            Refused(ZEL_BAD_PARAM));
}

}  // namespace
}  // namespace kestrel::host
