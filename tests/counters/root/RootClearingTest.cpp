// Clear requests (baselines in "allIntfClearCounters") and on-demand updates.
#include <gtest/gtest.h>

#include "counters/root/RootTestSupport.h"

namespace {

using Orvo::IntfId;
using RootTest::Calls;
using VornTypes::CounterType;

const IntfId kEth1("Ethernet1");
const IntfId kEth2("Ethernet2");
const IntfId kCpu("Cpu");
const IntfId kVlan10("Vlan10");

class RootClearing : public VornTest::RootFixture {
 protected:
  static Interface::EthIntfCounterBrim row(IntfId id, uint64_t octets, uint64_t pkts) {
    Interface::EthIntfCounterBrim r(id);
    Interface::IntfStatistics stats;
    stats.inOctetsIs(octets);
    stats.inUcastPktsIs(pkts);
    stats.statsUpdateTimeIs(1234.5);
    r.statisticsIs(stats);
    Interface::IntfRates rates;
    r.ratesIs(rates);
    r.lastClearTimeIs(17.0);
    return r;
  }
  void clear(const char* name) { in.cliConfig->clearCountersRequestIs(name); }
};

TEST_F(RootClearing, ClearingAPortCopiesItsWholeEntryAsTheBaseline) {
  ethServedIs(kEth1);
  initializedRootIs();
  in.allIntfCounters->counterIs(row(kEth1, 1000, 10));
  clear("Ethernet1");
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), row(kEth1, 1000, 10));
  // The running totals are left as they are.
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), row(kEth1, 1000, 10));
}

TEST_F(RootClearing, ClearingAPortTwiceTakesTheThenCurrentTotals) {
  ethServedIs(kEth1);
  helper().portReadings[kEth1] = VornTest::FakeCountersHelper::consistentReading(1000, 10);
  root = rootIs();
  root->counterPollPeriodIs(5.0);
  root->initializedIs(true);
  advanceTo(kStart + 5.0);
  clear("Ethernet1");
  auto shown = [&] {
    return in.allIntfCounters->counter(kEth1).statistics().inOctets() -
           in.allIntfClearCounters->counter(kEth1).statistics().inOctets();
  };
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1).statistics().inOctets(), 1000u);
  EXPECT_EQ(shown(), 0u);
  helper().portReadings[kEth1] = VornTest::FakeCountersHelper::consistentReading(1600, 16);
  advanceTo(kStart + 10.0);
  EXPECT_EQ(shown(), 600u);
  clear("Ethernet1");
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), in.allIntfCounters->counter(kEth1));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1).statistics().inOctets(), 1600u);
  EXPECT_EQ(shown(), 0u);
}

TEST_F(RootClearing, ClearingAPortWithoutAnEntryWritesAnAllZeroBaseline) {
  initializedRootIs();
  in.allIntfClearCounters->counterIs(row(kEth2, 5, 5));
  clear("Ethernet2");
  EXPECT_TRUE(in.allIntfClearCounters->hasCounter(kEth2));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth2), Interface::EthIntfCounterBrim(kEth2));
  EXPECT_FALSE(in.allIntfCounters->hasCounter(kEth2));
}

TEST_F(RootClearing, ClearingAllWithAnEmptyTableWritesNothing) {
  initializedRootIs();
  clear("all");
  EXPECT_EQ(in.allIntfClearCounters->size(), 0u);
  EXPECT_EQ(in.allIntfCounters->corruptionCount(), 0u);
}

TEST_F(RootClearing, ClearingAllCopiesEveryEntry) {
  initializedRootIs();
  in.allIntfCounters->counterIs(row(kEth1, 100, 1));
  in.allIntfCounters->counterIs(row(kEth2, 200, 2));
  in.allIntfClearCounters->counterIs(row(IntfId("Ethernet9"), 9, 9));
  clear("all");
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), row(kEth1, 100, 1));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth2), row(kEth2, 200, 2));
  // A baseline of a port gone from the totals is not removed here.
  EXPECT_EQ(in.allIntfClearCounters->counter(IntfId("Ethernet9")), row(IntfId("Ethernet9"), 9, 9));
  EXPECT_EQ(in.allIntfClearCounters->size(), 3u);
}

