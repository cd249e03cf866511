// Interfaces leaving the running agent, the agent stopping on SIGTERM, and a
// new agent taking over the namespace after the old one was killed.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "AgentFixture.h"
#include "readers/PublishedTables.h"

namespace SimIt {
namespace {

using Brim::Bridging::VlanCounter;
using Brim::Interface::DropCounter;
using Interface::EthIntfCounterBrim;
using Interface::IntfStatistics;
using Interface::VlanIntfCounterBrim;
using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::QueueIndex;

const Orvo::IntfId kEthernet1("Ethernet1");
const Orvo::IntfId kEthernet2("Ethernet2");

bool fileExists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

const char* const kAllTables[] = {
    TableNames::kAllIntfCounters,        TableNames::kAllIntfClearCounters,
    TableNames::kAllIntfQueueCounters,   TableNames::kAllIntfClearQueueCounters,
    TableNames::kIntfAclDropCountersDir, TableNames::kAllVlanIntfCounters,
    TableNames::kVlanCounterDir,         TableNames::kVlanCounterSnapshotDir,
};

TEST_F(AgentTest, InterfaceRemovalDeletesItsCounterRowsAndKeepsQueueAndAclRows) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  ASSERT_TRUE(waitUntil(
      [&] {
        auto acl = rowOf<DropCounter>(ns, TableNames::kIntfAclDropCountersDir, kEthernet2);
        return acl && acl->dropCount() > 0;
      },
      5));

  EXPECT_EQ(command("intf Ethernet2 remove"), "ok Ethernet2 remove");

  // The counter rows and baselines of the port are deleted...
  auto totals = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  auto bases = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
  EXPECT_FALSE(totals.count(kEthernet2));
  EXPECT_FALSE(bases.count(kEthernet2));
  // ...its queue and ACL drop rows are kept...
  auto queues = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  auto acl = rowsOf<DropCounter>(ns, TableNames::kIntfAclDropCountersDir);
  ASSERT_TRUE(queues.count(kEthernet2));
  ASSERT_TRUE(acl.count(kEthernet2));
  EXPECT_TRUE(
      rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters).count(kEthernet2));
  // ...and the other ports keep everything.
  for (const char* other : {"Ethernet1", "Ethernet3", "Ethernet4"}) {
    Orvo::IntfId id(other);
    EXPECT_TRUE(totals.count(id)) << other;
    EXPECT_TRUE(bases.count(id)) << other;
    EXPECT_TRUE(queues.count(id)) << other;
    EXPECT_TRUE(acl.count(id)) << other;
  }

  // The kept rows are no longer polled; the other ports' rows are.
  sleepFor(3 * kPollPeriod);
  auto queuesLater = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  EXPECT_EQ(queuesLater.at(kEthernet2), queues.at(kEthernet2));
  EXPECT_GT(queuesLater.at(kEthernet1).lastUpdateTime(), queues.at(kEthernet1).lastUpdateTime());
  EXPECT_GT(queuesLater.at(kEthernet1).intfQueueStat(QueueIndex(0)).txPkts(),
            queues.at(kEthernet1).intfQueueStat(QueueIndex(0)).txPkts());
  EXPECT_FALSE(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters).count(kEthernet2));

  // Readers see the port gone from the counters and still in the queue view.
  ProcessResult r = ctl({"show", "interfaces", "counters", "Ethernet2"});
  EXPECT_TRUE(r.exitedWith(1));
  EXPECT_EQ(r.err, "vornctl: no interface Ethernet2\n");
  auto shown = ctlJson({"interfaces", "counters"});
  ASSERT_EQ(shown.size(), 3u);
  EXPECT_EQ(shown[0]["interface"], "Ethernet1");
  EXPECT_EQ(shown[1]["interface"], "Ethernet3");
  EXPECT_EQ(shown[2]["interface"], "Ethernet4");
  auto shownQueues = ctlJson({"interfaces", "counters", "queues", "Ethernet2"});
  ASSERT_EQ(shownQueues.size(), 1u);
  EXPECT_EQ(shownQueues[0]["queues"].size(), 4u);

  // Added back, the port gets fresh rows and is polled again.
  EXPECT_EQ(command("intf Ethernet2 add"), "ok Ethernet2 add");
  EXPECT_TRUE(waitUntil(
      [&] {
        auto row = rowOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters, kEthernet2);
        return row && row->statistics().inOctets() > 0;
      },
      3));
  EXPECT_TRUE(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters).count(kEthernet2));
}

