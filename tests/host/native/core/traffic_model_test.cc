/* Random traffic and configuration, on the host and on a model of it that scans lists and knows no shortcut: the same
   ports must get the same frames, and tables and counters must agree. */
#include <algorithm>
#include <random>
#include <sstream>

#include "tests/host/native/support/traffic_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr MacAddress kGroup{0x01, 0, 0x5e, 0x01, 0x02, 0x03};
constexpr MacAddress kNeighbour{0x01, 0x80, 0xc2, 0, 0, 0x0e};
constexpr std::size_t kMtu = 1400;
constexpr std::size_t kSwitchLimit = 12;
constexpr Duration kAgeing = seconds(60);

struct ModelPort {
  std::string name;
  bool is_uplink = false;
  MacAddress hardware{};
  MacAddress address{};
  VlanPolicy policy{};
  unsigned priority = 0;
  bool is_blocked = false, nests = false, retains = false, only_uplink = false;
  bool may_promisc = false, may_change = false, may_forge = false;
  bool wants_all = false, wants_broadcasts = true, wants_group = false, wants_groups = false, is_sink = false;
  bool learns = false, floods = false, drops_at_limit = false;
  std::size_t limit = 0;
  std::uint64_t in = 0, out = 0, dropped_in = 0, dropped_out = 0, exceptions = 0, unlearned = 0, unlearned_dropped = 0,
                moved_here = 0;

  bool is_closed() const { return is_blocked || (address != hardware && !may_change); }
};

struct ModelEntry {
  MacKey key;
  std::string port;
  TimePoint seen;
  std::uint32_t moves;
  bool is_user;
};

struct ModelFrame {
  MacAddress to;
  MacAddress from;
  std::vector<VlanTag> tags;
  std::size_t size;
};

std::string TextOf(const ModelFrame &frame) { return TagsOf(MakeFrame(frame.to, frame.from, frame.tags, frame.size)); }

class Model {
 public:
  std::vector<ModelPort> ports;
  std::vector<VSPvlanMapEntry> map;
  std::vector<ModelEntry> entries;
  bool learns_static = false;
  bool allows_static = true;
  TimePoint now{};

  Arrivals Send(ModelPort &source, const ModelFrame &frame) {
    const std::size_t inner = frame.tags.empty() ? 0 : frame.tags.size() - 1;
    if (source.is_closed() || frame.size + 4 * inner > kMtu) return Drop(source);
    ++source.in;
    if (frame.to == kNeighbour) {
      ++source.exceptions;
      return {};
    }
    rest_ = frame;
    if (!Classify(source) || !MayComeFrom(source, frame.from) || !Learn(source, frame.from)) return Drop(source);
    arrivals_.clear();
    taken_ = 0;
    Distribute(source);
    return taken_ == 0 ? Drop(source) : arrivals_;
  }

  void Advance(Duration by) {
    now += by;
    std::erase_if(entries, [this](const ModelEntry &entry) { return !entry.is_user && now - entry.seen >= kAgeing; });
  }

 private:
  static Arrivals Drop(ModelPort &source) {
    ++source.dropped_in;
    return {};
  }

  const VSPvlanMapEntry *Private(VlanId vlan) const {
    for (const VSPvlanMapEntry &entry : map) {
      if (entry.secondaryVID == vlan) return &entry;
    }
    return nullptr;
  }
  VlanId Table(VlanId vlan) const { return Private(vlan) == nullptr ? vlan : VlanId{Private(vlan)->primaryVID}; }

  static bool Trunks(const ModelPort &port, VlanId vlan) {
    if (port.is_uplink) return vlan <= kMaxVlanId;
    if (vlan == 0 && port.policy.vlan != 0) return false;
    return (vlan != 0 && vlan == port.policy.vlan) ||
           std::ranges::any_of(port.policy.ranges, [vlan](VlanRange range) { return range.Contains(vlan); });
  }

