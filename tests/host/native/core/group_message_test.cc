/* What frames say about groups, and what hostile ones do not. */
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "host/core/frames/network_bytes.h"
#include "host/core/multicast/group_codes.h"
#include "host/core/multicast/group_packet.h"
#include "tests/host/native/support/group_frames.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

GroupMessage Read(const Octets &bytes) { return ReadGroupMessage(Frame(bytes)); }

bool IsNothing(const GroupMessage &message) { return std::holds_alternative<std::monostate>(message); }
bool IsMalformed(const GroupMessage &message) { return std::holds_alternative<MalformedMessage>(message); }
bool HasEffect(const GroupMessage &message) { return !IsNothing(message) && !IsMalformed(message); }

struct Sample {
  std::string name;
  Octets frame;
  GroupMessage meaning;
};

/** One of each message, with what it says. */
std::vector<Sample> Samples() {
  std::vector<Sample> samples;
  const auto add = [&samples](std::string name, Octets frame, GroupMessage meaning) {
    samples.push_back({std::move(name), std::move(frame), std::move(meaning)});
  };
  for (const IpVersion version : kIpVersions) {
    const bool is_v4 = version == IpVersion::kIpV4;
    const std::string family = is_v4 ? "IGMP " : "MLD ";
    const IpAddress group = GroupOf(version, 0x0203);
    const IpAddress router = NeighbourOf(version, 9);
    const IpAddress nobody = NobodyOf(version);
    const IpAddress s1 = SourceOf(version, 1);
    const IpAddress s2 = SourceOf(version, 2);

    for (const Generation generation : {Generation::kJoin, Generation::kLeave}) {
      if (generation == Generation::kJoin && !is_v4) continue;
      add(family + "report", JoinFrame(generation, group), GroupReport{generation, {{RecordType::kIsExclude, group}}});
    }
    add(family + "leave", LeaveFrame(Generation::kLeave, group),
        GroupReport{Generation::kLeave, {{RecordType::kToInclude, group}}});

    std::vector<GroupRecord> records;
    for (const RecordType type : {RecordType::kIsInclude, RecordType::kIsExclude, RecordType::kToInclude,
                                  RecordType::kToExclude, RecordType::kAllow, RecordType::kBlock}) {
      records.push_back({type, group, {s1, s2}});
    }
    records.push_back({RecordType::kToExclude, GroupOf(version, 7)});
    add(family + "report of records", RecordsFrame(version, records), GroupReport{Generation::kSources, records});
    add(family + "report of no records", RecordsFrame(version, {}), GroupReport{Generation::kSources, {}});

    const int second = is_v4 ? 10 : 1000;
    add(family + "general query", ShortQueryFrame(router, nobody, 5 * second),
        GroupQuery{.generation = Generation::kLeave, .router = router, .group = nobody, .max_response = seconds(5)});
    add(family + "query for a group", ShortQueryFrame(router, group, second),
        GroupQuery{.generation = Generation::kLeave, .router = router, .group = group, .max_response = seconds(1)});
    add(family + "general query with parameters", SourcesQueryFrame(router, nobody, {}, 3 * second, 3, 60),
        GroupQuery{.generation = Generation::kSources,
                   .router = router,
                   .group = nobody,
                   .max_response = seconds(3),
                   .robustness = 3,
                   .interval = seconds(60)});
    add(family + "query for sources", SourcesQueryFrame(router, group, {s2, s1}, second, 8 | 2, 0x8f),
        GroupQuery{.generation = Generation::kSources,
                   .router = router,
                   .group = group,
                   .sources = {s1, s2},
                   .max_response = seconds(1),
                   .suppress = true,
                   .robustness = 2,
                   .interval = seconds(31 << 3)});

    add(family + "advertisement of a router", RouterAdvertisementFrame(version, router, 20),
        RouterNotice{router, seconds(60)});
    add(family + "termination of a router", RouterTerminationFrame(version, router), RouterNotice{router, seconds(0)});
    add(family + "PIM hello", PimHelloFrame(version, router, 30), RouterNotice{router, seconds(30)});
    add(family + "PIM hello without a hold time", PimHelloFrame(version, router, -1),
        RouterNotice{router, seconds(105)});
    add(family + "PIM hello for ever", PimHelloFrame(version, router, 0xffff), RouterNotice{router, Duration::max()});
  }
  const IpAddress router = NeighbourOf(IpVersion::kIpV4, 9);
  add("IGMPv1 query", ShortQueryFrame(router, kNoIpV4, 0),
      GroupQuery{.generation = Generation::kJoin, .router = router, .group = kNoIpV4});
  return samples;
}

