/* Host files that cannot be had, and storage that fails in the middle: each failure has its status, and nothing has
   happened. */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>

#include "host/core/storage/host_file.h"
#include "tests/host/native/support/host_dump.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/random_changes.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

namespace fs = std::filesystem;

std::string ContentsOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Write(const std::string &path, const std::string &contents) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

void ChangeSomething(HostFile &file) {
  file.Begin();
  file.host().AddNic("added", kUp);
  file.Commit();
}

/** Makes a host file that nobody has open. */
std::string MakeFile(const TestFolder &folder) {
  HostFile(folder.File(), MakeTestHost).Refresh();
  return folder.File();
}

void Execute(const std::string &path, const char *sql) { Database(path, SQLITE_OPEN_READWRITE).Execute(sql); }

// ---- Files that are none ----

struct BadFile {
  const char *name;
  int status;
  /** Makes something of a good host file. */
  void (*spoil)(const std::string &path);
};

class BadFiles : public testing::TestWithParam<BadFile> {};

TEST_P(BadFiles, AreRefusedAndLeftAsTheyAre) {
  const TestFolder folder;
  const std::string path = MakeFile(folder);
  const std::string good = ContentsOf(path);
  GetParam().spoil(path);
  const std::string bad = ContentsOf(path);

  HostFile file(path, MakeTestHost);
  for (int i = 0; i < 2; ++i) {
    EXPECT_STATUS(GetParam().status, file.Refresh());
    EXPECT_STATUS(GetParam().status, file.Begin());
    EXPECT_FALSE(file.InTransaction());
    EXPECT_TRUE(file.host().Switches().empty());
  }
  EXPECT_EQ(ContentsOf(path), bad);
  EXPECT_FALSE(fs::exists(path + "-wal") || fs::exists(path + "-shm")) << "nothing is left beside it";

  Write(path, good);
  file.Refresh();
  EXPECT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost())) << "it is well again";
  ChangeSomething(file);
}

void Overwrite(const std::string &path, std::size_t offset, const std::string &bytes) {
  std::string contents = ContentsOf(path);
  contents.replace(offset, bytes.size(), bytes);
  Write(path, contents);
}

constexpr std::size_t kPage = 4096;

const BadFile kBadFiles[] = {
    {"Text", ZEL_INVALID_TARGET, [](const auto &path) { Write(path, "not a host\n"); }},
    {"LongText", ZEL_INVALID_TARGET, [](const auto &path) { Write(path, std::string(9000, 'x')); }},
    {"OtherDatabase", ZEL_INVALID_TARGET,
     [](const auto &path) { Execute(path, "PRAGMA application_id = 7; PRAGMA wal_checkpoint(TRUNCATE)"); }},
    {"DatabaseWithoutMark", ZEL_INVALID_TARGET, [](const auto &path) { Execute(path, "PRAGMA application_id = 0"); }},
    {"OnePageDatabase", ZEL_INVALID_TARGET,
     [](const auto &path) {
       Write(path, "");
       Execute(path,
               "CREATE TABLE t (a); DROP TABLE t; VACUUM; PRAGMA writable_schema = ON;"
               "INSERT INTO sqlite_schema VALUES ('view', 'v', 'v', 0, 'CREATE VIEW v AS SELECT 1')");
     }},
    {"LaterVersion", ZEL_VERSION_MISMATCH_MAJOR, [](const auto &path) { Execute(path, "PRAGMA user_version = 2"); }},
    {"NoVersion", ZEL_INVALID_METADATA, [](const auto &path) { Execute(path, "PRAGMA user_version = 0"); }},
    {"HalfAFile", ZEL_INVALID_METADATA,
     [](const auto &path) { fs::resize_file(path, fs::file_size(path) / 2 / kPage * kPage); }},
    {"OverwrittenPages", ZEL_INVALID_METADATA,
     [](const auto &path) {
       for (std::size_t page = 1; page < fs::file_size(path) / kPage; ++page) {
         Overwrite(path, page * kPage, std::string(64, '\xa5'));
       }
     }},
    {"MissingTable", ZEL_INVALID_METADATA, [](const auto &path) { Execute(path, "DROP TABLE ports"); }},
    {"MissingRow", ZEL_INVALID_METADATA,
     [](const auto &path) { Execute(path, "DELETE FROM host WHERE name = 'time_ns'"); }},
    {"UnknownRow", ZEL_INVALID_METADATA, [](const auto &path) { Execute(path, "INSERT INTO host VALUES ('x', 1)"); }},
    {"PortOutOfRange", ZEL_INVALID_METADATA,
     [](const auto &path) { Execute(path, "UPDATE host SET value = -1 WHERE name = 'next_port'"); }},
    {"ImpossiblePort", ZEL_INVALID_METADATA, [](const auto &path) { Execute(path, "UPDATE ports SET name = ''"); }},
    {"PropertyOfNothing", ZEL_INVALID_METADATA,
     [](const auto &path) { Execute(path, "INSERT INTO properties VALUES (1, 'port', 7, 'k', 'saved', 1, x'')"); }},
    {"ShortAddress", ZEL_INVALID_METADATA,
     [](const auto &path) { Execute(path, "INSERT INTO macs VALUES (1, 0, x'0102', 0, 1, 0, 0)"); }},
};

