// SimChip: seeded, repeatable traffic; counters that are exactly rate x active
// time; error sums that always hold; resets, wraps and ports that go down.
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "agent/platforms/sim/SimChip.h"

namespace {

using Interface::EthStatistics;
using Interface::IntfStatistics;
using Orvo::IntfId;

constexpr double kStart = 1000.0;

Sim::Topology smallTopology(uint64_t seed = 1) {
  Sim::Topology t;
  t.ethPorts = 4;
  t.queuesPerPort = 4;
  t.fabricPorts = 1;
  t.vlanIntfs = 2;
  t.vlans = 4;
  t.seed = seed;
  return t;
}

struct Reading {
  IntfStatistics stats;
  EthStatistics eth;
};

Reading readingOf(const Sim::SimChip& chip, IntfId id) {
  Reading r;
  chip.portReading(id, r.stats, r.eth);
  return r;
}

// The two error sums the counters machines check, modulo 2^64.
void expectErrorSumsHold(const Reading& r) {
  EXPECT_EQ(r.stats.inErrors(), r.eth.alignmentErrors() + r.eth.fcsErrors() +
                                    r.eth.frameTooLongs() + r.eth.frameTooShorts() +
                                    r.eth.internalMacReceiveErrors());
  EXPECT_EQ(r.stats.outErrors(),
            r.eth.sqeTestErrors() + r.eth.lateCollisions() + r.eth.excessiveCollisions() +
                r.eth.internalMacTransmitErrors() + r.eth.carrierSenseErrors());
}

std::vector<IntfId> allPorts(const Sim::SimChip& chip) {
  std::vector<IntfId> ids = chip.ethPorts();
  ids.insert(ids.end(), chip.fabricPorts().begin(), chip.fabricPorts().end());
  ids.insert(ids.end(), chip.vlanIntfs().begin(), chip.vlanIntfs().end());
  ids.push_back(chip.cpuPort());
  return ids;
}

TEST(SimChip, NamesItsPortsAfterTheTopology) {
  Sim::SimChip chip(smallTopology());
  EXPECT_EQ(chip.ethPorts(), (std::vector<IntfId>{IntfId("Ethernet1"), IntfId("Ethernet2"),
                                                  IntfId("Ethernet3"), IntfId("Ethernet4")}));
  EXPECT_EQ(chip.fabricPorts(), (std::vector<IntfId>{IntfId("Fabric1")}));
  EXPECT_EQ(chip.vlanIntfs(), (std::vector<IntfId>{IntfId("Vlan1"), IntfId("Vlan2")}));
  EXPECT_EQ(chip.cpuPort(), IntfId("Cpu"));
  EXPECT_TRUE(chip.hasPort(IntfId("Ethernet4")));
  EXPECT_FALSE(chip.hasPort(IntfId("Ethernet5")));
  EXPECT_TRUE(chip.portUp(IntfId("Ethernet1")));
}

TEST(SimChip, RejectsAnInvalidTopology) {
  Sim::Topology t = smallTopology();
  t.queuesPerPort = 17;
  EXPECT_THROW(Sim::SimChip chip(t), Sim::TopologyError);
}

TEST(SimChip, SameSeedGivesSameTrafficAndReadings) {
  Sim::SimChip a(smallTopology(42)), b(smallTopology(42));
  for (double t : {kStart, kStart + 0.37, kStart + 12.5, kStart + 3600.0}) {
    a.advanceTo(t);
    b.advanceTo(t);
    for (IntfId id : allPorts(a)) {
      SCOPED_TRACE(id.stringValue());
      EXPECT_EQ(a.traffic(id).inPps, b.traffic(id).inPps);
      EXPECT_EQ(a.traffic(id).outPps, b.traffic(id).outPps);
      Reading ra = readingOf(a, id), rb = readingOf(b, id);
      EXPECT_EQ(ra.stats, rb.stats);
      EXPECT_EQ(ra.eth, rb.eth);
      EXPECT_EQ(a.aclDropCount(id), b.aclDropCount(id));
    }
    for (IntfId id : a.ethPorts()) {
      auto qa = a.queueReading(id), qb = b.queueReading(id);
      ASSERT_EQ(qa.size(), qb.size());
      for (size_t q = 0; q < qa.size(); ++q) EXPECT_EQ(qa[q], qb[q]);
    }
    for (uint16_t v = 1; v <= 4; ++v) EXPECT_EQ(a.vlanReading(v), b.vlanReading(v));
    EXPECT_EQ(a.coppClassReading("copp-system-bgp").pkts,
              b.coppClassReading("copp-system-bgp").pkts);
  }
}

TEST(SimChip, DifferentSeedGivesDifferentTraffic) {
  Sim::SimChip a(smallTopology(1)), b(smallTopology(2));
  EXPECT_NE(a.traffic(IntfId("Ethernet1")).inPps, b.traffic(IntfId("Ethernet1")).inPps);
}

TEST(SimChip, TrafficStaysWithinTheSharesOfPortSpeed) {
  Sim::SimChip chip(smallTopology());
  double speed = chip.topology().portSpeedBps;
  for (IntfId id : chip.ethPorts()) {
    auto tr = chip.traffic(id);
    double inBps = tr.inPps * tr.avgPacketBytes * 8;
    double outBps = tr.outPps * tr.avgPacketBytes * 8;
    EXPECT_GE(inBps, 0.01 * speed * 0.999);
    EXPECT_LE(inBps, 0.30 * speed * 1.001);
    EXPECT_GE(outBps, 0.01 * speed * 0.999);
    EXPECT_LE(outBps, 0.30 * speed * 1.001);
  }
}

TEST(SimChip, CountsNothingBeforeItsFirstTime) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);  // the first time only starts the chip
  EXPECT_EQ(chip.now(), kStart);
  Reading r = readingOf(chip, IntfId("Ethernet1"));
  EXPECT_EQ(r.stats.inOctets(), 0u);
  EXPECT_EQ(r.stats.outUcastPkts(), 0u);
  EXPECT_EQ(chip.aclDropCount(IntfId("Ethernet1")), 0u);
  EXPECT_EQ(chip.vlanReading(1), (std::array<uint64_t, 8>{}));
}