TEST_F(AgentTest, SigtermStopsTheAgentCleanlyAndLeavesTheTables) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  ASSERT_TRUE(waitUntil(
      [&] {
        auto v = rowOf<VlanCounter>(ns, TableNames::kVlanCounterDir, 1);
        return v && v->timestamp() > 0;
      },
      5));

  std::optional<int> status = stopAgent(SIGTERM, 5);
  ASSERT_TRUE(status.has_value()) << "the agent did not stop within 5 s of SIGTERM";
  ASSERT_TRUE(WIFEXITED(*status)) << "wait status " << *status;
  EXPECT_EQ(WEXITSTATUS(*status), 0);

  std::stringstream log;
  log << std::ifstream(logPath).rdbuf();
  EXPECT_NE(log.str().find("vorn-sim: stopping; interfaces 4 vlans 4 polls "), std::string::npos)
      << log.str();
  // The socket goes with the agent; the tables stay for readers.
  EXPECT_FALSE(fileExists(socketPath));
  for (const char* table : kAllTables) {
    EXPECT_TRUE(fileExists("/dev/shm/" + ns + "." + table)) << table;
  }
  // Closed by their writer on the way out, not abandoned.
  EXPECT_EQ(
      Brim::TableReader<EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters)->writerPid(),
      0u);
  EXPECT_EQ(Brim::TableReader<VlanCounter>::open(ns, TableNames::kVlanCounterDir)->writerPid(), 0u);
  EXPECT_EQ(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters).size(), ports.size());
  EXPECT_EQ(rowsOf<VlanCounter>(ns, TableNames::kVlanCounterDir).size(), 4u);
  EXPECT_EQ(rowsOf<VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters).size(), 2u);

  // The reader command still shows the last totals.
  auto shown = ctlJson({"interfaces", "counters"});
  ASSERT_EQ(shown.size(), ports.size());
  EXPECT_EQ(shown[0]["inOctets"], portRow("Ethernet1").statistics().inOctets());
  EXPECT_GT(shown[0]["inOctets"].get<uint64_t>(), 0u);
}

// Every counter of `after` is at least the one of `before`.
void expectNotBelow(const IntfStatistics& before, const IntfStatistics& after,
                    const std::string& what) {
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_GE(after.counter(i).value_or(0), before.counter(i).value_or(0))
        << what << " " << IntfStatistics::counterName(i);
  }
}

