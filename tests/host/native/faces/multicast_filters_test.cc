/* The multicast filters of ports, as the C functions give them. */
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/core/multicast/multicast.h"
#include "kestrel/runtime_queries.h"
#include "kestrel/switch_config.h"
#include "tests/host/native/support/face_test.h"
#include "tests/host/native/support/group_frames.h"

namespace kestrel::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class MulticastFilters : public FaceTest {
 protected:
  /** A frame from the client of a port. */
  void Hear(const char *port, const Octets &bytes, VlanId vlan = 0) {
    auto &owner = const_cast<Switch &>(host().FindSwitch(kAlias));
    ObserveMulticast(host(), owner, owner.config.PortNamed(port), vlan, Frame(bytes));
  }
  void BeginSnooping() { EXPECT_EQ(VSDVS_SetMcastFilterMode(kAlias, VS_MCAST_FILTER_MODE_SNOOPING), ZEL_OK); }

  Owned<VSMcastFilters> Filters(const char *port, VSMcastFilterMode mode) {
    VSMcastFilters *table = Stale<VSMcastFilters>();
    EXPECT_EQ(VSZEL_GetMcastFilters(kAlias, IdOfPort(host(), port), mode, &table), ZEL_OK);
    return Owned<VSMcastFilters>(table);
  }
  /** The entries of a filter, which are `size` bytes each, one after the other. */
  std::string Entries(const char *port, VSMcastFilterMode mode, std::size_t size) {
    const auto table = Filters(port, mode);
    EXPECT_EQ(zel_uint32{table->totalEntries}, zel_uint32{table->numEntries});
    return {reinterpret_cast<const char *>(table->macEntries), table->numEntries * size};
  }
  static std::string Wire(const IpAddress &address) {
    const auto bytes = WireBytes(address);
    return {bytes.begin(), bytes.end()};
  }
  static std::string Wire(const MacAddress &address) { return {address.begin(), address.end()}; }

  Owned<VSMcastFilterStats> Stats(const char *port, const IpAddress &group) {
    VSMcastFilterStats *table = Stale<VSMcastFilterStats>();
    const auto mode = IsIpV4(group) ? VS_MCAST_FILTER_MODE_IGMP : VS_MCAST_FILTER_MODE_MLD;
    EXPECT_EQ(VSZEL_GetMcastFilterStats(kAlias, IdOfPort(host(), port), mode, WireBytes(group).data(), &table), ZEL_OK);
    return Owned<VSMcastFilterStats>(table);
  }
  static std::string SourcesOf(const VSMcastFilterStats &stats, std::size_t size) {
    EXPECT_EQ(zel_uint32{stats.totalEntries}, zel_uint32{stats.numEntries});
    return {reinterpret_cast<const char *>(stats.ipv6Entries), stats.numEntries * size};
  }
};

TEST_F(MulticastFilters, AreEmptyAtFirst) {
  for (const auto mode : {VS_MCAST_FILTER_MODE_LEGACY, VS_MCAST_FILTER_MODE_IGMP, VS_MCAST_FILTER_MODE_MLD}) {
    EXPECT_EQ(Entries("machine", mode, 1), "") << mode;
  }
}

TEST_F(MulticastFilters, ListTheGroupsOfAPortInOrderEachOnce) {
  BeginSnooping();
  for (const char *group : {"239.2.0.1", "239.1.0.2", "239.1.0.1", "ff0e::2", "ff0e::1"}) {
    Hear("machine", JoinFrame(Generation::kLeave, Ip(group)));
  }
  Hear("machine", JoinFrame(Generation::kLeave, Ip("239.1.0.1")), 100);
  Hear("service", JoinFrame(Generation::kLeave, Ip("239.9.9.9")));
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_IGMP, 4),
            Wire(Ip("239.1.0.1")) + Wire(Ip("239.1.0.2")) + Wire(Ip("239.2.0.1")));
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_MLD, 16), Wire(Ip("ff0e::1")) + Wire(Ip("ff0e::2")));
  EXPECT_EQ(Entries("service", VS_MCAST_FILTER_MODE_IGMP, 4), Wire(Ip("239.9.9.9")));
}

