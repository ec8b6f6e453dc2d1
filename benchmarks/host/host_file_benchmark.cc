/* What it costs to keep the host in a file: host_file_benchmark [folder]. Everything is measured in one run, and what
   is compared takes turns; the folder is on the disk that is meant, the current one by default. */
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/core/process_host.h"
#include "host/core/sample_host.h"
#include "host/core/storage/host_file.h"
#include "host/core/storage/storage.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSwitch[] = "bench";
constexpr int kPorts = 10000;

template <typename Body>
double Microseconds(Body body) {
  const auto start = Clock::now();
  body();
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/** Of the processor: what does not wait for the disk is measured without what else the machine does. */
template <typename Body>
double ProcessorMicroseconds(Body body) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
  };
  const double start = now();
  body();
  return now() - start;
}

double Median(std::vector<double> times) {
  std::ranges::sort(times);
  return times[times.size() / 2];
}

void Require(ZEL_ReturnStatus status, const char *what) {
  if (status == ZEL_OK) return;
  std::fprintf(stderr, "%s failed: 0x%x\n", what, static_cast<unsigned>(status));
  std::exit(1);
}

/** Writes as much as a change of a property does, over what is there, and waits for the disk. */
class PlainFile {
 public:
  explicit PlainFile(const std::string &path) : descriptor_(open(path.c_str(), O_RDWR | O_CREAT, 0600)) {
    bytes_.assign(4096 + 24, 'x');
    for (int i = 0; i < 512; ++i) Write();
    place_ = 0;
    fsync(descriptor_);
  }
  ~PlainFile() { close(descriptor_); }
  PlainFile(const PlainFile &) = delete;
  PlainFile &operator=(const PlainFile &) = delete;

  void WriteDurably() {
    Write();
    fdatasync(descriptor_);
  }

 private:
  void Write() {
    if (pwrite(descriptor_, bytes_.data(), bytes_.size(), place_) < 0) std::exit(1);
    place_ += static_cast<off_t>(bytes_.size());
  }

  int descriptor_;
  std::string bytes_;
  off_t place_ = 0;
};

void SetMtu(std::uint32_t number) { Require(VSDVS_SetMTU("dvs-prod", 1280 + number % 1000), "VSDVS_SetMTU"); }

void CompareWithTheDisk(const std::string &folder) {
  PlainFile plain(folder + "/plain");
  std::vector<double> changes;
  std::vector<double> writes;
  // Enough for the log to be merged several times.
  for (std::uint32_t i = 0; i < 1200; ++i) {
    writes.push_back(Microseconds([&] { plain.WriteDurably(); }));
    changes.push_back(Microseconds([i] { SetMtu(i); }));
  }
  double all_changes = 0;
  double all_writes = 0;
  for (const double time : changes) all_changes += time;
  for (const double time : writes) all_writes += time;
  std::printf("a durable change          %9.1f us median, %9.1f mean\n", Median(changes), all_changes / 1200);
  std::printf("one fdatasync             %9.1f us median, %9.1f mean\n", Median(writes), all_writes / 1200);
  std::printf("  ratio                   %9.2f    median, %9.2f mean\n", Median(changes) / Median(writes),
              all_changes / all_writes);
}

void GroupChanges() {
  const auto synchronisations = [] { return StorageOperations(StorageOperation::kSync); };
  std::uint64_t before = synchronisations();
  const double apart = Microseconds([] {
    for (std::uint32_t i = 0; i < 200; ++i) SetMtu(i);
  });
  std::printf("200 changes apart         %9.1f us each, %llu synchronisations\n", apart / 200,
              static_cast<unsigned long long>(synchronisations() - before));
  before = synchronisations();
  const double together = Microseconds([] {
    BeginHostTransaction();
    for (std::uint32_t i = 0; i < 1000; ++i) SetMtu(i);
    CommitHostTransaction();
  });
  std::printf("1000 in one transaction   %9.1f us each, %llu synchronisations\n", together / 1000,
              static_cast<unsigned long long>(synchronisations() - before));
}

/** Nanoseconds of one query. */
double TimeQuery() {
  constexpr int kCalls = 20000;
  zel_uint32 mtu = 0;
  return 1000 / double{kCalls} * ProcessorMicroseconds([&] {
           for (int i = 0; i < kCalls; ++i) Require(VSDVS_GetMTU("dvs-prod", &mtu), "VSDVS_GetMTU");
         });
}

void CompareQueries(const std::string &path) {
  double memory = 1e9;
  double file = 1e9;
  for (int round = 0; round < 20; ++round) {
    InstallProcessHost(nullptr);
    memory = std::min(memory, TimeQuery());
    InstallHostFile(path);
    file = std::min(file, TimeQuery());
  }
  std::printf("a query in memory         %9.1f ns\n", memory);
  std::printf("a query in a file         %9.1f ns, %.1f more\n", file, file - memory);
}

void AddPorts(const char *where) {
  Require(DVSZEL_SwitchAdd(kSwitch, kSwitch, kPorts, DVS_VERSION_70), "DVSZEL_SwitchAdd");
  std::vector<std::string> names;
  for (int i = 0; i < kPorts; ++i) names.push_back(std::to_string(i));
  double parts[10];
  for (int part = 0; part < 10; ++part) {
    parts[part] = ProcessorMicroseconds([&] {
      for (int i = part * kPorts / 10; i < (part + 1) * kPorts / 10; ++i) {
        Require(VSDVS_AddDVPort(kSwitch, names[static_cast<std::size_t>(i)].c_str(), 1), "VSDVS_AddDVPort");
      }
    });
  }
  std::printf("%d ports %-16s %7.2f us each of the first tenth, %.2f of the last\n", kPorts, where,
              parts[0] / kPorts * 10, parts[9] / kPorts * 10);
}

}  // namespace

int main(int argc, char **argv) {
  std::string folder = std::filesystem::absolute(argc > 1 ? argv[1] : ".") / "host-file-benchmark-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror(folder.c_str());
    return 1;
  }
  const std::string path = folder + "/host";
  InstallHostFile(path);
  CompareWithTheDisk(folder);
  GroupChanges();
  CompareQueries(path);

  InstallProcessHost(nullptr);
  AddPorts("in memory");
  InstallHostFile(path);
  BeginHostTransaction();
  AddPorts("in a transaction");
  std::printf("  its end                 %9.1f us\n", Microseconds([] { CommitHostTransaction(); }));
  std::printf("one port fewer            %9.1f us of the processor\n",
              ProcessorMicroseconds([] { Require(VSDVS_RemoveDVPort(kSwitch, "1"), "VSDVS_RemoveDVPort"); }));
  InstallHostFile(path);
  std::printf("opening it again          %9.1f us of the processor\n", ProcessorMicroseconds([] {
                zel_uint32 mtu = 0;
                Require(VSDVS_GetMTU("dvs-prod", &mtu), "VSDVS_GetMTU");
              }));
  InstallProcessHost(nullptr);
  std::filesystem::remove_all(folder);
}
