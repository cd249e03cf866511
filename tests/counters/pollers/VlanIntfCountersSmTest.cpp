#include <gtest/gtest.h>

#include "counters/pollers/PollerTestSupport.h"
#include "counters/pollers/VlanIntfCountersSm.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"
#include "zat/Generic.h"

namespace {

using Interface::VlanIntfCounterBrim;
using Vorn::Counters::VlanIntfCountersSm;
using VornTest::Calls;
using VornTest::FakeCountersHelper;

const Orvo::IntfId kVlan("Vlan10");

class VlanIntfCountersSmTest : public VornTest::ScratchTableTest {
 protected:
  void SetUp() override {
    ScratchTableTest::SetUp();
    vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    helper = FakeCountersHelper::FakeCountersHelperIs();
    helper->firstPollDelayValue = 1.0;
    global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    vlanConfig = Interface::VlanIntfConfig::VlanIntfConfigIs(kVlan);
    vlanStatus = Interface::VlanIntfStatus::VlanIntfStatusIs(kVlan);
    counters = tables.allVlanIntfCounterBrimIs("allVlanIntfCounters");
  }
  void TearDown() override {
    sm = nullptr;
    ScratchTableTest::TearDown();
  }
  Zat::Ptr<VlanIntfCountersSm> makeSm(double period) {
    return VlanIntfCountersSm::VlanIntfCountersSmIs(vcsd, kVlan, period, clock(), helper, global,
                                                    vlanConfig, vlanStatus, counters);
  }
  // Serves a reading with `octets` in and out, `pkts` unicast packets in, and
  // the four routed counters.
  void serve(uint64_t octets, uint64_t pkts, std::array<uint64_t, 4> extra = {0, 0, 0, 0}) {
    FakeCountersHelper::VlanIntfReading r;
    r.statistics.inOctetsIs(octets);
    r.statistics.outOctetsIs(octets);
    r.statistics.inUcastPktsIs(pkts);
    for (size_t i = 0; i < 4; ++i) r.extra[i] = extra[i];
    helper->vlanIntfReadings[kVlan] = r;
  }
  VlanIntfCounterBrim published() const { return counters->counter(kVlan); }

  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<FakeCountersHelper> helper;
  Zat::Ptr<Interface::GlobalIntfConfig> global;
  Zat::Ptr<Interface::VlanIntfConfig> vlanConfig;
  Zat::Ptr<Interface::VlanIntfStatus> vlanStatus;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> counters;
  Zat::Ptr<VlanIntfCountersSm> sm;
};

TEST_F(VlanIntfCountersSmTest, InitializationSeedsZeroRecordAndArmsFirstTick) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_TRUE(counters->hasCounter(kVlan));
  EXPECT_EQ(published(), VlanIntfCounterBrim(kVlan));
  EXPECT_EQ(helper->calls, Calls{"firstPollDelay"});
  EXPECT_EQ(clock()->nextDeadline(), 1002.0);
  EXPECT_NE(sm->prevCounters(), nullptr);
}

TEST_F(VlanIntfCountersSmTest, RecreationKeepsTotalsAndFirstPollAddsFullHardwareCount) {
  VlanIntfCounterBrim seeded(kVlan);
  Interface::IntfStatistics totals;
  totals.inOctetsIs(9000);
  seeded.statisticsIs(totals);
  seeded.routedInPktsIs(40);
  counters->counterIs(seeded);

  serve(1000, 10, {0, 5, 0, 0});
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(published(), seeded);
  advanceTo(1002.0);
  EXPECT_EQ(published().statistics().inOctets(), 10000u);
  EXPECT_EQ(published().routedInPkts(), 45u);

  // A new machine for the same interface starts from a zero previous reading.
  sm->zatDoZombieReactors(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(published().statistics().inOctets(), 10000u);
  advanceTo(1005.0);
  EXPECT_EQ(published().statistics().inOctets(), 11000u);
  EXPECT_EQ(published().statistics().inUcastPkts(), 20u);
  EXPECT_EQ(published().routedInPkts(), 50u);
}

TEST_F(VlanIntfCountersSmTest, ZeroPeriodFirstTickPollsNothingAndArmsNoMore) {
  helper->firstPollDelayValue = 1.5;
  sm = makeSm(0.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1001.5);
  advanceTo(1001.5);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("vlanIntfCountersRead"), 0u);
}

TEST_F(VlanIntfCountersSmTest, MissingTableIsFatalAtInitialization) {
  sm = VlanIntfCountersSm::VlanIntfCountersSmIs(vcsd, kVlan, 2.0, clock(), helper, global,
                                                vlanConfig, vlanStatus, nullptr);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->initializedIs(true); }), "allVlanIntfCounters()");
}

TEST_F(VlanIntfCountersSmTest, PollsAccumulateDifferencesModulo2To64) {
  helper->firstPollDelayValue = 3.0;
  sm = makeSm(2.0);
  serve(1000, 10, {100, 1, 200, 2});
  sm->initializedIs(true);
  advanceTo(1003.0);
  serve(2500, 25, {50, 3, 300, 3});
  advanceTo(1005.0);
  serve(4000, 40, {80, 7, 300, 3});
  advanceTo(1008.0);

  EXPECT_EQ(VornTest::timesOf(*helper, "vlanIntfCountersRead"),
            (std::vector<double>{1003.0, 1005.0, 1007.0}));
  auto entry = published();
  EXPECT_EQ(entry.statistics().inOctets(), 4000u);
  EXPECT_EQ(entry.statistics().outOctets(), 4000u);
  EXPECT_EQ(entry.statistics().inUcastPkts(), 40u);
  EXPECT_EQ(entry.statistics().statsUpdateTime(), 1007.0);
  // 100, then 100 + (50 - 100) mod 2^64, then + (80 - 50).
  EXPECT_EQ(entry.routedInOctets(), 80u);
  EXPECT_EQ(entry.routedInPkts(), 7u);
  EXPECT_EQ(entry.routedOutOctets(), 300u);
  EXPECT_EQ(entry.routedOutPkts(), 3u);
  EXPECT_EQ(sm->prevCounters()->extra(0), 80u);
  EXPECT_EQ(sm->prevCounters()->statistics().inOctets(), 4000u);
}

