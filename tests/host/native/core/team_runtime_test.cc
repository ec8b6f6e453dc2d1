#include "host/core/teaming/team_runtime.h"

#include <gtest/gtest.h>

#include "tests/host/native/support/status.h"
#include "tests/host/native/support/test_host.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

/** With something in every member. */
TeamRuntime Full() {
  TeamRuntime runtime;
  TeamState &state = runtime.Change();
  state.uplinks[3] = {.used_from = seconds(1),
                      .lacp_partner = LacpEnd{1, Station(2), 3, 4, 5, 6},
                      .lacp_heard_until = seconds(2),
                      .lacp_due = seconds(3),
                      .beacon_heard = seconds(4),
                      .is_beacon_lost = true};
  state.uplinks[9] = {};
  state.held["a key\0with zeros"] = {0, 1, 0xff};
  state.announcements.waiting[{7, Station(8)}] = {
      .port = 1, .table_vlan = 2, .due = seconds(3), .gap = seconds(4), .until = seconds(5), .was_sent = true};
  state.announcements.interval_start = seconds(6);
  state.announcements.sent_in_interval = 7;
  state.announcements.round_start = seconds(8);
  state.announcements.sent = 9;
  state.announcements.longest_round = 10;
  state.announcements.all_rounds = 11;
  state.load = {.window_start = seconds(12), .of_ports = {{1, 2}}, .of_uplinks = {{3, 4}}, .placements = {{5, "up"}}};
  state.services = {1, 2, 3, 4, 5, 6};
  state.beacon_due = seconds(13);
  state.beacon_number = 14;
  state.client_nodes = {{1, 0}, {2, 3}};
  state.uplink_nodes = {{4, 5}};
  return runtime;
}

TEST(TeamRuntime, ComesBackFromItsBytes) {
  EXPECT_EQ(TeamRuntime::Load(TeamRuntime().Save()).state(), TeamState{});
  const TeamRuntime full = Full();
  const TeamRuntime loaded = TeamRuntime::Load(full.Save());
  EXPECT_EQ(loaded.state(), full.state());
  EXPECT_EQ(loaded.Save(), full.Save());
}

TEST(TeamRuntime, RefusesWhatItDidNotSave) {
  const std::string bytes = Full().Save();
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, TeamRuntime::Load(std::string_view(bytes).substr(0, size)));
  }
  EXPECT_STATUS(ZEL_INVALID_METADATA, TeamRuntime::Load(bytes + '\0'));
  // The uplinks in another order: the first key follows their count.
  std::string swapped = bytes;
  swapped[4] = 10;
  EXPECT_STATUS(ZEL_INVALID_METADATA, TeamRuntime::Load(swapped));
}

TEST(TeamRuntime, TellsThatItHasChanged) {
  TeamRuntime runtime;
  const std::uint64_t choices = runtime.choices();
  runtime.Change();
  EXPECT_EQ(runtime.revision, 1U);
  EXPECT_EQ(runtime.choices(), choices);
  runtime.ChangeChoices();
  EXPECT_EQ(runtime.revision, 2U);
  EXPECT_NE(runtime.choices(), choices);
}

TEST(TeamRuntime, ForgetsAPortThatIsGone) {
  TeamRuntime runtime;
  TeamState &state = runtime.Change();
  state.uplinks[1] = {};
  state.announcements.waiting[{0, Station(1)}] = {.port = 1};
  state.load = {.of_ports = {{1, 1}}, .of_uplinks = {{1, 1}}, .placements = {{1, "up"}}};
  state.client_nodes = {{1, 1}};
  runtime.ForgetPort(2);
  EXPECT_NE(runtime.state(), TeamState{});
  runtime.ForgetPort(1);
  EXPECT_EQ(runtime.state(), TeamState{});
}

}  // namespace
}  // namespace kestrel::host