TEST(SimChip, CountersAreRateTimesActiveTime) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet2");
  auto tr = chip.traffic(id);
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 10.0);
  Reading r = readingOf(chip, id);
  // Exactly floor(rate x seconds) for each counter.
  EXPECT_EQ(r.stats.inOctets(), static_cast<uint64_t>(tr.inPps * tr.avgPacketBytes * 10.0));
  EXPECT_EQ(r.stats.inUcastPkts(), static_cast<uint64_t>(tr.inPps * 0.90 * 10.0));
  EXPECT_EQ(r.stats.inMulticastPkts(), static_cast<uint64_t>(tr.inPps * 0.08 * 10.0));
  EXPECT_EQ(r.stats.inBroadcastPkts(), static_cast<uint64_t>(tr.inPps * 0.02 * 10.0));
  EXPECT_EQ(r.stats.outOctets(), static_cast<uint64_t>(tr.outPps * tr.avgPacketBytes * 10.0));
  EXPECT_EQ(r.stats.outUcastPkts(), static_cast<uint64_t>(tr.outPps * 0.90 * 10.0));
  ASSERT_TRUE(r.stats.outMulticastPkts().hasValue());
  EXPECT_EQ(r.stats.outMulticastPkts().value(), static_cast<uint64_t>(tr.outPps * 0.08 * 10.0));
  EXPECT_EQ(r.stats.outBroadcastPkts(), static_cast<uint64_t>(tr.outPps * 0.02 * 10.0));
  // All packets together are the port's packet rate (up to the floors).
  uint64_t inPkts = r.stats.inUcastPkts() + r.stats.inMulticastPkts() + r.stats.inBroadcastPkts();
  EXPECT_NEAR(static_cast<double>(inPkts), tr.inPps * 10.0, 3.0);
  EXPECT_EQ(r.stats.statsUpdateTime(), kStart + 10.0);
  // Twice the time, twice the count.
  chip.advanceTo(kStart + 20.0);
  Reading r2 = readingOf(chip, id);
  EXPECT_EQ(r2.stats.inOctets(), static_cast<uint64_t>(tr.inPps * tr.avgPacketBytes * 20.0));
  EXPECT_EQ(r2.stats.statsUpdateTime(), kStart + 20.0);
}

TEST(SimChip, TimeThatGoesBackChangesNothing) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 5.0);
  Reading before = readingOf(chip, IntfId("Ethernet1"));
  chip.advanceTo(kStart + 1.0);
  EXPECT_EQ(chip.now(), kStart + 5.0);
  EXPECT_EQ(readingOf(chip, IntfId("Ethernet1")).stats, before.stats);
}

TEST(SimChip, QueuesCarryThePortsTransmitTrafficWithLineOverhead) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet3");
  auto tr = chip.traffic(id);
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 100.0);
  auto queues = chip.queueReading(id);
  ASSERT_EQ(queues.size(), 4u);
  double pkts = 0;
  for (size_t q = 0; q < queues.size(); ++q) {
    SCOPED_TRACE(q);
    pkts += static_cast<double>(queues[q].txPkts());
    // Octets count 20 octets of line overhead per packet.
    EXPECT_NEAR(static_cast<double>(queues[q].txOctets()),
                static_cast<double>(queues[q].txPkts()) * (tr.avgPacketBytes + 20.0),
                tr.avgPacketBytes + 20.0);
    if (q > 0) {
      EXPECT_GT(queues[q].txPkts(), queues[q - 1].txPkts());  // queue q carries weight q+1
    }
    EXPECT_GT(queues[q].dropPkts(), 0u);
    EXPECT_LT(queues[q].dropPkts(), queues[q].txPkts());
  }
  EXPECT_NEAR(pkts, tr.outPps * 100.0, 4.0);
  // VLAN interfaces and the CPU port have no queues.
  EXPECT_TRUE(chip.queueReading(IntfId("Vlan1")).empty());
  EXPECT_TRUE(chip.queueReading(IntfId("Cpu")).empty());
}