TEST_F(VlanIntfCountersSmTest, RatesFollowVlanInterfaceLoadInterval) {
  vlanConfig->loadIntervalIs(Interface::LoadInterval(30.0));
  sm = makeSm(2.0);
  serve(1000, 10);
  sm->initializedIs(true);
  advanceTo(1002.0);
  serve(5000, 50);
  advanceTo(1004.0);
  serve(20000, 200);
  advanceTo(1006.0);

  auto reading = [](uint64_t octets, uint64_t pkts) {
    Interface::IntfStatistics s;
    s.inOctetsIs(octets);
    s.outOctetsIs(octets);
    s.inUcastPktsIs(pkts);
    return s;
  };
  const Interface::IntfStatistics first = reading(1000, 10), second = reading(5000, 50),
                                  third = reading(20000, 200);
  auto expectedWith = [&](Interface::LoadInterval intfInterval) {
    Interface::IntfStatistics d1 = first - Interface::IntfStatistics();
    d1.statsUpdateTimeIs(1002.0);
    Interface::IntfStatistics d2 = second - first;
    d2.statsUpdateTimeIs(1004.0);
    Interface::IntfStatistics d3 = third - second;
    d3.statsUpdateTimeIs(1006.0);
    auto g = global->loadInterval();
    auto r =
        Interface::updateIntfMovingAverages(Interface::IntfRates(), d1, 1002.0, intfInterval, g);
    r = Interface::updateIntfMovingAverages(r, d2, 1004.0, intfInterval, g);
    return Interface::updateIntfMovingAverages(r, d3, 1006.0, intfInterval, g);
  };
  EXPECT_EQ(published().rates(), expectedWith(Interface::LoadInterval(30.0)));
  EXPECT_NE(published().rates(), expectedWith(Interface::LoadInterval()));
}

TEST_F(VlanIntfCountersSmTest, UpdateBeforeInitializedDoesNothing) {
  sm = makeSm(2.0);
  serve(1000, 10);
  sm->updateCounters();
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_FALSE(counters->hasCounter(kVlan));
}

TEST_F(VlanIntfCountersSmTest, TickDoesNotTestInitializedButPollDoes) {
  sm = makeSm(2.0);
  serve(1000, 10);
  sm->handleTime();
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_EQ(clock()->nextDeadline(), 1002.0);
}

TEST_F(VlanIntfCountersSmTest, HelperExceptionPassesOutAndNothingIsPublished) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(1000, 10, {1, 1, 1, 1});
  helper->failOperation = "vlanIntfCountersRead";
  EXPECT_EQ(VornTest::messageOf<VornTest::FakeHelperError>([&] { sm->updateCounters(); }),
            "vlanIntfCountersRead failed");
  EXPECT_EQ(published(), VlanIntfCounterBrim(kVlan));
  EXPECT_EQ(sm->prevCounters()->statistics(), Interface::IntfStatistics());
}

TEST_F(VlanIntfCountersSmTest, NotificationsOffStopsTimer) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("vlanIntfCountersRead"), 0u);
}

TEST_F(VlanIntfCountersSmTest, DirectInitializationMarksMachineInitializedOnce) {
  sm = makeSm(2.0);
  sm->handleInitialized();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(helper->calls, Calls{"firstPollDelay"});
  EXPECT_EQ(clock()->armedCount(), 1u);
  EXPECT_EQ(clock()->nextDeadline(), 1002.0);
}

TEST_F(VlanIntfCountersSmTest, TracesHandlersWithInterface) {
  VornTest::TraceCapture trace("VornCountersSm", 8);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  sm->updateCounters();
  EXPECT_EQ(trace.lines(),
            (std::vector<std::string>{
                "void Vorn::Counters::VlanIntfCountersSm::handleInitialized()",
                "void Vorn::Counters::VlanIntfCountersSm::updateCounters() Vlan10"}));
}

TEST_F(VlanIntfCountersSmTest, AccessorsAndAttributesInOrder) {
  sm = makeSm(2.0);
  EXPECT_EQ(sm->intfId(), kVlan);
  EXPECT_EQ(sm->counterPollPeriod(), 2.0);
  EXPECT_EQ(sm->clock(), clock());
  EXPECT_EQ(sm->platformHelper(), helper);
  EXPECT_EQ(sm->globalIntfConfig(), global);
  EXPECT_EQ(sm->vlanIntfConfig(), vlanConfig);
  EXPECT_EQ(sm->vlanIntfStatus(), vlanStatus);
  EXPECT_EQ(sm->allVlanIntfCounters(), counters);
  sm->genericInvoke("initializedIs", {true});
  serve(1000, 10);
  sm->genericInvoke("updateCounters", {});
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*sm)) names.push_back(name);
  EXPECT_EQ(names,
            (std::vector<std::string>{"vcsd", "initialized", "intfId", "counterPollPeriod", "clock",
                                      "platformHelper", "globalIntfConfig", "vlanIntfConfig",
                                      "vlanIntfStatus", "allVlanIntfCounters", "prevCounters"}));
}

}  // namespace
