#include "host/core/images/state_image.h"

#include <set>

#include "host/core/images/image_frame.h"
#include "tests/host/native/support/random_state.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

constexpr RandomSize kSmall{.ports = 2, .uplinks = 1, .lags = 1, .properties = 2, .value = 6};

TEST(StateImage, OfAnyStateIsThatStateAgain) {
  RandomConfigs configs(20240601);
  for (int i = 0; i < 300; ++i) {
    const std::vector<SwitchState> states = NextStates(configs, 3);
    const std::string image = ImageOf(states);
    ASSERT_EQ(StateOfImage(image), states) << i;
    ASSERT_EQ(ImageOf(StateOfImage(image)), image) << i;
  }
}

TEST(StateImage, OfDifferentStatesDiffer) {
  RandomConfigs configs(3);
  std::set<std::string> images;
  for (int i = 0; i < 200; ++i) images.insert(ImageOf({NextState(configs)}));
  EXPECT_EQ(images.size(), 200U);
}

TEST(StateImage, OfNoSwitchesIsOneToo) {
  EXPECT_EQ(ImageOf({}).size(), 24U);
  EXPECT_TRUE(StateOfImage(ImageOf({})).empty());
}

TEST(StateImage, OfAnotherKindIsRefused) {
  EXPECT_STATUS(ZEL_BAD_PARAM, StateOfImage(ImageOfPort({}, kNewestVersion)));
  EXPECT_STATUS(ZEL_BAD_PARAM, StateOfImage(ImageOfProperties({}, kNewestVersion)));
}

/** The fields of a switch section as the document has them. */
struct Fields {
  std::string id = "id", portset = "p", alias = "a", class_name = "c";
  std::uint32_t max_ports = 9, version = kNewestVersion;
  std::uint16_t first = 0, last = 4094;
  std::uint8_t member = 1;

  std::string Bytes() const {
    ByteWriter writer;
    for (const std::string &text : {id, portset, alias, class_name}) writer.PutText(text);
    writer.Put(max_ports);
    writer.Put(version);
    writer.Put(first);
    writer.Put(last);
    writer.Put(member);
    return writer.Take();
  }
};

std::string SectionOf(SectionKind kind, const std::string &payload) {
  ByteWriter writer;
  PutSection(writer, kind, payload);
  return writer.Take();
}

std::string SwitchSection(const std::string &payload) { return SectionOf(SectionKind::kSwitch, payload); }

std::string Entry(const std::string &key, std::uint32_t type, const std::string &value) {
  ByteWriter writer;
  writer.PutText(key);
  writer.Put(type);
  writer.PutText(value);
  return writer.Take();
}

std::string Properties(PropertyLevel level, char layer, const std::string &entries) {
  return SectionOf(SectionKind::kProperties, std::string{static_cast<char>(level), layer} + entries);
}

struct PortFields {
  std::uint32_t id = kFirstPortId;
  std::string name = "port", external_id{}, uplink{};
  VS_PortClientType client = VS_PORT_CLIENT_UNKNOWN;
  std::string client_name{};
  MacAddress address{2, 0, 0, 0, 0, 1};
  std::string more{};

  std::string Bytes() const {
    ByteWriter writer;
    writer.Put(id);
    writer.PutText(name);
    writer.PutText(external_id);
    writer.PutText(uplink);
    const Client plugged{.type = client, .name = client_name, .address = address};
    writer.PutText(client == VS_PORT_CLIENT_UNKNOWN ? std::string() : plugged.Save());
    writer.PutRaw(more);
    return SectionOf(SectionKind::kPort, writer.Take());
  }
};

std::string Group(std::uint32_t id, const std::string &name, const std::vector<std::string> &members) {
  ByteWriter writer;
  writer.Put(id);
  writer.PutText(name);
  for (const std::string &member : members) writer.PutText(member);
  return SectionOf(SectionKind::kGroup, writer.Take());
}

/** Whether a body is that of a state; if so, it must be the only one of that state. */
bool IsState(const std::string &body, std::uint32_t version = kNewestVersion) {
  const std::string image = FrameImage(ImageKind::kState, version, body);
  std::vector<SwitchState> states;
  const int status = StatusOf([&] { states = StateOfImage(image); });
  EXPECT_TRUE(status == ZEL_OK || status == ZEL_INVALID_METADATA) << status;
  const bool is_state = status == ZEL_OK;
  EXPECT_TRUE(!is_state || version != kNewestVersion || ImageOf(states) == image);
  return is_state;
}

