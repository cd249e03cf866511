// The simulated platform helpers keep the duties the counters component relies
// on: readings that follow the agent's clock, error sums that hold, queue
// readings as running totals or (clear-on-read) increments, idempotent VLAN
// enabling, and CPU port and policing class counters they publish themselves.
#include <gtest/gtest.h>

#include "agent/platforms/sim/SimHelpers.h"
#include "brim/Brim.h"
#include "support/Fixtures.h"

namespace {

using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;
using Orvo::IntfId;
using VornTypes::QueueType;

Sim::Topology topology() {
  Sim::Topology t;
  t.ethPorts = 4;
  t.queuesPerPort = 4;
  t.fabricPorts = 1;
  t.vlanIntfs = 2;
  t.vlans = 4;
  t.firstPollDelay = 0.2;
  return t;
}

class SimHelpersTest : public VornTest::ScratchTableTest {
 protected:
  void SetUp() override {
    ScratchTableTest::SetUp();
    tables.unlinkLater(Published::kCpuIntfCountersTable);
    tables.unlinkLater(Published::kCoppClassCountersTable);
    helper = Sim::SimCountersHelper::SimCountersHelperIs(&chip, tables.ns());
    vlanHelper = Sim::SimVlanCountersHelper::SimVlanCountersHelperIs(&chip);
    helper->countersInit();  // the chip starts at the agent's present: kStart
  }

  // A second chip of the same topology, at `t` seconds after kStart: what the
  // helpers' chip reads at that time.
  static Sim::SimChip twinAt(double t) {
    Sim::SimChip twin(topology());
    twin.advanceTo(kStart);
    twin.advanceTo(kStart + t);
    return twin;
  }

