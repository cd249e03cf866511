// The Linux platform's pure parts on crafted input: netlink message parsers
// (short, truncated, unknown attributes), the statistics mapping and its error
// sums, queue tables from qdisc lists, queue increments across wraps and
// resets, the name filter, and the interface id assignment kept in "intfNames".
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/gen_stats.h>
#include <linux/if_arp.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <random>

#include "agent/IntfNames.h"
#include "agent/platforms/linux/KernelStats.h"
#include "agent/platforms/linux/LinuxHelpers.h"
#include "agent/platforms/linux/LinuxPlatform.h"
#include "agent/platforms/linux/Netlink.h"
#include "agent/platforms/linux/StatsMapping.h"
#include "brim/SharedObject.h"

namespace {

using namespace Linux;

// A message under construction in an aligned buffer.
struct Msg {
  alignas(8) char buf[4096] = {};
  nlmsghdr* nlh;
  Msg(uint16_t type, const void* family, size_t familyLen) {
    nlh = mnl_nlmsg_put_header(buf);
    nlh->nlmsg_type = type;
    void* f = mnl_nlmsg_put_extra_header(nlh, familyLen);
    std::memcpy(f, family, familyLen);
  }
};

Msg linkMsg(int ifIndex, const char* name, uint16_t type = RTM_NEWLINK) {
  ifinfomsg ifi{};
  ifi.ifi_family = AF_UNSPEC;
  ifi.ifi_index = ifIndex;
  ifi.ifi_type = ARPHRD_ETHER;
  ifi.ifi_flags = IFF_UP | IFF_RUNNING;
  Msg m(type, &ifi, sizeof ifi);
  if (name) mnl_attr_put_strz(m.nlh, IFLA_IFNAME, name);
  return m;
}

TEST(LinkParse, NameFlagsAndVlanKindAreRead) {
  Msg m = linkMsg(7, "va0.10");
  mnl_attr_put_u32(m.nlh, IFLA_LINK, 3);
  nlattr* info = mnl_attr_nest_start(m.nlh, IFLA_LINKINFO);
  mnl_attr_put_strz(m.nlh, IFLA_INFO_KIND, "vlan");
  nlattr* data = mnl_attr_nest_start(m.nlh, IFLA_INFO_DATA);
  mnl_attr_put_u16(m.nlh, IFLA_VLAN_ID, 10);
  mnl_attr_nest_end(m.nlh, data);
  mnl_attr_nest_end(m.nlh, info);
  auto p = parseLink(m.nlh);
  ASSERT_TRUE(p) << p.error;
  EXPECT_EQ(p.value->ifIndex, 7);
  EXPECT_EQ(p.value->name, "va0.10");
  EXPECT_EQ(p.value->kind, "vlan");
  EXPECT_EQ(p.value->vlanId, 10);
  EXPECT_EQ(p.value->parentIfIndex, 3);
  EXPECT_TRUE(p.value->operUp());
  EXPECT_FALSE(p.value->deleted);
}

TEST(LinkParse, UnknownAttributesAreSkipped) {
  Msg m = linkMsg(4, "veth0");
  mnl_attr_put_u32(m.nlh, 999, 0xdeadbeef);  // newer than any kernel this was written for
  mnl_attr_put_u64(m.nlh, 1234, 1);
  auto p = parseLink(m.nlh);
  ASSERT_TRUE(p) << p.error;
  EXPECT_EQ(p.value->name, "veth0");
  EXPECT_EQ(p.value->kind, "");
}

TEST(LinkParse, AttributeRunningPastTheEndIsRefused) {
  Msg m = linkMsg(4, "veth0");
  mnl_attr_put_u32(m.nlh, IFLA_MTU, 1500);
  // Cut the message in the middle of the last attribute.
  m.nlh->nlmsg_len -= 2;
  auto p = parseLink(m.nlh);
  EXPECT_FALSE(p);
  EXPECT_EQ(p.error, "link message of ifindex 4 has an attribute running past its end");
}

TEST(LinkParse, NestedAttributeRunningPastItsNestIsRefused) {
  Msg m = linkMsg(4, "veth0");
  nlattr* info = mnl_attr_nest_start(m.nlh, IFLA_LINKINFO);
  mnl_attr_put_strz(m.nlh, IFLA_INFO_KIND, "vlan");
  mnl_attr_nest_end(m.nlh, info);
  info->nla_len -= 6;  // the nest claims less than its child holds
  auto p = parseLink(m.nlh);
  EXPECT_FALSE(p);
}

TEST(LinkParse, MessageShorterThanItsHeaderIsRefused) {
  Msg m = linkMsg(4, nullptr);
  m.nlh->nlmsg_len = NLMSG_HDRLEN + 4;
  auto p = parseLink(m.nlh);
  EXPECT_FALSE(p);
  EXPECT_EQ(p.error, "link message shorter than its header");
}

TEST(LinkParse, NewLinkWithoutNameIsRefusedDeletionIsNot) {
  EXPECT_FALSE(parseLink(linkMsg(4, nullptr).nlh));
  auto p = parseLink(linkMsg(4, nullptr, RTM_DELLINK).nlh);
  ASSERT_TRUE(p) << p.error;
  EXPECT_TRUE(p.value->deleted);
}

Msg statsMsg(int ifIndex, size_t statsLen, uint64_t firstValue) {
  if_stats_msg ism{};
  ism.ifindex = static_cast<uint32_t>(ifIndex);
  ism.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
  Msg m(RTM_NEWSTATS, &ism, sizeof ism);
  std::vector<uint64_t> words(statsLen / 8, 0);
  for (size_t i = 0; i < words.size(); ++i) words[i] = firstValue + i;
  mnl_attr_put(m.nlh, IFLA_STATS_LINK_64, statsLen, words.data());
  return m;
}

TEST(StatsParse, FullAndOlderShorterStatisticsAreRead) {
  auto p = parseLinkStats(statsMsg(5, sizeof(rtnl_link_stats64), 100).nlh);
  ASSERT_TRUE(p) << p.error;
  EXPECT_EQ(p.value->ifIndex, 5);
  EXPECT_EQ(p.value->stats.rx_packets, 100u);
  EXPECT_EQ(p.value->stats.tx_packets, 101u);
  EXPECT_EQ(p.value->stats.tx_compressed, 122u);
  // A kernel without rx_nohandler: the fields it lacks read as zero.
  auto old = parseLinkStats(statsMsg(5, offsetof(rtnl_link_stats64, rx_nohandler), 1).nlh);
  ASSERT_TRUE(old) << old.error;
  EXPECT_EQ(old.value->stats.rx_nohandler, 0u);
  EXPECT_EQ(old.value->stats.tx_compressed, 23u);
}

TEST(StatsParse, TooShortOrMissingStatisticsAreRefused) {
  auto p = parseLinkStats(statsMsg(5, 64, 1).nlh);
  EXPECT_FALSE(p);
  EXPECT_EQ(p.error, "statistics of ifindex 5 are too short");
  if_stats_msg ism{};
  ism.ifindex = 6;
  Msg empty(RTM_NEWSTATS, &ism, sizeof ism);
  auto q = parseLinkStats(empty.nlh);
  EXPECT_FALSE(q);
  EXPECT_EQ(q.error, "statistics message of ifindex 6 holds no 64-bit link statistics");
  Msg cut = statsMsg(5, sizeof(rtnl_link_stats64), 1);
  cut.nlh->nlmsg_len -= 16;
  EXPECT_FALSE(parseLinkStats(cut.nlh));
}

Msg qdiscMsg(int ifIndex, uint32_t handle, uint32_t parent, const char* kind, uint64_t bytes,
             uint64_t packets, uint32_t drops, bool pkt64) {
  tcmsg t{};
  t.tcm_ifindex = ifIndex;
  t.tcm_handle = handle;
  t.tcm_parent = parent;
  Msg m(RTM_NEWQDISC, &t, sizeof t);
  mnl_attr_put_strz(m.nlh, TCA_KIND, kind);
  nlattr* st = mnl_attr_nest_start(m.nlh, TCA_STATS2);
  gnet_stats_basic b{};
  b.bytes = bytes;
  b.packets = static_cast<uint32_t>(packets);
  mnl_attr_put(m.nlh, TCA_STATS_BASIC, sizeof b, &b);
  if (pkt64) mnl_attr_put_u64(m.nlh, TCA_STATS_PKT64, packets);
  gnet_stats_queue q{};
  q.drops = drops;
  mnl_attr_put(m.nlh, TCA_STATS_QUEUE, sizeof q, &q);
  mnl_attr_nest_end(m.nlh, st);
  return m;
}

TEST(QdiscParse, StatisticsAndTheSixtyFourBitPacketCountAreRead) {
  auto p = parseQdisc(
      qdiscMsg(3, 0, TC_H_MAKE(1u << 16, 2), "pfifo_fast", 5000, 5000000000ull, 7, true).nlh);
  ASSERT_TRUE(p) << p.error;
  EXPECT_EQ(p.value->ifIndex, 3);
  EXPECT_EQ(p.value->kind, "pfifo_fast");
  EXPECT_TRUE(p.value->hasStats);
  EXPECT_EQ(p.value->bytes, 5000u);
  EXPECT_EQ(p.value->packets, 5000000000ull);
  EXPECT_TRUE(p.value->packets64);
  EXPECT_EQ(p.value->drops, 7u);
  Msg cut = qdiscMsg(3, 0, 1, "fq", 1, 1, 0, false);
  cut.nlh->nlmsg_len -= 6;
  EXPECT_FALSE(parseQdisc(cut.nlh));
}

TEST(QueueTable, ChildrenOfAnMqRootBecomeQueuesInOrder) {
  std::vector<QdiscInfo> all;
  auto add = [&](Msg m) { all.push_back(*parseQdisc(m.nlh).value); };
  add(qdiscMsg(3, 1u << 16, TC_H_ROOT, "mq", 60, 6, 0, true));
  add(qdiscMsg(3, 0, TC_H_MAKE(1u << 16, 2), "pfifo_fast", 20, 2, 1, true));
  add(qdiscMsg(3, 0, TC_H_MAKE(1u << 16, 1), "pfifo_fast", 40, 4, 0, true));
  // Another device without mq, and a child of some other parent: no queues.
  add(qdiscMsg(4, 0, TC_H_ROOT, "noqueue", 0, 0, 0, true));
  add(qdiscMsg(3, 5u << 16, TC_H_MAKE(7u << 16, 1), "fq", 9, 9, 9, true));
  auto t = KernelStats::queuesOf(all);
  ASSERT_EQ(t.size(), 1u);
  ASSERT_EQ(t.at(3).size(), 2u);
  EXPECT_EQ(t.at(3)[0].packets, 4u);
  EXPECT_EQ(t.at(3)[1].packets, 2u);
  EXPECT_EQ(t.at(3)[1].drops, 1u);
}

TEST(QueueIncrement, WrapsOfThirtyTwoBitCountersAndResetsAreTold) {
  EXPECT_EQ(queueIncrement(10, 4, true), 6u);
  EXPECT_EQ(queueIncrement(5, 0xfffffff0ull, false), 0x15u);  // wrapped past 2^32
  EXPECT_EQ(queueIncrement(5, 1000, false), 5u);              // reset: counted 5 since
  EXPECT_EQ(queueIncrement(5, 0xfffffff0ull, true), 5u);      // 64-bit: a reset
}

rtnl_link_stats64 randomStats(std::mt19937_64& rng) {
  rtnl_link_stats64 k{};
  uint64_t* w = reinterpret_cast<uint64_t*>(&k);
  for (size_t i = 0; i < sizeof k / 8; ++i) w[i] = rng() % 1000;
  return k;
}

TEST(StatsMapping, ErrorSumsHoldForConsistentAndInconsistentDrivers) {
  std::mt19937_64 rng(42);
  for (int i = 0; i < 1000; ++i) {
    rtnl_link_stats64 k = randomStats(rng);
    Interface::IntfStatistics s;
    Interface::EthStatistics e;
    mapLinkStats(k, s, e);
    EXPECT_EQ(s.inErrors(), e.alignmentErrors() + e.fcsErrors() + e.frameTooLongs() +
                                e.frameTooShorts() + e.internalMacReceiveErrors());
    EXPECT_EQ(s.outErrors(), e.sqeTestErrors() + e.lateCollisions() + e.excessiveCollisions() +
                                 e.internalMacTransmitErrors() + e.carrierSenseErrors());
    EXPECT_EQ(s.inUcastPkts() + s.inMulticastPkts() + s.inBroadcastPkts(), k.rx_packets);
    uint64_t knownRx = k.rx_crc_errors + k.rx_frame_errors + k.rx_length_errors;
    if (k.rx_errors >= knownRx) {
      EXPECT_EQ(s.inErrors(), k.rx_errors);
    }
  }
}

TEST(StatsMapping, FieldsLandWhereTheDocumentedTableSays) {
  rtnl_link_stats64 k{};
  k.rx_packets = 100;
  k.multicast = 30;
  k.rx_bytes = 6400;
  k.tx_packets = 50;
  k.tx_bytes = 3200;
  k.rx_dropped = 2;
  k.rx_missed_errors = 3;
  k.tx_dropped = 4;
  k.rx_errors = 10;
  k.rx_crc_errors = 5;
  k.rx_frame_errors = 1;
  k.rx_length_errors = 2;
  k.tx_errors = 3;
  k.tx_carrier_errors = 1;
  Interface::IntfStatistics s;
  Interface::EthStatistics e;
  mapLinkStats(k, s, e);
  EXPECT_EQ(s.inOctets(), 6400u);
  EXPECT_EQ(s.inUcastPkts(), 70u);
  EXPECT_EQ(s.inMulticastPkts(), 30u);
  EXPECT_EQ(s.inDiscards(), 5u);
  EXPECT_EQ(s.outOctets(), 3200u);
  EXPECT_EQ(s.outUcastPkts(), 50u);
  EXPECT_EQ(s.outDiscards(), 4u);
  EXPECT_EQ(s.inErrors(), 10u);
  EXPECT_EQ(e.fcsErrors(), 5u);
  EXPECT_EQ(e.alignmentErrors(), 1u);
  EXPECT_EQ(e.frameTooLongs(), 2u);
  EXPECT_EQ(e.internalMacReceiveErrors(), 2u);
  EXPECT_EQ(s.outErrors(), 3u);
  EXPECT_EQ(e.carrierSenseErrors(), 1u);
  EXPECT_EQ(e.internalMacTransmitErrors(), 2u);
}

TEST(NameFilter, CommaSeparatedShellPatterns) {
  EXPECT_TRUE(nameSelected("", "anything"));
  EXPECT_TRUE(nameSelected("veth*,eth0", "veth12"));
  EXPECT_TRUE(nameSelected("veth*,eth0", "eth0"));
  EXPECT_FALSE(nameSelected("veth*,eth0", "eth1"));
}

std::atomic<unsigned> gNext{0};
std::string scratchNs() {
  return "lnx" + std::to_string(::getpid()) + "_" + std::to_string(gNext++);
}
// The table and its writer lock both go.
void unlinkNames(const std::string& ns) { Brim::unlinkTable(ns, Published::kIntfNamesTable); }

TEST(IntfNames, NamesKeepTheirIdsAcrossReopenAndNewNamesTakeTheLowestFree) {
  std::string ns = scratchNs();
  {
    Agent::IntfNames names(ns, 8);
    EXPECT_EQ(names.ethIdFor("va0"), Orvo::IntfId("Ethernet1"));
    EXPECT_EQ(names.ethIdFor("vb0"), Orvo::IntfId("Ethernet2"));
    EXPECT_EQ(names.ethIdFor("va0"), Orvo::IntfId("Ethernet1"));
    names.presentIs(Orvo::IntfId("Ethernet2"), "vb0", 9, true, 10000000000ull, 5.0);
    names.goneIs(Orvo::IntfId("Ethernet2"), 6.0);
  }
  Agent::IntfNames again(ns, 8);
  EXPECT_EQ(again.ethIdFor("vb0"), Orvo::IntfId("Ethernet2"));
  EXPECT_EQ(again.ethIdFor("va0"), Orvo::IntfId("Ethernet1"));
  EXPECT_EQ(again.ethIdFor("new"), Orvo::IntfId("Ethernet3"));
  auto r = again.find(Orvo::IntfId("Ethernet2"));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->kernelNameText(), "vb0");
  EXPECT_EQ(r->present, 0u);
  EXPECT_EQ(r->speedBps, 10000000000ull);
  unlinkNames(ns);
}

TEST(IntfNames, AFullTableReusesTheIdOfTheDeviceGoneLongestOrRefuses) {
  std::string ns = scratchNs();
  Agent::IntfNames names(ns, 2);
  auto a = *names.ethIdFor("a0");
  auto b = *names.ethIdFor("b0");
  names.presentIs(a, "a0", 1, true, 0, 1.0);
  names.presentIs(b, "b0", 2, true, 0, 1.0);
  EXPECT_FALSE(names.ethIdFor("c0").has_value());  // every record is a present device
  names.goneIs(b, 2.0);
  EXPECT_EQ(names.ethIdFor("c0"), b);  // b0's record was reused
  EXPECT_EQ(names.size(), 2u);
  unlinkNames(ns);
}

}  // namespace