TEST(SimChip, ErrorSumsHoldOnEveryPortAtEveryTime) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);
  for (double t = kStart; t < kStart + 1e6; t = t * 1.7 + 0.3) {
    chip.advanceTo(t);
    for (IntfId id : allPorts(chip)) {
      SCOPED_TRACE(id.stringValue() + " at " + std::to_string(t));
      Reading r = readingOf(chip, id);
      expectErrorSumsHold(r);
    }
  }
  // Errors are actually counted, so the sums are not trivially zero.
  Reading r = readingOf(chip, IntfId("Ethernet1"));
  EXPECT_GT(r.stats.inErrors(), 0u);
  EXPECT_GT(r.stats.outErrors(), 0u);
}

TEST(SimChip, ErrorSumsHoldAcrossAWrap) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet1");
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 1.0);
  chip.portCountersWrapSoon(id, 10);
  for (double t = kStart + 1.0; t < kStart + 1e5; t *= 1.01) {
    chip.advanceTo(t);
    SCOPED_TRACE(t);
    expectErrorSumsHold(readingOf(chip, id));
  }
}

TEST(SimChip, ResetDropsEveryCounterOfThePortToZero) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet1"), other("Ethernet2");
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 30.0);
  Reading otherBefore = readingOf(chip, other);
  ASSERT_GT(readingOf(chip, id).stats.inOctets(), 0u);

  chip.portCountersReset(id);
  Reading r = readingOf(chip, id);
  EXPECT_EQ(r.stats.inOctets(), 0u);
  EXPECT_EQ(r.stats.inUcastPkts(), 0u);
  EXPECT_EQ(r.stats.outOctets(), 0u);
  EXPECT_EQ(r.stats.outMulticastPkts().value(), 0u);
  EXPECT_EQ(r.stats.inErrors(), 0u);
  EXPECT_EQ(r.eth.fcsErrors(), 0u);
  EXPECT_EQ(r.eth.inFrames64(), 0u);
  EXPECT_EQ(chip.aclDropCount(id), 0u);
  for (const auto& q : chip.queueReading(id)) {
    EXPECT_EQ(q.txOctets(), 0u);
    EXPECT_EQ(q.txPkts(), 0u);
    EXPECT_EQ(q.dropOctets(), 0u);
    EXPECT_EQ(q.dropPkts(), 0u);
  }
  // Other ports are not touched.
  EXPECT_EQ(readingOf(chip, other).stats, otherBefore.stats);

  // Counting goes on from zero at the port's rate.
  auto tr = chip.traffic(id);
  chip.advanceTo(kStart + 40.0);
  EXPECT_NEAR(static_cast<double>(readingOf(chip, id).stats.inOctets()),
              tr.inPps * tr.avgPacketBytes * 10.0, 2.0);
  expectErrorSumsHold(readingOf(chip, id));
}

TEST(SimChip, WrapSoonPutsCountersJustBelowTwoToThe64AndTheyWrap) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet1");
  auto tr = chip.traffic(id);
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 5.0);
  chip.portCountersWrapSoon(id, 1000);
  const uint64_t nearTop = std::numeric_limits<uint64_t>::max() - 999;  // 2^64 - 1000
  Reading r = readingOf(chip, id);
  EXPECT_EQ(r.stats.inOctets(), nearTop);
  EXPECT_EQ(r.stats.outUcastPkts(), nearTop);
  EXPECT_EQ(chip.aclDropCount(id), nearTop);
  EXPECT_EQ(chip.queueReading(id)[0].txPkts(), nearTop);

  // One more second carries far more than 1000 octets: the counter wraps to a
  // small value, and the modular difference is the traffic of that second.
  chip.advanceTo(kStart + 6.0);
  Reading after = readingOf(chip, id);
  EXPECT_LT(after.stats.inOctets(), r.stats.inOctets());
  EXPECT_NEAR(static_cast<double>(after.stats.inOctets() - r.stats.inOctets()),
              tr.inPps * tr.avgPacketBytes, 2.0);
  expectErrorSumsHold(after);
}