bool IsSwitch(const std::string &sections) { return IsState(SwitchSection(Fields{}.Bytes() + sections)); }

constexpr std::uint32_t kConfig = CONFIG_PROP_TYPE, kRuntime = RUNTIME_PROP_TYPE;
constexpr auto kOfSwitch = PropertyLevel::kSwitch, kOfHost = PropertyLevel::kHost, kOfPort = PropertyLevel::kPort,
               kOfUplink = PropertyLevel::kUplink;

TEST(StateImage, HasSwitchesOfTheRightKind) {
  const auto with = [](auto change) {
    Fields fields;
    change(fields);
    return IsState(SwitchSection(fields.Bytes()));
  };
  EXPECT_TRUE(with([](Fields &) {}));
  EXPECT_FALSE(with([](Fields &f) { f.id = ""; }));
  EXPECT_FALSE(with([](Fields &f) { f.alias = std::string(81, 'a'); }));
  EXPECT_FALSE(with([](Fields &f) { f.max_ports = 0; }));
  EXPECT_FALSE(with([](Fields &f) { f.version = 8; }));
  EXPECT_FALSE(with([](Fields &f) { f.last = 4095; }));
  EXPECT_FALSE(with([](Fields &f) { f.member = 2; }));
  EXPECT_TRUE(with([](Fields &f) { f.member = 0; }));
}

TEST(StateImage, HasNoSwitchOfANewerVersionThanItsOwn) {
  Fields fields;
  fields.version = DVS_VERSION_66;
  EXPECT_TRUE(IsState(SwitchSection(fields.Bytes()), DVS_VERSION_66));
  EXPECT_TRUE(IsState(SwitchSection(fields.Bytes()), DVS_VERSION_70));
  EXPECT_FALSE(IsState(SwitchSection(fields.Bytes()), DVS_VERSION_65));
}

TEST(StateImage, HasNoPropertyOfANewerVersionThanItsOwn) {
  Fields fields;
  fields.version = DVS_VERSION_60;
  const std::string learn =
      Properties(kOfSwitch, 0, Entry(VSPROP_SWITCH_MAC_LEARN_STATIC, kConfig, std::string(1, '\1')));
  EXPECT_TRUE(IsState(SwitchSection(fields.Bytes() + learn), DVS_VERSION_66));
  EXPECT_FALSE(IsState(SwitchSection(fields.Bytes() + learn), DVS_VERSION_65));
}

TEST(StateImage, HasSwitchesThatAHostCanHaveTogether) {
  const auto both = [](const Fields &one, const std::string &more, const Fields &other, const std::string &rest) {
    return IsState(SwitchSection(one.Bytes() + more) + SwitchSection(other.Bytes() + rest));
  };
  const Fields one, other{.id = "id2", .portset = "p2", .alias = "a2"};
  EXPECT_TRUE(both(one, "", other, ""));
  EXPECT_FALSE(both(one, "", {.id = "id", .portset = "p2", .alias = "a2"}, ""));
  EXPECT_FALSE(both(one, "", {.id = "id2", .portset = "a", .alias = "a2"}, ""));
  EXPECT_FALSE(both(one, "", {.id = "id2", .portset = "p2", .alias = "p"}, ""));
  EXPECT_TRUE(both(one, "", {.id = "id2", .portset = "same", .alias = "same"}, ""));

  const PortFields port, next{.id = kFirstPortId + 1};
  EXPECT_TRUE(both(one, port.Bytes(), other, next.Bytes()));
  EXPECT_FALSE(both(one, port.Bytes(), other, port.Bytes())) << "identifiers of ports are the host's";
  const PortFields nic{.id = 0x02000005, .uplink = "up", .client = VS_PORT_CLIENT_UPLINK, .client_name = "nic"};
  PortFields same_nic = nic;
  ++same_nic.id;
  EXPECT_FALSE(both(one, nic.Bytes(), other, same_nic.Bytes()));
  same_nic.client_name = "nic2";
  EXPECT_TRUE(both(one, nic.Bytes(), other, same_nic.Bytes()));
}