TEST(GroupMessage, SaysWhatWasSent) {
  for (const Sample &sample : Samples()) EXPECT_EQ(Read(sample.frame), sample.meaning) << sample.name;
}

TEST(GroupMessage, NoPartOfAMessageHasAnEffect) {
  for (const Sample &sample : Samples()) {
    for (std::size_t size = kEthernetHeaderSize; size < sample.frame.size(); ++size) {
      // In memory of its own, so that a read beyond its end is found.
      const Octets part(sample.frame.begin(), sample.frame.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(HasEffect(Read(part))) << sample.name << " cut to " << size;
    }
  }
}

TEST(GroupMessage, AMessageThatSaysItIsShorterThanItIsHasNoEffect) {
  // The packet ends, by its own header, before the message does, though the bytes are there.
  for (const Sample &sample : Samples()) {
    const bool is_v4 = sample.frame[12] == 0x08;
    const std::size_t field = kEthernetHeaderSize + (is_v4 ? 2 : 4);
    const std::size_t total = WordAt(sample.frame, field);
    for (std::size_t size = 0; size < total; ++size) {
      Octets frame = sample.frame;
      PutWord(frame, field, static_cast<std::uint16_t>(size));
      if (is_v4) {
        PutWord(frame, kEthernetHeaderSize + 10, 0);
        const std::size_t header = (frame[kEthernetHeaderSize] & 0xfU) * 4;
        PutSum(frame, kEthernetHeaderSize + 10,
               Octets(frame.begin() + kEthernetHeaderSize,
                      frame.begin() + static_cast<std::ptrdiff_t>(kEthernetHeaderSize + header)));
      }
      EXPECT_FALSE(HasEffect(Read(frame))) << sample.name << " said to be " << size;
    }
  }
}

TEST(GroupMessage, WhatFollowsThePacketDoesNotCount) {
  for (const Sample &sample : Samples()) {
    Octets padded = sample.frame;
    padded.resize(padded.size() + 46, 0xee);
    EXPECT_EQ(Read(padded), sample.meaning) << sample.name;
  }
}

TEST(GroupMessage, ReadsBehindVlanTags) {
  for (const Sample &sample : Samples()) {
    for (const int tags : {1, 2}) {
      Octets tagged = sample.frame;
      for (int i = 0; i < tags; ++i) {
        const Octets tag{0x81, 0x00, 0x60, 0x64};
        tagged.insert(tagged.begin() + 12, tag.begin(), tag.end());
      }
      EXPECT_EQ(Read(tagged), sample.meaning) << sample.name;
    }
  }
}

TEST(GroupMessage, AFlippedBitIsFound) {
  for (const Sample &sample : Samples()) {
    const bool is_v4 = sample.frame[12] == 0x08;
    // What no checksum covers in IPv6: traffic class and flow, and the options before MLD.
    for (std::size_t i = kEthernetHeaderSize + (is_v4 ? 0 : 4); i < sample.frame.size(); ++i) {
      const bool is_option = !is_v4 && sample.frame[kEthernetHeaderSize + 6] == 0 && i >= kEthernetHeaderSize + 40 &&
                             i < kEthernetHeaderSize + 48;
      if (is_option) continue;
      for (int bit = 0; bit < 8; ++bit) {
        Octets frame = sample.frame;
        frame[i] = static_cast<std::uint8_t>(frame[i] ^ 1 << bit);
        EXPECT_FALSE(HasEffect(Read(frame))) << sample.name << ", byte " << i << ", bit " << bit;
      }
    }
  }
}

TEST(GroupMessage, OtherFramesSayNothing) {
  for (const IpVersion version : kIpVersions) {
    EXPECT_TRUE(IsNothing(Read(DataFrame(SourceOf(version, 1), GroupOf(version, 1)))));
  }
  Octets arp(60);
  arp[0] = 0x01;
  arp[12] = 0x08;
  arp[13] = 0x06;
  EXPECT_TRUE(IsNothing(Read(arp)));
  EXPECT_TRUE(IsNothing(Read(Octets(kEthernetHeaderSize)))) << "nothing behind the header";
}

TEST(GroupMessage, ToOneStationItSaysNothing) {
  for (const Sample &sample : Samples()) {
    Octets frame = sample.frame;
    frame[0] = 0x02;
    EXPECT_TRUE(IsNothing(Read(frame))) << sample.name;
    for (std::size_t i = 0; i < 6; ++i) frame[i] = 0xff;
    EXPECT_TRUE(IsNothing(Read(frame))) << sample.name;
  }
}

TEST(GroupMessage, OtherProtocolsBesideItSayNothing) {
  const auto igmp = [](Octets message) {
    return Read(Sent(UsualTravel(Ip("10.0.0.1"), Ip("224.0.0.22")), std::move(message)));
  };
  const auto icmp = [](Octets message) {
    return Read(Sent(UsualTravel(Ip("fe80::1"), Ip("ff02::16")), std::move(message)));
  };
  for (int type = 0; type < 256; ++type) {
    const Octets message{static_cast<std::uint8_t>(type), 0, 0, 0, 239, 1, 1, 1};
    const bool is_igmp = type == 0x11 || type == 0x12 || type == 0x16 || type == 0x17 || type == 0x22;
    const bool is_router = type == 0x30 || type == 0x32;
    EXPECT_TRUE(is_igmp || is_router || IsNothing(igmp(message))) << type;
    const bool is_mld = (type >= 130 && type <= 132) || type == 143 || (type >= 151 && type <= 153);
    EXPECT_TRUE(is_mld || IsNothing(icmp(message))) << type;
  }
  EXPECT_TRUE(IsNothing(igmp({0x31, 0, 0, 0}))) << "who looks for routers is none";
  EXPECT_TRUE(IsNothing(icmp({152, 0, 0, 0})));
}

// ---- The rules of IP ----

TEST(GroupMessage, CannotHaveComeFromBeyondTheLink) {
  for (const IpVersion version : kIpVersions) {
    for (const int hops : {0, 2, 64, 255}) {
      const IpAddress group = GroupOf(version, 1);
      Travel travel = UsualTravel(NeighbourOf(version, 1), group);
      travel.hops = hops;
      const int type = version == IpVersion::kIpV4 ? 0x16 : 131;
      EXPECT_TRUE(IsMalformed(Read(Sent(travel, ShortMessage(type, 0, group))))) << hops;
    }
  }
}

TEST(GroupMessage, IsNeverInFragments) {
  const IpAddress group = GroupOf(IpVersion::kIpV4, 1);
  for (const int fragment : {0x2000, 0x0001, 0x1fff}) {
    Travel travel = UsualTravel(Ip("10.0.0.1"), group);
    travel.fragment = fragment;
    EXPECT_TRUE(IsMalformed(Read(Sent(travel, ShortMessage(0x16, 0, group))))) << fragment;
  }
  Travel travel = UsualTravel(Ip("10.0.0.1"), group);
  travel.fragment = 0x4000;
  EXPECT_TRUE(HasEffect(Read(Sent(travel, ShortMessage(0x16, 0, group))))) << "one that must not be cut is whole";

  const IpAddress v6 = GroupOf(IpVersion::kIpV6, 1);
  Travel cut = UsualTravel(Ip("fe80::1"), v6);
  cut.extensions = RouterAlertHeader(44);
  Append(cut.extensions, {58, 0, 0, 1, 0, 0, 0, 9});
  EXPECT_FALSE(HasEffect(Read(Sent(cut, ShortMessage(131, 0, v6)))));
}

TEST(GroupMessage, WithAnyOptionsOfIpV4) {
  const IpAddress group = GroupOf(IpVersion::kIpV4, 1);
  for (const std::size_t size : {0, 4, 40}) {
    Travel travel = UsualTravel(Ip("10.0.0.1"), group);
    travel.options.assign(size, 1);
    EXPECT_TRUE(HasEffect(Read(Sent(travel, ShortMessage(0x16, 0, group))))) << size;
  }
}

TEST(GroupMessage, OfIpV4ComesFromAStationOrNobody) {
  const IpAddress group = GroupOf(IpVersion::kIpV4, 1);
  const auto from = [&group](const char *source) {
    return Read(Sent(UsualTravel(Ip(source), group), ShortMessage(0x16, 0, group)));
  };
  EXPECT_TRUE(HasEffect(from("0.0.0.0"))) << "a host that has no address yet";
  EXPECT_TRUE(IsMalformed(from("239.9.9.9")));
}

TEST(GroupMessage, OfIpV6ComesFromTheLink) {
  const IpAddress group = GroupOf(IpVersion::kIpV6, 1);
  const auto from = [&group](const char *source, int type) {
    return Read(Sent(UsualTravel(Ip(source), group), ShortMessage(type, 0, group)));
  };
  EXPECT_TRUE(HasEffect(from("::", 131))) << "a host that has no address yet";
  EXPECT_TRUE(HasEffect(from("fe80::1", 131)));
  EXPECT_TRUE(HasEffect(from("febf::1", 131)));
  EXPECT_TRUE(IsMalformed(from("fec0::1", 131)));
  EXPECT_TRUE(IsMalformed(from("2001:db8::1", 131)));
  EXPECT_TRUE(IsMalformed(from("ff02::1", 131)));
  EXPECT_TRUE(HasEffect(from("fe80::1", 130)));
  EXPECT_TRUE(IsMalformed(from("::", 130))) << "no router asks so";
}

TEST(GroupMessage, OfIpV6AsksRoutersToLook) {
  const IpAddress group = GroupOf(IpVersion::kIpV6, 1);
  const auto with = [&group](Octets extensions, int first) {
    Travel travel = UsualTravel(Ip("fe80::1"), group);
    travel.extensions = std::move(extensions);
    travel.first_header = first;
    return Read(Sent(travel, ShortMessage(131, 0, group)));
  };
  Octets header = RouterAlertHeader(58);
  EXPECT_TRUE(HasEffect(with(header, 0)));
  EXPECT_FALSE(HasEffect(with({}, 58))) << "no options at all";
  EXPECT_TRUE(IsMalformed(with({58, 0, 1, 4, 0, 0, 0, 0}, 0))) << "padding alone";
  EXPECT_TRUE(IsMalformed(with({58, 0, 5, 2, 0, 1, 1, 0}, 0))) << "an alert for another protocol";
  EXPECT_TRUE(HasEffect(with({58, 0, 0, 0, 5, 2, 0, 0}, 0))) << "padding first";
  EXPECT_TRUE(HasEffect(with({58, 1, 0x1e, 6, 1, 2, 3, 4, 5, 6, 5, 2, 0, 0, 1, 0}, 0))) << "an option to skip";
  EXPECT_TRUE(IsMalformed(with({58, 0, 5, 2, 0, 0, 0x5e, 0}, 0))) << "an option that forbids to go on";
  EXPECT_TRUE(IsMalformed(with({58, 0, 5, 2, 0, 0, 1, 9}, 0))) << "an option beyond its header";
  EXPECT_TRUE(IsMalformed(with({58, 0, 5, 2, 0, 0, 0, 1}, 0))) << "an option without a length";
  EXPECT_TRUE(IsMalformed(with({58, 9, 5, 2, 0, 0, 1, 0}, 0))) << "a header beyond its packet";
  Octets routed = RouterAlertHeader(60);
  Append(routed, {43, 0, 1, 4, 0, 0, 0, 0});
  Append(routed, {58, 1, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_TRUE(HasEffect(with(routed, 0))) << "other headers may follow";
  Octets twice = RouterAlertHeader(0);
  const Octets second = RouterAlertHeader(58);
  twice.insert(twice.end(), second.begin(), second.end());
  EXPECT_FALSE(HasEffect(with(twice, 0))) << "but not these options again";
}

// ---- The rules of the messages ----

TEST(GroupMessage, ChecksumsOfAllButOneAreWrong) {
  for (const IpVersion version : kIpVersions) {
    const IpAddress group = GroupOf(version, 1);
    const Octets good = JoinFrame(Generation::kLeave, group);
    const std::size_t field = good.size() - (version == IpVersion::kIpV4 ? 8 : 24) + 2;
    const std::uint16_t right = WordAt(good, field);
    for (std::uint32_t sum = 0; sum <= 0xffff; ++sum) {
      Octets frame = good;
      PutWord(frame, field, static_cast<std::uint16_t>(sum));
      EXPECT_EQ(HasEffect(Read(frame)), sum == right) << sum;
    }
  }
}

TEST(GroupMessage, ReportsAreAboutGroups) {
  for (const char *address : {"0.0.0.0", "10.0.0.1", "223.255.255.255", "240.0.0.0", "255.255.255.255"}) {
    const IpAddress no_group = Ip(address);
    const Travel travel = UsualTravel(Ip("10.0.0.1"), Ip("224.0.0.22"));
    for (const int type : {0x12, 0x16, 0x17}) {
      EXPECT_TRUE(IsMalformed(Read(Sent(travel, ShortMessage(type, 0, no_group))))) << address;
    }
    EXPECT_TRUE(IsMalformed(Read(RecordsFrame(IpVersion::kIpV4, {{RecordType::kToExclude, no_group}})))) << address;
    const bool is_general = no_group == kNoIpV4;
    EXPECT_EQ(IsMalformed(Read(Sent(travel, ShortMessage(0x11, 100, no_group)))), !is_general) << address;
  }
  for (const char *address : {"::", "fe80::1", "2001:db8::1", "fdff::1"}) {
    const IpAddress no_group = Ip(address);
    const Travel travel = UsualTravel(Ip("fe80::1"), Ip("ff02::16"));
    for (const int type : {131, 132}) {
      EXPECT_TRUE(IsMalformed(Read(Sent(travel, ShortMessage(type, 0, no_group))))) << address;
    }
    EXPECT_TRUE(IsMalformed(Read(RecordsFrame(IpVersion::kIpV6, {{RecordType::kToExclude, no_group}})))) << address;
    const bool is_general = no_group == kNoIpV6;
    EXPECT_EQ(IsMalformed(Read(Sent(travel, ShortMessage(130, 100, no_group)))), !is_general) << address;
  }
}

TEST(GroupMessage, RecordsOfUnknownTypesAreLeftOut) {
  for (const IpVersion version : kIpVersions) {
    const GroupRecord known{RecordType::kToExclude, GroupOf(version, 1)};
    for (const int type : {0, 7, 200}) {
      const GroupRecord unknown{static_cast<RecordType>(type), GroupOf(version, 2), {SourceOf(version, 1)}};
      EXPECT_EQ(Read(RecordsFrame(version, {unknown, known})), GroupMessage(GroupReport{Generation::kSources, {known}}))
          << type;
    }
  }
}

TEST(GroupMessage, AuxiliaryDataIsSkipped) {
  for (const IpVersion version : kIpVersions) {
    const std::vector<GroupRecord> records{{RecordType::kToExclude, GroupOf(version, 1), {SourceOf(version, 1)}},
                                           {RecordType::kAllow, GroupOf(version, 2), {SourceOf(version, 2)}}};
    const Travel travel =
        UsualTravel(NeighbourOf(version, 1), version == IpVersion::kIpV4 ? Ip("224.0.0.22") : Ip("ff02::16"));
    Octets message = RecordsMessage(version, records, 3);
    EXPECT_EQ(Read(Sent(travel, message)), GroupMessage(GroupReport{Generation::kSources, records}));
    message.resize(message.size() - 1);
    EXPECT_TRUE(IsMalformed(Read(Sent(travel, message)))) << "cut off";
  }
}

TEST(GroupMessage, CountsBeyondItsEndAreFound) {
  for (const IpVersion version : kIpVersions) {
    const Travel travel =
        UsualTravel(NeighbourOf(version, 1), version == IpVersion::kIpV4 ? Ip("224.0.0.22") : Ip("ff02::16"));
    const Octets report = RecordsMessage(version, {{RecordType::kAllow, GroupOf(version, 1), {SourceOf(version, 1)}}});
    for (const std::size_t field : {6, 10}) {  // of records, of sources
      for (const int more : {2, 3, 0x1000, 0xffff}) {
        Octets message = report;
        PutWord(message, field, static_cast<std::uint16_t>(more));
        EXPECT_TRUE(IsMalformed(Read(Sent(travel, message)))) << field << ": " << more;
      }
    }
    const Octets query = SourcesQueryMessage(GroupOf(version, 1), {SourceOf(version, 1)});
    const std::size_t count = version == IpVersion::kIpV4 ? 10 : 26;
    for (const int more : {2, 0xffff}) {
      Octets message = query;
      PutWord(message, count, static_cast<std::uint16_t>(more));
      EXPECT_TRUE(IsMalformed(Read(Sent(travel, message)))) << more;
    }
  }
}

TEST(GroupMessage, MoreBytesThanAReportNeedsAreCoveredAndSkipped) {
  for (const IpVersion version : kIpVersions) {
    const IpAddress group = GroupOf(version, 1);
    const Travel travel = UsualTravel(NeighbourOf(version, 1), group);
    Octets message = ShortMessage(version == IpVersion::kIpV4 ? 0x16 : 131, 0, group);
    message.resize(message.size() + 5, 0x33);
    EXPECT_EQ(Read(Sent(travel, message)),
              GroupMessage(GroupReport{Generation::kLeave, {{RecordType::kIsExclude, group}}}));
  }
}

TEST(GroupMessage, QueriesHaveTheSizeOfAVersion) {
  for (const IpVersion version : kIpVersions) {
    const Travel travel = UsualTravel(NeighbourOf(version, 1), GroupOf(version, 1));
    const Octets whole = SourcesQueryMessage(GroupOf(version, 1), {});
    for (std::size_t cut = 1; cut <= 3; ++cut) {
      Octets message = whole;
      message.resize(whole.size() - cut);
      EXPECT_TRUE(IsMalformed(Read(Sent(travel, message)))) << cut;
    }
  }
}

TEST(GroupMessage, AQueryForAllGroupsNamesNoSources) {
  for (const IpVersion version : kIpVersions) {
    EXPECT_TRUE(
        IsMalformed(Read(SourcesQueryFrame(NeighbourOf(version, 9), NobodyOf(version), {SourceOf(version, 1)}, 10))));
  }
}

TEST(GroupMessage, SourcesAreEachOnce) {
  for (const IpVersion version : kIpVersions) {
    const IpAddress s1 = SourceOf(version, 1);
    const IpAddress s2 = SourceOf(version, 2);
    const auto message = Read(RecordsFrame(version, {{RecordType::kAllow, GroupOf(version, 1), {s2, s1, s2, s2}}}));
    EXPECT_EQ(std::get<GroupReport>(message).records.at(0).sources, (std::vector{s1, s2}));
  }
}

TEST(GroupMessage, RoutersAdvertiseWithinBounds) {
  for (const IpVersion version : kIpVersions) {
    for (const int interval : {0, 3, 181, 255}) {
      EXPECT_TRUE(IsMalformed(Read(RouterAdvertisementFrame(version, NeighbourOf(version, 9), interval)))) << interval;
    }
    EXPECT_TRUE(HasEffect(Read(RouterAdvertisementFrame(version, NeighbourOf(version, 9), 4))));
    EXPECT_TRUE(HasEffect(Read(RouterAdvertisementFrame(version, NeighbourOf(version, 9), 180))));
  }
}

TEST(GroupMessage, OnlyHellosOfPimShowARouter) {
  for (const IpVersion version : kIpVersions) {
    Octets hello = PimHelloFrame(version, NeighbourOf(version, 9), 30);
    hello[hello.size() - 18] = 0x23;  // a join
    EXPECT_TRUE(IsNothing(Read(hello)));
  }
}

// ---- Times in codes ----

TEST(GroupCodes, GrowWithTheirNumbersAndReadBack) {
  for (const unsigned mantissa : {kByteMantissa, kWordMantissa}) {
    const std::uint32_t codes = std::uint32_t{1} << (mantissa + 4);
    std::uint32_t last = 0;
    for (std::uint32_t code = 0; code < codes; ++code) {
      const std::uint32_t number = NumberOfCode(code, mantissa);
      EXPECT_TRUE(code == 0 || number > last) << code;
      EXPECT_EQ(CodeOfNumber(number, mantissa), code) << number;
      EXPECT_TRUE(number == 0 || CodeOfNumber(number - 1, mantissa) == code - 1) << number;
      last = number;
    }
    EXPECT_EQ(CodeOfNumber(last + 1, mantissa), codes - 1);
    EXPECT_EQ(CodeOfNumber(0xffffffff, mantissa), codes - 1);
  }
  EXPECT_EQ(NumberOfCode(127, kByteMantissa), 127U);
  EXPECT_EQ(NumberOfCode(128, kByteMantissa), 128U);
  EXPECT_EQ(NumberOfCode(255, kByteMantissa), 31744U);
  EXPECT_EQ(NumberOfCode(0xffff, kWordMantissa), 8387584U);
}

// ---- Writing ----

TEST(GroupMessage, AQueryIsReadAsItWasWritten) {
  const MacAddress station{0x02, 0, 0, 0, 0, 5};
  for (const IpVersion version : kIpVersions) {
    const IpAddress s1 = SourceOf(version, 1);
    const IpAddress s2 = SourceOf(version, 2);
    for (const IpAddress &group : {NobodyOf(version), GroupOf(version, 1)}) {
      const bool is_general = IsUnspecified(group);
      GroupQuery query{.generation = Generation::kSources,
                       .router = NeighbourOf(version, 9),
                       .group = group,
                       .max_response = seconds(10),
                       .suppress = true,
                       .robustness = 7,
                       .interval = seconds(125)};
      if (!is_general) query.sources = {s1, s2};
      EXPECT_EQ(Read(WriteQueryFrame(query, station)), GroupMessage(query));

      query = {.generation = Generation::kLeave, .router = query.router, .group = group, .max_response = seconds(1)};
      EXPECT_EQ(Read(WriteQueryFrame(query, station)), GroupMessage(query));
    }
  }
  const GroupQuery first{.generation = Generation::kJoin, .router = Ip("10.0.0.9"), .group = kNoIpV4};
  EXPECT_EQ(Read(WriteQueryFrame(first, station)), GroupMessage(first));
}

TEST(GroupMessage, AQueryGoesWhereItsHostsListen) {
  const MacAddress station{0x02, 0, 0, 0, 0, 5};
  const auto destination = [&station](const IpAddress &router, const IpAddress &group) {
    const auto bytes = WriteQueryFrame({.generation = Generation::kSources, .router = router, .group = group}, station);
    const Frame frame(bytes);
    EXPECT_EQ(frame.source(), station);
    return frame.destination();
  };
  EXPECT_EQ(destination(kNoIpV4, kNoIpV4), (MacAddress{0x01, 0, 0x5e, 0, 0, 1}));
  EXPECT_EQ(destination(Ip("10.0.0.1"), Ip("239.129.2.3")), (MacAddress{0x01, 0, 0x5e, 1, 2, 3}));
  EXPECT_EQ(destination(Ip("fe80::1"), kNoIpV6), (MacAddress{0x33, 0x33, 0, 0, 0, 1}));
  EXPECT_EQ(destination(Ip("fe80::1"), Ip("ff0e::a:b0c")), (MacAddress{0x33, 0x33, 0, 0x0a, 0x0b, 0x0c}));
}

// ---- Targets ----

TEST(GroupTarget, TellsWhereAFrameGoes) {
  const auto kind = [](const Octets &bytes) { return TargetOf(Frame(bytes)).kind; };
  const auto data = [&kind](const char *source, const char *group) { return kind(DataFrame(Ip(source), Ip(group))); };
  EXPECT_EQ(data("10.0.0.1", "224.0.0.251"), GroupTarget::Kind::kLinkLocal);
  EXPECT_EQ(data("10.0.0.1", "224.0.1.0"), GroupTarget::Kind::kGroup);
  EXPECT_EQ(data("10.0.0.1", "239.255.255.255"), GroupTarget::Kind::kGroup);
  EXPECT_EQ(data("10.0.0.1", "225.0.0.1"), GroupTarget::Kind::kGroup);
  EXPECT_EQ(data("10.0.0.1", "10.0.0.2"), GroupTarget::Kind::kOther);
  EXPECT_EQ(data("10.0.0.1", "255.255.255.255"), GroupTarget::Kind::kOther);
  EXPECT_EQ(data("fe80::1", "ff02::1"), GroupTarget::Kind::kLinkLocal);
  EXPECT_EQ(data("fe80::1", "ff02::1:ff00:1"), GroupTarget::Kind::kLinkLocal);
  EXPECT_EQ(data("fe80::1", "ff32::1"), GroupTarget::Kind::kLinkLocal) << "whatever its flags";
  EXPECT_EQ(data("fe80::1", "ff05::1"), GroupTarget::Kind::kGroup);
  EXPECT_EQ(data("fe80::1", "2001:db8::1"), GroupTarget::Kind::kOther);

  for (const Sample &sample : Samples()) {
    const bool is_report = std::holds_alternative<GroupReport>(sample.meaning);
    EXPECT_EQ(kind(sample.frame) == GroupTarget::Kind::kReport, is_report) << sample.name;
  }
  Octets slow = DataFrame(Ip("10.0.0.1"), Ip("239.0.0.1"));
  slow[12] = 0x88;
  EXPECT_EQ(kind(slow), GroupTarget::Kind::kOther);
}

TEST(GroupTarget, NamesGroupAndSource) {
  for (const IpVersion version : kIpVersions) {
    const Octets bytes = DataFrame(SourceOf(version, 3), GroupOf(version, 4));
    const GroupTarget target = TargetOf(Frame(bytes));
    EXPECT_EQ(target.group, GroupOf(version, 4));
    EXPECT_EQ(target.source, SourceOf(version, 3));
    for (std::size_t size = kEthernetHeaderSize; size < bytes.size(); ++size) {
      const Octets part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      const GroupTarget cut = TargetOf(Frame(part));
      EXPECT_TRUE(cut.kind == GroupTarget::Kind::kOther || cut.group == target.group) << size;
    }
  }
}

}  // namespace
}  // namespace kestrel::host
