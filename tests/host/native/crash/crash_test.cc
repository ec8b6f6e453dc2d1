/* Processes that are killed in the middle of a stream of changes, a thousand times: afterwards every change that was
   acknowledged is there, and of the one that was under way all or nothing. */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <thread>

#include "host/core/storage/host_file.h"
#include "tests/host/native/support/host_dump.h"
#include "tests/host/native/support/nic_link.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int kRounds = 50;  // each of them begins a process, which takes a hundred times as long
#else
constexpr int kRounds = 1000;
#endif
constexpr char kStepKey[] = "step";

/** One change of the stream, which touches everything that a file has: it must not be seen by halves. */
void MakeStep(Host &host, std::uint64_t step) {
  const auto port = [](std::uint64_t number) { return "port" + std::to_string(number); };
  host.SetProperty({.switch_name = kAlias}, kStepKey, {BytesOf(step)});
  host.SetMaxPorts(kAlias, 20);
  const PortId added = host.AddPort(kAlias, port(step));
  if (step > 4) host.RemovePort(kAlias, port(step - 4));
  host.SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = port(step)}, "key",
                   {std::string(step % 900, 'v'), RUNTIME_PROP_TYPE});
  SetNicLink(host, "nic-l", step % 2 == 0 ? kUp : kDown);
  host.SeeSource(kAlias, added, {0, Station(static_cast<std::uint8_t>(1 + step % 100))});
  host.AdvanceClock(std::chrono::seconds(1));
}

std::uint64_t StepOf(const Host &host) {
  const Property *step = host.FindSwitch(kAlias).config.properties().Find(kStepKey);
  return step == nullptr ? 0 : RecordOf<std::uint64_t>(step->value);
}

/** Makes steps until it is killed, and says so after each. */
[[noreturn]] void MakeSteps(const std::string &path, int pipe) {
  HostFile file(path, MakeTestHost);
  file.Refresh();
  for (std::uint64_t step = StepOf(file.host()) + 1;; ++step) {
    file.Begin();
    MakeStep(file.host(), step);
    file.Commit();
    if (write(pipe, &step, sizeof step) != sizeof step) _exit(1);
  }
}

struct Pipe {
  Pipe() {
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    close(ends[0]);
    CloseWriting();
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;
  void CloseWriting() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }
  /** The next acknowledgement, false when there will be none. */
  bool Read(std::uint64_t &step) const { return read(ends[0], &step, sizeof step) == sizeof step; }

  int ends[2];
};

/** What the file holds, read without tidying it up. */
std::string DumpLeavingTheLog(const std::string &path) {
  Database database(path, SQLITE_OPEN_READWRITE);
  sqlite3_db_config(database.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  return DumpOf(database);
}

TEST(Crash, LosesNothingThatWasAcknowledgedAndKeepsNoHalves) {
  const TestFolder folder;
  std::mt19937 random(20);
  auto expected = MakeTestHost();
  std::uint64_t reached = 0;
  int in_the_middle = 0;
  for (int round = 0; round < kRounds; ++round) {
    Pipe pipe;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) MakeSteps(folder.File(), pipe.ends[1]);
    pipe.CloseWriting();

    // In some rounds before the first change, while the file is opened or made.
    std::uint64_t acknowledged = reached;
    for (std::uint32_t wanted = random() % 8; wanted > 0 && pipe.Read(acknowledged); --wanted) {
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    while (pipe.Read(acknowledged)) {
    }

    std::uint64_t found = 0;
    {
      HostFile file(folder.File(), MakeTestHost);
      file.Refresh();
      found = StepOf(file.host());
      file.BeforeFork();  // leaves without tidying up
    }
    ASSERT_GE(found, acknowledged) << round;
    ASSERT_LE(found, acknowledged + 1) << round;
    if (found > acknowledged) ++in_the_middle;
    for (; reached < found; ++reached) MakeStep(*expected, reached + 1);
    ASSERT_EQ(DumpLeavingTheLog(folder.File()), DumpOf(*expected)) << round;
  }
  EXPECT_GT(reached, 2U * kRounds);
  RecordProperty("killed between commit and acknowledgement", in_the_middle);
}

/** Two processes that change one host at the same time: each change is there once, and both see all of them. */
TEST(Sharing, LosesNoChangeOfEither) {
  constexpr int kChanges = 150;
  const TestFolder folder;
  const auto add_ports = [&](const std::string &prefix) {
    HostFile file(folder.File(), MakeTestHost);
    for (int i = 0; i < kChanges; ++i) {
      file.Begin();
      file.host().SetMaxPorts(kAlias, 1000);
      file.host().AddPort(kAlias, prefix + std::to_string(i));
      file.Commit();
    }
  };
  // Not even the file is there when they begin.
  pid_t children[3];
  for (int i = 0; i < 3; ++i) {
    children[i] = fork();
    ASSERT_GE(children[i], 0);
    if (children[i] == 0) {
      try {
        add_ports(std::string(1, static_cast<char>('a' + i)));
      } catch (...) {
        _exit(1);
      }
      _exit(0);
    }
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  EXPECT_EQ(file.host().FindSwitch(kAlias).config.ports().size(), 6U + 3 * kChanges);
}

/** A process that was made from one with the file open goes on by itself. */
TEST(Sharing, OutlastsAFork) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Refresh();
  const auto add = [&](const char *nic) {
    file.Begin();
    file.host().AddNic(nic, kUp);
    file.Commit();
  };
  const pid_t child = fork();
  if (child == 0) {
    add("of-child");
    _exit(0);
  }
  add("of-parent");
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  file.Refresh();
  SetNicLink(file.host(), "of-child", kUp);
  SetNicLink(file.host(), "of-parent", kUp);
}

TEST(Sharing, LeavesATransactionToTheProcessThatBeganIt) {
  const TestFolder folder;
  HostFile file(folder.File(), MakeTestHost);
  file.Begin();
  file.host().AddNic("added", kUp);
  const pid_t child = fork();
  if (child == 0) {
    int refused = 0;
    try {
      file.Refresh();
    } catch (const StatusError &) {
      ++refused;
    }
    try {
      file.Begin();
    } catch (const StatusError &) {
      ++refused;
    }
    _exit(refused == 2 ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  file.Commit();
  EXPECT_EQ(DumpOf(folder.File()), DumpOf(file.host()));
}

}  // namespace
}  // namespace kestrel::host