  Sim::SimChip chip{topology()};
  Zat::Ptr<Sim::SimCountersHelper> helper;
  Zat::Ptr<Sim::SimVlanCountersHelper> vlanHelper;
};

TEST_F(SimHelpersTest, FirstPollDelayIsTheTopologys) {
  EXPECT_EQ(helper->firstPollDelay(), 0.2);
  EXPECT_EQ(vlanHelper->vlanFirstPollDelay(), 0.2);
}

TEST_F(SimHelpersTest, PortReadingIsTheChipAtTheAgentsPresent) {
  advanceBy(10.0);
  auto fresh = VornTypes::IntfCounters::IntfCountersIs();
  auto prev = VornTypes::IntfCounters::IntfCountersIs();
  helper->intfCountersRead(IntfId("Ethernet2"), fresh, prev);

  Sim::SimChip twin = twinAt(10.0);
  Interface::IntfStatistics stats;
  Interface::EthStatistics eth;
  twin.portReading(IntfId("Ethernet2"), stats, eth);
  EXPECT_EQ(fresh->intfStats(), stats);
  EXPECT_EQ(fresh->ethStats(), eth);
  EXPECT_EQ(fresh->intfStats().statsUpdateTime(), kStart + 10.0);
  // The previous reading is only handed over for reference.
  EXPECT_EQ(prev->intfStats(), Interface::IntfStatistics());
  EXPECT_EQ(prev->ethStats(), Interface::EthStatistics());
  EXPECT_EQ(helper->polls(), 1u);
}

TEST_F(SimHelpersTest, PortReadingsKeepBothErrorSums) {
  std::vector<IntfId> ports = chip.ethPorts();
  ports.push_back(IntfId("Fabric1"));
  for (int step = 0; step < 20; ++step) {
    advanceBy(0.2 + step * 3.7);
    if (step == 10) chip.portCountersWrapSoon(IntfId("Ethernet1"), 5);
    for (IntfId id : ports) {
      SCOPED_TRACE(id.stringValue() + " step " + std::to_string(step));
      auto n = VornTypes::IntfCounters::IntfCountersIs();
      helper->intfCountersRead(id, n, VornTypes::IntfCounters::IntfCountersIs());
      const auto& e = n->ethStats();
      EXPECT_EQ(n->intfStats().inErrors(), e.alignmentErrors() + e.fcsErrors() + e.frameTooLongs() +
                                               e.frameTooShorts() + e.internalMacReceiveErrors());
      EXPECT_EQ(n->intfStats().outErrors(),
                e.sqeTestErrors() + e.lateCollisions() + e.excessiveCollisions() +
                    e.internalMacTransmitErrors() + e.carrierSenseErrors());
    }
  }
}

TEST_F(SimHelpersTest, PortInitAndCleanupTrackThePreparedPorts) {
  helper->intfCountersInit(IntfId("Ethernet1"));
  helper->intfCountersInit(IntfId("Ethernet2"));
  helper->intfCountersInit(IntfId("Ethernet1"));
  EXPECT_EQ(helper->initializedPorts(), 2u);
  helper->intfCountersCleanup(IntfId("Ethernet1"));
  EXPECT_EQ(helper->initializedPorts(), 1u);
  helper->intfCountersCleanup(IntfId("Ethernet3"));  // never prepared: harmless
  EXPECT_EQ(helper->initializedPorts(), 1u);
}

TEST_F(SimHelpersTest, QueueMapPutsUnicastBelowMulticast) {
  auto types = VornTypes::IntfQueueType::IntfQueueTypeIs();
  helper->intfQueueTypeRead(IntfId("Ethernet1"), types);
  EXPECT_EQ(types->queueType(), (std::map<uint8_t, QueueType>{{0, QueueType::unicast},
                                                              {1, QueueType::unicast},
                                                              {2, QueueType::multicast},
                                                              {3, QueueType::multicast}}));
}

TEST_F(SimHelpersTest, QueueReadingsAreRunningTotalsByDefault) {
  EXPECT_FALSE(helper->queueCountersClearOnRead());
  auto scratch = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  for (double t : {10.0, 25.0}) {
    advanceTo(kStart + t);
    auto reading = helper->intfQueueCountersRead(IntfId("Ethernet3"), scratch);
    auto expected = twinAt(t).queueReading(IntfId("Ethernet3"));
    EXPECT_EQ(reading.intfId(), IntfId("Ethernet3"));
    ASSERT_EQ(reading.intfQueueStatArray().storedCount(), 4u);
    for (uint8_t q = 0; q < 4; ++q) EXPECT_EQ(reading.intfQueueStat(QueueIndex(q)), expected[q]);
    EXPECT_EQ(scratch->previous, expected);
  }
}

TEST_F(SimHelpersTest, ClearOnReadReturnsIncrementsSinceThePreviousRead) {
  helper->queueCountersClearOnReadIs(true);
  auto scratch = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  IntfId id("Ethernet1");

  // The first read hands out everything counted so far.
  advanceTo(kStart + 10.0);
  auto first = helper->intfQueueCountersRead(id, scratch);
  auto at10 = twinAt(10.0).queueReading(id);
  for (uint8_t q = 0; q < 4; ++q) EXPECT_EQ(first.intfQueueStat(QueueIndex(q)), at10[q]);

  // The next one only what was counted since.
  advanceTo(kStart + 15.0);
  auto second = helper->intfQueueCountersRead(id, scratch);
  auto at15 = twinAt(15.0).queueReading(id);
  for (uint8_t q = 0; q < 4; ++q) {
    SCOPED_TRACE(static_cast<int>(q));
    IntfQueueStat s = second.intfQueueStat(QueueIndex(q));
    EXPECT_EQ(s.txOctets(), at15[q].txOctets() - at10[q].txOctets());
    EXPECT_EQ(s.txPkts(), at15[q].txPkts() - at10[q].txPkts());
    EXPECT_EQ(s.dropOctets(), at15[q].dropOctets() - at10[q].dropOctets());
    EXPECT_EQ(s.dropPkts(), at15[q].dropPkts() - at10[q].dropPkts());
    EXPECT_GT(s.txPkts(), 0u);
    // The increments add up to the running total.
    EXPECT_EQ(first.intfQueueStat(QueueIndex(q)).txPkts() + s.txPkts(), at15[q].txPkts());
  }

  // A read with no time in between hands out nothing.
  auto third = helper->intfQueueCountersRead(id, scratch);
  for (uint8_t q = 0; q < 4; ++q) {
    EXPECT_EQ(third.intfQueueStat(QueueIndex(q)), IntfQueueStat(0, 0, 0, 0, 0));
  }
}

TEST_F(SimHelpersTest, VlanInterfaceReadingHasStatisticsAndRoutedCounters) {
  advanceBy(10.0);
  EXPECT_TRUE(helper->vlanIntfCountersSupported(IntfId("Vlan1"), 1));
  EXPECT_TRUE(helper->vlanIntfCountersSupported(IntfId("Vlan2"), 2));
  EXPECT_FALSE(helper->vlanIntfCountersSupported(IntfId("Vlan9"), 9));

  auto fresh = VornTypes::VlanIntfCounters::VlanIntfCountersIs();
  helper->vlanIntfCountersRead(IntfId("Vlan2"), fresh,
                               VornTypes::VlanIntfCounters::VlanIntfCountersIs());
  Interface::IntfStatistics stats;
  std::array<uint64_t, 4> extra{};
  twinAt(10.0).vlanIntfReading(IntfId("Vlan2"), stats, extra);
  EXPECT_EQ(fresh->statistics(), stats);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(fresh->extra(i), extra[i]) << "extra " << i;
  helper->vlanIntfCountersRelease(IntfId("Vlan2"));  // nothing to release: harmless
}

TEST_F(SimHelpersTest, AclDropCountIsTheChipsAbsoluteCount) {
  EXPECT_TRUE(helper->aclDropCountersSupported());
  advanceBy(30.0);
  uint64_t count = helper->aclDropCountRead(IntfId("Ethernet4"));
  EXPECT_EQ(count, twinAt(30.0).aclDropCount(IntfId("Ethernet4")));
  EXPECT_GT(count, 0u);
  // An interface the chip does not have drops nothing.
  EXPECT_EQ(helper->aclDropCountRead(IntfId("Ethernet40")), 0u);
}

TEST_F(SimHelpersTest, CpuPortCountersArePublishedByTheHelperItself) {
  helper->cpuPortCountersInit(Zat::String("Cpu"));
  advanceBy(5.0);
  helper->cpuPortCountersUpdate();
  auto table = Brim::TableReader<Published::CpuPortCounter>::open(tables.ns(),
                                                                  Published::kCpuIntfCountersTable);
  ASSERT_EQ(table->size(), 1u);
  auto record = table->find(IntfId("Cpu"));
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->intfId, IntfId("Cpu"));
  EXPECT_EQ(record->statistics, twinAt(5.0).cpuReading());
  EXPECT_EQ(record->statistics.statsUpdateTime(), kStart + 5.0);
}