  /** Leaves the tags inside of the VLAN in `rest_`. */
  bool Classify(const ModelPort &port) {
    auto &tags = rest_.tags;
    const bool is_trunk = port.is_uplink || port.policy.mode == VlanMode::kTrunk;
    priority_ = 0;
    vlan_ = port.policy.vlan;
    if (!tags.empty() && (is_trunk || tags[0].vlan == 0)) {
      priority_ = tags[0].priority;
      if (tags[0].vlan != 0) vlan_ = tags[0].vlan;
      tags.erase(tags.begin());
    }
    if (port.policy.set_priority) priority_ = port.priority;
    if (!tags.empty() && !port.nests && !port.is_uplink) return false;
    if (is_trunk) return Trunks(port, vlan_);
    return port.policy.mode != VlanMode::kPrivate || Private(vlan_) != nullptr;
  }

  bool IsIn(const ModelPort &port, VlanId vlan) const {
    switch (port.policy.mode) {
      case VlanMode::kAccess:
        return port.policy.vlan == vlan;
      case VlanMode::kTrunk:
        return Trunks(port, vlan);
      case VlanMode::kPrivate:
        return Private(port.policy.vlan) != nullptr && Table(port.policy.vlan) == Table(vlan) &&
               Private(vlan) != nullptr;
    }
    return false;
  }
  const ModelPort *Station(VlanId vlan, const MacAddress &address) const {
    for (const ModelPort &port : ports) {
      if (!port.is_uplink && port.address == address && IsIn(port, vlan)) return &port;
    }
    return nullptr;
  }
  ModelEntry *Entry(const MacAddress &address) {
    for (ModelEntry &entry : entries) {
      if (entry.key == MacKey{Table(vlan_), address}) return &entry;
    }
    return nullptr;
  }

  bool MayComeFrom(const ModelPort &port, const MacAddress &from) {
    if (!IsStation(from)) return false;
    if (port.is_uplink) {
      const ModelPort *station = Station(vlan_, from);
      return learns_static || station == nullptr || station->only_uplink;
    }
    const ModelEntry *entry = Entry(from);
    return from == port.address || port.may_forge || (entry != nullptr && entry->is_user && entry->port == port.name);
  }

  bool IsUplink(const std::string &name) const {
    return std::ranges::any_of(ports, [&](const ModelPort &port) { return port.name == name && port.is_uplink; });
  }

  bool Learn(ModelPort &port, const MacAddress &from) {
    ModelEntry *entry = Entry(from);
    if (!port.is_uplink && from == port.address) {
      std::erase_if(entries, [&](const ModelEntry &each) { return &each == entry && !each.is_user; });
      return true;
    }
    if (!port.is_uplink && !port.learns) return true;
    if (!(port.is_uplink ? learns_static : allows_static) && Station(vlan_, from) != nullptr) return true;
    if (entry != nullptr && entry->is_user) return true;
    const auto is_ours = [&](const ModelEntry &each) {
      return !each.is_user && (port.is_uplink ? IsUplink(each.port) : each.port == port.name);
    };
    const std::size_t limit = port.is_uplink ? kSwitchLimit : port.limit;
    const bool is_full = static_cast<std::size_t>(std::ranges::count_if(entries, is_ours)) >= limit;
    const auto learned = std::ranges::count_if(entries, [](const ModelEntry &each) { return !each.is_user; });
    const bool is_switch_full = static_cast<std::size_t>(learned) >= kSwitchLimit;
    if (entry == nullptr ? is_full || is_switch_full : is_full && !is_ours(*entry)) {
      const bool drops = !port.is_uplink && port.drops_at_limit;
      ++(drops ? port.unlearned_dropped : port.unlearned);
      return !drops;
    }
    if (entry == nullptr) {
      entries.push_back({{Table(vlan_), from}, port.name, now, 0, false});
    } else {
      if (entry->port != port.name) {
        ++entry->moves;
        ++port.moved_here;
      }
      entry->port = port.name;
      entry->seen = now;
    }
    return true;
  }

