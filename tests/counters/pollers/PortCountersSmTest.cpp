#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "counters/pollers/PollerTestSupport.h"
#include "counters/pollers/PortCountersSm.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"
#include "zat/Generic.h"

namespace {

using Vorn::Counters::PortCountersSm;
using VornTest::Calls;
using VornTest::FakeCountersHelper;

const Orvo::IntfId kIntf("Ethernet1");

const std::string kInErrorsText =
    "newCounters->intfStats().inErrors() == ( newCounters->ethStats().alignmentErrors() + "
    "newCounters->ethStats().fcsErrors() + newCounters->ethStats().frameTooLongs() + "
    "newCounters->ethStats().frameTooShorts() + "
    "newCounters->ethStats().internalMacReceiveErrors() )";
const std::string kOutErrorsText =
    "newCounters->intfStats().outErrors() == ( newCounters->ethStats().sqeTestErrors() + "
    "newCounters->ethStats().lateCollisions() + newCounters->ethStats().excessiveCollisions() + "
    "newCounters->ethStats().internalMacTransmitErrors() + "
    "newCounters->ethStats().carrierSenseErrors() )";

class PortCountersSmTest : public VornTest::ScratchTableTest {
 protected:
  void SetUp() override {
    ScratchTableTest::SetUp();
    vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    helper = FakeCountersHelper::FakeCountersHelperIs();
    cliConfig = Vorn::Counters::CliConfig::CliConfigIs();
    ethConfig = Interface::EthPhyIntfConfig::EthPhyIntfConfigIs(kIntf);
    ethStatus = Interface::EthPhyIntfStatus::EthPhyIntfStatusIs(kIntf);
    global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    counters = tables.allEthIntfCounterBrimIs("allIntfCounters");
    clearCounters = tables.allEthIntfCounterBrimIs("allIntfClearCounters");
  }
  void TearDown() override {
    sm = nullptr;
    ScratchTableTest::TearDown();
  }

  // A poller for kIntf with `period`, as the root makes one (not yet initialized).
  Zat::Ptr<PortCountersSm> makeSm(double period,
                                  Zat::Ptr<Interface::AllEthIntfCounterBrim> table = {}) {
    auto s =
        PortCountersSm::PortCountersSmIs(vcsd, kIntf, cliConfig, clock(), ethConfig, ethStatus,
                                         helper, global, table ? table : counters, clearCounters);
    s->counterPollPeriodIs(period);
    return s;
  }
  void serve(const FakeCountersHelper::PortReading& reading) {
    helper->portReadings[kIntf] = reading;
  }
  Interface::EthIntfCounterBrim published() const { return counters->counter(kIntf); }

  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<FakeCountersHelper> helper;
  Zat::Ptr<Vorn::Counters::CliConfig> cliConfig;
  Zat::Ptr<Interface::EthPhyIntfConfig> ethConfig;
  Zat::Ptr<Interface::EthPhyIntfStatus> ethStatus;
  Zat::Ptr<Interface::GlobalIntfConfig> global;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> counters;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> clearCounters;
  Zat::Ptr<PortCountersSm> sm;
};

TEST_F(PortCountersSmTest, FirstPollWaitsForHelperMinimumThenUsesPeriod) {
  helper->firstPollDelayValue = 5.0;
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1005.0);

  advanceTo(1004.5);
  EXPECT_EQ(helper->count("intfCountersRead"), 0u);
  advanceTo(1005.0);
  serve(FakeCountersHelper::consistentReading(2500, 25));
  advanceTo(1007.0);
  serve(FakeCountersHelper::consistentReading(4000, 40));
  advanceTo(1010.0);

  EXPECT_EQ(helper->calls,
            (Calls{"intfCountersInit(Ethernet1)", "firstPollDelay", "intfCountersRead(Ethernet1)",
                   "intfCountersRead(Ethernet1)", "intfCountersRead(Ethernet1)"}));
  EXPECT_EQ(VornTest::timesOf(*helper, "intfCountersRead"),
            (std::vector<double>{1005.0, 1007.0, 1009.0}));
  EXPECT_EQ(clock()->nextDeadline(), 1011.0);
  auto entry = published();
  EXPECT_EQ(entry.intfId(), kIntf);
  EXPECT_EQ(entry.statistics().inOctets(), 4000u);
  EXPECT_EQ(entry.statistics().inUcastPkts(), 40u);
  EXPECT_EQ(entry.statistics().outOctets(), 2000u);
  EXPECT_EQ(entry.statistics().outUcastPkts(), 20u);
  EXPECT_EQ(entry.statistics().statsUpdateTime(), 1009.0);
  EXPECT_EQ(sm->prevCounters()->intfStats().inOctets(), 4000u);
}

