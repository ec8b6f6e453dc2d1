#include "host/core/images/image_frame.h"
#include "host/core/images/port_image.h"
#include "tests/host/native/support/random_state.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

/** Everything of a host that an image speaks of. */
struct Snapshot {
  std::string live, saved;

  explicit Snapshot(const Host &host) : live(host.ImageOfState()), saved(host.ImageOfSavedState()) {}
  bool operator==(const Snapshot &) const = default;
};

const SwitchConfig &Config(const Host &host) { return host.FindSwitch(kAlias).config; }

PropertyOwner OfSwitch() { return {.switch_name = kAlias}; }
PropertyOwner OfPort(std::string_view port) {
  return {.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port};
}

/** A host with everything that an image may have to tell. */
std::unique_ptr<Host> MakeRichHost() {
  auto host = MakeTestHost();
  host->AddSwitch({.id = "second", .portset = "DvsPortset-8", .alias = "dvs-second", .max_ports = 4});
  host->AddPort("dvs-second", "p", "outer");
  host->SetProperty(OfSwitch(), VSPROP_MTU, {BytesOf(std::uint32_t{1600}), RUNTIME_PROP_TYPE});
  host->SetProperty(OfPort("machine"), "note", {"saved"});
  host->SetProperty(OfPort("machine"), "note", {"passing", VOLATILE_PROP_TYPE});
  host->SetProperty(OfPort("machine"), VSPROP_PORT_TEAMING_OVERRIDE, {"middle"});
  host->SetProperty({.switch_name = kAlias, .level = PropertyLevel::kUplink, .uplink = 1}, "note", {"u"});
  host->RemoveUplink(kAlias, "middle");
  host->Dissociate("dvs-second");
  return host;
}

TEST(HostImages, PutAStateBack) {
  const auto host = MakeRichHost();
  const Snapshot before(*host);
  host->RemovePort(kAlias, "free");
  host->Disconnect(kAlias, "machine");
  host->SetProperty(OfPort("machine"), "note", {"other"});
  host->RemoveSwitch("dvs-second");
  host->AddSwitch({.id = "third", .portset = "DvsPortset-9", .alias = "dvs-third", .max_ports = 4});
  host->InitState(before.live);
  EXPECT_EQ(Snapshot(*host), before) << "hidden saved values included";
  host->LoadConfig();
  EXPECT_EQ(host->ImageOfState(), before.saved) << "all that passes is gone";
  host->Cleanup();
  host->InitState(before.live);
  EXPECT_EQ(Snapshot(*host), before);
  host->InitState(before.saved);
  EXPECT_EQ(host->ImageOfState(), before.saved);
  EXPECT_EQ(host->ImageOfSavedState(), before.saved);
}

TEST(HostImages, OfAnyStatePutItIntoAHost) {
  RandomConfigs configs(21);
  Host host;
  for (int i = 0; i < 100; ++i) {
    const std::vector<SwitchState> states = NextStates(configs, 3);
    for (const SwitchState &state : states) {
      for (const Uplink &uplink : state.in_use.uplinks().Items()) {
        if (const std::string *nic = state.in_use.NicOf(uplink.id)) host.AddNic(*nic, kUp);
      }
    }
    host.InitState(ImageOf(states));
    ASSERT_EQ(host.ImageOfState(), ImageOf(states)) << i;
    host.LoadConfig();
    std::vector<SwitchState> saved;
    for (const SwitchState &state : states) saved.push_back({state.saved, state.saved});
    ASSERT_EQ(host.ImageOfState(), ImageOf(saved)) << i;
    ASSERT_EQ(host.ImageOfSavedState(), ImageOf(saved)) << i;
  }
}

TEST(HostImages, NeverUseAnIdentifierTwice) {
  const auto host = MakeTestHost();
  const std::string image = host->ImageOfState();
  const PortId later = host->AddPort(kAlias, "later");
  host->InitState(image);
  EXPECT_GT(host->AddPort(kAlias, "again"), later);

  Host other;
  other.AddNic("nic-l", kUp);
  other.AddNic("nic-r", kUp);
  other.InitState(image);
  EXPECT_GT(other.AddPort(kAlias, "new"), IdOfPort(other, "u3"));
}