  bool MayLeave(const ModelPort &port) const {
    if (!rest_.tags.empty() && !port.nests && !port.is_uplink) return false;
    if (port.is_uplink) return true;
    if (port.policy.mode != VlanMode::kPrivate || !IsIn(port, vlan_)) return IsIn(port, vlan_);
    const auto kind = Private(vlan_)->pvlanType;
    return kind == VSPORT_PVLAN_TYPE_PROMISC || Private(port.policy.vlan)->pvlanType == VSPORT_PVLAN_TYPE_PROMISC ||
           (kind == VSPORT_PVLAN_TYPE_COMMUNITY && port.policy.vlan == vlan_);
  }

  void Distribute(const ModelPort &source) {
    if (source.only_uplink) {
      Take(ports[0]);
      return;
    }
    const bool is_group = (rest_.to[0] & 1) != 0;
    ModelPort *known = nullptr;
    if (!is_group) {
      const ModelEntry *entry = Entry(rest_.to);
      const ModelPort *station = Station(vlan_, rest_.to);
      for (ModelPort &port : ports) {
        if (entry != nullptr ? port.name == entry->port : &port == station) known = &port;
      }
    }
    bool is_wanted = false;
    for (ModelPort &port : ports) {
      if (port.is_uplink || port.name == source.name) continue;
      if (&port == known) {
        Take(port);
        continue;
      }
      const bool is_promiscuous = port.wants_all && port.may_promisc;
      bool wants = is_promiscuous;
      if (rest_.to == kBroadcast) wants = wants || port.wants_broadcasts;
      if (rest_.to == kGroup) wants = wants || port.wants_group || port.wants_groups;
      if (!is_group && known == nullptr) wants = wants || port.floods || port.is_sink;
      if (wants && Accepts(source, port) && MayLeave(port)) {
        is_wanted = true;
        Take(port);
      }
    }
    for (ModelPort &port : ports) {
      const bool is_sink = rest_.to == kGroup && !is_wanted && port.is_sink && port.name != source.name;
      if (is_sink && !port.is_uplink && Accepts(source, port) && MayLeave(port)) Take(port);
    }
    const bool goes_out = is_group || known == nullptr || known->is_uplink;
    if (goes_out && !source.is_uplink) Take(ports[0]);
  }

  /** The first uplink is the one that the team uses. */
  bool Accepts(const ModelPort &source, const ModelPort &port) const {
    if (!source.is_uplink) return true;
    if (port.address == rest_.from) return false;
    return source.name == ports[0].name || (port.wants_all && port.may_promisc);
  }

  void Take(ModelPort &port) {
    ++taken_;
    if (port.is_closed() || !MayLeave(port)) {
      ++port.dropped_out;
      return;
    }
    ++port.out;
    ModelFrame left = rest_;
    const bool is_trunk = port.is_uplink || port.policy.mode == VlanMode::kTrunk;
    const VlanTag tag{.priority = static_cast<std::uint8_t>(priority_),
                      .vlan = is_trunk && vlan_ != port.policy.vlan ? vlan_ : VlanId{0}};
    const bool hides = is_trunk && !left.tags.empty();
    const bool keeps = (port.retains || port.is_uplink) && priority_ != 0;
    if (tag.vlan != 0 || hides || keeps) left.tags.insert(left.tags.begin(), tag);
    arrivals_.emplace(port.name, TextOf(left));
  }

  ModelFrame rest_{};
  VlanId vlan_ = 0;
  unsigned priority_ = 0;
  Arrivals arrivals_;
  int taken_ = 0;
};