TEST_F(PortCountersSmTest, PeriodLongerThanHelperMinimumArmsFirstTickAtPeriod) {
  helper->firstPollDelayValue = 1.0;
  sm = makeSm(3.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1003.0);
}

TEST_F(PortCountersSmTest, NotANumberHelperMinimumTakesPeriod) {
  helper->firstPollDelayValue = std::numeric_limits<double>::quiet_NaN();
  sm = makeSm(4.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);
}

TEST_F(PortCountersSmTest, ZeroPeriodAtTickStopsPollingEvenAfterPeriodBecomesNonZero) {
  helper->firstPollDelayValue = 1.0;
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 1u);
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);

  sm->counterPollPeriodIs(0.0);
  advanceTo(1004.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 1u);
  EXPECT_EQ(clock()->armedCount(), 0u);

  cliConfig->counterPollPeriodIs(3.0);
  EXPECT_EQ(sm->counterPollPeriod(), 3.0);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 1u);
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
}

TEST_F(PortCountersSmTest, FirstPollAddsFullReadingOnTopOfExistingTotals) {
  Interface::EthIntfCounterBrim seeded(kIntf);
  Interface::IntfStatistics totals;
  totals.inOctetsIs(7000);
  totals.inUcastPktsIs(70);
  totals.inErrorsIs(3);
  seeded.statisticsIs(totals);
  Interface::EthStatistics ethTotals;
  ethTotals.fcsErrorsIs(3);
  seeded.ethStatisticsIs(ethTotals);
  counters->counterIs(seeded);

  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10, 2, 1));
  sm->initializedIs(true);
  advanceTo(1002.0);

  auto entry = published();
  EXPECT_EQ(entry.statistics().inOctets(), 8000u);
  EXPECT_EQ(entry.statistics().inUcastPkts(), 80u);
  EXPECT_EQ(entry.statistics().outOctets(), 500u);
  EXPECT_EQ(entry.statistics().outUcastPkts(), 5u);
  EXPECT_EQ(entry.statistics().inErrors(), 5u);
  EXPECT_EQ(entry.statistics().outErrors(), 1u);
  EXPECT_EQ(entry.ethStatistics().fcsErrors(), 5u);
  EXPECT_EQ(entry.ethStatistics().lateCollisions(), 1u);

  serve(FakeCountersHelper::consistentReading(1600, 16, 4, 1));
  advanceTo(1004.0);
  entry = published();
  EXPECT_EQ(entry.statistics().inOctets(), 8600u);
  EXPECT_EQ(entry.statistics().inUcastPkts(), 86u);
  EXPECT_EQ(entry.statistics().inErrors(), 7u);
  EXPECT_EQ(entry.ethStatistics().fcsErrors(), 7u);
  EXPECT_EQ(entry.ethStatistics().lateCollisions(), 1u);
}

TEST_F(PortCountersSmTest, FallingHardwareCounterAddsModularDifference) {
  Interface::EthIntfCounterBrim seeded(kIntf);
  Interface::IntfStatistics totals;
  totals.inOctetsIs(5000);
  seeded.statisticsIs(totals);
  counters->counterIs(seeded);
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(published().statistics().inOctets(), 6000u);

  serve(FakeCountersHelper::consistentReading(400, 4));
  advanceTo(1004.0);
  const uint64_t modularDelta = uint64_t{400} - uint64_t{1000};
  EXPECT_EQ(modularDelta, UINT64_MAX - 599);
  EXPECT_EQ(published().statistics().inOctets(), uint64_t{6000} + modularDelta);
  EXPECT_EQ(published().statistics().inOctets(), 5400u);
  EXPECT_EQ(published().statistics().inUcastPkts(), uint64_t{10} + (uint64_t{4} - uint64_t{10}));
}

TEST_F(PortCountersSmTest, EthernetCounterThatFallsAddsModularDifference) {
  auto reading = FakeCountersHelper::consistentReading(1000, 10);
  reading.ethStats.inPauseFramesIs(900);
  serve(reading);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  advanceTo(1002.0);
  reading.ethStats.inPauseFramesIs(100);
  serve(reading);
  advanceTo(1004.0);
  EXPECT_EQ(published().ethStatistics().inPauseFrames(),
            uint64_t{900} + (uint64_t{100} - uint64_t{900}));
  EXPECT_EQ(published().ethStatistics().inPauseFrames(), 100u);
}