INSTANTIATE_TEST_SUITE_P(Kinds, BadFiles, testing::ValuesIn(kBadFiles),
                         [](const auto &each) { return std::string(each.param.name); });

// ---- Paths that lead nowhere ----

TEST(HostFileFailures, OfPathsHaveTheirStatuses) {
  const TestFolder folder;
  const auto status_of = [](const std::string &path) {
    HostFile file(path, MakeTestHost);
    const int status = StatusOf([&] { file.Refresh(); });
    EXPECT_STATUS(status, file.Begin());
    return status;
  };
  EXPECT_EQ(status_of(folder.File("missing/host")), ZEL_NOT_A_DIRECTORY);
  Write(folder.File("plain"), "");
  EXPECT_EQ(status_of(folder.File("plain") + "/host"), ZEL_NOT_A_DIRECTORY);
  EXPECT_EQ(status_of(fs::path(folder.File()).parent_path()), ZEL_IS_A_DIRECTORY);
  EXPECT_EQ(status_of(folder.File(std::string(300, 'n').c_str())), ZEL_NAME_TOO_LONG);
  EXPECT_EQ(status_of("/dev/null"), ZEL_INVALID_TARGET);
}

TEST(HostFileFailures, EndWhenTheFolderIsThere) {
  const TestFolder folder;
  HostFile file(folder.File("later/host"), MakeTestHost);
  EXPECT_STATUS(ZEL_NOT_A_DIRECTORY, file.Begin());
  fs::create_directory(folder.File("later"));
  ChangeSomething(file);
  EXPECT_EQ(DumpOf(folder.File("later/host")), DumpOf(file.host()));
}

TEST(HostFileFailures, NoneIsAnEmptyFile) {
  const TestFolder folder;
  Write(folder.File(), "");
  HostFile file(folder.File(), MakeTestHost);
  ChangeSomething(file);
  EXPECT_EQ(DumpOf(folder.File()), DumpOf(file.host()));
}