/** The host and the model side by side. */
class SideBySide {
 public:
  explicit SideBySide(unsigned seed) : random_(seed) {
    for (const char *name : {"u1", "u2"}) {
      net_.AddUplink(name);
      model_.ports.push_back({.name = name, .is_uplink = true});
      model_.ports.back().policy.mode = VlanMode::kTrunk;
    }
    for (std::uint8_t number = 1; number <= 7; ++number) {
      const std::string name(1, static_cast<char>('a' + number - 1));
      net_.AddMachine(name, number);
      model_.ports.push_back({.name = name, .hardware = Station(number), .address = Station(number)});
      model_.ports.back().limit = VSPORT_MAC_LEARNING_LIMIT_ENTRIES_DEFAULT;
    }
    VSTeamPolicy team{};
    team.loadBalance = TEAM_FRP_TYPE_FO_EXPLICIT;
    team.flags = TEAM_FRP_FLAG_REVERSE;
    team.numActive = 1;
    team.numStandby = 1;
    std::string("u1").copy(team.uplinkPortName[0], 2);
    std::string("u2").copy(team.uplinkPortName[1], 2);
    net_.SetSwitch(VSPROP_SWITCH_TEAMING, team);
    net_.SetSwitch(VSPROP_MTU, zel_uint32{kMtu});
    net_.SetSwitch(VSPROP_SWITCH_MAC_LEARNING,
                   VSPropMACLearning{.agingTime = 60, .reserved = 0, .macLimit = kSwitchLimit});
    if (Chance(2)) {
      model_.map = {{500, 500, VSPORT_PVLAN_TYPE_PROMISC, {}},
                    {500, 501, VSPORT_PVLAN_TYPE_COMMUNITY, {}},
                    {500, 502, VSPORT_PVLAN_TYPE_COMMUNITY, {}},
                    {500, 503, VSPORT_PVLAN_TYPE_ISOLATED, {}}};
      net_.SetPrivateMap(model_.map);
    }
  }

  void Step() {
    ++steps_;
    const unsigned choice = Below(20);
    if (choice < 13) {
      SendSomething();
    } else if (choice < 18) {
      Configure(model_.ports[2 + Below(model_.ports.size() - 2)]);
    } else if (choice == 18) {
      const auto by = seconds(Below(40));
      net_.host().AdvanceClock(by);
      model_.Advance(by);
    } else {
      ConfigureSwitch();
    }
  }

  void Compare() {
    std::ostringstream host;
    std::ostringstream model;
    for (const ModelPort &port : model_.ports) {
      const PortRuntime runtime = net_.Counters(port.name);
      const auto sum = [](const FrameCounters &counters) {
        return counters.frames[0] + counters.frames[1] + counters.frames[2];
      };
      host << port.name << ' ' << sum(runtime.in) << ' ' << sum(runtime.out) << ' ' << runtime.dropped_in << ' '
           << runtime.dropped_out << ' ' << runtime.exceptions_in << ' ' << runtime.unlearned << ' '
           << runtime.unlearned_dropped << ' ' << runtime.moved_here << '\n';
      model << port.name << ' ' << port.in << ' ' << port.out << ' ' << port.dropped_in << ' ' << port.dropped_out
            << ' ' << port.exceptions << ' ' << port.unlearned << ' ' << port.unlearned_dropped << ' '
            << port.moved_here << '\n';
    }
    std::ranges::sort(model_.entries, {}, &ModelEntry::key);
    const auto write = [](std::ostream &out, const MacKey &key, const std::string &port, TimePoint seen, auto moves) {
      out << key.vlan << ' ' << int{key.address[5]} << ' ' << port << ' ' << seen.count() << ' ' << moves << '\n';
    };
    for (const auto &[key, entry] : SortedEntries(net_.which().runtime.macs)) {
      write(host, key, net_.PortOf(key.vlan, key.address), entry.last_seen, entry.moves);
    }
    for (const ModelEntry &entry : model_.entries) write(model, entry.key, entry.port, entry.seen, entry.moves);
    ASSERT_EQ(host.str(), model.str()) << Told();
  }

  std::string Told() const { return "after step " + std::to_string(steps_) + "\n" + last_; }

 private:
  unsigned Below(std::size_t count) { return static_cast<unsigned>(random_() % count); }
  bool Chance(unsigned of) { return Below(of) == 0; }
  template <typename Value>
  Value Pick(const std::vector<Value> &values) {
    return values[Below(values.size())];
  }
  VlanId SomeVlan() { return Pick<VlanId>({0, 100, 101, 200, 500, 501, 502, 503}); }
  MacAddress SomeStation() { return Station(static_cast<std::uint8_t>(Chance(2) ? 1 + Below(7) : 50 + Below(6))); }

