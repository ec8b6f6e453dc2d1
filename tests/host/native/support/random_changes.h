/* Changes of every kind, by chance. */
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/host.h"
#include "tests/host/native/support/group_frames.h"
#include "tests/host/native/support/mirror_sessions.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {

/** Makes changes to a host, the same ones for the same seed and host. Names are few, so that changes meet each other.
 */
class RandomChanges {
 public:
  explicit RandomChanges(std::uint32_t seed) : random_(seed) {}

  /** One change; throws as it does. */
  void MakeOne(Host &host) {
    const auto &changes = Changes();
    changes[Below(changes.size())].second(*this, host);
  }

  using Change = void (*)(RandomChanges &, Host &);
  /** Every kind of change by its name. */
  static const std::vector<std::pair<std::string, Change>> &Changes() {
    using R = RandomChanges;
    static const std::vector<std::pair<std::string, Change>> changes{
        {"AddPort", [](R &r, Host &h) { h.AddPort(r.SwitchOf(h), r.PortName(), r.Text(), r.Properties()); }},
        {"AddPort again", [](R &r, Host &h) { h.AddPort(r.SwitchOf(h), r.PortName()); }},
        {"RemovePort", [](R &r, Host &h) { h.RemovePort(r.SwitchOf(h), r.PortName()); }},
        {"AddUplink", [](R &r, Host &h) { h.AddUplink(r.SwitchOf(h), r.UplinkName(), r.PortName()); }},
        {"RemoveUplink", [](R &r, Host &h) { h.RemoveUplink(r.SwitchOf(h), r.UplinkName()); }},
        {"ReplaceUplinks",
         [](R &r, Host &h) {
           h.ReplaceUplinks(r.SwitchOf(h), {{r.UplinkName(), r.PortName()}, {r.UplinkName(), r.PortName()}});
         }},
        {"AddLag",
         [](R &r, Host &h) {
           h.AddLag(r.SwitchOf(h), {.id = r.Below(5), .name = "lag" + r.Digit(), .members = {r.UplinkName()}});
         }},
        {"Connect client",
         [](R &r, Host &h) {
           h.Connect(r.SwitchOf(h), r.PortName(),
                     {r.Below(2) == 0 ? VS_PORT_CLIENT_VNIC : VS_PORT_CLIENT_TCPIP, "c" + r.Digit()});
         }},
        {"Connect NIC",
         [](R &r, Host &h) { h.Connect(r.SwitchOf(h), r.PortName(), {VS_PORT_CLIENT_UPLINK, "nic" + r.Digit()}); }},
        {"Disconnect", [](R &r, Host &h) { h.Disconnect(r.SwitchOf(h), r.PortName()); }},
        {"AddNic", [](R &r, Host &h) { h.AddNic("nic" + r.Digit(), r.Below(2) == 0 ? kUp : kDown); }},
        {"SetNicLink", [](R &r, Host &h) { SetNicLink(h, "nic" + r.Digit(), r.Below(2) == 0 ? kUp : kDown); }},
        {"SetNicEnabled", [](R &r, Host &h) { h.SetNicEnabled("nic" + r.Digit(), r.Below(2) == 0); }},
        {"AddSwitch",
         [](R &r, Host &h) {
           const std::string digit = r.Digit();
           h.AddSwitch({.id = "id" + digit, .portset = "p" + digit, .alias = "a" + digit, .max_ports = 1 + r.Below(9)});
         }},
        {"RemoveSwitch", [](R &r, Host &h) { h.RemoveSwitch(r.SwitchOf(h)); }},
        {"SetVersion",
         [](R &r, Host &h) { h.SetVersion(r.SwitchOf(h), r.Below(2) ? DVS_VERSION_66 : DVS_VERSION_70); }},
        {"SetMaxPorts", [](R &r, Host &h) { h.SetMaxPorts(r.SwitchOf(h), 1 + r.Below(20)); }},
        {"SetProperty", [](R &r, Host &h) { r.SetProperty(h); }},
        {"SetProperty again", [](R &r, Host &h) { r.SetProperty(h); }},
        {"ClearProperty",
         [](R &r, Host &h) {
           const std::string owner = r.SwitchOf(h);
           const std::string port = r.PortName();
           h.ClearProperty(r.Owner(owner, port), r.Key(),
                           r.Below(2) == 0 ? Persistence::kSaved : Persistence::kRuntimeOnly);
         }},
        {"SetMacLearning",
         [](R &r, Host &h) {
           VSMACLearningGlobalProps defaults = h.mac_learning();
           defaults.agingTime = 1 + r.Below(1000);
           defaults.macLimit = r.Below(100);
           defaults.learnStatic = static_cast<zel_Bool>(r.Below(2));
           defaults.staticMACAllow = static_cast<zel_Bool>(r.Below(2));
           h.SetMacLearning(defaults);
         }},
        {"SetOptions",
         [](R &r, Host &h) {
           r.SetOption(h, VS_RT_OPT_IGMP_QUERY_INTERVAL, BytesOf(1 + r.Below(1000)));
           r.SetOption(h, VS_RT_OPT_MLD_ROUTER_IP, "fe80::" + r.Digit() + std::string(1, '\0'));
         }},
        {"SeeSource", [](R &r, Host &h) { r.SeeSource(h); }},
        {"SeeSource again", [](R &r, Host &h) { r.SeeSource(h); }},
        {"EnterAddress",
         [](R &r, Host &h) {
           const std::string owner = r.SwitchOf(h);
           h.EnterAddress(owner, h.FindSwitch(owner).config.PortNamed(r.PortName()).id, r.Address(),
                          r.Below(2) == 0 ? VS_MAC_ADDR_TYPE_STATIC : VS_MAC_ADDR_TYPE_USER);
         }},
        {"RemoveAddress",
         [](R &r, Host &h) {
           const std::string owner = r.SwitchOf(h);
           h.RemoveAddress(owner, h.FindSwitch(owner).config.PortNamed(r.PortName()).id, r.Address());
         }},
        {"AdvanceClock", [](R &r, Host &h) { h.AdvanceClock(std::chrono::seconds(r.Below(200))); }},
        {"FlushAddresses", [](R &r, Host &h) { h.FlushAddresses(r.SwitchOf(h)); }},
        {"SetNic",
         [](R &r, Host &h) {
           const std::string name = "nic" + r.Digit();
           Nic nic = h.nics().Get(name);
           nic.error_percent = static_cast<std::uint8_t>(r.Below(kMaxErrorPercent));
           nic.numa_node = r.Below(4);
           nic.partner.mode = r.Below(2) == 0 ? LacpMode::kActive : LacpMode::kNone;
           h.SetNic(name, nic);
         }},
        {"RemoveNic", [](R &r, Host &h) { h.RemoveNic("nic" + r.Digit()); }},
        {"SetAdapter",
         [](R &r, Host &h) {
           h.SetAdapter(r.SwitchOf(h), r.PortName(),
                        {.address = Station(static_cast<std::uint8_t>(40 + r.Below(9))), .groups = {}});
         }},
        {"SetClientNode", [](R &r, Host &h) { h.SetClientNode(r.SwitchOf(h), r.PortName(), r.Below(4)); }},
        {"RefreshNumaNodes", [](R &r, Host &h) { h.RefreshNumaNodes(r.SwitchOf(h)); }},
        {"Associate", [](R &r, Host &h) { h.Associate(r.SwitchOf(h)); }},
        {"Dissociate", [](R &r, Host &h) { h.Dissociate(r.SwitchOf(h)); }},
        {"SendFrame", [](R &r, Host &h) { r.SendFrames(h); }},
        {"SendFrame again", [](R &r, Host &h) { r.SendFrames(h); }},
        {"Join",
         [](R &r, Host &h) {
           const IpAddress group = GroupOf(kIpVersions[r.Below(2)], static_cast<std::uint16_t>(1 + r.Below(20)));
           h.SendFrame(r.SwitchOf(h), r.PortName(), JoinFrame(Generation::kSources, group));
         }},
        {"Mirror",
         [](R &r, Host &h) {
           const std::string owner = r.SwitchOf(h);
           const std::string port = r.PortName();
           h.SetProperty(
               {.switch_name = owner, .level = PropertyLevel::kPort, .port = port}, VSPROP_PORT_MIRROR_SESSIONS,
               {TableFrom({{.id = "s" + r.Digit(), .to = {EntityOfPort(port)}, .in = {EntityOfPort(r.PortName())}}})});
         }},
        {"InitState", [](R &r, Host &h) { h.InitState(r.Changed(h)->ImageOfState()); }},
        {"ReplaceConfig", [](R &r, Host &h) { h.ReplaceConfig(r.Changed(h)->ImageOfSavedState()); }},
        {"RestoreSwitch",
         [](R &r, Host &h) {
           const std::string owner = r.SwitchOf(h);
           h.RestoreSwitch(owner, r.Changed(h)->ImageOfSwitch(owner));
         }},
        {"LoadConfig", [](R & /*r*/, Host &h) { h.LoadConfig(); }},
        {"ResetConfig", [](R & /*r*/, Host &h) { h.ResetConfig(); }},
        {"Sanitize", [](R & /*r*/, Host &h) { h.Sanitize(); }},
        {"Cleanup", [](R & /*r*/, Host &h) { h.Cleanup(); }},
        {"Restart", [](R & /*r*/, Host &h) { h.Restart(); }},
        {"Restore", [](R & /*r*/, Host &h) { h.Restore(*h.Snapshot()); }},
    };
    return changes;
  }