TEST_F(RootClearing, ClearingAllGoesOnPastADamagedEntryWithTheDefaultEntry) {
  initializedRootIs();
  in.allIntfCounters->counterIs(row(kEth1, 100, 1));
  in.allIntfCounters->counterIs(row(kEth2, 200, 2));
  RootTest::TableDamage shm(tables.ns(), TableNames::kAllIntfCounters);
  ASSERT_TRUE(shm.damage(kEth1.value()));
  clear("all");
  EXPECT_EQ(in.allIntfCounters->corruptionCount(), 1u);
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth2), row(kEth2, 200, 2));
  EXPECT_FALSE(in.allIntfClearCounters->hasCounter(kEth1));
  // The damaged position was replaced by the table's default entry.
  EXPECT_TRUE(in.allIntfClearCounters->hasCounter(IntfId()));
  EXPECT_EQ(in.allIntfClearCounters->size(), 2u);
}

TEST_F(RootClearing, NamesOfOtherKindsAndUnknownNamesAreIgnored) {
  initializedRootIs();
  for (const char* name : {"Vlan10", "Cpu", "Fabric1", "NoSuchThing", "", "Ethernet"}) {
    clear(name);
  }
  EXPECT_EQ(in.allIntfClearCounters->size(), 0u);
}

TEST_F(RootClearing, WithoutTheCounterTableAClearIsANoOp) {
  in.allIntfCounters = nullptr;
  initializedRootIs();
  clear("Ethernet1");
  clear("all");
  EXPECT_EQ(in.allIntfClearCounters->size(), 0u);
}

TEST_F(RootClearing, TheClearRequestIsTracedWithItsName) {
  initializedRootIs();
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 8);
    clear("Ethernet4");
  }
  EXPECT_EQ(trace,
            Calls{"void Vorn::Counters::CountersSm::doClearCounters(Zat::String) Ethernet4"});
}

TEST_F(RootClearing, ClearingTouchesNeitherPollersNorOtherCounterKinds) {
  ethServedIs(kEth1);
  in.vcsd->cpuIntfIs(kCpu, true);
  initializedRootIs();
  auto port = root->portCountersSm(kEth1);
  const Interface::IntfStatistics prev = port->prevCounters()->intfStats();
  helper().clearCalls();
  clear("all");
  clear("Ethernet1");
  EXPECT_EQ(helper().calls, Calls{});
  EXPECT_EQ(port->prevCounters()->intfStats(), prev);
  EXPECT_EQ(in.allIntfClearQueueCounters->size(), in.allIntfQueueCounters->size());
}

// --- the poll period ---

TEST_F(RootClearing, SettingThePeriodChangesNoRunningPollerUntilItsInterfaceIsEvaluatedAgain) {
  in.allIntfQueueCounters = nullptr;
  ethServedIs(kEth1);
  root = rootIs();
  root->counterPollPeriodIs(5.0);
  root->initializedIs(true);
  auto port = root->portCountersSm(kEth1);
  root->counterPollPeriodIs(2.0);
  EXPECT_EQ(port->counterPollPeriod(), 5.0);
  advanceTo(kStart + 20.0);
  EXPECT_EQ(helper().count("intfCountersRead"), 4u);  // 1005, 1010, 1015, 1020
  root->handleIntf(kEth1);
  EXPECT_EQ(port->counterPollPeriod(), 2.0);
}

// --- on-demand updates ---

