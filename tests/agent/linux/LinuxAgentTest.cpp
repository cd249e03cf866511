// The agent on the Linux platform against a real kernel: veth pairs in a
// network namespace of the test's own, real UDP traffic, and the published
// counters compared with the kernel's statistics.
#include <signal.h>

#include <set>

#include "LinuxFixture.h"
#include "readers/ControlClient.h"

namespace LinuxIt {
namespace {

using Interface::EthIntfCounterBrim;
using Interface::IntfStatistics;
using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::QueueIndex;

uint64_t inPkts(const IntfStatistics& s) {
  return s.inUcastPkts() + s.inMulticastPkts() + s.inBroadcastPkts();
}
uint64_t outPkts(const IntfStatistics& s) {
  return s.outUcastPkts() + s.outMulticastPkts().value() + s.outBroadcastPkts();
}

void expectEqualsKernel(const IntfStatistics& s, const KernelStats& k, const std::string& dev) {
  SCOPED_TRACE(dev);
  EXPECT_EQ(s.inOctets(), k.at("rx_bytes"));
  EXPECT_EQ(inPkts(s), k.at("rx_packets"));
  EXPECT_EQ(s.inMulticastPkts(), k.at("multicast"));
  EXPECT_EQ(s.outOctets(), k.at("tx_bytes"));
  EXPECT_EQ(outPkts(s), k.at("tx_packets"));
  EXPECT_EQ(s.inDiscards(), k.at("rx_dropped") + k.at("rx_missed_errors"));
  EXPECT_EQ(s.outDiscards(), k.at("tx_dropped"));
  EXPECT_EQ(s.inErrors(), k.at("rx_errors"));
  EXPECT_EQ(s.outErrors(), k.at("tx_errors"));
}

const std::vector<std::string> kFour{"va0", "vb0", "va1", "vb1"};

TEST_F(LinuxAgentTest, PublishedTotalsEqualTheKernelsStatisticsAfterOnePoll) {
  addPair(0);
  addPair(1);
  // Not Ethernet-like: skipped with a line saying so.
  ip({"tuntap", "add", "tun7", "mode", "tun"});
  startAgent();
  ASSERT_TRUE(polledAfter(kFour, 0)) << log();

  EXPECT_EQ(send("va0", 400, 300), 400);
  EXPECT_EQ(send("vb0", 150, 100), 150);
  EXPECT_EQ(send("va1", 250, 1000), 250);
  std::map<std::string, KernelStats> kernel;
  for (const auto& d : kFour) kernel[d] = sysfs(d);
  double readAt = wallNow();
  ASSERT_TRUE(polledAfter(kFour, readAt)) << log();
  for (const auto& d : kFour) expectEqualsKernel(row(d)->statistics(), kernel[d], d);
  // The traffic is there, not only zeros on both sides.
  EXPECT_GE(kernel["vb0"].at("rx_packets"), 400u);
  EXPECT_GE(kernel["vb1"].at("rx_bytes"), 250u * 1000);

  // Ids by name, the names published for readers, the skipped device reported.
  std::set<std::string> ids;
  for (const auto& d : kFour) ids.insert(idOf(d)->stringValue());
  EXPECT_EQ(ids, (std::set<std::string>{"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}));
  EXPECT_FALSE(idOf("tun7").has_value());
  EXPECT_FALSE(idOf("lo").has_value());
  EXPECT_NE(log().find("linux: skipped tun7 (ifindex "), std::string::npos) << log();
  EXPECT_NE(log().find("is not Ethernet-like"), std::string::npos);
  auto rec = nameRecord("va0");
  EXPECT_EQ(rec->present, 1u);
  EXPECT_EQ(rec->operUp, 1u);
  EXPECT_EQ(rec->speedBps, 10000000000ull);  // what veth reports

  // Readers show the kernel name and take it as a filter.
  Proc shown = run({VORNCTL_BINARY, "-n", ns, "--json", "show", "interfaces", "counters", "va1"});
  ASSERT_TRUE(shown.ok()) << shown.out;
  EXPECT_NE(shown.out.find("\"kernelName\": \"va1\""), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("\"interface\": \"" + idOf("va1")->stringValue() + "\""),
            std::string::npos);
  Proc names = run({VORNCTL_BINARY, "-n", ns, "show", "interfaces", "names"});
  ASSERT_TRUE(names.ok()) << names.out;
  EXPECT_NE(names.out.find("Port"), std::string::npos);
  for (const auto& d : kFour) EXPECT_NE(names.out.find(d), std::string::npos) << names.out;

  // What the platform cannot count it says so, and serves no such rows.
  std::string status = command("status");
  EXPECT_NE(status.find("unsupported: cpu-port,acl-drops,policing,vlan-bridging-counters"),
            std::string::npos)
      << status;
  EXPECT_TRUE(
      rowsOf<Brim::Interface::DropCounter>(ns, TableNames::kIntfAclDropCountersDir).empty());
}

TEST_F(LinuxAgentTest, OneStatisticsDumpServesEveryPollerOfATick) {
  for (int p = 0; p < 4; ++p) addPair(p, 2, true);
  startAgent();
  std::vector<std::string> devs;
  for (int p = 0; p < 4; ++p) {
    devs.push_back("va" + std::to_string(p));
    devs.push_back("vb" + std::to_string(p));
  }
  ASSERT_TRUE(polledAfter(devs, 0));
  auto dumps = [&](const std::string& what) {
    std::string s = command("status");
    auto at = s.find(what + " ");
    return std::stoull(s.substr(at + what.size() + 1));
  };
  uint64_t links0 = dumps("link-dumps"), qdiscs0 = dumps("qdisc-dumps");
  double t0 = wallNow();
  sleepFor(2.0);
  uint64_t links = dumps("link-dumps") - links0, qdiscs = dumps("qdisc-dumps") - qdiscs0;
  double ticks = (wallNow() - t0) / kPollPeriod;
  // 8 port pollers and 8 queue pollers per tick; about one dump of each kind.
  EXPECT_LE(links, ticks * 1.5 + 2);
  EXPECT_LE(qdiscs, ticks * 1.5 + 2);
  EXPECT_GE(links, ticks * 0.5);
}

TEST_F(LinuxAgentTest, RatesRiseDuringTrafficAndFallAfterIt) {
  addPair(0);
  startAgent();
  ASSERT_TRUE(polledAfter({"va0"}, 0));
  double peak = 0;
  double end = wallNow() + 1.5;
  while (wallNow() < end) {
    send("va0", 100, 500);
    sleepFor(0.02);
    peak = std::max(peak, row("va0")->rates().outPktsRate());
  }
  EXPECT_GT(peak, 100.0);
  EXPECT_GT(row("vb0")->rates().inPktsRate(), 0.0);
  sleepFor(1.0);
  double after = row("va0")->rates().outPktsRate();
  EXPECT_LT(after, peak * 0.9) << "peak " << peak;
}

TEST_F(LinuxAgentTest, ClearThroughTheControlSocketMakesTotalsMinusBaselineZeroThenGrow) {
  addPair(0);
  startAgent();
  ASSERT_TRUE(polledAfter({"va0"}, 0));
  send("va0", 200, 200);
  ASSERT_TRUE(polledAfter({"va0"}, wallNow()));
  std::string port = idOf("va0")->stringValue();
  EXPECT_EQ(Readers::sendCommand(socketPath, "clear counters " + port), "ok cleared " + port);
  auto shown = [&] {
    auto totals = row("va0")->statistics();
    auto bases = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
    return totals - bases.at(*idOf("va0")).statistics();
  };
  ASSERT_TRUE(waitUntil([&] { return outPkts(shown()) == 0; }, 2));
  EXPECT_EQ(shown().outOctets(), 0u);
  auto before = sysfs("va0");
  send("va0", 120, 200);
  auto after = sysfs("va0");
  ASSERT_TRUE(polledAfter({"va0"}, wallNow()));
  EXPECT_EQ(outPkts(shown()), after.at("tx_packets") - before.at("tx_packets"));
  EXPECT_GE(outPkts(shown()), 120u);
}

TEST_F(LinuxAgentTest, DeletedVethIsWithdrawnAndOnceCreatedAgainContinuesItsTotals) {
  addPair(0);
  addPair(1);
  startAgent();
  ASSERT_TRUE(polledAfter(kFour, 0));
  send("va0", 300, 400);
  ASSERT_TRUE(polledAfter({"va0", "vb0"}, wallNow()));
  auto id = *idOf("va0");
  auto peer = *idOf("vb0");
  IntfStatistics old = row("va0")->statistics();
  IntfStatistics oldPeer = row("vb0")->statistics();
  ASSERT_GE(outPkts(old), 300u);

  delPair(0);
  // Both ends leave: their counter rows and baselines go, the ids stay reserved.
  ASSERT_TRUE(waitUntil(
      [&] {
        auto rows = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
        return !rows.count(id) && !rows.count(peer);
      },
      3))
      << log();
  EXPECT_FALSE(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters).count(id));
  EXPECT_EQ(nameRecord("va0")->present, 0u);
  EXPECT_EQ(nameRecord("va0")->intfId, id);
  EXPECT_TRUE(row("va1").has_value());

  // Created again under the same names: the same ids, served again, and the
  // totals carry on from where they stood.
  addPair(0);
  ASSERT_TRUE(waitUntil([&] { return row("va0").has_value(); }, 3)) << log();
  EXPECT_EQ(*idOf("va0"), id);
  EXPECT_EQ(*idOf("vb0"), peer);
  send("va0", 100, 400);
  auto k = sysfs("va0");
  auto kPeer = sysfs("vb0");
  ASSERT_TRUE(polledAfter({"va0", "vb0"}, wallNow()));
  IntfStatistics now = row("va0")->statistics();
  EXPECT_EQ(outPkts(now), outPkts(old) + k.at("tx_packets"));
  EXPECT_EQ(now.outOctets(), old.outOctets() + k.at("tx_bytes"));
  EXPECT_EQ(inPkts(row("vb0")->statistics()), inPkts(oldPeer) + kPeer.at("rx_packets"));
  EXPECT_EQ(nameRecord("va0")->present, 1u);
}

TEST_F(LinuxAgentTest, LinkDownAndUpChangeTheStatusAndKeepServing) {
  addPair(0);
  startAgent();
  ASSERT_TRUE(polledAfter({"va0"}, 0));
  ip({"link", "set", "va0", "down"});
  ASSERT_TRUE(waitUntil([&] { return nameRecord("va0")->operUp == 0; }, 3));
  EXPECT_EQ(nameRecord("va0")->present, 1u);
  ASSERT_TRUE(polledAfter({"va0"}, wallNow()));  // still polled while down
  ip({"link", "set", "va0", "up"});
  ASSERT_TRUE(waitUntil([&] { return nameRecord("va0")->operUp == 1; }, 3));
}

TEST_F(LinuxAgentTest, MqQueuePacketsAndBytesAddUpToTheDevicesTransmitted) {
  addPair(0, 4, true);
  startAgent();
  ASSERT_TRUE(polledAfter({"va0"}, 0));
  // Several flows, so that more than one queue is used.
  send("va0", 400, 300, 16);
  auto k = sysfs("va0");
  ASSERT_TRUE(polledAfter({"va0"}, wallNow()));
  auto id = *idOf("va0");
  ASSERT_TRUE(waitUntil(
      [&] {
        auto r = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
        return r.count(id) && r.at(id).lastUpdateTime() > wallNow() - kPollPeriod;
      },
      3));
  // Read after the queue poller's next poll, which follows the kernel reading.
  double t = wallNow();
  ASSERT_TRUE(waitUntil(
      [&] {
        return rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters)
                   .at(id)
                   .lastUpdateTime() > t;
      },
      3));
  auto rec = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters).at(id);
  ASSERT_EQ(rec.intfQueueStatArray().size(), 4u);
  uint64_t pkts = 0, bytes = 0;
  int used = 0;
  for (uint8_t q = 0; q < 4; ++q) {
    auto s = rec.intfQueueStat(QueueIndex(q));
    pkts += s.txPkts();
    bytes += s.txOctets();
    used += s.txPkts() > 0;
  }
  EXPECT_EQ(pkts, k.at("tx_packets"));
  EXPECT_EQ(bytes, k.at("tx_bytes"));
  EXPECT_GE(used, 2);
  // The peer has no mq root: a record without queues.
  auto peer = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters).at(*idOf("vb0"));
  EXPECT_EQ(peer.intfQueueStatArray().size(), 0u);
}

TEST_F(LinuxAgentTest, VlanDevicesAreServedAsVlanInterfaces) {
  addPair(0);
  Proc r = run({"ip", "-n", netns, "link", "add", "link", "va0", "name", "va0.10", "type", "vlan",
                "id", "10"});
  if (!r.ok()) {
    std::string why = r.out.substr(0, r.out.find('\n'));
    GTEST_SKIP() << "skipped: the kernel has no 802.1Q support (ip link add ... type vlan: " << why
                 << ")";
  }
  ip({"link", "set", "va0.10", "up"});
  startAgent();
  Orvo::IntfId vlan("Vlan10");
  ASSERT_TRUE(waitUntil(
      [&] {
        auto rows = rowsOf<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
        return rows.count(vlan) && rows.at(vlan).statistics().statsUpdateTime() > 0;
      },
      5))
      << log();
  EXPECT_EQ(nameRecord("va0.10")->intfId, vlan);
  ip({"link", "del", "va0.10"});
  ASSERT_TRUE(waitUntil(
      [&] {
        return !rowsOf<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters)
                    .count(vlan);
      },
      3));
}