TEST(SimChip, PortDownStopsCountingAndUpResumes) {
  Sim::SimChip chip(smallTopology());
  IntfId id("Ethernet1"), other("Ethernet2");
  auto tr = chip.traffic(id);
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 10.0);
  chip.portUpIs(id, false);
  EXPECT_FALSE(chip.portUp(id));
  Reading down = readingOf(chip, id);
  auto queuesDown = chip.queueReading(id);
  uint64_t aclDown = chip.aclDropCount(id);
  Reading otherBefore = readingOf(chip, other);

  chip.advanceTo(kStart + 50.0);
  Reading still = readingOf(chip, id);
  EXPECT_EQ(still.stats.inOctets(), down.stats.inOctets());
  EXPECT_EQ(still.stats.outUcastPkts(), down.stats.outUcastPkts());
  EXPECT_EQ(still.eth, down.eth);
  EXPECT_EQ(chip.queueReading(id)[3], queuesDown[3]);
  EXPECT_EQ(chip.aclDropCount(id), aclDown);
  // Ports that are up keep counting.
  EXPECT_GT(readingOf(chip, other).stats.inOctets(), otherBefore.stats.inOctets());

  chip.portUpIs(id, true);
  chip.advanceTo(kStart + 60.0);
  // 20 s of active time in all: 10 before going down, 10 after coming up.
  EXPECT_EQ(readingOf(chip, id).stats.inOctets(),
            static_cast<uint64_t>(tr.inPps * tr.avgPacketBytes * 20.0));
}

TEST(SimChip, VlanInterfacesReportFourRoutedCounters) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 10.0);
  IntfStatistics stats;
  std::array<uint64_t, 4> extra{};
  chip.vlanIntfReading(IntfId("Vlan1"), stats, extra);
  auto tr = chip.traffic(IntfId("Vlan1"));
  EXPECT_EQ(stats.inOctets(), static_cast<uint64_t>(tr.inPps * tr.avgPacketBytes * 10.0));
  // Half of the traffic is routed.
  EXPECT_EQ(extra[0], static_cast<uint64_t>(tr.inPps * tr.avgPacketBytes * 0.5 * 10.0));
  EXPECT_EQ(extra[1], static_cast<uint64_t>(tr.inPps * 0.5 * 10.0));
  EXPECT_EQ(extra[2], static_cast<uint64_t>(tr.outPps * tr.avgPacketBytes * 0.5 * 10.0));
  EXPECT_EQ(extra[3], static_cast<uint64_t>(tr.outPps * 0.5 * 10.0));
}

TEST(SimChip, VlansCountAndUnknownOnesReadZero) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 10.0);
  auto v1 = chip.vlanReading(1);
  for (size_t i = 0; i < 8; ++i) EXPECT_GT(v1[i], 0u) << "counter " << i;
  // Octets per packet are the packet-size mix's average.
  EXPECT_NEAR(static_cast<double>(v1[0]) / static_cast<double>(v1[1] + v1[2] + v1[3]),
              chip.traffic(IntfId("Ethernet1")).avgPacketBytes, 1.0);
  EXPECT_EQ(chip.vlanReading(5), (std::array<uint64_t, 8>{}));
  EXPECT_EQ(chip.vlanReading(0), (std::array<uint64_t, 8>{}));
}

TEST(SimChip, CpuPortAndPolicingClassesCount) {
  Sim::SimChip chip(smallTopology());
  chip.advanceTo(kStart);
  chip.advanceTo(kStart + 10.0);
  IntfStatistics cpu = chip.cpuReading();
  Reading viaPort = readingOf(chip, IntfId("Cpu"));
  EXPECT_EQ(cpu, viaPort.stats);
  EXPECT_GT(cpu.inOctets(), 0u);

  auto bgp = chip.coppClassReading("copp-system-bgp");
  EXPECT_GT(bgp.pkts, 0u);
  EXPECT_GT(bgp.octets, bgp.pkts);
  EXPECT_EQ(bgp.dropOctets, bgp.dropPkts * 100);
  auto unknown = chip.coppClassReading("no-such-class");
  EXPECT_EQ(unknown.pkts, 0u);
  EXPECT_EQ(unknown.octets, 0u);
  EXPECT_EQ(unknown.dropPkts, 0u);
  EXPECT_EQ(unknown.dropOctets, 0u);
}

TEST(SimChip, UnknownPortRaisesNamingIt) {
  Sim::SimChip chip(smallTopology());
  try {
    chip.aclDropCount(IntfId("Ethernet9"));
    FAIL() << "an unknown port must raise";
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(std::string(e.what()), "no such port: Ethernet9");
  }
  EXPECT_THROW(chip.portUpIs(IntfId("Ethernet9"), false), std::invalid_argument);
  EXPECT_THROW(chip.portCountersReset(IntfId("Vlan9")), std::invalid_argument);
}

}  // namespace
