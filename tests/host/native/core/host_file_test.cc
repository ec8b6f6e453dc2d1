#include "host/core/storage/host_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/core/sample_host.h"
#include "host/core/storage/storage.h"
#include "tests/host/native/support/host_dump.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

/** A change as a call makes it. */
template <typename Body>
void Change(HostFile &file, Body body) {
  file.Begin();
  try {
    body(file.host());
  } catch (...) {
    file.Rollback();
    throw;
  }
  file.Commit();
}

TEST(HostFile, IsMadeForItsOwnerAndBeginsAsItIsTold) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  struct stat made{};
  ASSERT_EQ(stat(folder.File().c_str(), &made), 0);
  EXPECT_EQ(made.st_mode & 07777, 0600U);
  EXPECT_EQ(DumpOf(file.host()), DumpOf(*MakeTestHost()));
}

TEST(HostFile, KeepsEveryPartOfTheSampleHost) {
  const TestFolder folder;
  {
    HostFile(folder.File(), MakeSampleHost).Refresh();
  }
  HostFile again(folder.File(), MakeTestHost);
  again.Refresh();
  EXPECT_EQ(DumpOf(again.host()), DumpOf(*MakeSampleHost()));
}

/** How often a transaction that enters many addresses writes to the disk; `place(i)` is the number of the i-th. */
template <typename Place>
std::uint64_t WritesToEnterMany(std::uint32_t count, Place place) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  const PortId port = file.host().FindSwitch(kAlias).config.ports().Items().front().id;
  const std::uint64_t before = StorageOperations(StorageOperation::kWrite);
  file.Begin();
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t number = place(i);
    const auto byte = [number](int shift) { return static_cast<std::uint8_t>(number >> shift); };
    const MacKey key{1, {0x02, 0, 0, byte(16), byte(8), byte(0)}};
    Change(file, [&](Host &host) { host.EnterAddress(kAlias, port, key, VS_MAC_ADDR_TYPE_USER); });
  }
  file.Commit();
  return StorageOperations(StorageOperation::kWrite) - before;
}

TEST(HostFile, ALargeTransactionWritesAPageOnceInWhateverOrderItIsChanged) {
  constexpr std::uint32_t kCount = 1 << 17;
  const std::uint64_t in_order = WritesToEnterMany(kCount, [](std::uint32_t i) { return i; });
  const std::uint64_t scattered = WritesToEnterMany(kCount, [](std::uint32_t i) { return i * 40503 % kCount; });
  // Pages that fill up in any order are less full than those that fill up one after the other.
  EXPECT_LT(scattered, 2 * in_order);
}

TEST(HostFile, KeepsAChangeForOthersAndForLater) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  HostFile other(folder.File(), MakeTestHost);
  other.Refresh();
  Change(file, [](Host &host) { host.AddPort(kAlias, "new"); });
  EXPECT_EQ(DumpOf(folder.File()), DumpOf(file.host()));
  other.Refresh();
  EXPECT_EQ(DumpOf(other.host()), DumpOf(file.host()));
}

TEST(HostFile, WaitsForTheDiskOnceForEachTransaction) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  const auto synchronisations = [] { return StorageOperations(StorageOperation::kSync); };
  Change(file, [](Host &host) { host.AddNic("first", kUp); });
  for (int i = 0; i < 20; ++i) {
    const std::uint64_t before = synchronisations();
    Change(file, [i](Host &host) { host.AddNic("nic" + std::to_string(i), kUp); });
    EXPECT_EQ(synchronisations(), before + 1);
  }
  const std::uint64_t before = synchronisations();
  file.Begin();
  for (int i = 0; i < 1000; ++i) {
    Change(file, [i](Host &host) { host.AddNic("more" + std::to_string(i), kUp); });
  }
  EXPECT_EQ(synchronisations(), before) << "until its end nothing has to last";
  file.Commit();
  EXPECT_EQ(synchronisations(), before + 1);
  const std::uint64_t after = synchronisations();
  Change(file, [](Host &host) { host.SetNicEnabled("first", true); });
  file.Refresh();
  EXPECT_EQ(synchronisations(), after) << "nothing has changed";
}

TEST(HostFile, IsReadAgainOnlyWhenAnotherHasWritten) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  HostFile other(folder.File(), MakeTestHost);
  Change(other, [](Host &host) { host.AddNic("first", kUp); });
  file.Refresh();
  const Switch *loaded = &file.host().FindSwitch(kAlias);
  for (int i = 0; i < 3; ++i) {
    file.Refresh();
    Change(file, [i](Host &host) { host.AddNic("nic" + std::to_string(i), kUp); });
    Change(file, [](Host & /*host*/) {});
    EXPECT_STATUS(ZEL_EXISTS, Change(file, [](Host &host) { host.AddNic("first", kUp); }));
    other.Refresh();
    EXPECT_STATUS(ZEL_EXISTS, Change(other, [](Host &host) { host.AddNic("first", kUp); }));
    EXPECT_EQ(&file.host().FindSwitch(kAlias), loaded);
  }
  Change(other, [](Host &host) { host.AddNic("second", kUp); });
  file.Refresh();
  EXPECT_NE(&file.host().FindSwitch(kAlias), loaded);
}

TEST(HostFile, IsOneFileWhenEverybodyHasLeft) {
  const TestFolder folder;
  {
    HostFile file(folder.File(), MakeTestHost);
    Change(file, [](Host &host) { host.AddNic("first", kUp); });
  }
  EXPECT_FALSE(std::filesystem::exists(folder.File("host-wal")));
  EXPECT_FALSE(std::filesystem::exists(folder.File("host-shm")));
}

TEST(HostFile, DropsWhatWasNotCommitted) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  const std::string before = DumpOf(file.host());
  file.Begin();
  file.host().AddPort(kAlias, "new");
  file.Rollback();
  EXPECT_EQ(DumpOf(file.host()), before);
  EXPECT_EQ(DumpOf(folder.File()), before);
}

}  // namespace
}  // namespace kestrel::host