 private:
  std::uint32_t Below(std::size_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  std::string Digit() { return std::to_string(Below(6)); }
  std::string Text() { return std::string(Below(3) == 0 ? 0 : Below(40), static_cast<char>('a' + Below(26))); }
  std::string PortName() { return "port" + Digit(); }
  std::string UplinkName() { return "up" + Digit(); }
  std::string Key() { return Below(4) == 0 ? std::string(VSPROP_MTU) : "key" + Digit(); }
  std::string SwitchOf(const Host &host) {
    const auto switches = host.Switches();
    if (switches.empty()) return "none";
    return (*std::next(switches.begin(), Below(switches.size()))).config.spec().portset;
  }
  MacKey Address() { return {static_cast<VlanId>(Below(3)), Station(static_cast<std::uint8_t>(1 + Below(20)))}; }
  PropertySet Properties() {
    PropertySet properties;
    for (std::uint32_t i = Below(3); i > 0; --i) properties.Put(PropertySet::Ready("key" + Digit(), {Text()}));
    return properties;
  }
  PropertyOwner Owner(std::string_view owner, std::string_view port) {
    constexpr std::array kLevels{PropertyLevel::kSwitch, PropertyLevel::kHost, PropertyLevel::kPort,
                                 PropertyLevel::kUplink};
    return {.switch_name = owner, .level = kLevels[Below(kLevels.size())], .port = port, .uplink = Below(3)};
  }
  void SetProperty(Host &host) {
    constexpr std::array kTypes{CONFIG_PROP_TYPE, RUNTIME_PROP_TYPE, VOLATILE_PROP_TYPE, POLICY_PROP_TYPE};
    const std::string owner = SwitchOf(host);
    const std::string port = PortName();
    const std::string key = Key();
    const std::string value = key == VSPROP_MTU ? BytesOf(std::uint32_t{1280 + Below(1000)}) : Text();
    host.SetProperty(Owner(owner, port), key, {value, static_cast<std::uint32_t>(kTypes[Below(kTypes.size())])});
  }
  void SeeSource(Host &host) {
    const std::string owner = SwitchOf(host);
    host.SeeSource(owner, host.FindSwitch(owner).config.PortNamed(PortName()).id, Address());
  }
  /** The host with some properties changed. */
  std::unique_ptr<Host> Changed(const Host &host) {
    auto changed = std::make_unique<Host>();
    changed->TakeBack(*host.Snapshot());
    for (const Switch &each : host.Switches()) {
      changed->SetProperty({.switch_name = each.config.spec().portset}, "key" + Digit(), {"of an image" + Digit()});
    }
    return changed;
  }

  /** From every client and NIC to somebody, and to nobody in particular. */
  void SendFrames(Host &host) {
    const std::string owner = SwitchOf(host);
    const Octets payload(60, 0);
    int sent = 0;
    for (const Port &port : host.FindSwitch(owner).config.ports().Items()) {
      if (!port.client) continue;
      Octets frame(6, Below(4) == 0 ? 0xff : 0);
      if (frame[0] == 0) frame = {0x02, 0, 0, 0, 0, static_cast<std::uint8_t>(Below(20))};
      const MacAddress source = port.client->type == VS_PORT_CLIENT_UPLINK
                                    ? Station(static_cast<std::uint8_t>(1 + Below(20)))
                                    : port.client->address;
      frame.insert(frame.end(), source.begin(), source.end());
      frame.insert(frame.end(), {0x88, 0xb5});
      frame.insert(frame.end(), payload.begin(), payload.end());
      try {
        host.SendFrame(owner, port.name, frame);
        ++sent;
      } catch (const StatusError &) {
        // A NIC without a link brings nothing.
      }
    }
    if (sent == 0) throw StatusError(ZEL_NOT_FOUND);
  }

  void SetOption(Host &host, std::uint16_t code, const std::string &value) {
    VSRuntimeOptionHeader head{};
    head.type = code;
    head.length = static_cast<zel_uint16>(sizeof head + value.size());
    const VSRuntimeOptions list{.totalLength = static_cast<zel_uint32>(sizeof(VSRuntimeOptions) + head.length)};
    host.options().Apply(BytesOf(list) + BytesOf(head) + value);
  }

  std::mt19937 random_;
};

}  // namespace kestrel::host
