// Clearing through the agent's socket: interface baselines, VLAN snapshots, and
// commands the agent refuses without changing anything.
#include <algorithm>

#include "AgentFixture.h"

namespace SimIt {
namespace {

using Brim::Bridging::VlanCounter;
using Interface::EthIntfCounterBrim;
using Interface::IntfStatistics;

// Every counter of `totals` minus `base` is zero.
void expectAllZero(const IntfStatistics& totals, const IntfStatistics& base) {
  IntfStatistics shown = totals - base;
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_EQ(shown.counter(i).value_or(0), 0u) << IntfStatistics::counterName(i);
  }
}

TEST_F(AgentTest, ClearThroughTheSocketMakesTotalsMinusBaselineReadZero) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  EthIntfCounterBrim before = portRow("Ethernet1");
  ASSERT_GT(before.statistics().inOctets(), 0u);

  // While polling goes on: the baseline is the whole record as it stood at the
  // clear, so what readers show afterwards is only what came since.
  ProcessResult r = ctl({"clear", "counters", "Ethernet1"});
  EXPECT_TRUE(r.exitedWith(0)) << r.err;
  EXPECT_EQ(r.out, "ok cleared Ethernet1\n");
  EthIntfCounterBrim totals = portRow("Ethernet1");
  auto base =
      rowOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters, Orvo::IntfId("Ethernet1"));
  ASSERT_TRUE(base.has_value());
  EXPECT_EQ(base->intfId(), Orvo::IntfId("Ethernet1"));
  EXPECT_GE(base->statistics().inOctets(), before.statistics().inOctets());
  EXPECT_LE(base->statistics().inOctets(), totals.statistics().inOctets());
  auto tr = expect->traffic(Orvo::IntfId("Ethernet1"));
  double since = totals.statistics().statsUpdateTime() - base->statistics().statsUpdateTime();
  EXPECT_LT(since, 1.0);  // a poll or a few, however slow vornctl was to return
  EXPECT_LE(static_cast<double>(totals.statistics().inOctets() - base->statistics().inOctets()),
            tr.inPps * tr.avgPacketBytes * (since + 0.02) + 2);
  // Other ports keep the zero baseline they were given.
  for (const char* other : {"Ethernet2", "Ethernet3", "Ethernet4"}) {
    auto b = rowOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters, Orvo::IntfId(other));
    ASSERT_TRUE(b.has_value()) << other;
    EXPECT_EQ(*b, EthIntfCounterBrim(Orvo::IntfId(other))) << other;
  }

  // With polling stopped the totals stand still, and a clear then makes what
  // readers show exactly zero.
  EXPECT_EQ(command("poll-period 0"), "ok poll-period 0");
  EthIntfCounterBrim still;
  ASSERT_TRUE(waitUntil(
      [&] {
        EthIntfCounterBrim a = portRow("Ethernet1");
        sleepFor(3 * kPollPeriod);
        still = portRow("Ethernet1");
        return a == still;
      },
      5))
      << "port polling did not stop";
  r = ctl({"clear", "counters", "Ethernet1"});
  EXPECT_EQ(r.out, "ok cleared Ethernet1\n");
  base =
      rowOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters, Orvo::IntfId("Ethernet1"));
  ASSERT_TRUE(base.has_value());
  EXPECT_EQ(*base, portRow("Ethernet1"));
  expectAllZero(portRow("Ethernet1").statistics(), base->statistics());

  auto shown = ctlJson({"interfaces", "counters", "Ethernet1"});
  ASSERT_EQ(shown.size(), 1u);
  for (const char* field : {"inOctets", "inUcastPkts", "inMulticastPkts", "inBroadcastPkts",
                            "outOctets", "outUcastPkts", "outMulticastPkts", "outBroadcastPkts"}) {
    EXPECT_EQ(shown[0][field], 0) << field;
  }
  auto errors = ctlJson({"interfaces", "counters", "errors", "Ethernet1"});
  ASSERT_EQ(errors.size(), 1u);
  for (const char* field : {"fcsErrors", "alignmentErrors", "inErrors", "lateCollisions",
                            "excessiveCollisions", "outErrors"}) {
    EXPECT_EQ(errors[0][field], 0) << field;
  }
  // Ethernet2 was not cleared: it still shows its totals.
  auto other = ctlJson({"interfaces", "counters", "Ethernet2"});
  ASSERT_EQ(other.size(), 1u);
  EXPECT_EQ(other[0]["inOctets"], portRow("Ethernet2").statistics().inOctets());

  // Clearing "all" gives every port a baseline equal to its totals.
  r = ctl({"clear", "counters", "all"});
  EXPECT_EQ(r.out, "ok cleared all\n");
  auto all = ctlJson({"interfaces", "counters"});
  ASSERT_EQ(all.size(), ports.size());
  for (const auto& row : all) {
    EXPECT_EQ(row["inOctets"], 0) << row["interface"];
    EXPECT_EQ(row["outUcastPkts"], 0) << row["interface"];
  }
  auto totalsNow = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  auto basesNow = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
  EXPECT_EQ(totalsNow, basesNow);
}