TEST_F(SimHelpersTest, CpuPortUpdateWithoutInitPublishesNothing) {
  advanceBy(5.0);
  helper->cpuPortCountersUpdate();
  auto table = Brim::TableReader<Published::CpuPortCounter>::open(tables.ns(),
                                                                  Published::kCpuIntfCountersTable);
  EXPECT_EQ(table->size(), 0u);
}

TEST_F(SimHelpersTest, PolicingClassCountersArePublishedByName) {
  advanceBy(8.0);
  EXPECT_TRUE(helper->coppClassCountersUpdate(Zat::Name("copp-system-arp")));
  auto table = Brim::TableReader<Published::CoppClassCounter>::open(
      tables.ns(), Published::kCoppClassCountersTable);
  auto record = table->find(Published::CoppClassCounter::hashOf("copp-system-arp"));
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->nameText(), "copp-system-arp");
  auto expected = twinAt(8.0).coppClassReading("copp-system-arp");
  EXPECT_EQ(record->pkts, expected.pkts);
  EXPECT_EQ(record->octets, expected.octets);
  EXPECT_EQ(record->dropPkts, expected.dropPkts);
  EXPECT_EQ(record->dropOctets, expected.dropOctets);
  EXPECT_EQ(record->timestamp, kStart + 8.0);
}

TEST_F(SimHelpersTest, PolicingClassNameLongerThanTheRecordIsCutNotOverrun) {
  std::string longName(60, 'x');
  EXPECT_TRUE(helper->coppClassCountersUpdate(Zat::Name(longName)));
  auto table = Brim::TableReader<Published::CoppClassCounter>::open(
      tables.ns(), Published::kCoppClassCountersTable);
  auto record = table->find(Published::CoppClassCounter::hashOf(longName));
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->nameText(), std::string(47, 'x'));
}

TEST_F(SimHelpersTest, VlanCountersEnableIsIdempotent) {
  advanceTo(kStart + 3.0);
  EXPECT_TRUE(vlanHelper->vlanCountersEnable(1));
  EXPECT_EQ(vlanHelper->enabledVlans(), 1u);
  // Enabling again later must not move the VLAN's starting point.
  advanceTo(kStart + 13.0);
  EXPECT_TRUE(vlanHelper->vlanCountersEnable(1));
  EXPECT_EQ(vlanHelper->enabledVlans(), 1u);

  advanceTo(kStart + 18.0);
  auto current = VornTypes::VlanCounters::VlanCountersIs(1);
  auto previous = VornTypes::VlanCounters::VlanCountersIs(1);
  vlanHelper->vlanCountersRead(1, current, previous);
  auto at3 = twinAt(3.0).vlanReading(1);
  auto at18 = twinAt(18.0).vlanReading(1);
  for (size_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(previous->counter(i), at3[i]);
    EXPECT_EQ(current->counter(i), at18[i]);
  }
}

TEST_F(SimHelpersTest, VlanReadHandsThePreviousReadingOfTheLastPoll) {
  vlanHelper->vlanCountersEnable(2);
  advanceTo(kStart + 5.0);
  auto c1 = VornTypes::VlanCounters::VlanCountersIs(2);
  auto p1 = VornTypes::VlanCounters::VlanCountersIs(2);
  vlanHelper->vlanCountersRead(2, c1, p1);
  advanceTo(kStart + 7.0);
  auto c2 = VornTypes::VlanCounters::VlanCountersIs(2);
  auto p2 = VornTypes::VlanCounters::VlanCountersIs(2);
  vlanHelper->vlanCountersRead(2, c2, p2);
  auto at7 = twinAt(7.0).vlanReading(2);
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(p2->counter(i), c1->counter(i));
    EXPECT_EQ(c2->counter(i), at7[i]);
  }
  EXPECT_EQ(vlanHelper->polls(), 2u);
}

TEST_F(SimHelpersTest, VlanNeverEnabledStartsAtItsCurrentCount) {
  advanceTo(kStart + 10.0);
  auto current = VornTypes::VlanCounters::VlanCountersIs(3);
  auto previous = VornTypes::VlanCounters::VlanCountersIs(3);
  vlanHelper->vlanCountersRead(3, current, previous);
  // Nothing counted before the VLAN was known is handed out as an increment.
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(previous->counter(i), current->counter(i));
  EXPECT_GT(current->counter(0), 0u);
}

}  // namespace