TEST(HostImages, KeepWhatTrafficMadeOfASwitchButForPortsThatAreGone) {
  const auto host = MakeTestHost();
  const std::string image = host->ImageOfState();
  host->AddPort(kAlias, "later");
  const PortId machine = IdOfPort(*host, "machine"), later = IdOfPort(*host, "later");
  host->SeeSource(kAlias, machine, {0, Station(1)});
  host->SeeSource(kAlias, later, {0, Station(2)});
  host->InitState(image);
  const MacTable &macs = host->FindSwitch(kAlias).runtime.macs;
  EXPECT_NE(macs.Find({0, Station(1)}), nullptr);
  EXPECT_EQ(macs.Find({0, Station(2)}), nullptr);
}

TEST(HostImages, DoNotTakeAnIdentifierForAnotherPort) {
  const auto host = MakeTestHost();
  const PortId machine = IdOfPort(*host, "machine");
  host->SeeSource(kAlias, machine, {0, Station(1)});
  SwitchConfig other(Config(*host).spec());
  other.AddPort({.id = machine, .name = "another"});
  const std::uint64_t number = host->FindSwitch(kAlias).number;
  host->InitState(ImageOf({{other, other}}));
  EXPECT_EQ(host->FindSwitch(kAlias).runtime.macs.Find({0, Station(1)}), nullptr);
  EXPECT_NE(host->FindSwitch(kAlias).number, number) << "handles end";
}

TEST(HostImages, NeedTheNicsThatTheyName) {
  const auto host = MakeTestHost();
  const std::string image = host->ImageOfState();
  Host other;
  other.AddNic("nic-l", kUp);
  EXPECT_STATUS(ZEL_NOT_FOUND, other.InitState(image));
  EXPECT_TRUE(other.Switches().empty());
  other.ReplaceConfig(image);
  EXPECT_EQ(other.FindSwitch(kAlias).config.active_ports().size(), 0U) << "a configuration plugs nobody in";
}

TEST(HostImages, ThatAreRefusedChangeNothing) {
  const auto host = MakeRichHost();
  const Snapshot before(*host);
  std::string image = before.live;
  for (std::size_t at = 0; at < image.size(); at += 3) {
    image[at] = static_cast<char>(image[at] ^ 0x10);
    EXPECT_NE(StatusOf([&] { host->InitState(image); }), ZEL_OK) << at;
    EXPECT_NE(StatusOf([&] { host->ReplaceConfig(image); }), ZEL_OK) << at;
    EXPECT_NE(StatusOf([&] { host->AddPortOfImage(kAlias, "new", image); }), ZEL_OK) << at;
    image[at] = static_cast<char>(image[at] ^ 0x10);
  }
  EXPECT_EQ(Snapshot(*host), before);
}

TEST(HostImages, ReplaceTheConfigurationAndLeaveClientsPluggedIn) {
  const auto host = MakeRichHost();
  const std::string image = host->ImageOfState();
  const std::string saved = host->ImageOfSavedState();
  host->SetProperty(OfSwitch(), VSPROP_MTU, {BytesOf(std::uint32_t{9000})});
  host->Disconnect(kAlias, "service");
  host->Connect(kAlias, "free", {VS_PORT_CLIENT_TCPIP, "svc9"});
  host->ReplaceConfig(image);
  EXPECT_EQ(host->PropertyOf(OfSwitch(), VSPROP_MTU), BytesOf(std::uint32_t{2000})) << "what was saved under 1600";
  EXPECT_EQ(host->PropertyOf(OfPort("machine"), "note"), "saved");
  EXPECT_EQ(Config(*host).PortNamed("free").client->name, "svc9");
  EXPECT_FALSE(Config(*host).PortNamed("service").client);
  EXPECT_EQ(*Config(*host).NicOf(IdOfPort(*host, "u1")), "nic-l");
  EXPECT_EQ(host->ImageOfState(), host->ImageOfSavedState());

  host->Disconnect(kAlias, "free");
  host->Connect(kAlias, "service", {VS_PORT_CLIENT_TCPIP, "svc0"});
  EXPECT_EQ(host->ImageOfState(), saved);
}

