/* The C functions over a host that lives in a file which others change too. */
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/abi/guard.h"
#include "host/core/storage/host_file.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/state_store.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_folder.h"

namespace kestrel::host {
namespace {

constexpr char kId[] = "3f0e8a52-6d17-4c49-b2a0-915e7cd4f803";

class ProcessHostFile : public testing::Test {
 public:
  /** What another process does meanwhile. */
  template <typename Body>
  void Elsewhere(Body body) {
    other_.Begin();
    body(other_.host());
    other_.Commit();
  }

 protected:
  ProcessHostFile() : other_(folder_.File(), MakeTestHost) {
    other_.Refresh();
    InstallHostFile(folder_.File());
  }
  ~ProcessHostFile() override { InstallProcessHost(nullptr); }

  static zel_uint32 Mtu() {
    zel_uint32 mtu = 0;
    EXPECT_EQ(VSDVS_GetMTU(kAlias, &mtu), ZEL_OK);
    return mtu;
  }

  TestFolder folder_;
  HostFile other_;
};

TEST_F(ProcessHostFile, SeesWhatOthersCommittedAtTheNextCall) {
  EXPECT_EQ(Mtu(), 2000U);
  Elsewhere([](Host &host) { host.SetProperty({.switch_name = kAlias}, VSPROP_MTU, {BytesOf(std::uint32_t{3000})}); });
  EXPECT_EQ(Mtu(), 3000U);
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 4000), ZEL_OK);
  other_.Refresh();
  EXPECT_EQ(MtuOf(other_.host().FindSwitch(kAlias).config), 4000U);
}

TEST_F(ProcessHostFile, TellsAHandleFromThatOfALaterSwitchOfTheSameId) {
  const DVSwitchHandle handle = DVSState_SwitchFindByAlias(kAlias);
  const DVSPortHandle port = DVSState_PortFind(kId, "free");
  ASSERT_NE(port, nullptr);
  const char *id = DVS_SwitchId(handle);
  const char *port_id = DVS_PortId(port);
  EXPECT_STREQ(id, kId);
  Elsewhere([](Host &host) { host.AddNic("another", kUp); });
  EXPECT_EQ(DVS_SwitchId(handle), id) << "the same text at the same place";
  EXPECT_STREQ(port_id, "free");
  EXPECT_EQ(DVSState_SwitchFindByAlias(kAlias), handle);

  Elsewhere([](Host &host) {
    for (const char *used : {"machine", "service", "u1", "u3"}) host.Disconnect(kAlias, used);
    host.RemoveSwitch(kAlias);
    host.AddSwitch({.id = kId, .portset = kPortset, .alias = kAlias, .max_ports = 8});
    host.AddPort(kAlias, "free");
  });
  EXPECT_EQ(DVS_SwitchId(handle), nullptr);
  EXPECT_EQ(DVS_PortId(port), nullptr);
  EXPECT_STREQ(id, kId) << "the text outlives what it named";
  const DVSwitchHandle later = DVSState_SwitchFindByAlias(kAlias);
  EXPECT_NE(later, handle);
  EXPECT_STREQ(DVS_SwitchId(later), kId);
}

TEST_F(ProcessHostFile, KeepsAValueWhereItIsWhileItIsTheSame) {
  DVSDataItem item = nullptr;
  ASSERT_EQ(DVSState_GlobalPropLookup(kId, VSPROP_MTU, &item), ZEL_OK);
  void *value = nullptr;
  ASSERT_EQ(DVSData_Data(item, &value), sizeof(zel_uint32));
  Elsewhere([](Host &host) { host.AddNic("another", kUp); });
  void *again = nullptr;
  DVSData_Data(item, &again);
  EXPECT_EQ(again, value);
  zel_uint32 mtu = 0;
  std::memcpy(&mtu, value, sizeof mtu);
  EXPECT_EQ(mtu, 2000U);
}

TEST_F(ProcessHostFile, AnswersCallsFromWithinAWalkEvenIfTheyChangeWhatIsWalkedOver) {
  struct Walk {
    ProcessHostFile *test;
    std::vector<std::string> seen;
  } walk{this, {}};
  const auto visit = [](void *port, void *context) -> char {
    auto *w = static_cast<Walk *>(context);
    const char *id = DVS_PortId(port);
    w->seen.emplace_back(id == nullptr ? "gone" : id);
    if (w->seen.size() == 1) {
      w->test->Elsewhere([](Host &host) { host.AddNic("another", kUp); });
      EXPECT_EQ(VSDVS_RemoveDVPort(kAlias, "free"), ZEL_OK);
      EXPECT_EQ(VSDVS_RemoveDVPort(kAlias, "free"), ZEL_NOT_FOUND);
      EXPECT_EQ(VSDVS_SetMTU(kAlias, 1), ZEL_BAD_PARAM);
      EXPECT_EQ(VSDVS_SetMTU(kAlias, 5000), ZEL_OK);
    }
    return 1;
  };
  DVSState_PortForEach(DVSState_SwitchFindByAlias(kAlias), visit, &walk);
  EXPECT_EQ(walk.seen, (std::vector<std::string>{"machine", "service", "gone", "u1", "u2", "u3"}));
  EXPECT_EQ(Mtu(), 5000U);
}