TEST_F(PortCountersSmTest, AbsentOptionalCounterBecomesAbsentAfterNextPoll) {
  auto reading = FakeCountersHelper::consistentReading(1000, 10);
  reading.intfStats.outMulticastPktsIs(Pell::MaybeU63(50));
  serve(reading);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(published().statistics().outMulticastPkts(), Pell::MaybeU63(50));

  reading.intfStats.outMulticastPktsIs(Pell::MaybeU63::absent());
  serve(reading);
  advanceTo(1004.0);
  EXPECT_FALSE(published().statistics().outMulticastPkts().hasValue());
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
}

TEST_F(PortCountersSmTest, PublishedTimestampIsLaterOfPreviousAndPollTime) {
  Interface::EthIntfCounterBrim seeded(kIntf);
  Interface::IntfStatistics totals;
  totals.statsUpdateTimeIs(10.0);
  seeded.statisticsIs(totals);
  counters->counterIs(seeded);
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(published().statistics().statsUpdateTime(), 1002.0);

  auto ahead = published();
  auto stats = ahead.statistics();
  stats.statsUpdateTimeIs(5000.0);
  ahead.statisticsIs(stats);
  counters->counterIs(ahead);
  advanceTo(1004.0);
  EXPECT_EQ(published().statistics().statsUpdateTime(), 5000.0);
}

TEST_F(PortCountersSmTest, RatesFollowPortLoadIntervalOverGlobal) {
  ethConfig->loadIntervalIs(Interface::LoadInterval(30.0));
  global->loadIntervalIs(Interface::LoadInterval(300.0));
  auto first = FakeCountersHelper::consistentReading(1000, 10);
  auto second = FakeCountersHelper::consistentReading(3000, 30);
  auto third = FakeCountersHelper::consistentReading(7000, 70);
  sm = makeSm(2.0);
  serve(first);
  sm->initializedIs(true);
  advanceTo(1002.0);
  serve(second);
  advanceTo(1004.0);
  serve(third);
  advanceTo(1006.0);

  Interface::IntfStatistics delta1 = first.intfStats - Interface::IntfStatistics();
  delta1.statsUpdateTimeIs(1002.0);
  Interface::IntfStatistics delta2 = second.intfStats - first.intfStats;
  delta2.statsUpdateTimeIs(1004.0);
  Interface::IntfStatistics delta3 = third.intfStats - second.intfStats;
  delta3.statsUpdateTimeIs(1006.0);
  auto rates = [&](Interface::LoadInterval intfInterval) {
    const Interface::LoadInterval global300(300.0);
    auto r1 = Interface::updateIntfMovingAverages(Interface::IntfRates(), delta1, 1002.0,
                                                  intfInterval, global300);
    auto r2 = Interface::updateIntfMovingAverages(r1, delta2, 1004.0, intfInterval, global300);
    return Interface::updateIntfMovingAverages(r2, delta3, 1006.0, intfInterval, global300);
  };
  EXPECT_EQ(published().rates(), rates(Interface::LoadInterval(30.0)));
  EXPECT_NE(published().rates(), rates(Interface::LoadInterval()));
  // The first poll only starts the rate clock.
  EXPECT_EQ(published().rates().sampleCount(), 2u);
  EXPECT_EQ(published().rates().lastUpdateTime(), 1006.0);
}

TEST_F(PortCountersSmTest, InErrorsSumMismatchRaisesAssertionAndPublishesNothing) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  auto reading = FakeCountersHelper::consistentReading(1000, 10, 2, 0);
  reading.intfStats.inErrorsIs(3);
  serve(reading);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->updateCounters(); }), kInErrorsText);
  EXPECT_FALSE(counters->hasCounter(kIntf));
  EXPECT_EQ(sm->prevCounters()->intfStats(), Interface::IntfStatistics());
}

TEST_F(PortCountersSmTest, OutErrorsSumMismatchRaisesAssertionAndPublishesNothing) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  auto reading = FakeCountersHelper::consistentReading(1000, 10, 0, 2);
  reading.ethStats.carrierSenseErrorsIs(1);
  serve(reading);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->updateCounters(); }), kOutErrorsText);
  EXPECT_FALSE(counters->hasCounter(kIntf));
  EXPECT_EQ(sm->prevCounters()->ethStats(), Interface::EthStatistics());
}