TEST(StateImage, HasPortsByAscendingIdentifier) {
  const auto ports = [](std::uint32_t one, std::uint32_t other) {
    return IsSwitch(PortFields{.id = one, .name = "1"}.Bytes() + PortFields{.id = other, .name = "2"}.Bytes());
  };
  EXPECT_TRUE(ports(kFirstPortId, kLastKeptPortId));
  EXPECT_FALSE(ports(kFirstPortId + 1, kFirstPortId));
  EXPECT_FALSE(ports(kFirstPortId, kFirstPortId));
  EXPECT_FALSE(ports(kFirstPortId - 1, kFirstPortId));
  EXPECT_FALSE(ports(kFirstPortId, kLastKeptPortId + 1));
}

TEST(StateImage, HasClientsWhereTheyBelong) {
  const auto client = [](std::string uplink, VS_PortClientType type, std::string name) {
    return IsSwitch(PortFields{.uplink = std::move(uplink), .client = type, .client_name = std::move(name)}.Bytes());
  };
  EXPECT_TRUE(client("", VS_PORT_CLIENT_VNIC, "vm"));
  EXPECT_TRUE(client("", VS_PORT_CLIENT_TCPIP, "svc"));
  EXPECT_FALSE(client("", VS_PORT_CLIENT_UPLINK, "nic"));
  EXPECT_TRUE(client("up", VS_PORT_CLIENT_UPLINK, "nic"));
  EXPECT_FALSE(client("up", VS_PORT_CLIENT_VNIC, "vm"));
  EXPECT_FALSE(client("", VS_PORT_CLIENT_LAG, "lag"));
  EXPECT_FALSE(client("", VS_PORT_CLIENT_VNIC, ""));
  EXPECT_FALSE(IsSwitch(PortFields{.client = VS_PORT_CLIENT_VNIC, .client_name = "vm", .address = kBroadcast}.Bytes()));
  EXPECT_FALSE(IsSwitch(PortFields{.client = VS_PORT_CLIENT_VNIC, .client_name = "vm", .address = {}}.Bytes()));
  const Fields outsider{.member = 0};
  const PortFields taken{.client = VS_PORT_CLIENT_VNIC, .client_name = "vm"};
  EXPECT_TRUE(IsState(SwitchSection(Fields{}.Bytes() + taken.Bytes())));
  EXPECT_FALSE(IsState(SwitchSection(outsider.Bytes() + taken.Bytes())));
}

TEST(StateImage, HasGroupsOfUplinksThatMayBeGone) {
  const std::string up = PortFields{.uplink = "up"}.Bytes();
  EXPECT_TRUE(IsSwitch(up + Group(1, "lag", {"up"})));
  EXPECT_TRUE(IsSwitch(up + Group(1, "lag", {"gone", "up"})));
  EXPECT_TRUE(IsSwitch(up + Group(0, "lag", {"up"}) + Group(7, "lag2", {"gone"})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {"up", "up"})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {""})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {std::string(81, 'u')})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "up", {"gone"})));
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {"up"}) + Group(2, "lag2", {"up"})));
  EXPECT_FALSE(IsSwitch(up + Group(2, "lag", {"up"}) + Group(1, "lag2", {"gone"}))) << "out of order";
  EXPECT_FALSE(IsSwitch(up + Group(1, "lag", {"up"}) + Group(1, "lag2", {"gone"})));
}

TEST(StateImage, HasSectionsInOrderAndNoOthers) {
  const std::string properties = Properties(kOfSwitch, 0, Entry("key", kConfig, ""));
  const std::string port = PortFields{.uplink = "up"}.Bytes(), group = Group(1, "lag", {"up"});
  EXPECT_TRUE(IsSwitch(properties + port + group));
  EXPECT_FALSE(IsSwitch(port + properties + group));
  EXPECT_FALSE(IsSwitch(properties + group + port));
  EXPECT_FALSE(IsSwitch(SwitchSection(Fields{}.Bytes())));
  EXPECT_FALSE(IsState(port));
  EXPECT_FALSE(IsState(SectionOf(static_cast<SectionKind>(5), "")));
  EXPECT_FALSE(IsState(SectionOf(static_cast<SectionKind>(0), "")));
  EXPECT_FALSE(IsSwitch(PortFields{.more = group}.Bytes()));
  EXPECT_FALSE(IsSwitch(std::string("\2\0\0\0\1", 5)));
}

