/* What the embedded host costs: forwarding, reading a large MAC table, adding ports, finding things. Each figure is the
   least of several rounds; what is compared takes turns. */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "host/core/base/record_bytes.h"
#include "host/core/process_host.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"

namespace {

using namespace kestrel::host;

constexpr char kSwitch[] = "bench";

/** Of the processor, so that whoever else uses the machine counts less. */
double Now() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double Seconds(const std::function<void()> &work) {
  const double begin = Now();
  work();
  return Now() - begin;
}

/** Lets the compiler not see that nobody looks at some memory. */
void Keep(void *memory) { asm volatile("" : : "r"(memory) : "memory"); }

/** The least time of each, in seconds. */
std::vector<double> Race(int rounds, const std::vector<std::function<void()>> &works) {
  std::vector<double> best(works.size(), 1e9);
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < works.size(); ++i) best[i] = std::min(best[i], Seconds(works[i]));
  }
  return best;
}

MacAddress Numbered(std::uint32_t number) {
  return {0x02,
          0x77,
          static_cast<std::uint8_t>(number >> 24),
          static_cast<std::uint8_t>(number >> 16),
          static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number)};
}

void AddSwitch(Host &host, const std::string &name) {
  host.AddSwitch({.id = "id-" + name, .portset = "portset-" + name, .alias = name, .max_ports = kMaxPorts});
}

void SetMacLimit(Host &host, zel_uint32 limit) {
  const VSPropMACLearning policy{.agingTime = VS_MAC_LEARNING_AGING_TIME_MAX, .reserved = 0, .macLimit = limit};
  host.SetProperty({.switch_name = kSwitch}, VSPROP_SWITCH_MAC_LEARNING, {BytesOf(policy)});
}

/** Frames of 60 bytes between addresses that were learned behind ports. */
void Forwarding(std::size_t addresses) {
  constexpr std::size_t kPorts = 16;
  constexpr std::size_t kFrames = 20000;
  constexpr int kRounds = 60;
  Host host;
  AddSwitch(host, kSwitch);
  SetMacLimit(host, 1u << 20);
  std::vector<std::string> ports;
  for (std::size_t i = 0; i < kPorts; ++i) {
    ports.push_back("port-" + std::to_string(i));
    host.AddPort(kSwitch, ports.back());
    host.Connect(kSwitch, ports.back(), {VS_PORT_CLIENT_VNIC, "vm"});
    const PropertyOwner owner{.switch_name = kSwitch, .level = PropertyLevel::kPort, .port = ports.back()};
    VSPMACManagement management{};
    management.portMACLearning.learning = 1;
    management.portMACLearning.macLimit = VSPORT_MAC_LEARNING_LIMIT_ENTRIES_MAX;
    host.SetProperty(owner, VSPROP_PORT_MAC_MANAGEMENT, {BytesOf(management)});
    host.SetProperty(owner, VSPROP_PORT_SECURITY, {BytesOf(VSPropSecurity{})});
  }
  std::vector<std::vector<std::uint8_t>> frames(addresses, std::vector<std::uint8_t>(60));
  for (std::uint32_t i = 0; i < addresses; ++i) {
    const MacAddress from = Numbered(i);
    const MacAddress to = Numbered(static_cast<std::uint32_t>((i * 7919 + 1) % addresses));
    std::ranges::copy(to, frames[i].begin());
    std::ranges::copy(from, frames[i].begin() + 6);
    frames[i][12] = 0x88;
    frames[i][13] = 0xb5;
  }
  const auto send = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
      host.SendFrame(kSwitch, ports[i % addresses % kPorts], frames[i % addresses]);
  };
  send(addresses);
  host.AdvanceClock(std::chrono::seconds(1));
  std::uint64_t before = 0;
  const auto delivered = [&host] {
    std::uint64_t count = 0;
    for (const auto &[port, runtime] : host.FindSwitch(kSwitch).runtime.ports.Items()) count += runtime.out.frames[0];
    return count;
  };
  before = delivered();
  const double time = Race(kRounds, {[&] {
                             send(kFrames);
                             host.AdvanceClock(std::chrono::milliseconds(1));
                           }})[0];
  const double share = static_cast<double>(delivered() - before) / (kRounds * kFrames);
  std::printf("  %7zu addresses: %6.2f million frames a second, %4.0f ns a frame (%.0f%% delivered)\n", addresses,
              kFrames / time / 1e6, time / kFrames * 1e9, share * 100);
}