TEST_F(LinuxAgentTest, LostNotificationsAreRepairedByAFreshDump) {
  addPair(0);
  // The smallest receive buffer the kernel allows: a burst overflows it.
  startAgent({"--netlink-rcvbuf", "1"});
  ASSERT_TRUE(polledAfter({"va0"}, 0));
  // The agent cannot read while stopped, so the burst is bound to be lost.
  ASSERT_EQ(::kill(agentPid, SIGSTOP), 0);
  std::string batch;
  for (int p = 1; p <= 40; ++p) {
    batch +=
        "link add va" + std::to_string(p) + " type veth peer name vb" + std::to_string(p) + "\n";
  }
  std::string path = "/tmp/" + ns + ".batch";
  {
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs(batch.c_str(), f);
    std::fclose(f);
  }
  Proc r = run({"ip", "-n", netns, "-batch", path});
  ::unlink(path.c_str());
  ::kill(agentPid, SIGCONT);
  ASSERT_TRUE(r.ok()) << r.out;
  ASSERT_TRUE(waitUntil(
      [&] { return rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters).size() == 82; },
      10))
      << "served: " << rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters).size() << "\n"
      << log();
  EXPECT_NE(log().find("link notifications were lost (receive buffer full): resynchronising"),
            std::string::npos)
      << log();
  EXPECT_NE(command("status").find(" resyncs "), std::string::npos);
  EXPECT_TRUE(polledAfter({"va40", "vb40", "va1"}, wallNow()));
}