TEST(HostImages, ReplaceNoConfigurationThatHasNoPlaceForAClient) {
  const auto host = MakeTestHost();
  const auto refused = [&](auto change) {
    SwitchConfig config = Config(*host);
    for (const Port &port : config.ports().Items()) config.Disconnect(port.id);
    change(config);
    const Snapshot before(*host);
    const int status = StatusOf([&] { host->ReplaceConfig(ImageOf({{config, config}})); });
    EXPECT_TRUE(status == ZEL_OK || before == Snapshot(*host));
    return status;
  };
  EXPECT_EQ(refused([](SwitchConfig &) {}), ZEL_OK);
  EXPECT_EQ(refused([&](SwitchConfig &config) { config.RemovePort(IdOfPort(*host, "free")); }), ZEL_OK);
  EXPECT_EQ(refused([&](SwitchConfig &config) { config.RemovePort(IdOfPort(*host, "machine")); }), ZEL_BUSY);
  EXPECT_EQ(refused([](SwitchConfig &config) { config.SetMember(false); }), ZEL_BUSY);
  EXPECT_EQ(refused([&](SwitchConfig &config) {
              const PortId id = IdOfPort(*host, "machine");
              config.RemovePort(id);
              config.AddUplink("uplink", {.id = id, .name = "machine"});
            }),
            ZEL_BUSY);
  EXPECT_STATUS(ZEL_BUSY, host->ReplaceConfig(ImageOf({})));
}

TEST(HostImages, LeaveWhatIsNotSynchronised) {
  const auto kept = static_cast<std::uint32_t>(NO_SYNC_PROP_TYPE) | CONFIG_PROP_TYPE;
  const auto host = MakeTestHost();
  host->SetProperty(OfSwitch(), "theirs", {"1", kept});
  host->SetProperty(OfPort("machine"), "both", {"1"});
  const std::string image = host->ImageOfState();
  host->ClearProperty(OfSwitch(), "theirs", Persistence::kSaved);
  host->SetProperty(OfSwitch(), "ours", {"2", kept});
  host->SetProperty(OfPort("machine"), "both", {"2", kept});
  host->SetProperty({.switch_name = kAlias, .level = PropertyLevel::kUplink, .uplink = 0}, "ours", {"3", kept});
  host->ReplaceConfig(image);
  EXPECT_STATUS(ZEL_NOT_FOUND, host->PropertyOf(OfSwitch(), "theirs"));
  EXPECT_EQ(host->PropertyOf(OfSwitch(), "ours"), "2");
  EXPECT_EQ(host->PropertyOf(OfPort("machine"), "both"), "2");
  EXPECT_EQ(host->PropertyOf({.switch_name = kAlias, .level = PropertyLevel::kUplink, .uplink = 0}, "ours"), "3");
  host->InitState(image);
  EXPECT_EQ(host->PropertyOf(OfSwitch(), "theirs"), "1") << "a state is put back as it was";
}

// ---- Ports ----

TEST(HostImages, BringAPortToAnotherSwitch) {
  const auto host = MakeTestHost();
  host->AddSwitch({.id = "second", .portset = "DvsPortset-8", .alias = "dvs-second", .max_ports = 4});
  host->AddPort(kAlias, "moving", "outer");
  host->SetProperty(OfPort("moving"), "note", {"saved"});
  host->SetProperty(OfPort("moving"), "note", {"passing", RUNTIME_PROP_TYPE});
  host->SetProperty(OfPort("moving"), "here", {"1", NO_REPLICATE_PROP_TYPE});
  const std::string image = host->ImageOfPortInUse(kAlias, "moving");
  host->AddPortOfImage("dvs-second", "moved", image);
  EXPECT_EQ(host->ImageOfPortInUse("dvs-second", "moved"), image);
  const PropertyOwner moved{.switch_name = "dvs-second", .level = PropertyLevel::kPort, .port = "moved"};
  EXPECT_EQ(host->PropertyOf(moved, "note"), "passing");
  EXPECT_STATUS(ZEL_NOT_FOUND, host->PropertyOf(moved, "here"));
  EXPECT_EQ(host->FindSwitch("dvs-second").config.PortNamed("moved").external_id, "outer");
  host->LoadConfig();
  EXPECT_EQ(host->PropertyOf(moved, "note"), "saved");
  EXPECT_EQ(host->ImageOfPortInUse("dvs-second", "moved"),
            host->ImageOfSavedPort("dvs-second", "moved", kNewestVersion));
}

