/* Changes of every kind through a host file: what is in the file is what is in memory, whether it was written piece by
   piece or all at once, and what was refused has never been. */
#include <gtest/gtest.h>

#include "host/core/storage/host_file.h"
#include "tests/host/native/support/host_dump.h"
#include "tests/host/native/support/random_changes.h"

namespace kestrel::host {
namespace {

std::unique_ptr<Host> MakeEmptyHost() { return std::make_unique<Host>(); }

class HostFileChanges : public testing::TestWithParam<std::uint32_t> {
 protected:
  /** Makes a change, or sees it refused and everything as it was. */
  void MakeOne() {
    file_.Begin();
    try {
      changes_.MakeOne(file_.host());
    } catch (const StatusError &) {
      file_.Rollback();
      ++refused_;
      return;
    }
    file_.Commit();
    ++made_;
  }

  TestFolder folder_;
  HostFile file_{folder_.File(), MakeTestHost};
  RandomChanges changes_{GetParam()};
  int made_ = 0;
  int refused_ = 0;
};

TEST_P(HostFileChanges, AreInTheFileAsInMemory) {
  for (int i = 0; i < 300; ++i) {
    MakeOne();
    if (i % 10 == 0) {
      ASSERT_EQ(DumpOf(folder_.File()), DumpOf(file_.host())) << i;
    }
    if (i % 50 == 0) {
      HostFile fresh(folder_.File(), MakeEmptyHost);
      fresh.Refresh();
      ASSERT_EQ(DumpOf(fresh.host()), DumpOf(file_.host())) << i;
    }
  }
  EXPECT_GT(made_, 50);
  EXPECT_GT(refused_, 20);
}

TEST_P(HostFileChanges, OfTwoWhoShareAFileAreSeenByBoth) {
  HostFile other(folder_.File(), MakeEmptyHost);
  RandomChanges changes(GetParam() + 1000);
  for (int i = 0; i < 100; ++i) {
    HostFile &file = i % 2 == 0 ? file_ : other;
    file.Begin();
    try {
      changes.MakeOne(file.host());
      file.Commit();
    } catch (const StatusError &) {
      file.Rollback();
    }
    HostFile &reader = i % 3 == 0 ? file_ : other;
    reader.Refresh();
    ASSERT_EQ(DumpOf(reader.host()), DumpOf(folder_.File())) << i;
  }
}

TEST_P(HostFileChanges, InOneTransactionLastTogether) {
  file_.Refresh();
  const std::string before = DumpOf(file_.host());
  file_.Begin();
  for (int i = 0; i < 60; ++i) {
    const std::string at_step = DumpOf(file_.host());
    file_.Begin();
    try {
      changes_.MakeOne(file_.host());
      if (i % 4 == 0) throw StatusError(ZEL_ABORTED);
      file_.Commit();
    } catch (const StatusError &) {
      file_.Rollback();
      ASSERT_EQ(DumpOf(file_.host()), at_step) << i;
    }
    HostFile other(folder_.File(), MakeEmptyHost);
    if (i % 20 == 0) {
      other.Refresh();
      ASSERT_EQ(DumpOf(other.host()), before) << "nobody else sees it yet";
    }
  }
  const std::string after = DumpOf(file_.host());
  ASSERT_NE(after, before);
  if (GetParam() % 2 == 0) {
    file_.Commit();
    EXPECT_EQ(DumpOf(file_.host()), after);
    EXPECT_EQ(DumpOf(folder_.File()), after);
  } else {
    file_.Rollback();
    EXPECT_EQ(DumpOf(file_.host()), before);
    EXPECT_EQ(DumpOf(folder_.File()), before);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostFileChanges, testing::Range(1U, 7U));

}  // namespace
}  // namespace kestrel::host