TEST_F(LinuxAgentTest, NameFilterServesOnlyMatchingDevices) {
  addPair(0);
  addPair(1);
  startAgent({"--intf-filter", "va*,vb1"});
  ASSERT_TRUE(polledAfter({"va0", "va1", "vb1"}, 0)) << log();
  EXPECT_FALSE(idOf("vb0").has_value());
  EXPECT_EQ(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters).size(), 3u);
  // A device created later under a matching name is served, others are not.
  ip({"link", "add", "va5", "type", "veth", "peer", "name", "vc5"});
  ASSERT_TRUE(waitUntil([&] { return row("va5").has_value(); }, 3));
  EXPECT_FALSE(idOf("vc5").has_value());
}

TEST_F(LinuxAgentTest, RestartedAgentContinuesTheTotalsExactly) {
  addPair(0);
  startAgent();
  ASSERT_TRUE(polledAfter({"va0", "vb0"}, 0));
  send("va0", 200, 300);
  ASSERT_TRUE(polledAfter({"va0", "vb0"}, wallNow()));
  ASSERT_TRUE(stopAgent(SIGTERM));
  IntfStatistics before = row("va0")->statistics();
  IntfStatistics peerBefore = row("vb0")->statistics();
  KernelStats k1 = sysfs("va0"), p1 = sysfs("vb0");
  // The kernel counts on while no agent runs.
  send("va0", 70, 300);
  startAgent();
  send("va0", 30, 300);
  KernelStats k2 = sysfs("va0"), p2 = sysfs("vb0");
  ASSERT_TRUE(polledAfter({"va0", "vb0"}, wallNow()));
  IntfStatistics after = row("va0")->statistics();
  EXPECT_EQ(outPkts(after), outPkts(before) + k2.at("tx_packets") - k1.at("tx_packets"));
  EXPECT_EQ(after.outOctets(), before.outOctets() + k2.at("tx_bytes") - k1.at("tx_bytes"));
  EXPECT_EQ(inPkts(row("vb0")->statistics()),
            inPkts(peerBefore) + p2.at("rx_packets") - p1.at("rx_packets"));
  EXPECT_EQ(k2.at("tx_packets") - k1.at("tx_packets"), 100u);
}

TEST_F(LinuxAgentTest, RestartedAgentGivesKnownNamesTheirIdsAndNewNamesFreshOnes) {
  addPair(0);
  addPair(1);
  startAgent();
  ASSERT_TRUE(polledAfter(kFour, 0));
  std::map<std::string, Orvo::IntfId> ids;
  for (const auto& d : kFour) ids[d] = *idOf(d);
  ASSERT_TRUE(stopAgent(SIGTERM));
  // While no agent runs, one pair goes and another comes.
  delPair(0);
  addPair(2);
  startAgent();
  ASSERT_TRUE(polledAfter({"va1", "vb1", "va2", "vb2"}, wallNow()));
  EXPECT_EQ(*idOf("va1"), ids["va1"]);
  EXPECT_EQ(*idOf("vb1"), ids["vb1"]);
  EXPECT_EQ(nameRecord("va0")->present, 0u);
  std::set<Orvo::IntfId> taken;
  for (const auto& [d, id] : ids) taken.insert(id);
  EXPECT_FALSE(taken.count(*idOf("va2")));
  EXPECT_FALSE(taken.count(*idOf("vb2")));
}

}  // namespace
}  // namespace LinuxIt