TEST_F(ProcessHostFile, GivesTheStatusOfItsFileUntilItIsWell) {
  EXPECT_EQ(Mtu(), 2000U);
  FailStorage(StorageOperation::kWrite, StorageFault::kDiskFull, 1, true);
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 3000), ZEL_NO_SPACE);
  EXPECT_EQ(Mtu(), 2000U);
  FailStorage(StorageOperation::kSync, StorageFault::kIoError, 1, true);
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 3000), ZEL_IO_ERROR);
  MendStorage();
  EXPECT_EQ(Mtu(), 2000U);
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 3000), ZEL_OK);
  EXPECT_EQ(Mtu(), 3000U);

  InstallHostFile(folder_.File("missing/host"));
  zel_uint32 mtu = 0;
  EXPECT_EQ(VSDVS_GetMTU(kAlias, &mtu), ZEL_NOT_A_DIRECTORY);
  EXPECT_EQ(DVSState_SwitchFindByAlias(kAlias), nullptr);
}

// ---- Several calls as one transaction, in a file and in memory ----

class HostTransaction : public testing::TestWithParam<bool> {
 protected:
  HostTransaction() {
    if (GetParam()) {
      HostFile(folder_.File(), MakeTestHost).Refresh();
      InstallHostFile(folder_.File());
    } else {
      InstallProcessHost(MakeTestHost());
    }
  }
  ~HostTransaction() override { InstallProcessHost(nullptr); }

  static zel_uint32 Mtu() {
    zel_uint32 mtu = 0;
    EXPECT_EQ(VSDVS_GetMTU(kAlias, &mtu), ZEL_OK);
    return mtu;
  }

  TestFolder folder_;
};

TEST_P(HostTransaction, LastsAsAWhole) {
  BeginHostTransaction();
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 3000), ZEL_OK);
  EXPECT_EQ(VSDVS_AddDVPort(kAlias, "added", 1), ZEL_OK);
  EXPECT_EQ(VSDVS_AddDVPort(kAlias, "added", 1), ZEL_EXISTS);
  EXPECT_EQ(Mtu(), 3000U);
  CommitHostTransaction();
  EXPECT_EQ(Mtu(), 3000U);
  EXPECT_EQ(VSDVS_RemoveDVPort(kAlias, "added"), ZEL_OK);
}

TEST_P(HostTransaction, NeverWasWhenItIsRolledBack) {
  const DVSwitchHandle handle = DVSState_SwitchFindByAlias(kAlias);
  BeginHostTransaction();
  EXPECT_EQ(VSDVS_SetMTU(kAlias, 3000), ZEL_OK);
  EXPECT_EQ(DVSZEL_SwitchAdd("new", "new", 4, DVS_VERSION_70), ZEL_OK);
  const DVSwitchHandle within = DVSState_SwitchFindByAlias("new");
  EXPECT_STREQ(DVS_SwitchId(within), "new");
  RollBackHostTransaction();
  EXPECT_EQ(Mtu(), 2000U);
  EXPECT_STREQ(DVS_SwitchId(handle), kId);
  EXPECT_EQ(DVS_SwitchId(within), nullptr);
  EXPECT_EQ(DVSZEL_SwitchAdd("new", "new", 4, DVS_VERSION_70), ZEL_OK);
  EXPECT_EQ(DVS_SwitchId(within), nullptr) << "another switch, though its number is the same";
}

TEST_P(HostTransaction, IsOneAtATimeAndNotWithinAChange) {
  EXPECT_STATUS(ZEL_INVALID_TXN, CommitHostTransaction());
  EXPECT_STATUS(ZEL_INVALID_TXN, RollBackHostTransaction());
  EXPECT_EQ(abi::ChangeCall([] { BeginHostTransaction(); }), ZEL_INVALID_TXN);
  EXPECT_EQ(abi::ReadCall([] { BeginHostTransaction(); }), ZEL_OK);
  EXPECT_STATUS(ZEL_INVALID_TXN, BeginHostTransaction());
  EXPECT_EQ(abi::ChangeCall([] { CommitHostTransaction(); }), ZEL_INVALID_TXN);
  EXPECT_EQ(abi::ReadCall([] { RollBackHostTransaction(); }), ZEL_OK);
}

INSTANTIATE_TEST_SUITE_P(Places, HostTransaction, testing::Bool(),
                         [](const auto &each) { return std::string(each.param ? "InAFile" : "InMemory"); });

}  // namespace
}  // namespace kestrel::host