/** Runs `body` as a user whom the system refuses things, in a process of its own; whether it gave true. */
bool AsNobody(const std::function<bool()> &body) {
  const pid_t child = fork();
  if (child == 0) {
    const bool is_nobody = geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
    _exit(is_nobody && body() ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(HostFileFailures, OfPermissionHaveTheirStatus) {
  const TestFolder folder;
  const std::string path = MakeFile(folder);
  chmod(fs::path(path).parent_path().c_str(), 0755);
  chmod(path.c_str(), 0);
  EXPECT_TRUE(AsNobody([&] {
    HostFile file(path, MakeTestHost);
    return StatusOf([&] { file.Refresh(); }) == ZEL_NO_PERMISSION &&
           StatusOf([&] { file.Begin(); }) == ZEL_NO_PERMISSION;
  }));
  EXPECT_TRUE(AsNobody([&] {
    HostFile file(folder.File("new"), MakeTestHost);
    return geteuid() != 65534 || StatusOf([&] { file.Refresh(); }) == ZEL_NO_PERMISSION;
  }));
}

// ---- Files that can only be read ----

TEST(HostFileFailures, OfChangesToAReadOnlyFileLeaveItReadable) {
  const TestFolder folder;
  const std::string path = MakeFile(folder);
  chmod(path.c_str(), 0444);
  const std::string contents = ContentsOf(path);
  HostFile file(path, MakeTestHost);
  file.Refresh();
  EXPECT_STATUS(ZEL_READ_ONLY, file.Begin());
  file.Refresh();
  EXPECT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost()));
  EXPECT_EQ(ContentsOf(path), contents);
  EXPECT_FALSE(fs::exists(path + "-wal")) << "nothing is left beside it";

  chmod(path.c_str(), 0600);
  HostFile writer(path, MakeTestHost);
  ChangeSomething(writer);
  file.Refresh();
  EXPECT_EQ(DumpOf(file.host()), DumpOf(writer.host())) << "readers see what others write all the same";
}

TEST(HostFileFailures, OfAReadOnlyFolderLeaveItReadable) {
  const TestFolder folder;
  const std::string path = MakeFile(folder);
  chmod(path.c_str(), 0644);
  chmod(fs::path(path).parent_path().c_str(), 0555);
  EXPECT_TRUE(AsNobody([&] {
    HostFile file(path, MakeTestHost);
    file.Refresh();
    return DumpOf(file.host()) == DumpOf(*MakeTestHost()) && StatusOf([&] { file.Begin(); }) == ZEL_READ_ONLY;
  }));
  chmod(fs::path(path).parent_path().c_str(), 0755);
}

// ---- Others who keep the file ----

TEST(HostFileFailures, OfWaitingTooLongLeaveEverythingAsItIs) {
  const TestFolder folder;
  HostFile holder(folder.File(), MakeTestHost);
  HostFile file(folder.File(), MakeTestHost);
  file.SetPatience(std::chrono::milliseconds(30));
  file.Refresh();
  holder.Begin();
  holder.host().AddNic("held", kUp);
  EXPECT_STATUS(ZEL_BUSY, file.Begin());
  file.Refresh();
  EXPECT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost())) << "reading does not wait";
  holder.Commit();
  ChangeSomething(file);
  EXPECT_EQ(StatusOf([&] { SetNicLink(file.host(), "held", kUp); }), ZEL_OK);
}

TEST(HostFileFailures, AReplacedFileIsSeen) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  ChangeSomething(file);
  {
    HostFile other(folder.File("other"), MakeTestHost);
    other.Refresh();
  }
  for (const char *suffix : {"", "-wal", "-shm"}) fs::remove(folder.File() + suffix);
  fs::rename(folder.File("other"), folder.File());
  file.Begin();
  EXPECT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost()));
  file.Rollback();
}

// ---- Storage that fails in the middle ----

constexpr std::pair<StorageFault, int> kFaults[] = {{StorageFault::kDiskFull, ZEL_NO_SPACE},
                                                    {StorageFault::kIoError, ZEL_IO_ERROR}};
constexpr StorageOperation kOperations[] = {StorageOperation::kOpen, StorageOperation::kRead, StorageOperation::kWrite,
                                            StorageOperation::kSync};

class StorageFailures : public testing::Test {
 protected:
  ~StorageFailures() override { MendStorage(); }

  /** What would be there after a loss of power now: the files without the memory that processes share. */
  std::string DumpAfterCrash() {
    const TestFolder other;
    for (const char *suffix : {"", "-wal"}) {
      if (fs::exists(path() + suffix)) fs::copy_file(path() + suffix, other.File() + suffix);
    }
    HostFile file(other.File(), [] { return std::make_unique<Host>(); });
    file.Refresh();
    return DumpOf(file.host());
  }

  std::string path() const { return folder_.File(); }

  TestFolder folder_;
};