  void SendSomething() {
    ModelPort &source = model_.ports[Below(model_.ports.size())];
    ModelFrame frame{
        .to = SomeStation(), .from = source.address, .tags = {}, .size = Chance(20) ? kMtu - 1 + Below(4) : 46};
    if (source.is_uplink || Chance(3))
      frame.from = Chance(15) ? Pick<MacAddress>({{}, kGroup, kBroadcast}) : SomeStation();
    if (Chance(3)) frame.to = Pick<MacAddress>({kBroadcast, kBroadcast, kGroup, kNeighbour});
    const unsigned tags = source.is_uplink || source.policy.mode == VlanMode::kTrunk ? 1 + Below(5) / 4 : Below(6) / 4;
    for (unsigned i = 0; i < tags; ++i) {
      frame.tags.push_back(
          Tag(Chance(12) ? VlanId{4095} : SomeVlan(), static_cast<std::uint8_t>(Chance(3) ? Below(8) : 0)));
    }
    last_ = "frame from " + source.name + " to " + std::to_string(frame.to[5]) + " from " +
            std::to_string(frame.from[5]) + " tags " + TextOf(frame);
    const std::uint64_t dropped = DroppedOut();
    const std::uint64_t gone = source.dropped_in + source.exceptions;
    const Arrivals expected = model_.Send(source, frame);
    const Arrivals seen = net_.After(source.name, MakeFrame(frame.to, frame.from, frame.tags, frame.size));
    ASSERT_EQ(seen, expected) << Told();
    const PortRuntime runtime = net_.Counters(source.name);
    const bool is_gone = runtime.dropped_in + runtime.exceptions_in > gone;
    ASSERT_NE(is_gone, !seen.empty() || DroppedOut() > dropped) << "a frame is dropped or meets a port\n" << Told();
  }

  std::uint64_t DroppedOut() const {
    std::uint64_t dropped = 0;
    for (const ModelPort &port : model_.ports) dropped += net_.Counters(port.name).dropped_out;
    return dropped;
  }

  void Configure(ModelPort &port) {
    last_ = "configured " + port.name;
    switch (Below(8)) {
      case 0:
      case 1:
        SetVlan(port);
        break;
      case 2:
        port.is_blocked = Chance(6);
        net_.SetPortFlag(port.name, ZEL_VDSPROP_PORT_BLOCK, port.is_blocked);
        break;
      case 3: {
        port.nests = Chance(2);
        port.retains = Chance(2);
        port.only_uplink = Chance(6);
        net_.SetPortFlag(port.name, VSPROP_PORT_VLAN_NESTEDTAG, port.nests);
        net_.SetPortFlag(port.name, VSPROP_PORT_PRIORITY_RETAIN, port.retains);
        net_.SetPortFlag(port.name, VSPROP_PORT_TX_UPLINK, port.only_uplink);
        break;
      }
      case 4:
        port.may_promisc = Chance(2);
        port.may_change = Chance(2);
        port.may_forge = Chance(2);
        net_.SetSecurity(port.name,
                         (port.may_promisc ? 0U : static_cast<unsigned>(VSPORT_SECURITY_DISALLOW_PROMISC)) |
                             (port.may_change ? 0U : static_cast<unsigned>(VSPORT_SECURITY_DISALLOW_MAC_CHANGE)) |
                             (port.may_forge ? 0U : static_cast<unsigned>(VSPORT_SECURITY_DISALLOW_FORGED_SRC)));
        break;
      case 5:
        SetAdapter(port);
        break;
      case 6:
        port.learns = Chance(2);
        port.floods = Chance(3);
        port.drops_at_limit = Chance(2);
        port.limit = Below(4);
        net_.SetLearning(port.name, {.learning = static_cast<zel_Bool>(port.learns ? 1 : 0),
                                     .flooding = static_cast<zel_Bool>(port.floods ? 1 : 0),
                                     .macLimit = static_cast<zel_uint32>(port.limit),
                                     .macLimitPolicy = port.drops_at_limit ? VSPORT_MAC_LEARNING_LIMIT_POLICY_DROP
                                                                           : VSPORT_MAC_LEARNING_LIMIT_POLICY_ALLOW});
        break;
      default:
        port.is_sink = Chance(3);
        net_.SetExtraFilter(port.name, port.is_sink ? ZEL_ETH_FILTER_SINK : 0);
        break;
    }
  }