TEST_F(AgentTest, RestartAfterSigkillKeepsTotalsGrowingAndBaselinesKept) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  ASSERT_TRUE(waitUntil(
      [&] {
        auto v = rowOf<VlanCounter>(ns, TableNames::kVlanCounterDir, 1);
        return v && v->inOctets() > 0;
      },
      5));
  // Baselines worth keeping: a cleared port and a cleared VLAN.
  EXPECT_EQ(command("clear counters Ethernet1"), "ok cleared Ethernet1");
  EXPECT_EQ(command("clear vlan 1"), "ok cleared vlan 1");
  // The first agent runs for a while, so that a chip which started again from
  // zero with the new agent would show in the comparison below.
  sleepFor(2.5);

  std::optional<int> status = stopAgent(SIGKILL, 5);
  ASSERT_TRUE(status.has_value());
  ASSERT_TRUE(WIFSIGNALED(*status));
  EXPECT_EQ(WTERMSIG(*status), SIGKILL);

  auto totals1 = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  auto bases1 = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
  auto queues1 = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  auto queueBases1 = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters);
  auto acl1 = rowsOf<DropCounter>(ns, TableNames::kIntfAclDropCountersDir);
  auto vlans1 = rowsOf<VlanCounter>(ns, TableNames::kVlanCounterDir);
  auto snapshots1 = rowsOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir);
  auto vlanIntfs1 = rowsOf<VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
  ASSERT_EQ(totals1.size(), ports.size());
  ASSERT_NE(bases1.at(kEthernet1), EthIntfCounterBrim(kEthernet1));
  ASSERT_NE(snapshots1.at(1), VlanCounter(1));

  // A new agent on the same namespace (and socket path, left behind by the kill).
  startAgent();
  double lastPoll = 0;
  for (const auto& [id, row] : totals1) {
    lastPoll = std::max(lastPoll, row.statistics().statsUpdateTime());
  }
  ASSERT_TRUE(waitForPortPolls(lastPoll, 5)) << "the new agent did not poll every port";
  ASSERT_TRUE(waitUntil(
      [&] {
        for (const auto& [v, row] : rowsOf<VlanCounter>(ns, TableNames::kVlanCounterDir)) {
          if (!(row.timestamp() > vlans1.at(v).timestamp())) return false;
        }
        for (const auto& [id, row] :
             rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters)) {
          if (!(row.lastUpdateTime() > queues1.at(id).lastUpdateTime())) return false;
        }
        return true;
      },
      5))
      << "the new agent did not poll every VLAN and queue";
  // ACL drop counts were published anew as the new agent started: its ACL drop
  // pollers poll once as they are created.

  // No published total went backwards.
  auto totals2 = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  ASSERT_EQ(totals2.size(), totals1.size());
  for (const auto& [id, before] : totals1) {
    expectNotBelow(before.statistics(), totals2.at(id).statistics(), id.stringValue());
    EXPECT_GE(totals2.at(id).ethStatistics().fcsErrors(), before.ethStatistics().fcsErrors());
  }
  auto queues2 = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  for (const auto& [id, before] : queues1) {
    for (uint8_t q = 0; q < 4; ++q) {
      auto a = before.intfQueueStat(QueueIndex(q));
      auto b = queues2.at(id).intfQueueStat(QueueIndex(q));
      SCOPED_TRACE(id.stringValue() + " queue " + std::to_string(q));
      EXPECT_GE(b.txOctets(), a.txOctets());
      EXPECT_GE(b.txPkts(), a.txPkts());
      EXPECT_GE(b.dropOctets(), a.dropOctets());
      EXPECT_GE(b.dropPkts(), a.dropPkts());
    }
  }
  auto acl2 = rowsOf<DropCounter>(ns, TableNames::kIntfAclDropCountersDir);
  for (const auto& [id, before] : acl1) {
    EXPECT_GE(acl2.at(id).dropCount(), before.dropCount()) << id;
  }
  auto vlans2 = rowsOf<VlanCounter>(ns, TableNames::kVlanCounterDir);
  for (const auto& [v, before] : vlans1) {
    for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
      EXPECT_GT(vlans2.at(v).counter(i), before.counter(i))
          << "VLAN " << v << " " << VlanCounter::counterName(i);
    }
  }
  auto vlanIntfs2 = rowsOf<VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
  for (const auto& [id, before] : vlanIntfs1) {
    expectNotBelow(before.statistics(), vlanIntfs2.at(id).statistics(), id.stringValue());
  }

  // Baselines and snapshots are kept as they were.
  EXPECT_EQ(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters), bases1);
  EXPECT_EQ(rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters), queueBases1);
  EXPECT_EQ(rowsOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir), snapshots1);

  // So the cleared port still shows its counters since the clear, not its totals.
  uint64_t base = bases1.at(kEthernet1).statistics().inOctets();
  auto shown = ctlJson({"interfaces", "counters", "Ethernet1"});
  uint64_t totalAfter = portRow("Ethernet1").statistics().inOctets();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_GE(shown[0]["inOctets"].get<uint64_t>(),
            totals2.at(kEthernet1).statistics().inOctets() - base);
  EXPECT_LE(shown[0]["inOctets"].get<uint64_t>(), totalAfter - base);
}

}  // namespace
}  // namespace SimIt