TEST_F(StorageFailures, OfOpeningLeaveNothingHalf) {
  int failures = 0;
  for (const bool is_new : {true, false}) {
    for (const bool forever : {false, true}) {
      for (const auto &[fault, status] : kFaults) {
        for (const StorageOperation operation : kOperations) {
          for (std::uint64_t nth = 1;; ++nth) {
            for (const char *suffix : {"", "-wal", "-shm", "-journal"}) fs::remove(path() + suffix);
            if (!is_new) MakeFile(folder_);
            const std::uint64_t before = StorageOperations(operation);
            FailStorage(operation, fault, nth, forever);
            {
              HostFile file(path(), MakeTestHost);
              const int ended = StatusOf([&] { file.Refresh(); });
              const bool was_met = StorageOperations(operation) >= before + nth;
              MendStorage();
              if (ended != ZEL_OK) {
                ++failures;
                // A file that cannot be opened or read is an error of the disk even while the disk is full.
                EXPECT_TRUE(ended == status || ended == ZEL_IO_ERROR) << std::hex << ended << " at " << nth;
              }
              file.Refresh();
              ASSERT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost())) << static_cast<int>(operation) << " " << nth;
              if (!was_met) break;
            }
          }
        }
      }
    }
  }
  EXPECT_GT(failures, 50);
}

/** A host with something of everything, so that each kind of change finds something to change. */
std::unique_ptr<Host> MakeVariedHost() {
  auto host = MakeTestHost();
  RandomChanges changes(5);
  for (int i = 0; i < 60; ++i) {
    StatusOf([&] { changes.MakeOne(*host); });
  }
  host->LoadConfig();
  host->AddSwitch({.id = "more", .portset = "more", .alias = "more-0", .max_ports = 20});
  for (const char *port : {"port0", "port1", "port2", "port3"}) host->AddPort("more", port);
  host->AddUplink("more", "up1", "port4");
  host->AddUplink("more", "up2", "port5");  // which stays free, as does a NIC
  host->Connect("more", "port0", {VS_PORT_CLIENT_VNIC, "c0"});
  for (const char *key : {"key0", "key1", "key2"}) {
    host->SetProperty({.switch_name = "more", .level = PropertyLevel::kPort, .port = "port1"}, key, {"value"});
  }
  host->SetProperty({.switch_name = "more"}, "key0", {"value", RUNTIME_PROP_TYPE});
  host->AddSwitch({.id = "spare", .portset = "spare", .alias = "spare-0", .max_ports = 1});
  host->AddSwitch({.id = "apart", .portset = "apart", .alias = "apart-0", .max_ports = 1});
  host->Dissociate("apart");
  for (const char *nic : {"nic3", "nic5"}) StatusOf([&] { host->AddNic(nic, kUp); });
  host->AddNic("nic-of-more", kUp);
  host->Connect("more", "port4", {VS_PORT_CLIENT_UPLINK, "nic-of-more"});
  Nic far = host->nics().Get("nic-of-more");
  far.numa_node = 1;
  host->SetNic("nic-of-more", far);
  const PortId free = host->FindSwitch("more").config.PortNamed("port1").id;
  for (std::uint8_t i = 1; i < 8; ++i) host->SeeSource("more", free, {0, Station(i)});
  return host;
}

/** A seed with which a change does something to a host. */
std::optional<std::uint32_t> SeedFor(RandomChanges::Change change, const Host &host) {
  const std::string before = DumpOf(host);
  for (std::uint32_t seed = 0; seed < 3000; ++seed) {
    Host copy;
    copy.TakeBack(*host.Snapshot());
    RandomChanges random(seed);
    if (StatusOf([&] { change(random, copy); }) == ZEL_OK && DumpOf(copy) != before) return seed;
  }
  return std::nullopt;
}

class FailuresOfChanges : public StorageFailures, public testing::WithParamInterface<std::size_t> {};

