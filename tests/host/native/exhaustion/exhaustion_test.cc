/* Every operation, with memory running out at its first allocation, its second, and so on until it succeeds: it fails
   with ZEL_NO_MEMORY, its outputs are null, and nothing has changed. */
#include <cstdlib>
#include <functional>
#include <new>

#include "host/abi/guard.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"

namespace {

/** How many allocations from now on succeed; negative: all of them. */
int allocations_left = -1;

void *Allocate(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  if (void *memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// The libraries allocate through these too.
#define EXPORTED __attribute__((visibility("default")))
EXPORTED void *operator new(std::size_t size) { return Allocate(size); }
EXPORTED void *operator new[](std::size_t size) { return Allocate(size); }
EXPORTED void operator delete(void *memory) noexcept { std::free(memory); }
EXPORTED void operator delete[](void *memory) noexcept { std::free(memory); }
EXPORTED void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }
EXPORTED void operator delete[](void *memory, std::size_t) noexcept { std::free(memory); }

namespace kestrel::host {
namespace {

class Exhaustion : public FaceTest {
 protected:
  /** Runs `call` on a host made by `prepare` until memory suffices; gives the number of failures on the way. */
  int Sweep(const std::function<ZEL_ReturnStatus()> &call, const std::function<void()> &prepare = [] {}) {
    for (int limit = 0; limit < 10000; ++limit) {
      BeginAnew();
      prepare();
      const SwitchConfig before = Config();
      const std::size_t switches = host().Switches().size();
      allocations_left = limit;
      const ZEL_ReturnStatus status = call();
      allocations_left = -1;
      if (status == ZEL_OK) return limit;
      EXPECT_EQ(status, ZEL_NO_MEMORY) << limit;
      EXPECT_EQ(host().Switches().size(), switches) << limit;
      EXPECT_EQ(Config(), before) << limit;
      host().Cleanup();
      host().LoadConfig();
      EXPECT_EQ(host().Switches().size(), switches) << limit << ", saved";
      EXPECT_EQ(Config(), before) << limit << ", saved";
      if (HasFailure()) return limit;
    }
    ADD_FAILURE() << "memory never sufficed";
    return 0;
  }

  /** Sweeps a call that hands out a record. */
  template <typename Record>
  int SweepQuery(const std::function<ZEL_ReturnStatus(Record **)> &call) {
    return Sweep([&call] {
      Record *record = Stale<Record>();
      const ZEL_ReturnStatus status = call(&record);
      EXPECT_EQ(record == nullptr, status != ZEL_OK);
      std::free(record);
      return status;
    });
  }

  const SwitchConfig &Config() { return host().FindSwitch(kAlias).config; }
};

TEST_F(Exhaustion, OfQueries) {
  EXPECT_GT(SweepQuery<VSLAGTable>([](auto **out) { return VSZEL_GetLAGTable(kAlias, out); }), 0);
  SweepQuery<VSList>([](auto **out) { return VSZEL_GetSwitches(VS_LIST_PS, out); });
  SweepQuery<VSUplinks>([](auto **out) { return VSZEL_GetUplinks(kAlias, out); });
  SweepQuery<VSMACTable>([](auto **out) { return VSZEL_GetMACTable(kAlias, VS_MAC_ADDR_TYPE_ALL, out); });
}

TEST_F(Exhaustion, OfReadingAPolicy) {
  const auto prepare = [this] {
    const VlanPolicy policy{.mode = VlanMode::kTrunk, .ranges = {{1, 5}, {6, 9}}};
    host().SetPortVlan(kAlias, "machine", policy, Persistence::kSaved);
  };
  const auto call = [] {
    VSPortVlanPolicy *record = Stale<VSPortVlanPolicy>();
    int length = -1;
    const ZEL_ReturnStatus status = VSDVS_GetPortVLANPolicy(kAlias, "machine", &record, &length);
    EXPECT_EQ(record == nullptr, status != ZEL_OK);
    EXPECT_EQ(length, status == ZEL_OK ? 16 : 0);
    std::free(record);
    return status;
  };
  EXPECT_GT(Sweep(call, prepare), 0);
}

TEST_F(Exhaustion, OfSettingAPolicy) {
  const auto set = [] {
    zel_VDSPortVIDRange ranges[] = {{1, 5}, {6, 9}};
    return VSDVS_SetPortVLANPolicy(kAlias, "machine", 0, 1, 0, 0, ranges, 2);
  };
  EXPECT_GT(Sweep(set), 0);
}

TEST_F(Exhaustion, OfSettingAndClearingProperties) {
  const std::string name(40, 'n');
  const auto set = [&name] {
    return VSDVS_SetPortProp(kAlias, "machine", name.c_str(), name.data(), static_cast<int>(name.size()), nullptr, 0);
  };
  EXPECT_GT(Sweep(set), 0);
  Sweep([&name] { return VSDVS_ClearPortProp(kAlias, "machine", name.c_str(), nullptr, 0); }, set);
  EXPECT_GT(Sweep([] { return VSDVS_SetMTU(kAlias, 1300); }), 0);
  EXPECT_GT(Sweep([] { return VSDVS_SetPortTeamingOverride(kAlias, "machine", "left"); }), 0);
}

TEST_F(Exhaustion, OfMakingSwitchesAndPorts) {
  const std::string name(40, 'n');
  const char *text = name.c_str();
  const auto add_port = [=] { return VSDVS_AddDVPort(kAlias, text, 1); };
  const auto add_uplink = [=] { return VSDVS_AddSwitchUplinkPort(kAlias, text); };
  const auto add_switch = [=] { return VSDVS_CreateVSwitch(text, text, "cswitch", 1, 1, 4, 1500, DVS_VERSION_70); };
  EXPECT_GT(Sweep(add_port), 0);
  Sweep([=] { return VSDVS_RemoveDVPort(kAlias, text); }, add_port);
  EXPECT_GT(Sweep(add_uplink), 0);
  Sweep([=] { return VSDVS_RemoveSwitchUplinkPort(kAlias, text); }, add_uplink);
  EXPECT_GT(Sweep(add_switch), 0);
  Sweep([=] { return VSDVS_DestroyVSwitch(text); }, add_switch);
  const auto replace = [this] {
    return abi::ChangeCall([this] { host().ReplaceUplinks(kAlias, {{"left", "u1"}, {"right", "u3"}, {"new", "u4"}}); });
  };
  EXPECT_GT(Sweep(replace), 0);
}

TEST_F(Exhaustion, OfImages) {
  const std::string image = host().ImageOfState();
  char bytes[4096];
  const int length = static_cast<int>(image.copy(bytes, sizeof bytes));
  ASSERT_EQ(image.size(), static_cast<std::size_t>(length));
  EXPECT_GT(Sweep([&] { return DVSZEL_StateInit(bytes, length); }), 0);
  EXPECT_GT(Sweep([&] { return DVSState_ConfigDeserialize(bytes, length); }), 0);
  const auto get = [](auto function) {
    return [function] {
      void *out = Stale<char>();
      int size = -1;
      const ZEL_ReturnStatus status = function(&out, &size);
      EXPECT_EQ(out == nullptr, status != ZEL_OK);
      std::free(out);
      return status;
    };
  };
  EXPECT_GT(Sweep(get(DVSZEL_StateGet)), 0);
  EXPECT_GT(Sweep(get(DVSZEL_PersistentStateGet)), 0);
  const std::string id = Config().spec().id;
  EXPECT_GT(
      Sweep(get([&id](void **out, int *size) { return DVSZEL_CmdExec(id.c_str(), "image", nullptr, 0, out, size); })),
      0);
  EXPECT_GT(Sweep(get([&](void **out, int *size) {
              return DVSZEL_CmdExec(id.c_str(), "restore", bytes, length, out, size);
            })),
            0);
  std::string port = host().ImageOfPortInUse(kAlias, "machine");
  EXPECT_GT(Sweep([&] { return DVSZEL_PortAdd(id.c_str(), "new", port.data(), static_cast<int>(port.size())); }), 0);
}

TEST_F(Exhaustion, OfCollections) {
  const std::string id = Config().spec().id, name(40, 'n');
  const auto list = [&id] {
    DVSDataHandle handle = Stale<char>();
    const ZEL_ReturnStatus status = DVSZEL_ExtraConfigPropList(id.c_str(), &handle, ALL_PUBLIC_PROP_TYPE);
    EXPECT_EQ(handle == nullptr, status != ZEL_OK);
    DVSData_Free(handle);
    return status;
  };
  const auto prepare = [&] { host().SetProperty({.switch_name = kAlias}, name, {name}); };
  EXPECT_GT(Sweep(list, prepare), 0);
}

TEST_F(Exhaustion, OfTheLifeOfTheConfiguration) {
  EXPECT_GT(Sweep(DVSLoadConfig), 0);
  Sweep(DVSState_ConfigReset);
  Sweep(DVSZEL_StateSanitize);
}

TEST_F(Exhaustion, OfLoadingAReleasedConfiguration) {
  BeginAnew();
  const SwitchConfig before = Config();
  host().Cleanup();
  int limit = 0;
  for (allocations_left = 0; DVSLoadConfig() != ZEL_OK; allocations_left = ++limit) {
    allocations_left = -1;
    ASSERT_EQ(host().Switches().size(), 0U);
  }
  allocations_left = -1;
  EXPECT_GT(limit, 0);
  EXPECT_EQ(Config(), before);
}

TEST_F(Exhaustion, OfBuildingASwitch) {
  const auto sweep = [this](auto operation) {
    const auto call = [&] { return abi::ChangeCall([&] { operation(host()); }); };
    EXPECT_GT(Sweep(call), 0);
  };
  const std::string name(40, 'n');  // longer than a string keeps without an allocation
  sweep([&](Host &host) { host.AddPort(kAlias, name); });
  sweep([&](Host &host) { host.AddUplink(kAlias, name, name); });
  sweep([&](Host &host) { host.AddNic(name.substr(0, 31), kUp); });
  sweep([&](Host &host) { host.Connect(kAlias, "free", {VS_PORT_CLIENT_VNIC, name}); });
  sweep([&](Host &host) { host.AddSwitch({.id = name, .portset = name, .alias = name + "2", .max_ports = 1}); });
}

TEST_F(Exhaustion, OfPluggingANicIn) {
  const auto prepare = [this] { host().AddNic("nic-spare", kUp); };
  const auto call = [this] {
    return abi::ChangeCall([this] { host().Connect(kAlias, "u2", {VS_PORT_CLIENT_UPLINK, "nic-spare"}); });
  };
  EXPECT_GT(Sweep(call, prepare), 0);
}

TEST_F(Exhaustion, OfGrouping) {
  const auto prepare = [this] { host().AddUplink(kAlias, "fourth", "u4"); };
  const auto call = [this] {
    return abi::ChangeCall([this] { host().AddLag(kAlias, {.id = 9, .name = "second", .members = {"fourth"}}); });
  };
  EXPECT_GT(Sweep(call, prepare), 0);
}

TEST_F(Exhaustion, OfLearning) {
  const auto learn = [this] {
    return abi::ChangeCall([this] { host().SeeSource(kAlias, IdOfPort(host(), "machine"), {0, Station(1)}); });
  };
  EXPECT_GT(Sweep(learn), 0);
  EXPECT_EQ(host().FindSwitch(kAlias).runtime.macs.entries().size(), 1U);
}

TEST_F(Exhaustion, OfLearningLeavesNothingThatAges) {
  const PortId machine = IdOfPort(host(), "machine");
  ZEL_ReturnStatus status = ZEL_NO_MEMORY;
  for (int limit = 0; status != ZEL_OK; ++limit) {
    host().AdvanceClock(std::chrono::seconds(1));
    allocations_left = limit;
    status = abi::ChangeCall([&] { host().SeeSource(kAlias, machine, {0, Station(1)}); });
    allocations_left = -1;
    ASSERT_TRUE(status == ZEL_OK || status == ZEL_NO_MEMORY);
  }
  host().AdvanceClock(std::chrono::seconds(VS_MAC_LEARNING_AGING_TIME_DEFAULT - 1));
  EXPECT_EQ(host().FindSwitch(kAlias).runtime.macs.entries().size(), 1U)
      << "its age counts from the frame that was learned";
}

}  // namespace
}  // namespace kestrel::host