  void SetVlan(ModelPort &port) {
    port.policy = {.vlan = SomeVlan(), .set_priority = Chance(4), .ranges = {}};
    if (Chance(3)) {
      port.policy.mode = VlanMode::kTrunk;
      port.policy.ranges = Pick<std::vector<VlanRange>>({{{0, 4094}}, {{100, 101}, {500, 502}}, {{0, 0}, {200, 503}}});
      if (Chance(2)) port.policy.vlan = 0;
    } else if (!model_.map.empty() && Chance(2)) {
      port.policy.mode = VlanMode::kPrivate;
      port.policy.vlan = Pick<VlanId>({500, 501, 502, 503, 503, 100});
    }
    port.priority = Below(8);
    net_.SetPort(port.name, VSPROP_PORT_PRIORITY, zel_uint32{port.priority});
    net_.SetVlan(port.name, port.policy);
  }

  void SetAdapter(ModelPort &port) {
    port.address = Chance(4) ? Station(static_cast<std::uint8_t>(50 + Below(6))) : port.hardware;
    port.wants_all = Chance(4);
    port.wants_broadcasts = !Chance(5);
    port.wants_group = Chance(3);
    port.wants_groups = Chance(6);
    Adapter adapter{.address = port.address == port.hardware ? MacAddress{} : port.address,
                    .filter = ZEL_ETH_FILTER_UNICAST | ZEL_ETH_FILTER_MULTICAST};
    if (port.wants_all) adapter.filter |= ZEL_ETH_FILTER_PROMISC;
    if (port.wants_broadcasts) adapter.filter |= ZEL_ETH_FILTER_BROADCAST;
    if (port.wants_groups) adapter.filter |= ZEL_ETH_FILTER_ALLMULTI;
    if (port.wants_group) adapter.groups.push_back(kGroup);
    net_.host().SetAdapter(kAlias, port.name, adapter);
  }

  void ConfigureSwitch() {
    last_ = "configured the switch";
    if (Chance(2)) {
      model_.learns_static = Chance(3);
      model_.allows_static = Chance(2);
      net_.SetSwitchFlag(VSPROP_SWITCH_MAC_LEARN_STATIC, model_.learns_static);
      net_.SetSwitchFlag(VSPROP_SWITCH_STATIC_MAC_ALLOW, model_.allows_static);
      return;
    }
    const ModelPort &port = model_.ports[2 + Below(model_.ports.size() - 2)];
    const MacKey key{Pick<VlanId>({0, 100, 500}), Station(static_cast<std::uint8_t>(50 + Below(6)))};
    const auto found = std::ranges::find(model_.entries, key, &ModelEntry::key);
    if (found != model_.entries.end()) {
      const PortId behind = net_.IdOf(found->port);
      net_.host().RemoveAddress(kAlias, behind, key);
      model_.entries.erase(found);
    } else {
      net_.host().EnterAddress(kAlias, net_.IdOf(port.name), key, VS_MAC_ADDR_TYPE_USER);
      model_.entries.push_back({key, port.name, model_.now, 0, true});
    }
  }

  std::mt19937 random_;
  TrafficHost net_;
  Model model_;
  int steps_ = 0;
  std::string last_;
};

class TrafficModel : public testing::TestWithParam<unsigned> {};

TEST_P(TrafficModel, HostAndModelAgree) {
  for (unsigned round = 0; round < 10; ++round) {
    SideBySide both(GetParam() * 1000 + round);
    for (int step = 0; step < 300; ++step) {
      both.Step();
      if (HasFatalFailure()) return;
      if (step % 10 == 9) both.Compare();
      if (HasFatalFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, TrafficModel, testing::Range(1U, 9U));

}  // namespace
}  // namespace kestrel::host