TEST_F(AgentTest, VlanClearTakesASnapshotReadersSubtract) {
  startAgent();
  ASSERT_TRUE(waitUntil(
      [&] {
        auto v = rowOf<VlanCounter>(ns, TableNames::kVlanCounterDir, 2);
        return v && v->timestamp() > 0 && v->inOctets() > 0;
      },
      5));
  // Before any clear, every VLAN's snapshot is its zero record.
  auto snapshots = rowsOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir);
  ASSERT_EQ(snapshots.size(), 4u);
  for (uint16_t v = 1; v <= 4; ++v) EXPECT_EQ(snapshots.at(v), VlanCounter(v));

  VlanCounter totalsBefore = *rowOf<VlanCounter>(ns, TableNames::kVlanCounterDir, 2);
  double wallBefore = wallNow();
  ProcessResult r = ctl({"clear", "vlan", "2"});
  EXPECT_TRUE(r.exitedWith(0)) << r.err;
  EXPECT_EQ(r.out, "ok cleared vlan 2\n");
  VlanCounter totalsAfter = *rowOf<VlanCounter>(ns, TableNames::kVlanCounterDir, 2);
  auto snap = rowOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir, 2);
  ASSERT_TRUE(snap.has_value());
  // The snapshot is the totals at the clear, stamped with the time of the clear.
  EXPECT_GE(snap->timestamp(), wallBefore - 0.05);
  EXPECT_LE(snap->timestamp(), wallNow() + 0.05);
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    EXPECT_GE(snap->counter(i), totalsBefore.counter(i)) << VlanCounter::counterName(i);
    EXPECT_LE(snap->counter(i), totalsAfter.counter(i)) << VlanCounter::counterName(i);
  }
  // The other VLANs are not touched.
  for (uint16_t v : {1, 3, 4}) {
    EXPECT_EQ(*rowOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir, v), VlanCounter(v));
  }

  // The reader shows counters since the clear: small next to an uncleared VLAN's.
  auto shown = ctlJson({"vlan", "counters", "2"});
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0]["vlan"], 2);
  EXPECT_EQ(shown[0]["clearedAt"].get<double>(), snap->timestamp());
  // The snapshot copies the totals of the last poll before the clear, so what
  // shows is the traffic since that poll: at most a poll period more.
  auto rates = vlanRates(2);
  double sinceClear = wallNow() - snap->timestamp();
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    EXPECT_LE(shown[0][VlanCounter::counterName(i)].get<double>(),
              rates[i] * (sinceClear + kPollPeriod + kSlack) + 2)
        << VlanCounter::counterName(i);
  }
  auto uncleared = ctlJson({"vlan", "counters", "3"});
  ASSERT_EQ(uncleared.size(), 1u);
  EXPECT_EQ(uncleared[0]["clearedAt"], 0.0);
  EXPECT_GT(uncleared[0]["inOctets"].get<uint64_t>(), 0u);

  // A second clear takes a new snapshot, later and at least as high.
  sleepFor(2 * kPollPeriod);
  r = ctl({"clear", "vlan", "2"});
  EXPECT_EQ(r.out, "ok cleared vlan 2\n");
  auto snap2 = rowOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir, 2);
  ASSERT_TRUE(snap2.has_value());
  EXPECT_GT(snap2->timestamp(), snap->timestamp());
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    EXPECT_GE(snap2->counter(i), snap->counter(i)) << VlanCounter::counterName(i);
  }
}

TEST_F(AgentTest, InvalidSocketCommandGetsAnErrorAndChangesNothing) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  auto basesBefore = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
  auto snapshotsBefore = rowsOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir);
  auto queueBasesBefore =
      rowsOf<Interface::QueueCounter::IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters);
  ASSERT_EQ(basesBefore.size(), ports.size());

  const std::pair<const char*, const char*> refused[] = {
      {"frobnicate",
       "error: unknown command 'frobnicate' (try: clear counters <intf|all>, clear vlan <id>, "
       "update <type> <intf>, intf <name> up|down|remove|add, poll-period <seconds>, chip "
       "reset|wrap <intf>, chip clear-on-read on|off, status, dump)"},
      {"", "error: empty command"},
      {"clear", "error: usage: clear counters <intf|all> | clear vlan <id>"},
      {"clear counters Vlan1", "error: no Ethernet interface Vlan1"},
      {"clear counters Ethernet9", "error: no Ethernet interface Ethernet9"},
      {"clear vlan 9", "error: VLAN 9 is not configured"},
      {"clear vlan x1", "error: 'x1' is not a VLAN id"},
      {"poll-period -1", "error: '-1' is not a number of seconds in 0..86400"},
      {"poll-period soon", "error: 'soon' is not a number of seconds in 0..86400"},
      {"update 4 Ethernet1",
       "error: counter type must be 0 (queues), 1 (port), 2 (cpu), 3 (vlan interface) or 6 (acl "
       "drops)"},
      {"intf Ethernet1 sideways", "error: usage: intf <name> up|down|remove|add"},
      {"intf Ethernet9 down", "error: no interface Ethernet9"},
      {"intf Vlan1 down", "error: only Ethernet and fabric interfaces can be changed"},
      {"chip clear-on-read maybe",
       "error: usage: chip reset|wrap <intf> | chip clear-on-read on|off"},
  };
  for (const auto& [line, reply] : refused) EXPECT_EQ(command(line), reply) << "'" << line << "'";

  // The reader command passes the refusal on and fails.
  ProcessResult r = ctl({"clear", "vlan", "9"});
  EXPECT_TRUE(r.exitedWith(1));
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "vornctl: error: VLAN 9 is not configured\n");

  // Nothing changed: no baseline, no snapshot, and polling goes on as before.
  EXPECT_EQ(rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters), basesBefore);
  EXPECT_EQ(rowsOf<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir), snapshotsBefore);
  EXPECT_EQ(
      rowsOf<Interface::QueueCounter::IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters),
      queueBasesBefore);
  double last = 0;
  for (Orvo::IntfId id : ports)
    last = std::max(last, portRow(id.stringValue()).statistics().statsUpdateTime());
  EXPECT_TRUE(waitForPortPolls(last, 2)) << "polling must go on at its period";
  EXPECT_TRUE(agentRunning());
}

}  // namespace
}  // namespace SimIt