TEST_P(FailuresOfChanges, LeaveThemUnmade) {
  const auto &[name, change] = RandomChanges::Changes()[GetParam()];
  const auto varied = MakeVariedHost();
  const auto seed = SeedFor(change, *varied);
  ASSERT_TRUE(seed) << name << " never does anything";
  const auto make = [&](HostFile &file) {
    RandomChanges random(*seed);
    file.Begin();
    change(random, file.host());
    file.Commit();
  };
  {
    HostFile(path(), MakeVariedHost).Refresh();
  }
  const std::string contents = ContentsOf(path());
  const std::string before = DumpOf(*varied);
  int failures = 0;
  for (const auto &[fault, status] : kFaults) {
    for (const StorageOperation operation :
         {StorageOperation::kRead, StorageOperation::kWrite, StorageOperation::kSync}) {
      for (const bool forever : {false, true}) {
        for (std::uint64_t nth = 1;; ++nth) {
          for (const char *suffix : {"-wal", "-shm"}) fs::remove(path() + suffix);
          Write(path(), contents);
          HostFile file(path(), MakeVariedHost);
          file.Refresh();
          const std::uint64_t count = StorageOperations(operation);
          FailStorage(operation, fault, nth, forever);
          const int ended = StatusOf([&] { make(file); });
          const bool was_met = StorageOperations(operation) >= count + nth;
          MendStorage();
          if (ended != ZEL_OK) {
            ++failures;
            EXPECT_EQ(ended, operation == StorageOperation::kRead ? static_cast<int>(ZEL_IO_ERROR) : status) << nth;
            file.Refresh();
            ASSERT_EQ(DumpOf(file.host()), before) << nth;
            ASSERT_EQ(DumpAfterCrash(), before) << nth;
            make(file);
          }
          const std::string after = DumpOf(file.host());
          ASSERT_NE(after, before);
          ASSERT_EQ(DumpOf(path()), after) << nth;
          ASSERT_EQ(DumpAfterCrash(), after) << nth;
          if (!was_met) break;
        }
      }
    }
  }
  EXPECT_GE(failures, 6);
}

INSTANTIATE_TEST_SUITE_P(Kinds, FailuresOfChanges, testing::Range(std::size_t{0}, RandomChanges::Changes().size()),
                         [](const auto &each) {
                           std::string name = RandomChanges::Changes()[each.param].first;
                           std::erase(name, ' ');
                           return name;
                         });

TEST_F(StorageFailures, OfAGroupOfChangesTakeAllOfIt) {
  // A cache of few pages, which the group overflows: pages are written long before the end.
  MakeFile(folder_);
  Execute(path(), "PRAGMA wal_checkpoint(TRUNCATE)");
  const std::string contents = ContentsOf(path());
  constexpr int kChanges = 8;
  const std::string value(std::size_t{4} * kPage, 'v');
  for (const auto &[fault, status] : kFaults) {
    std::uint64_t failures = 0;
    int in_the_middle = 0;
    for (std::uint64_t nth = 1;; ++nth) {
      for (const char *suffix : {"-wal", "-shm"}) fs::remove(path() + suffix);
      Write(path(), contents);
      HostFile file(path(), MakeTestHost);
      file.SetCache(40);
      file.Refresh();
      const std::string before = DumpOf(file.host());
      const std::uint64_t count = StorageOperations(StorageOperation::kWrite);
      FailStorage(StorageOperation::kWrite, fault, nth, false);
      file.Begin();
      int ended = ZEL_OK;
      for (int i = 0; i < kChanges && ended == ZEL_OK; ++i) {
        ended = StatusOf([&] {
          file.Begin();
          file.host().SetProperty({.switch_name = kAlias}, "key" + std::to_string(i), {value});
          file.Commit();
        });
      }
      if (ended == ZEL_OK) {
        ended = StatusOf([&] { file.Commit(); });
      } else {
        ++in_the_middle;
        EXPECT_STATUS(ended, file.Commit()) << "what has lost a part cannot be committed";
      }
      EXPECT_FALSE(file.InTransaction());
      const bool was_met = StorageOperations(StorageOperation::kWrite) >= count + nth;
      MendStorage();
      file.Refresh();
      if (ended != ZEL_OK) {
        ++failures;
        EXPECT_EQ(ended, status);
        ASSERT_EQ(DumpOf(file.host()), before) << nth;
        ASSERT_EQ(DumpAfterCrash(), before) << nth;
      } else {
        ASSERT_EQ(DumpAfterCrash(), DumpOf(file.host())) << nth;
      }
      if (!was_met) break;
    }
    EXPECT_GT(failures, 2U * kChanges) << "every write was one that failed";
    EXPECT_GT(in_the_middle, kChanges) << "also before the end";
  }
}

}  // namespace
}  // namespace kestrel::host