TEST_F(PortCountersSmTest, ErrorSumsAreTakenModulo2To64) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  auto reading = FakeCountersHelper::consistentReading(1000, 10);
  reading.ethStats.alignmentErrorsIs(UINT64_MAX);
  reading.ethStats.fcsErrorsIs(2);
  reading.intfStats.inErrorsIs(1);
  reading.ethStats.sqeTestErrorsIs(UINT64_MAX);
  reading.ethStats.excessiveCollisionsIs(1);
  reading.intfStats.outErrorsIs(0);
  serve(reading);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->updateCounters(); }), "");
  EXPECT_EQ(published().statistics().inErrors(), 1u);
  EXPECT_EQ(published().ethStatistics().alignmentErrors(), UINT64_MAX);
}

TEST_F(PortCountersSmTest, HandlersBeforeInitializedDoNothing) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->updateCounters();
  sm->handleTime();
  cliConfig->counterPollPeriodIs(9.0);
  advanceTo(1100.0);
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_FALSE(counters->hasCounter(kIntf));
  EXPECT_EQ(sm->counterPollPeriod(), 2.0);
  EXPECT_EQ(sm->prevCounters(), nullptr);
  EXPECT_EQ(clock()->armedCount(), 0u);
}

TEST_F(PortCountersSmTest, HandleInitializedAssertsInitialized) {
  sm = makeSm(2.0);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->handleInitialized(); }), "initialized()");
}

TEST_F(PortCountersSmTest, HelperExceptionPassesOutAndNothingIsPublished) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  helper->failOperation = "intfCountersRead";
  EXPECT_EQ(VornTest::messageOf<VornTest::FakeHelperError>([&] { sm->updateCounters(); }),
            "intfCountersRead failed");
  EXPECT_FALSE(counters->hasCounter(kIntf));
  EXPECT_EQ(sm->prevCounters()->intfStats(), Interface::IntfStatistics());

  helper->failOperation.clear();
  sm->updateCounters();
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
}

TEST_F(PortCountersSmTest, PeriodChangeThroughCliConfigTakesEffectAtNextTick) {
  helper->firstPollDelayValue = 1.0;
  sm = makeSm(2.0);
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);

  advanceTo(1003.0);
  cliConfig->counterPollPeriodIs(10.0);
  EXPECT_EQ(sm->counterPollPeriod(), 10.0);
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);

  advanceTo(1020.0);
  EXPECT_EQ(VornTest::timesOf(*helper, "intfCountersRead"),
            (std::vector<double>{1002.0, 1004.0, 1014.0}));
  EXPECT_EQ(clock()->nextDeadline(), 1024.0);
}

TEST_F(PortCountersSmTest, NotificationsOffStopsTimerAndConfigReactor) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->armedCount(), 1u);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(clock()->armedCount(), 0u);
  cliConfig->counterPollPeriodIs(7.0);
  advanceTo(1010.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 0u);
  EXPECT_EQ(sm->counterPollPeriod(), 2.0);

  // Switching back on re-arms the deadline that was pending, now past due.
  sm->hasNotificationActiveIs(true);
  advanceTo(1011.0);
  EXPECT_EQ(VornTest::timesOf(*helper, "intfCountersRead"), (std::vector<double>{1010.0}));
}

TEST_F(PortCountersSmTest, ZombieMachineNeverTicksAgain) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  sm->zatDoZombieReactors(true);
  EXPECT_TRUE(sm->zombie());
  EXPECT_EQ(clock()->armedCount(), 0u);
  cliConfig->counterPollPeriodIs(7.0);
  advanceTo(1010.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 0u);
  EXPECT_EQ(sm->counterPollPeriod(), 2.0);
}

TEST_F(PortCountersSmTest, MissingCounterTableMakesPollNoOpButTickRearms) {
  sm = PortCountersSm::PortCountersSmIs(vcsd, kIntf, cliConfig, clock(), ethConfig, ethStatus,
                                        helper, global, nullptr, nullptr);
  sm->counterPollPeriodIs(2.0);
  sm->initializedIs(true);
  advanceTo(1002.0);
  EXPECT_EQ(helper->count("intfCountersRead"), 0u);
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);
}

TEST_F(PortCountersSmTest, HandleExitReleasesHardwareCountersAndKeepsEntry) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  advanceTo(1002.0);
  helper->clearCalls();
  sm->handleExit();
  EXPECT_EQ(helper->calls, Calls{"intfCountersCleanup(Ethernet1)"});
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
}

TEST_F(PortCountersSmTest, ClearBaselineTableIsNeverWrittenByPolls) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  advanceTo(1004.0);
  EXPECT_EQ(clearCounters->size(), 0u);
}