void ReadingMacTable() {
  constexpr std::uint32_t kEntries = 1000000;
  auto made = std::make_unique<Host>();
  AddSwitch(*made, kSwitch);
  SetMacLimit(*made, kEntries);
  std::vector<PortId> ports;
  for (int i = 0; i < 250; ++i) ports.push_back(made->AddPort(kSwitch, std::to_string(i)));
  const double learning = Seconds([&] {
    for (std::uint32_t i = 0; i < kEntries; ++i) {
      made->SeeSource(kSwitch, ports[i % ports.size()], {static_cast<VlanId>(i % 100), Numbered(i * 2654435761u)});
    }
  });
  made->AdvanceClock(std::chrono::seconds(77));
  InstallProcessHost(std::move(made));

  VSMACTable *table = nullptr;
  const auto read = [&table] { VSZEL_GetMACTable(kSwitch, VS_MAC_ADDR_TYPE_ALL, &table); };
  const double first = Seconds(read);
  const std::size_t size = sizeof(VSMACTable) + table->numEntries * sizeof(VSMACEntry);
  std::vector<char> warm(size);
  const std::vector<double> times = Race(15, {[&] {
                                                VSMACTable *again = nullptr;
                                                VSZEL_GetMACTable(kSwitch, VS_MAC_ADDR_TYPE_ALL, &again);
                                                VSZEL_FreeMemory(again);
                                              },
                                              [&] {
                                                void *copy = std::malloc(size);
                                                std::memcpy(copy, table, size);
                                                Keep(copy);
                                                std::free(copy);
                                              },
                                              [&] {
                                                std::memcpy(warm.data(), table, size);
                                                Keep(warm.data());
                                              }});
  std::printf("  %u entries, %.0f MB: learned in %.0f ns each, first read %.1f ms\n", unsigned{table->numEntries},
              static_cast<double>(size) / 1e6, learning / kEntries * 1e9, first * 1e3);
  std::printf("  read %.2f ms; memcpy into new memory %.2f ms, ratio %.2f; into memory in use %.2f ms, ratio %.2f\n",
              times[0] * 1e3, times[1] * 1e3, times[0] / times[1], times[2] * 1e3, times[0] / times[2]);
  VSZEL_FreeMemory(table);
  InstallProcessHost(nullptr);
}

void AddingPorts() {
  double small = 0;
  for (const std::size_t count : {1000, 10000, 50000}) {
    const double time = Race(3, {[count] {
                               Host host;
                               AddSwitch(host, kSwitch);
                               for (std::size_t i = 0; i < count; ++i)
                                 host.AddPort(kSwitch, "port-" + std::to_string(i));
                             }})[0] /
                        static_cast<double>(count);
    if (small == 0) small = time;
    std::printf("  %6zu ports: %5.2f us a port, ratio to the first %.2f\n", count, time * 1e6, time / small);
  }
}

void Lookups() {
  constexpr int kLookups = 200000;
  struct Case {
    std::size_t switches;
    std::size_t ports;
  };
  std::vector<double> base;
  for (const Case &each : {Case{1, 10}, Case{1, 10000}, Case{1, 60000}, Case{100, 10}, Case{1000, 10}}) {
    Host host;
    std::vector<std::string> names;
    std::vector<PortId> ids;
    std::vector<std::string> ports;
    for (std::size_t i = 0; i < each.switches; ++i) {
      names.push_back("switch-" + std::to_string(i));
      AddSwitch(host, names.back());
      for (std::size_t j = 0; j < each.ports; ++j) {
        if (i == 0) ports.push_back("port-" + std::to_string(j));
        ids.push_back(host.AddPort(names.back(), ports[j]));
      }
    }
    std::size_t sink = 0;
    const auto spread = [](int i, std::size_t size) { return static_cast<std::size_t>(i) * 7919 % size; };
    const std::vector<double> times =
        Race(5, {[&] {
                   for (int i = 0; i < kLookups; ++i)
                     sink += host.FindSwitch(names[spread(i, names.size())]).config.spec().max_ports;
                 },
                 [&] {
                   const Switch &first = host.FindSwitch(names[0]);
                   for (int i = 0; i < kLookups; ++i) sink += first.config.PortNamed(ports[spread(i, ports.size())]).id;
                 },
                 [&] {
                   for (int i = 0; i < kLookups; ++i)
                     sink += host.FindSwitchOfPort(ids[spread(i, ids.size())]).config.spec().max_ports;
                 }});
    if (sink == 0) std::printf("nothing was found");
    if (base.empty()) base = times;
    std::printf("  %4zu switches of %5zu ports:", each.switches, each.ports);
    const char *what[] = {"switch by name", "port by name", "switch by port"};
    for (std::size_t i = 0; i < times.size(); ++i) {
      std::printf("  %s %4.0f ns (%.2f)", what[i], times[i] / kLookups * 1e9, times[i] / base[i]);
    }
    std::printf("\n");
  }
}

}  // namespace

int main() {
  std::printf("Forwarding small frames through a learned table\n");
  for (const std::size_t addresses : {100, 4000, 64000}) Forwarding(addresses);
  std::printf("Reading a MAC table\n");
  ReadingMacTable();
  std::printf("Adding ports\n");
  AddingPorts();
  std::printf("Finding things\n");
  Lookups();
  return 0;
}