TEST_F(MulticastFilters, OfLegacyModeAreWhatUsersFiltersAndGroupsSay) {
  const MacAddress user{0x01, 0, 0, 0, 0, 1};
  const MacAddress of_port{0x01, 0, 0, 0, 0, 2};
  const MacAddress extra{0x01, 0, 0, 0, 0, 3};
  VSMACEntries entries{};
  std::ranges::copy(user, entries.macEntry[0]);
  ASSERT_EQ(VSDVS_SetMcastUserLegacyEntries(kAlias, 1, &entries), ZEL_OK);
  std::ranges::copy(of_port, entries.macEntry[0]);
  ASSERT_EQ(VSDVS_SetPortMcastUserLegacyEntries(kAlias, "machine", 1, &entries), ZEL_OK);
  VSExtraEthFilter filter{};
  filter.flags = ZEL_ETH_FILTER_MULTICAST;
  filter.numMulticastAddrs = 2;
  std::ranges::copy(extra, filter.multicastAddrs[0]);
  std::ranges::copy(user, filter.multicastAddrs[1]);
  ASSERT_EQ(VSDVS_SetExtraEthFilter(kAlias, "machine", &filter), ZEL_OK);
  Hear("machine", JoinFrame(Generation::kLeave, Ip("239.1.2.3")));
  Hear("machine", JoinFrame(Generation::kSources, Ip("ff0e::a:b")));

  const std::string joined = Wire(MacAddress{0x01, 0, 0x5e, 1, 2, 3}) + Wire(MacAddress{0x33, 0x33, 0, 0x0a, 0, 0x0b});
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_LEGACY, 6), Wire(user) + Wire(of_port) + Wire(extra) + joined);
  EXPECT_EQ(Entries("service", VS_MCAST_FILTER_MODE_LEGACY, 6), Wire(user));

  host().SetProperty({.switch_name = kAlias, .level = PropertyLevel::kPort, .port = "machine"},
                     VSPROP_PORT_USER_MCAST_ADDRESSES_OVERRIDE, {BytesOf(zel_Bool{1})});
  ASSERT_EQ(VSDVS_ClearExtraEthFilter(kAlias, "machine"), ZEL_OK);
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_LEGACY, 6), Wire(of_port) + joined);
}

TEST_F(MulticastFilters, StatsTellVersionModeAndSources) {
  BeginSnooping();
  host().AdvanceClock(milliseconds(7999));
  const IpAddress v4 = Ip("239.1.2.3");
  const IpAddress s1 = Ip("10.0.0.1");
  const IpAddress s2 = Ip("10.0.0.2");
  Hear("machine", RecordsFrame(IpVersion::kIpV4, {{RecordType::kToInclude, v4, {s2, s1}}}));
  auto stats = Stats("machine", v4);
  EXPECT_EQ(zel_uint32{stats->version}, 3U);
  EXPECT_EQ(zel_uint32{stats->srcIPFilterMode}, static_cast<zel_uint32>(VS_MCAST_SRC_IP_FILTER_MODE_INCLUDE));
  EXPECT_EQ(zel_uint64{stats->updateTime}, 7U);
  EXPECT_EQ(zel_uint32{stats->vni}, 0U);
  EXPECT_EQ(SourcesOf(*stats, 4), Wire(s1) + Wire(s2));

  host().AdvanceClock(milliseconds(1));
  Hear("machine", RecordsFrame(IpVersion::kIpV4, {{RecordType::kToExclude, v4, {s2, Ip("10.0.0.3")}}}));
  stats = Stats("machine", v4);
  EXPECT_EQ(zel_uint32{stats->srcIPFilterMode}, static_cast<zel_uint32>(VS_MCAST_SRC_IP_FILTER_MODE_EXCLUDE));
  EXPECT_EQ(zel_uint64{stats->updateTime}, 8U);
  EXPECT_EQ(SourcesOf(*stats, 4), Wire(Ip("10.0.0.3"))) << "those whose frames are kept away";

  const IpAddress v6 = Ip("ff0e::1");
  const IpAddress far = Ip("2001:db8::1");
  Hear("machine", RecordsFrame(IpVersion::kIpV6, {{RecordType::kToInclude, v6, {far}}}));
  stats = Stats("machine", v6);
  EXPECT_EQ(zel_uint32{stats->version}, 2U);
  EXPECT_EQ(SourcesOf(*stats, 16), Wire(far));
}

TEST_F(MulticastFilters, StatsOfOlderHostsKnowNoSources) {
  BeginSnooping();
  const struct {
    Generation generation;
    IpAddress group;
    unsigned version;
  } cases[] = {{Generation::kJoin, Ip("239.0.0.1"), 1},
               {Generation::kLeave, Ip("239.0.0.2"), 2},
               {Generation::kLeave, Ip("ff0e::2"), 1}};
  for (const auto &[generation, group, version] : cases) {
    Hear("machine", JoinFrame(generation, group));
    const auto stats = Stats("machine", group);
    EXPECT_EQ(zel_uint32{stats->version}, version);
    EXPECT_EQ(zel_uint32{stats->srcIPFilterMode}, static_cast<zel_uint32>(VS_MCAST_SRC_IP_FILTER_MODE_NONE));
    EXPECT_EQ(zel_uint32{stats->numEntries}, 0U);
  }
}

