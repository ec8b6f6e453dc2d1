/* Losses of power: of what was written and not yet synchronised any part may be missing, in any order and in pieces.
   Whatever is left, every change that was acknowledged is there, and of the one under way all or nothing. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/storage/host_file.h"
#include "tests/host/native/support/host_dump.h"
#include "tests/host/native/support/random_changes.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

/** What disks write at once. */
constexpr std::size_t kSector = 512;

/** A change of a file that was asked of the system. */
struct DiskWrite {
  std::size_t offset = 0;
  /** Of a write; none for a file that is cut off at `offset`. */
  std::optional<std::string> bytes;
};

/** A file as the disk has it, and what is on its way there. */
struct DiskFile {
  std::string safe;
  std::vector<DiskWrite> pending;
  /** Whether its name is gone, which a loss of power may bring back until another file is synchronised. */
  bool is_deleted = false;
};

/** What becomes of the writes that are on their way. */
enum class Loss : std::uint8_t { kNone, kAll, kSomeWrites, kSomeSectors };
constexpr Loss kLosses[] = {Loss::kNone, Loss::kAll, Loss::kSomeWrites, Loss::kSomeSectors};

void Put(std::string &file, std::size_t offset, std::string_view bytes) {
  if (file.size() < offset + bytes.size()) file.resize(offset + bytes.size());
  file.replace(offset, bytes.size(), bytes);
}

/** Follows what is asked of the storage, and knows what a loss of power could leave at any moment. */
class SimulatedDisk : public StorageWatcher {
 public:
  /** `at_moment` is called after each operation, when the power might be lost. */
  explicit SimulatedDisk(std::function<void(SimulatedDisk &)> at_moment) : at_moment_(std::move(at_moment)) {}

  void OnWrite(const std::string &path, std::int64_t offset, std::string_view bytes) override {
    DiskFile &file = Named(path);
    file.pending.push_back({static_cast<std::size_t>(offset), std::string(bytes)});
    at_moment_(*this);
  }
  void OnTruncate(const std::string &path, std::int64_t size) override {
    Named(path).pending.push_back({static_cast<std::size_t>(size), std::nullopt});
    at_moment_(*this);
  }
  void OnSync(const std::string &path) override {
    DiskFile &file = Named(path);
    file.safe = After(file, [](std::string &content, const DiskWrite &write) { Apply(content, write); });
    file.pending.clear();
    std::erase_if(files_, [](const auto &each) { return each.second.is_deleted; });
    at_moment_(*this);
  }
  void OnDelete(const std::string &path) override {
    if (const auto found = files_.find(path); found != files_.end()) found->second.is_deleted = true;
    at_moment_(*this);
  }

  bool IsWaiting() const {
    return std::ranges::any_of(files_, [](const auto &each) { return !each.second.pending.empty(); });
  }

  /** Writes what is left of the files, whose names begin with `path`, under another name. */
  void LeaveFiles(const std::string &path, const std::string &left, Loss loss, std::mt19937 &random) const {
    for (const auto &[name, file] : files_) {
      if (!name.starts_with(path) || (file.is_deleted && random() % 2 == 0)) continue;
      const std::string content = After(file, [&](std::string &made, const DiskWrite &write) {
        const bool is_in_pieces = loss == Loss::kSomeSectors && write.bytes;
        if (loss == Loss::kNone || ((loss == Loss::kSomeWrites || loss == Loss::kSomeSectors) && random() % 2 == 0)) {
          return Apply(made, write);
        }
        if (!is_in_pieces) return;
        for (std::size_t at = 0; at < write.bytes->size(); at += kSector) {
          if (random() % 2 == 0) Put(made, write.offset + at, std::string_view(*write.bytes).substr(at, kSector));
        }
      });
      std::ofstream(left + name.substr(path.size()), std::ios::binary | std::ios::trunc) << content;
    }
  }

 private:
  DiskFile &Named(const std::string &path) {
    DiskFile &file = files_[path];
    // Under the name of one that was deleted a new one begins.
    if (file.is_deleted) file = {};
    return file;
  }

  static void Apply(std::string &content, const DiskWrite &write) {
    if (write.bytes) {
      Put(content, write.offset, *write.bytes);
    } else {
      content.resize(write.offset);
    }
  }

  template <typename Arrive>
  static std::string After(const DiskFile &file, Arrive arrive) {
    std::string content = file.safe;
    for (const DiskWrite &write : file.pending) arrive(content, write);
    return content;
  }

  std::function<void(SimulatedDisk &)> at_moment_;
  std::map<std::string, DiskFile> files_;
};

