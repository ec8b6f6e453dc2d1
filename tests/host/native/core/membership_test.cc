/* What a port asks of one group: the tables of RFC 3376 and RFC 3810, their timers, and older hosts among newer ones.
 */
#include "host/core/multicast/membership.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/host/native/support/group_frames.h"
#include "tests/host/native/support/reference_groups.h"
#include "tests/host/native/support/status.h"

namespace kestrel::host {
namespace {

using std::chrono::seconds;

constexpr IpAddress kGroup = IpV4(239, 1, 2, 3);
constexpr MembershipRules kRules{.lifetime = seconds(260), .leaving = seconds(2), .sources = 10};
constexpr TimePoint kStart = seconds(1000);

constexpr RecordType kTypes[] = {RecordType::kIsInclude, RecordType::kIsExclude, RecordType::kToInclude,
                                 RecordType::kToExclude, RecordType::kAllow,     RecordType::kBlock};

IpAddress Source(char name) { return IpV4(10, 0, 0, static_cast<std::uint8_t>(name)); }

/** "ab" for two sources of those names. */
std::vector<IpAddress> Named(std::string_view names) {
  std::vector<IpAddress> sources;
  for (const char name : names) sources.push_back(Source(name));
  return sources;
}
std::string NamesOf(const std::vector<IpAddress> &sources) {
  std::string names;
  for (const IpAddress &source : sources) names += static_cast<char>(source.bytes[15]);
  return names;
}

/** "INCLUDE (ab)" or "EXCLUDE (ab, cd)". */
std::string Shown(const Membership &membership) {
  std::string wanted;
  std::string blocked;
  for (const GroupSource &source : membership.sources()) {
    (source.until ? wanted : blocked) += static_cast<char>(source.address.bytes[15]);
  }
  if (membership.mode() == SourceMode::kInclude) return "INCLUDE (" + wanted + ")";
  return "EXCLUDE (" + wanted + ", " + blocked + ")";
}

GroupRecord Record(RecordType type, std::string_view sources = "") { return {type, kGroup, Named(sources)}; }

/** A membership with timers that are all different: sources' by name, the group's after them. */
Membership Included(std::string_view wanted) {
  Membership made;
  for (const char name : wanted) {
    made.Apply(Record(RecordType::kAllow, {&name, 1}), Generation::kSources, kRules, kStart - seconds('z' - name));
  }
  return made;
}
Membership Excluded(std::string_view wanted, std::string_view blocked) {
  Membership made;
  made.Apply(Record(RecordType::kIsExclude, blocked), Generation::kSources, kRules, kStart - seconds(100));
  for (const char name : wanted) {
    made.Apply(Record(RecordType::kAllow, {&name, 1}), Generation::kSources, kRules, kStart - seconds('z' - name));
  }
  return made;
}

// ---- The tables ----

struct Row {
  std::string before;
  RecordType type;
  std::string sources;
  std::string after;
  /** "(group)" for the group as a whole, and the names of sources. */
  std::string asked;
};

Membership StateOf(const std::string &text) {
  const std::size_t open = text.find('(');
  const std::size_t comma = text.find(',');
  const std::size_t close = text.find(')');
  if (comma == std::string::npos) return Included(text.substr(open + 1, close - open - 1));
  return Excluded(text.substr(open + 1, comma - open - 1), text.substr(comma + 2, close - comma - 2));
}

TEST(Membership, FollowsTheTablesOfRecords) {
  const Row rows[] = {
      // Current state: INCLUDE (A)
      {"INCLUDE (ab)", RecordType::kIsInclude, "bc", "INCLUDE (abc)", ""},
      {"INCLUDE (ab)", RecordType::kIsExclude, "bc", "EXCLUDE (b, c)", ""},
      // Current state: EXCLUDE (X, Y)
      {"EXCLUDE (ab, cd)", RecordType::kIsInclude, "bce", "EXCLUDE (abce, d)", ""},
      {"EXCLUDE (ab, cd)", RecordType::kIsExclude, "bce", "EXCLUDE (be, c)", ""},
      // Changes: INCLUDE (A)
      {"INCLUDE (ab)", RecordType::kAllow, "bc", "INCLUDE (abc)", ""},
      {"INCLUDE (ab)", RecordType::kBlock, "bc", "INCLUDE (ab)", "b"},
      {"INCLUDE (ab)", RecordType::kToExclude, "bc", "EXCLUDE (b, c)", "b"},
      {"INCLUDE (ab)", RecordType::kToInclude, "bc", "INCLUDE (abc)", "a"},
      // Changes: EXCLUDE (X, Y)
      {"EXCLUDE (ab, cd)", RecordType::kAllow, "bce", "EXCLUDE (abce, d)", ""},
      {"EXCLUDE (ab, cd)", RecordType::kBlock, "bce", "EXCLUDE (abe, cd)", "be"},
      {"EXCLUDE (ab, cd)", RecordType::kToExclude, "bce", "EXCLUDE (be, c)", "be"},
      {"EXCLUDE (ab, cd)", RecordType::kToInclude, "bce", "EXCLUDE (abce, d)", "(group)a"},
      // Leaving
      {"INCLUDE (ab)", RecordType::kToInclude, "", "INCLUDE (ab)", "ab"},
      {"EXCLUDE (, )", RecordType::kToInclude, "", "EXCLUDE (, )", "(group)"},
      // Joining
      {"INCLUDE ()", RecordType::kToExclude, "", "EXCLUDE (, )", ""},
      {"INCLUDE ()", RecordType::kIsExclude, "", "EXCLUDE (, )", ""},
      {"INCLUDE ()", RecordType::kToInclude, "a", "INCLUDE (a)", ""},
      // Nothing to say
      {"INCLUDE ()", RecordType::kBlock, "a", "INCLUDE ()", ""},
      {"INCLUDE ()", RecordType::kToInclude, "", "INCLUDE ()", ""},
      {"INCLUDE ()", RecordType::kIsInclude, "", "INCLUDE ()", ""},
  };
  for (const Row &row : rows) {
    Membership membership = StateOf(row.before);
    ASSERT_EQ(Shown(membership), row.before);
    const Doubt doubt = membership.Apply(Record(row.type, row.sources), Generation::kSources, kRules, kStart);
    const std::string label = row.before + " and " + std::to_string(static_cast<int>(row.type)) + " " + row.sources;
    EXPECT_EQ(Shown(membership), row.after) << label;
    EXPECT_EQ((doubt.group ? "(group)" : "") + NamesOf(doubt.sources), row.asked) << label;
  }
}

/** All states of three sources, and every record of those and a fourth. */
TEST(Membership, AgreesWithThePlainModelInEveryStateAndTimer) {
  const std::string names = "abc";
  std::size_t compared = 0;
  for (int state = 0; state < 8 + 27; ++state) {
    std::string wanted;
    std::string blocked;
    for (int i = 0, rest = state < 8 ? state : state - 8; i < 3; ++i) {
      const int kinds = state < 8 ? 2 : 3;
      const int kind = rest % kinds;
      rest /= kinds;
      if (kind == 1) wanted += names[static_cast<std::size_t>(i)];
      if (kind == 2) blocked += names[static_cast<std::size_t>(i)];
    }
    const Membership before = state < 8 ? Included(wanted) : Excluded(wanted, blocked);
    ReferenceMembership plain_before;
    plain_before.excludes = state >= 8;
    plain_before.group_timer = before.until();
    plain_before.updated = before.updated();
    for (const GroupSource &source : before.sources()) {
      if (source.until) plain_before.timers[source.address] = *source.until;
    }
    for (const char name : blocked) plain_before.blocked.insert(Source(name));
    ASSERT_TRUE(Agrees(before, plain_before)) << Shown(before);

    for (const RecordType type : kTypes) {
      for (unsigned subset = 0; subset < 16; ++subset) {
        std::string sources;
        for (unsigned i = 0; i < 4; ++i) {
          if ((subset >> i & 1) != 0) sources += "abcd"[i];
        }
        for (const Duration leaving : {Duration(0), Duration(seconds(2)), Duration(seconds(170))}) {
          MembershipRules rules = kRules;
          rules.leaving = leaving;
          rules.sources = 3;
          Membership membership = before;
          ReferenceMembership plain = plain_before;
          membership.Apply(Record(type, sources), Generation::kSources, rules, kStart);
          plain.Apply(Record(type, sources), Generation::kSources, rules, kStart);
          EXPECT_TRUE(Agrees(membership, plain))
              << Shown(before) << " and " << static_cast<int>(type) << " " << sources << ": " << Shown(membership);
          for (const Duration later :
               {seconds(1), seconds(2), seconds(150), seconds(170), seconds(259), seconds(260)}) {
            membership.Expire(kStart + later);
            plain.Expire(kStart + later);
            EXPECT_TRUE(Agrees(membership, plain)) << Shown(before) << " and " << static_cast<int>(type) << " "
                                                   << sources << " later: " << Shown(membership);
          }
          EXPECT_TRUE(membership.IsEmpty()) << "all is over when nothing is renewed";
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 35U * 6 * 16 * 3);
}

// ---- Timers ----

TEST(Membership, LastsAsLongAsItIsRenewed) {
  Membership membership;
  membership.Apply(Record(RecordType::kToExclude), Generation::kSources, kRules, kStart);
  EXPECT_EQ(membership.NextEvent(), kStart + seconds(260));
  membership.Apply(Record(RecordType::kIsExclude), Generation::kSources, kRules, kStart + seconds(200));
  EXPECT_FALSE(membership.Expire(kStart + seconds(460) - Duration(1)));
  EXPECT_FALSE(membership.IsEmpty());
  EXPECT_TRUE(membership.Expire(kStart + seconds(460)));
  EXPECT_TRUE(membership.IsEmpty());
  EXPECT_EQ(membership.NextEvent(), kNever);
}

TEST(Membership, ALeaveLowersTheTimerAndAReportRaisesItAgain) {
  Membership membership;
  membership.Apply(Record(RecordType::kIsExclude), Generation::kLeave, kRules, kStart);
  membership.Apply(Record(RecordType::kToInclude), Generation::kLeave, kRules, kStart);
  EXPECT_EQ(membership.until(), kStart + seconds(2));
  membership.Apply(Record(RecordType::kIsExclude), Generation::kLeave, kRules, kStart + seconds(1));
  EXPECT_EQ(membership.until(), kStart + seconds(261));
}

TEST(Membership, ALeaveNeverMakesItLastLonger) {
  Membership membership;
  membership.Apply(Record(RecordType::kIsExclude), Generation::kSources, kRules, kStart);
  membership.Apply(Record(RecordType::kToInclude), Generation::kSources, kRules, kStart + seconds(259));
  EXPECT_EQ(membership.until(), kStart + seconds(260));
}

TEST(Membership, ASourceWhoseTimeIsOverIsBlockedWhileTheGroupIsWanted) {
  Membership membership = Excluded("a", "");
  membership.Apply(Record(RecordType::kIsExclude, "a"), Generation::kSources, kRules, kStart + seconds(200));
  ASSERT_EQ(Shown(membership), "EXCLUDE (a, )");
  membership.Expire(kStart + seconds(300));
  EXPECT_EQ(Shown(membership), "EXCLUDE (, a)");
  EXPECT_FALSE(membership.Wants(Source('a')));
  EXPECT_TRUE(membership.Wants(Source('b')));
}

TEST(Membership, OutOfAGroupThatIsOverOnlyItsSourcesRemain) {
  Membership membership = Excluded("a", "b");
  membership.Expire(kStart + seconds(160));
  EXPECT_EQ(Shown(membership), "INCLUDE (a)");
  EXPECT_TRUE(membership.Wants(Source('a')));
  EXPECT_FALSE(membership.Wants(Source('b')));
  EXPECT_FALSE(membership.Wants(Source('c')));
}

TEST(Membership, LastsForEverWhereNothingAges) {
  const MembershipRules rules{.lifetime = Duration::max(), .leaving = Duration::zero(), .sources = 10};
  Membership membership;
  membership.Apply(Record(RecordType::kToExclude), Generation::kSources, rules, kStart);
  EXPECT_EQ(membership.NextEvent(), kNever);
  membership.Expire(TimePoint::max());
  EXPECT_FALSE(membership.IsEmpty());
  membership.Apply(Record(RecordType::kToInclude), Generation::kSources, rules, kStart + seconds(1));
  EXPECT_TRUE(membership.IsEmpty()) << "and ends with the word of its host";
}

TEST(Membership, TimersNearTheEndOfTimeStayThere) {
  Membership membership;
  const TimePoint late = TimePoint::max() - seconds(5);
  membership.Apply(Record(RecordType::kToExclude), Generation::kSources, kRules, late);
  EXPECT_EQ(membership.until(), kNever);
}

TEST(Membership, AQueryLowersWhatItAsksAbout) {
  Membership membership = Excluded("ab", "c");
  const TimePoint soon = kStart + seconds(1);
  const TimePoint until = membership.until();
  const TimePoint of_b = *membership.sources().at(1).until;
  membership.FollowQuery({.generation = Generation::kSources, .group = kGroup, .sources = Named("ac")}, soon);
  EXPECT_EQ(membership.sources().at(0).until, soon);
  EXPECT_EQ(membership.sources().at(1).until, of_b);
  EXPECT_EQ(membership.sources().at(2).until, std::nullopt);
  EXPECT_EQ(membership.until(), until);
  membership.FollowQuery({.generation = Generation::kSources, .group = kGroup}, soon);
  EXPECT_EQ(membership.until(), soon);
  EXPECT_EQ(membership.sources().at(1).until, of_b);
}

TEST(Membership, DoubtsAreSettledByReports) {
  Membership membership = Included("abc");
  const Doubt doubt = membership.Apply(Record(RecordType::kBlock, "abc"), Generation::kSources, kRules, kStart);
  const TimePoint soon = kStart + seconds(3);
  EXPECT_EQ(membership.Unsettled(doubt, soon), doubt);
  membership.Apply(Record(RecordType::kIsInclude, "b"), Generation::kSources, kRules, kStart + seconds(1));
  EXPECT_EQ(NamesOf(membership.Unsettled(doubt, soon).sources), "ac");
  membership.Expire(kStart + seconds(2));
  EXPECT_FALSE(membership.Unsettled(doubt, soon));

  Membership group = Excluded("", "");
  const Doubt leave = group.Apply(Record(RecordType::kToInclude), Generation::kLeave, kRules, kStart);
  EXPECT_TRUE(group.Unsettled(leave, soon).group);
  group.Apply(Record(RecordType::kIsExclude), Generation::kLeave, kRules, kStart + seconds(1));
  EXPECT_FALSE(group.Unsettled(leave, soon));
}

// ---- Older hosts ----

TEST(Membership, KnowsTheOldestOfItsHosts) {
  Membership membership;
  EXPECT_EQ(membership.GenerationAt(kStart), Generation::kSources);
  membership.Apply(Record(RecordType::kIsExclude), Generation::kLeave, kRules, kStart);
  EXPECT_EQ(membership.GenerationAt(kStart), Generation::kLeave);
  membership.Apply(Record(RecordType::kIsExclude), Generation::kJoin, kRules, kStart + seconds(10));
  EXPECT_EQ(membership.GenerationAt(kStart + seconds(10)), Generation::kJoin);
  membership.Apply(Record(RecordType::kIsExclude), Generation::kSources, kRules, kStart + seconds(200));
  EXPECT_EQ(membership.GenerationAt(kStart + seconds(269)), Generation::kJoin);
  EXPECT_EQ(membership.GenerationAt(kStart + seconds(270)), Generation::kSources) << "both have been silent too long";
}

TEST(Membership, AHostThatCannotLeaveKeepsTheGroup) {
  Membership membership;
  membership.Apply(Record(RecordType::kIsExclude), Generation::kJoin, kRules, kStart);
  for (const Generation other : {Generation::kLeave, Generation::kSources}) {
    EXPECT_FALSE(membership.Apply(Record(RecordType::kToInclude), other, kRules, kStart));
  }
  EXPECT_FALSE(membership.Apply(Record(RecordType::kToInclude, "a"), Generation::kSources, kRules, kStart));
  EXPECT_EQ(Shown(membership), "EXCLUDE (, )");
  EXPECT_EQ(membership.until(), kStart + seconds(260));
}

TEST(Membership, AHostThatKnowsNoSourcesKeepsThemAll) {
  for (const Generation older : {Generation::kJoin, Generation::kLeave}) {
    Membership membership;
    membership.Apply(Record(RecordType::kIsExclude), older, kRules, kStart);
    EXPECT_FALSE(membership.Apply(Record(RecordType::kBlock, "a"), Generation::kSources, kRules, kStart));
    EXPECT_FALSE(membership.Apply(Record(RecordType::kToExclude, "ab"), Generation::kSources, kRules, kStart));
    EXPECT_EQ(Shown(membership), "EXCLUDE (, )");
  }
}

TEST(Membership, ALeaveAloneMakesNoOldHost) {
  Membership membership = Excluded("", "");
  membership.Apply(Record(RecordType::kToInclude), Generation::kLeave, kRules, kStart);
  EXPECT_EQ(membership.GenerationAt(kStart), Generation::kSources);
}

// ---- Limits ----

TEST(Membership, WithMoreSourcesThanItTellsApartItTakesAll) {
  MembershipRules rules = kRules;
  rules.sources = 2;
  for (const RecordType type : {RecordType::kIsInclude, RecordType::kAllow, RecordType::kToInclude}) {
    Membership membership;
    membership.Apply(Record(type, "ab"), Generation::kSources, rules, kStart);
    EXPECT_EQ(Shown(membership), "INCLUDE (ab)");
    membership.Apply(Record(type, "c"), Generation::kSources, rules, kStart);
    EXPECT_EQ(Shown(membership), "EXCLUDE (, )");
    EXPECT_EQ(membership.until(), kStart + seconds(260));
  }
  Membership blocking;
  blocking.Apply(Record(RecordType::kToExclude, "abc"), Generation::kSources, rules, kStart);
  EXPECT_EQ(Shown(blocking), "EXCLUDE (, )");
  blocking.Apply(Record(RecordType::kBlock, "abc"), Generation::kSources, rules, kStart + seconds(9));
  EXPECT_EQ(blocking.until(), kStart + seconds(260)) << "blocking does not ask for more time";
}

TEST(Membership, ALaterVersionIsReadAsTheLatestThatTheSwitchSpeaks) {
  MembershipRules second = kRules;
  second.generation = Generation::kLeave;
  const std::map<RecordType, std::pair<std::string, std::string>> without_and_with_sources{
      {RecordType::kIsInclude, {"INCLUDE ()", "EXCLUDE (, )"}},
      {RecordType::kIsExclude, {"EXCLUDE (, )", "EXCLUDE (, )"}},
      {RecordType::kToInclude, {"INCLUDE ()", "EXCLUDE (, )"}},
      {RecordType::kToExclude, {"EXCLUDE (, )", "EXCLUDE (, )"}},
      {RecordType::kAllow, {"INCLUDE ()", "EXCLUDE (, )"}},
      {RecordType::kBlock, {"INCLUDE ()", "INCLUDE ()"}}};
  for (const auto &[type, states] : without_and_with_sources) {
    Membership without;
    without.Apply(Record(type), Generation::kSources, second, kStart);
    EXPECT_EQ(Shown(without), states.first) << static_cast<int>(type);
    Membership with;
    with.Apply(Record(type, "ab"), Generation::kSources, second, kStart);
    EXPECT_EQ(Shown(with), states.second) << static_cast<int>(type);
    if (!with.IsEmpty()) {
      EXPECT_EQ(with.GenerationAt(kStart), Generation::kLeave);
      EXPECT_TRUE(with.Apply(Record(RecordType::kToInclude), Generation::kSources, second, kStart).group);
    }
  }
  MembershipRules first = kRules;
  first.generation = Generation::kJoin;
  Membership membership;
  membership.Apply(Record(RecordType::kIsExclude), Generation::kLeave, first, kStart);
  EXPECT_EQ(membership.GenerationAt(kStart), Generation::kJoin);
  EXPECT_FALSE(membership.Apply(Record(RecordType::kToInclude), Generation::kLeave, first, kStart))
      << "the first version knows no leaving";
}

// ---- Bytes ----

std::string Saved(const Membership &membership) {
  ByteWriter writer;
  membership.Save(writer);
  return writer.Take();
}
Membership Loaded(std::string_view bytes) {
  ByteReader reader(bytes);
  Membership membership = Membership::Load(reader);
  reader.RequireEnd();
  return membership;
}

TEST(Membership, IsKeptInBytes) {
  Membership old = Excluded("ab", "cd");
  old.Apply(Record(RecordType::kIsExclude, "ab"), Generation::kLeave, kRules, kStart);
  for (const Membership &membership : {Membership{}, Included("abc"), Excluded("ab", "cd"), old}) {
    EXPECT_EQ(Loaded(Saved(membership)), membership) << Shown(membership);
  }
}

TEST(Membership, BytesThatAreNoneAreRefused) {
  const std::string bytes = Saved(Included("ab"));
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_STATUS(ZEL_INVALID_METADATA, Loaded(bytes.substr(0, size))) << size;
  }
  const auto refused = [&bytes](std::size_t place, char byte) {
    std::string changed = bytes;
    changed[place] = byte;
    return StatusOf([&] { Loaded(changed); });
  };
  EXPECT_EQ(refused(0, 0), ZEL_INVALID_METADATA) << "no mode";
  EXPECT_EQ(refused(0, 3), ZEL_INVALID_METADATA) << "no mode";
  EXPECT_EQ(refused(8, '\xff'), ZEL_INVALID_METADATA) << "a time that cannot be";
  constexpr std::size_t kFirst = 1 + 4 * 8 + 4;
  EXPECT_EQ(refused(kFirst + 16, 0), ZEL_INVALID_METADATA) << "a blocked source among those that are included";
  EXPECT_EQ(refused(kFirst + 15, 'b'), ZEL_INVALID_METADATA) << "a source twice";
  EXPECT_EQ(refused(kFirst + 15, 'c'), ZEL_INVALID_METADATA) << "sources out of order";
}

}  // namespace
}  // namespace kestrel::host