TEST(StateImage, HasPropertiesByAscendingKey) {
  const auto of_switch = [](const std::string &entries) { return IsSwitch(Properties(kOfSwitch, 0, entries)); };
  EXPECT_TRUE(of_switch(Entry("a", kConfig, "1") + Entry("b", kRuntime, "")));
  EXPECT_FALSE(of_switch(Entry("b", kConfig, "1") + Entry("a", kConfig, "")));
  EXPECT_FALSE(of_switch(Entry("a", kConfig, "1") + Entry("a", kConfig, "")));
  EXPECT_FALSE(of_switch(Entry("", kConfig, "1")));
  EXPECT_FALSE(of_switch(Entry(std::string("a\0", 2), kConfig, "1")));
  EXPECT_TRUE(of_switch(Entry(std::string(255, 'k'), kConfig, "1")));
  EXPECT_FALSE(of_switch(Entry(std::string(256, 'k'), kConfig, "1")));
  EXPECT_TRUE(of_switch(Entry("a", kConfig, std::string(kMaxPropertyValue, 'v'))));
  EXPECT_FALSE(of_switch(Entry("a", kConfig, std::string(kMaxPropertyValue + 1, 'v'))));
  EXPECT_FALSE(of_switch(Entry("a", 0, "1")));
  EXPECT_FALSE(of_switch(Entry("a", 1, "1")));
  EXPECT_FALSE(of_switch("")) << "an empty section";
  EXPECT_TRUE(of_switch(Entry("\x7f", kConfig, "") + Entry("\x80", kConfig, ""))) << "bytes are not signed";
}

TEST(StateImage, HasPropertiesByLevelThenByLayer) {
  const std::string entry = Entry("key", kRuntime, ""), saved = Entry("key", kConfig, "");
  EXPECT_TRUE(IsSwitch(Properties(kOfSwitch, 0, entry) + Properties(kOfSwitch, 1, saved) +
                       Properties(kOfHost, 0, entry) + Properties(kOfHost, 1, saved)));
  EXPECT_FALSE(IsSwitch(Properties(kOfHost, 0, entry) + Properties(kOfSwitch, 0, entry)));
  EXPECT_FALSE(IsSwitch(Properties(kOfSwitch, 1, saved) + Properties(kOfSwitch, 0, entry)));
  EXPECT_FALSE(IsSwitch(Properties(kOfSwitch, 0, entry) + Properties(kOfSwitch, 0, saved)));
  EXPECT_FALSE(IsSwitch(Properties(kOfSwitch, 2, entry)));
  EXPECT_FALSE(IsSwitch(Properties(kOfPort, 0, entry)));
  EXPECT_FALSE(IsSwitch(Properties(static_cast<PropertyLevel>(4), 0, entry)));
  EXPECT_FALSE(IsSwitch(PortFields{.more = Properties(kOfUplink, 0, entry)}.Bytes())) << "it is no uplink";
  EXPECT_TRUE(IsSwitch(PortFields{.uplink = "up", .more = Properties(kOfUplink, 0, entry)}.Bytes()));
}

TEST(StateImage, HidesOnlyWhatCanBeHidden) {
  const auto layers = [](const std::string &in_use, const std::string &hidden) {
    return IsSwitch((in_use.empty() ? "" : Properties(kOfSwitch, 0, in_use)) + Properties(kOfSwitch, 1, hidden));
  };
  EXPECT_TRUE(layers(Entry("key", kRuntime, "1"), Entry("key", kConfig, "2")));
  EXPECT_TRUE(layers("", Entry("key", kConfig, "2")));
  EXPECT_FALSE(layers(Entry("key", kConfig, "1"), Entry("key", kConfig, "2")));
  EXPECT_FALSE(layers("", Entry("key", kRuntime, "2"))) << "it would not be saved";
}

TEST(StateImage, HasValuesThatFitTheirKeysThoughTheyMayDangle) {
  const auto mtu = [](std::uint32_t number) {
    return IsSwitch(Properties(kOfSwitch, 0, Entry(VSPROP_MTU, kConfig, BytesOf(number))));
  };
  EXPECT_TRUE(mtu(1500));
  EXPECT_FALSE(mtu(1));
  EXPECT_FALSE(IsSwitch(Properties(kOfHost, 0, Entry(VSPROP_MTU, kConfig, BytesOf(1500))))) << "at the wrong level";
  EXPECT_FALSE(IsSwitch(Properties(kOfSwitch, 0, Entry(ZEL_VDSPROP_SWITCH_ALIAS, kConfig, "a")))) << "not to be set";
  const std::string tied = Properties(kOfPort, 0, Entry(VSPROP_PORT_TEAMING_OVERRIDE, kConfig, "gone"));
  EXPECT_TRUE(IsSwitch(PortFields{.more = tied}.Bytes()));
}