class PowerLoss : public testing::TestWithParam<std::uint32_t> {
 protected:
  PowerLoss() : random_(GetParam()) { WatchStorage(&disk_); }
  ~PowerLoss() override { WatchStorage(nullptr); }

  std::string path() const { return folder_.File(); }

  /** Loses power now, in every way, and looks at what is left. */
  void LosePower() {
    ++moments_;
    if (disk_.IsWaiting()) ++moments_with_writes_;
    WatchStorage(nullptr);
    for (const Loss loss : kLosses) {
      const std::string found = DumpAfter(loss);
      const bool is_there = found == acknowledged_.value_or(found);
      if (!is_there) ++found_under_way_;
      ASSERT_TRUE(is_there || found == under_way_) << "moment " << moments_ << ", loss " << static_cast<int>(loss);
    }
    WatchStorage(&disk_);
  }

  /** What a host finds that begins after a loss. */
  std::string DumpAfter(Loss loss) {
    const TestFolder other;
    disk_.LeaveFiles(path(), other.File(), loss, random_);
    // Until the file is made nothing was promised but that one can begin.
    HostFile file(other.File(), acknowledged_ ? [] { return std::make_unique<Host>(); } : MakeTestHost);
    const int status = StatusOf([&] { file.Refresh(); });
    EXPECT_EQ(status, ZEL_OK) << "moment " << moments_ << ", loss " << static_cast<int>(loss);
    return DumpOf(file.host());
  }

  const TestFolder folder_;
  std::mt19937 random_;
  SimulatedDisk disk_{[this](SimulatedDisk & /*disk*/) {
    if (!HasFailure() && random_() % 3 == 0) LosePower();
  }};
  /** What was acknowledged last, and what it becomes with the change under way. */
  std::optional<std::string> acknowledged_;
  std::optional<std::string> under_way_;
  int moments_ = 0;
  int moments_with_writes_ = 0;
  int found_under_way_ = 0;
};

TEST_P(PowerLoss, LosesNothingThatWasAcknowledgedAndLeavesNoHalves) {
  constexpr int kChanges = 60;
  RandomChanges changes(GetParam());
  for (int made = 0; made < kChanges && !HasFailure();) {
    // Opened anew every now and then, which merges the log into the file.
    HostFile file(path(), MakeTestHost);
    file.Refresh();
    const std::string opened = DumpOf(file.host());
    ASSERT_EQ(opened, acknowledged_.value_or(opened));
    acknowledged_ = opened;
    for (const int end = made + 1 + static_cast<int>(random_() % 12); made < end && !HasFailure(); ++made) {
      file.Begin();
      const int status = StatusOf([&] { changes.MakeOne(file.host()); });
      if (status != ZEL_OK) {
        file.Rollback();
        continue;
      }
      under_way_ = DumpOf(file.host());
      file.Commit();
      acknowledged_ = std::exchange(under_way_, std::nullopt);
      LosePower();
      // Now and then the log is merged into the file in the midst.
      if (random_() % 8 == 0) Database(path(), SQLITE_OPEN_READWRITE).Execute("PRAGMA wal_checkpoint");
    }
    if (random_() % 2 == 0) file.Leave();
  }
  EXPECT_GT(moments_, 80);
  EXPECT_GT(moments_with_writes_, 40);
  EXPECT_GT(found_under_way_, 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PowerLoss, testing::Range(1U, 4U));

std::string ContentsOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/** Takes the first sector of a file away, as a merge of the log that was cut short may have left it. */
void Tear(const std::string &path) {
  std::string contents = ContentsOf(path);
  contents.replace(0, kSector, kSector, '\0');
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

TEST(TornFiles, AreMadeGoodWhereTheLogIsAHosts) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  const std::string expected = DumpOf(file.host());
  file.BeforeFork();  // leaves without merging the log
  Tear(folder.File());
  file.Refresh();
  EXPECT_EQ(DumpOf(file.host()), expected);
}

TEST(TornFiles, OfOthersAreLeftAsTheyAre) {
  const TestFolder folder;
  {
    Database other(folder.File(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite3_db_config(other.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    other.Execute("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
  }
  Tear(folder.File());
  const std::string log = folder.File("host-wal");
  const std::string before = ContentsOf(folder.File()) + ContentsOf(log);
  ASSERT_FALSE(ContentsOf(log).empty());
  HostFile file(folder.File(), MakeTestHost);
  EXPECT_STATUS(ZEL_INVALID_TARGET, file.Refresh());
  EXPECT_EQ(ContentsOf(folder.File()) + ContentsOf(log), before);
}

}  // namespace
}  // namespace kestrel::host