TEST_F(PortCountersSmTest, TracesHandlersWithInterface) {
  VornTest::TraceCapture trace("VornCountersSm", 8);
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  sm->updateCounters();
  sm->handleExit();
  EXPECT_EQ(trace.lines(),
            (std::vector<std::string>{
                "void Vorn::Counters::PortCountersSm::handleInitialized() intfId: Ethernet1",
                "void Vorn::Counters::PortCountersSm::updateCounters() intfId: Ethernet1",
                "void Vorn::Counters::PortCountersSm::handleExit() intfId: Ethernet1"}));
}

TEST_F(PortCountersSmTest, GenericOperationsReachHandlersAndDescribeAttributesInOrder) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->genericInvoke("counterPollPeriodIs", {3.0});
  EXPECT_EQ(sm->counterPollPeriod(), 3.0);
  sm->genericInvoke("initializedIs", {true});
  sm->genericInvoke("updateCounters", {});
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
  EXPECT_THROW(sm->genericInvoke("noSuchOperation", {}), Zat::UnknownOperationException);

  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*sm)) names.push_back(name);
  EXPECT_EQ(names,
            (std::vector<std::string>{"vcsd", "initialized", "intfId", "cliCounterConfig", "clock",
                                      "ethPhyIntfConfig", "ethPhyIntfStatus", "platformHelper",
                                      "globalIntfConfig", "allIntfCounters", "allIntfClearCounters",
                                      "counterPollPeriod", "prevCounters"}));
}

TEST_F(PortCountersSmTest, AccessorsReturnConstructorArguments) {
  sm = makeSm(2.0);
  EXPECT_EQ(sm->intfId(), kIntf);
  EXPECT_EQ(sm->vcsd(), vcsd);
  EXPECT_EQ(sm->cliCounterConfig(), cliConfig);
  EXPECT_EQ(sm->clock(), clock());
  EXPECT_EQ(sm->ethPhyIntfConfig(), ethConfig);
  EXPECT_EQ(sm->ethPhyIntfStatus(), ethStatus);
  EXPECT_EQ(sm->platformHelper(), helper);
  EXPECT_EQ(sm->globalIntfConfig(), global);
  EXPECT_EQ(sm->allIntfCounters(), counters);
  EXPECT_EQ(sm->allIntfClearCounters(), clearCounters);
  EXPECT_EQ(sm->prevCounters(), nullptr);
  auto prev = sm->prevCountersIs();
  EXPECT_EQ(sm->prevCountersIs(), prev);
}

}  // namespace

namespace {

bool zeroFilled(const VornTypes::IntfCounters& reading) {
  return reading.intfStats() == Interface::IntfStatistics() &&
         reading.ethStats() == Interface::EthStatistics();
}

TEST_F(PortCountersSmTest, EveryPollHandsTheHelperAZeroFilledReading) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10, 3, 1));
  sm->initializedIs(true);
  std::vector<bool> arrivedZero;
  helper->onIntfCountersRead = [&](const Zat::Ptr<VornTypes::IntfCounters>& reading) {
    arrivedZero.push_back(zeroFilled(*reading));
  };
  sm->updateCounters();
  sm->updateCounters();
  sm->updateCounters();
  EXPECT_EQ(arrivedZero, (std::vector<bool>{true, true, true}));
  EXPECT_EQ(published().statistics().inOctets(), 1000u);
}

TEST_F(PortCountersSmTest, AReadingTheHelperKeepsIsNeverHandedOutAgain) {
  sm = makeSm(2.0);
  serve(FakeCountersHelper::consistentReading(1000, 10));
  sm->initializedIs(true);
  std::vector<Zat::Ptr<VornTypes::IntfCounters>> kept;
  helper->onIntfCountersRead = [&](const Zat::Ptr<VornTypes::IntfCounters>& reading) {
    EXPECT_TRUE(zeroFilled(*reading));
    kept.push_back(reading);
  };
  sm->updateCounters();
  serve(FakeCountersHelper::consistentReading(5000, 50));
  sm->updateCounters();
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_NE(kept[0].ptr(), kept[1].ptr());
  // The first reading still holds what the helper put in it.
  EXPECT_EQ(kept[0]->intfStats().inOctets(), 1000u);
  EXPECT_EQ(kept[1]->intfStats().inOctets(), 5000u);
  EXPECT_EQ(published().statistics().inOctets(), 5000u);
}

}  // namespace