class RootUpdate : public RootClearing {
 protected:
  void SetUp() override {
    RootClearing::SetUp();
    ethServedIs(kEth1);
    in.vcsd->cpuIntfIs(kCpu, true);
    vlanServedIs(kVlan10);
    initializedRootIs();
    helper().clearCalls();
  }
  Calls updateCalls(uint32_t type, IntfId id) {
    helper().clearCalls();
    root->updateCounters(static_cast<CounterType>(type), id);
    return helper().calls;
  }
};

TEST_F(RootUpdate, EachCounterTypeReachesItsOwnPoller) {
  EXPECT_EQ(updateCalls(0, kEth1), Calls{"intfQueueCountersRead(Ethernet1)"});
  EXPECT_EQ(updateCalls(1, kEth1), Calls{"intfCountersRead(Ethernet1)"});
  EXPECT_EQ(updateCalls(2, kCpu), Calls{"cpuPortCountersUpdate"});
  EXPECT_EQ(updateCalls(3, kVlan10), Calls{"vlanIntfCountersRead(Vlan10)"});
  EXPECT_EQ(updateCalls(6, kEth1), Calls{"aclDropCountRead(Ethernet1)"});
}

TEST_F(RootUpdate, TypesFourAndFiveFailTheFatalAssertion) {
  EXPECT_EQ(RootTest::assertTextOf([&] { root->updateCounters(CounterType::ingressQueue, kEth1); }),
            "0");
  EXPECT_EQ(RootTest::assertTextOf([&] { root->updateCounters(CounterType::fabricPort, kEth1); }),
            "0");
  EXPECT_EQ(helper().calls, Calls{});
}

TEST_F(RootUpdate, TypesSevenAndAboveDoNothing) {
  EXPECT_EQ(updateCalls(7, kEth1), Calls{});
  EXPECT_EQ(updateCalls(8, kEth1), Calls{});
  EXPECT_EQ(updateCalls(1000, kEth1), Calls{});
}

TEST_F(RootUpdate, AKindWithoutAPollerForTheInterfaceIsANoOp) {
  EXPECT_EQ(updateCalls(0, kEth2), Calls{});
  EXPECT_EQ(updateCalls(1, kCpu), Calls{});
  EXPECT_EQ(updateCalls(2, kEth1), Calls{});
  EXPECT_EQ(updateCalls(3, kEth1), Calls{});
  EXPECT_EQ(updateCalls(6, kVlan10), Calls{});
  EXPECT_EQ(in.allIntfCounters->counter(kEth2), Interface::EthIntfCounterBrim());
}

TEST_F(RootUpdate, AnUpdateAddsTheReadingToThePublishedTotals) {
  helper().portReadings[kEth1] = VornTest::FakeCountersHelper::consistentReading(700, 7);
  root->updateCounters(CounterType::ethPort, kEth1);
  EXPECT_EQ(in.allIntfCounters->counter(kEth1).statistics().inOctets(), 700u);
  EXPECT_EQ(in.allIntfCounters->counter(kEth1).statistics().inUcastPkts(), 7u);
}

TEST_F(RootUpdate, TheRequestIsTracedWithTypeAndInterface) {
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 8);
    root->updateCounters(CounterType::ethPort, kEth2);
    root->updateCounters(static_cast<CounterType>(7), kVlan10);
  }
  EXPECT_EQ(trace, (Calls{"updateCounters counter type: 1, intf: Ethernet2",
                          "updateCounters counter type: 7, intf: Vlan10"}));
}

TEST_F(RootUpdate, UpdatesAreReachableThroughTheGenericInterface) {
  helper().clearCalls();
  root->genericInvoke("updateCounters", {1, "Ethernet1"});
  root->genericInvoke("updateCounters", {"2", "Cpu"});
  EXPECT_EQ(helper().calls, (Calls{"intfCountersRead(Ethernet1)", "cpuPortCountersUpdate"}));
  EXPECT_EQ(RootTest::assertTextOf([&] {
              root->genericInvoke("updateCounters", {5, "Ethernet1"});
            }),
            "0");
}

}  // namespace