TEST(HostImages, OfAPortMustFitItsSwitch) {
  const auto host = MakeTestHost();
  const auto add = [&](std::string_view key, std::string value, std::string external_id = {}) {
    PropertySet properties;
    properties.Put(PropertySet::Ready(key, {std::move(value)}));
    const std::string image = ImageOfPort({std::move(external_id), LayersOf(std::move(properties))}, kNewestVersion);
    const Snapshot before(*host);
    const int status = StatusOf([&] { host->AddPortOfImage(kAlias, "new", image); });
    if (status == ZEL_OK) host->RemovePort(kAlias, "new");
    EXPECT_EQ(Snapshot(*host), before);
    return status;
  };
  EXPECT_EQ(add(VSPROP_PORT_PRIORITY, BytesOf(std::uint32_t{3})), ZEL_OK);
  EXPECT_EQ(add(VSPROP_PORT_PRIORITY, BytesOf(std::uint32_t{8})), ZEL_BAD_PARAM);
  EXPECT_EQ(add(VSPROP_PORT_VLAN, RecordOfVlanPolicy({.vlan = 4095, .ranges = {}})), ZEL_BAD_VLANID);
  EXPECT_EQ(add(VSPROP_MTU, BytesOf(std::uint32_t{1500})), ZEL_BAD_PARAM) << "at the wrong level";
  EXPECT_EQ(add(VSPROP_PORT_MAC_LEARNING_STATS, ""), ZEL_READ_ONLY);
  EXPECT_EQ(add(VSPROP_PORT_TEAMING_OVERRIDE, "gone"), ZEL_OK) << "the uplink may come";

  MirrorSession session{};
  std::string("session").copy(session.head.sid, sizeof session.head.sid);
  session.head.type = VS_DVMIRROR_SESSIONTYPE_DVPORT;
  MirrorTable table;
  table.sessions.push_back(session);
  EXPECT_EQ(add(VSPROP_PORT_MIRROR_SESSIONS, Pack(table)), ZEL_OK);
  host->SetProperty(OfPort("machine"), VSPROP_PORT_MIRROR_SESSIONS, {Pack(table)});
  EXPECT_EQ(add(VSPROP_PORT_MIRROR_SESSIONS, Pack(table)), ZEL_EXISTS);

  EXPECT_EQ(add("note", "", "outer"), ZEL_OK);
  host->AddPort(kAlias, "outer-port", "outer");
  EXPECT_EQ(add("note", "", "outer"), ZEL_EXISTS);
}

TEST(HostImages, AddNoPortWhereThereIsNoRoom) {
  const auto host = MakeTestHost();
  const std::string image = ImageOfPort({}, kNewestVersion);
  EXPECT_STATUS(ZEL_EXISTS, host->AddPortOfImage(kAlias, "machine", image));
  EXPECT_STATUS(ZEL_INVALID_NAME, host->AddPortOfImage(kAlias, "", image));
  EXPECT_STATUS(ZEL_NOT_FOUND, host->AddPortOfImage("nobody", "new", image));
  host->AddPortOfImage(kAlias, "7", image);
  host->AddPortOfImage(kAlias, "8", image);
  EXPECT_STATUS(ZEL_LIMIT_EXCEEDED, host->AddPortOfImage(kAlias, "9", image));
}

TEST(HostImages, TellAnOffloadDeviceWhatIsReplicated) {
  const auto host = MakeTestHost();
  EXPECT_EQ(host->OffloadedPropertyOf(OfSwitch(), VSPROP_MTU), BytesOf(std::uint32_t{2000}));
  host->SetProperty(OfSwitch(), VSPROP_MTU, {BytesOf(std::uint32_t{1400}), NO_REPLICATE_PROP_TYPE});
  EXPECT_EQ(host->OffloadedPropertyOf(OfSwitch(), VSPROP_MTU), BytesOf(kDefaultMtu));
  EXPECT_EQ(host->PropertyOf(OfSwitch(), VSPROP_MTU), BytesOf(std::uint32_t{1400}));
  host->SetProperty(OfPort("machine"), "note", {"now", VOLATILE_PROP_TYPE});
  EXPECT_STATUS(ZEL_NOT_FOUND, host->OffloadedPropertyOf(OfPort("machine"), "note"));
}

}  // namespace
}  // namespace kestrel::host