// ---- Damage ----

TEST(StateImage, ThatWasCutIsRefused) {
  RandomConfigs configs(5, kSmall);
  const std::string image = ImageOf({NextState(configs), NextState(configs)});
  for (std::size_t length = 0; length < image.size(); ++length) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, StateOfImage(std::string_view(image).substr(0, length))) << length;
    // And where the frame has been made to fit.
    if (length < 24) continue;
    const std::string mended = FrameImage(ImageKind::kState, kNewestVersion, image.substr(24, length - 24));
    const int status = StatusOf([&] { EXPECT_EQ(ImageOf(StateOfImage(mended)), mended); });
    EXPECT_TRUE(status == ZEL_INVALID_METADATA || status == ZEL_OK) << length;
  }
}

TEST(StateImage, WithAFlippedBitIsRefused) {
  RandomConfigs configs(6, kSmall);
  std::string image = ImageOf({NextState(configs), NextState(configs)});
  for (std::size_t bit = 0; bit < 8 * image.size(); ++bit) {
    const char byte = image[bit / 8];
    image[bit / 8] = static_cast<char>(byte ^ (1 << (bit % 8)));
    const int status = StatusOf([&] { StateOfImage(image); });
    const int expected = bit < 64    ? int{ZEL_INVALID_METADATA}
                         : bit < 80  ? int{ZEL_VERSION_MISMATCH_MAJOR}
                         : bit < 128 ? int{ZEL_CHECKSUM_MISMATCH}
                         : bit < 160 ? int{ZEL_INVALID_METADATA}
                                     : int{ZEL_CHECKSUM_MISMATCH};
    ASSERT_EQ(status, expected) << bit;
    image[bit / 8] = byte;
  }
}

TEST(StateImage, WithAFlippedBitAndARightChecksumIsRefusedOrAnotherState) {
  RandomConfigs configs(8, kSmall);
  for (int i = 0; i < 3; ++i) {
    std::string image = ImageOf({NextState(configs)});
    for (std::size_t bit = 192; bit < 8 * image.size(); ++bit) {
      const std::string whole = image;
      image[bit / 8] = static_cast<char>(image[bit / 8] ^ (1 << (bit % 8)));
      MendChecksum(image);
      const int status = StatusOf([&] { ASSERT_EQ(ImageOf(StateOfImage(image)), image) << bit; });
      ASSERT_TRUE(status == ZEL_INVALID_METADATA || status == ZEL_OK) << bit << ' ' << status;
      image = whole;
    }
  }
}

TEST(StateImage, WithOtherBytesAndARightChecksumIsRefusedOrAnotherState) {
  RandomConfigs configs(9);
  int accepted = 0;
  for (int i = 0; i < 3000; ++i) {
    Chance &chance = configs.chance();
    std::string body = ImageOf(NextStates(configs, 2)).substr(24);
    for (std::uint64_t left = chance.Between(1, 4); left > 0 && !body.empty(); --left) {
      const std::size_t at = chance.Below(body.size());
      const std::size_t length = chance.Below(std::min<std::size_t>(body.size() - at, 9));
      switch (chance.Below(4)) {
        case 0:
          body.replace(at, length, chance.Bytes(length));
          break;
        case 1:
          body.erase(at, length);
          break;
        case 2:
          body.insert(at, chance.Bytes(length));
          break;
        default:
          body.insert(at, body.substr(chance.Below(body.size()), length));
      }
    }
    const std::string image = FrameImage(ImageKind::kState, kNewestVersion, body);
    const int status = StatusOf([&] { ASSERT_EQ(ImageOf(StateOfImage(image)), image) << i; });
    ASSERT_TRUE(status == ZEL_INVALID_METADATA || status == ZEL_OK) << i << ' ' << status;
    accepted += status == ZEL_OK ? 1 : 0;
  }
  EXPECT_GT(accepted, 0) << "nothing came through";
}

}  // namespace
}  // namespace kestrel::host