TEST_F(MulticastFilters, OfAGroupInTwoVlansTheLatestCounts) {
  BeginSnooping();
  const IpAddress group = Ip("239.1.2.3");
  Hear("machine", JoinFrame(Generation::kSources, group), 200);
  host().AdvanceClock(seconds(5));
  Hear("machine", JoinFrame(Generation::kLeave, group), 100);
  EXPECT_EQ(zel_uint32{Stats("machine", group)->version}, 2U);
  host().AdvanceClock(seconds(5));
  Hear("machine", JoinFrame(Generation::kSources, group), 200);
  EXPECT_EQ(zel_uint32{Stats("machine", group)->version}, 3U);
}

TEST_F(MulticastFilters, ForgetWhatIsOverAndWhoIsGone) {
  BeginSnooping();
  Hear("machine", JoinFrame(Generation::kLeave, Ip("239.1.2.3")));
  host().AdvanceClock(seconds(260));
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_IGMP, 4), "");
  Hear("machine", JoinFrame(Generation::kLeave, Ip("239.1.2.3")));
  host().Disconnect(kAlias, "machine");
  EXPECT_EQ(Entries("machine", VS_MCAST_FILTER_MODE_IGMP, 4), "");
}

TEST_F(MulticastFilters, NullTheirOutputWhenTheyRefuse) {
  const PortId machine = IdOfPort(host(), "machine");
  const auto filters = [](const char *name, PortId port, int mode) {
    VSMcastFilters *table = Stale<VSMcastFilters>();
    // Callers pass any number. NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
    const int status = VSZEL_GetMcastFilters(name, port, static_cast<VSMcastFilterMode>(mode), &table);
    EXPECT_EQ(table, nullptr);
    return status;
  };
  EXPECT_EQ(filters("nowhere", machine, VS_MCAST_FILTER_MODE_IGMP), ZEL_NOT_FOUND);
  EXPECT_EQ(filters(nullptr, machine, VS_MCAST_FILTER_MODE_IGMP), ZEL_BAD_PARAM);
  EXPECT_EQ(filters(kAlias, 4711, VS_MCAST_FILTER_MODE_IGMP), ZEL_NOT_FOUND);
  for (const int mode : {static_cast<int>(VS_MCAST_FILTER_MODE_SNOOPING), -1, 4, 1 << 20}) {
    EXPECT_EQ(filters(kAlias, machine, mode), ZEL_BAD_PARAM) << mode;
  }
  EXPECT_EQ(VSZEL_GetMcastFilters(kAlias, machine, VS_MCAST_FILTER_MODE_IGMP, nullptr), ZEL_BAD_PARAM);

  const auto stats = [](const char *name, PortId port, int mode, const char *group) {
    VSMcastFilterStats *table = Stale<VSMcastFilterStats>();
    const IpAddress address = group == nullptr ? IpAddress{} : Ip(group);
    const int status = VSZEL_GetMcastFilterStats(
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange)
        name, port, static_cast<VSMcastFilterMode>(mode), group == nullptr ? nullptr : WireBytes(address).data(),
        &table);
    EXPECT_EQ(table, nullptr);
    return status;
  };
  EXPECT_EQ(stats("nowhere", machine, VS_MCAST_FILTER_MODE_IGMP, "239.1.2.3"), ZEL_NOT_FOUND);
  EXPECT_EQ(stats(kAlias, 4711, VS_MCAST_FILTER_MODE_IGMP, "239.1.2.3"), ZEL_NOT_FOUND);
  EXPECT_EQ(stats(kAlias, machine, VS_MCAST_FILTER_MODE_IGMP, "239.1.2.3"), ZEL_NOT_FOUND) << "not joined";
  EXPECT_EQ(stats(kAlias, machine, VS_MCAST_FILTER_MODE_MLD, "ff0e::1"), ZEL_NOT_FOUND) << "not joined";
  EXPECT_EQ(stats(kAlias, machine, VS_MCAST_FILTER_MODE_IGMP, "10.0.0.1"), ZEL_BAD_PARAM);
  EXPECT_EQ(stats(kAlias, machine, VS_MCAST_FILTER_MODE_MLD, "fe80::1"), ZEL_BAD_PARAM);
  EXPECT_EQ(stats(kAlias, machine, VS_MCAST_FILTER_MODE_IGMP, nullptr), ZEL_BAD_PARAM);
  for (const int mode :
       {static_cast<int>(VS_MCAST_FILTER_MODE_LEGACY), static_cast<int>(VS_MCAST_FILTER_MODE_SNOOPING), -1, 4}) {
    EXPECT_EQ(stats(kAlias, machine, mode, "ff0e::1"), ZEL_BAD_PARAM) << mode;
  }
}

}  // namespace
}  // namespace kestrel::host
