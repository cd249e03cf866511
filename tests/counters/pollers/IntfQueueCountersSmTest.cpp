#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "counters/pollers/IntfQueueCountersSm.h"
#include "counters/pollers/PollerTestSupport.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"
#include "zat/Exception.h"
#include "zat/Generic.h"

namespace {

using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueRates;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;
using Vorn::Counters::IntfQueueCountersSm;
using VornTest::Calls;
using VornTest::FakeCountersHelper;
using VornTypes::QueueType;

const Orvo::IntfId kIntf("Ethernet1");
const std::string kRangeText =
    "QueueIndex::value < QueueIndex::min or > QueueIndex::max not allowed";
constexpr auto kUnicast = static_cast<uint32_t>(QueueType::unicast);
constexpr auto kMulticast = static_cast<uint32_t>(QueueType::multicast);

class IntfQueueCountersSmTest : public VornTest::ScratchTableTest {
 protected:
  void SetUp() override {
    ScratchTableTest::SetUp();
    vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    helper = FakeCountersHelper::FakeCountersHelperIs();
    helper->firstPollDelayValue = 1.0;
    helper->queueTypes[kIntf] = {{0, QueueType::unicast}, {1, QueueType::multicast}};
    global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    configDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
    configDir->intfConfigIs(kIntf);
    queues = tables.allIntfQueueCountersIs("allIntfQueueCounters");
    clearQueues = tables.allIntfQueueCountersIs("allIntfClearQueueCounters");
  }
  void TearDown() override {
    sm = nullptr;
    ScratchTableTest::TearDown();
  }
  Zat::Ptr<IntfQueueCountersSm> makeSm(double pollInterval, Orvo::IntfId intf = kIntf) {
    return IntfQueueCountersSm::IntfQueueCountersSmIs(vcsd, intf, pollInterval, clock(), helper,
                                                      global, configDir, queues, clearQueues);
  }
  // A reading of queue 0 (and queue 1 when given) with the given raw counts.
  static IntfQueueCounter reading(Orvo::IntfId intf, IntfQueueStat q0,
                                  std::optional<IntfQueueStat> q1 = std::nullopt,
                                  uint64_t aggregate0 = 0, uint64_t aggregate1 = 0) {
    IntfQueueCounter r(intf);
    r.intfAggregate0Is(aggregate0);
    r.intfAggregate1Is(aggregate1);
    r.intfQueueStatIs(QueueIndex(0), q0);
    if (q1) r.intfQueueStatIs(QueueIndex(1), *q1);
    return r;
  }
  void serve(const IntfQueueCounter& r) { helper->queueReadings[r.intfId()] = r; }
  IntfQueueCounter published(Orvo::IntfId intf = kIntf) const {
    return queues->intfQueueCounter(intf);
  }
  // The record addQueues publishes for the default queue map (0 unicast, 1 multicast).
  static IntfQueueCounter seededRecord(Orvo::IntfId intf = kIntf) {
    IntfQueueCounter r(intf);
    r.intfQueueStatIs(QueueIndex(0), IntfQueueStat(kUnicast, 0, 0, 0, 0));
    r.intfQueueStatIs(QueueIndex(1), IntfQueueStat(kMulticast, 0, 0, 0, 0));
    r.intfQueueRatesIs(QueueIndex(0), IntfQueueRates());
    r.intfQueueRatesIs(QueueIndex(1), IntfQueueRates());
    return r;
  }

  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<FakeCountersHelper> helper;
  Zat::Ptr<Interface::GlobalIntfConfig> global;
  Zat::Ptr<Interface::AllEthPhyIntfConfigDir> configDir;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> queues;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> clearQueues;
  Zat::Ptr<IntfQueueCountersSm> sm;
};

TEST_F(IntfQueueCountersSmTest, InitializationPublishesZeroRecordWithQueueTypesInBothTables) {
  helper->queueTypes[kIntf] = {
      {0, QueueType::unicast}, {1, QueueType::multicast}, {3, QueueType::multicast}};
  sm = makeSm(2.0);
  sm->initializedIs(true);

  IntfQueueCounter expected(kIntf);
  expected.intfQueueStatIs(QueueIndex(0), IntfQueueStat(kUnicast, 0, 0, 0, 0));
  expected.intfQueueStatIs(QueueIndex(1), IntfQueueStat(kMulticast, 0, 0, 0, 0));
  expected.intfQueueStatIs(QueueIndex(3), IntfQueueStat(kMulticast, 0, 0, 0, 0));
  expected.intfQueueRatesIs(QueueIndex(3), IntfQueueRates());
  EXPECT_EQ(published(), expected);
  EXPECT_EQ(published().intfQueueStatArray().size(), 4u);
  EXPECT_EQ(published().intfQueueRatesArray().size(), 4u);
  EXPECT_EQ(clearQueues->intfQueueCounter(kIntf), expected);
  EXPECT_EQ(helper->calls, (Calls{"intfQueueTypeRead(Ethernet1)", "firstPollDelay"}));
  EXPECT_NE(sm->prevCounters(), nullptr);
}

TEST_F(IntfQueueCountersSmTest, SecondAddQueuesKeepsExistingRecord) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  IntfQueueCounter withTotals = published();
  withTotals.intfAggregate0Is(77);
  withTotals.intfQueueStatIs(QueueIndex(0), IntfQueueStat(kUnicast, 5000, 50, 0, 0));
  queues->intfQueueCounterIs(withTotals);

  sm->addQueues();
  EXPECT_EQ(published(), withTotals);
  EXPECT_EQ(helper->count("intfQueueTypeRead"), 1u);
}

TEST_F(IntfQueueCountersSmTest, RecordLeftByEarlierRunIsKeptAtInitialization) {
  IntfQueueCounter earlier = seededRecord();
  earlier.intfQueueStatIs(QueueIndex(1), IntfQueueStat(kMulticast, 900, 9, 0, 0));
  queues->intfQueueCounterIs(earlier);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(published(), earlier);
  EXPECT_EQ(helper->count("intfQueueTypeRead"), 0u);
  EXPECT_FALSE(clearQueues->hasCounter(kIntf));
}

TEST_F(IntfQueueCountersSmTest, QueueMapIndexAbove16RaisesRangeErrorAndPublishesNothing) {
  helper->queueTypes[kIntf] = {{0, QueueType::unicast}, {17, QueueType::unicast}};
  sm = makeSm(2.0);
  EXPECT_EQ(VornTest::messageOf<Zat::RangeException>([&] { sm->initializedIs(true); }), kRangeText);
  EXPECT_FALSE(queues->hasCounter(kIntf));
  EXPECT_FALSE(clearQueues->hasCounter(kIntf));
}

TEST_F(IntfQueueCountersSmTest, OverheadIsRemovedPerPacketAndClampedAtZero) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  // 1000 - 20 x 60 is negative: stored as 0, never wrapped; 5000 - 1200 = 3800.
  serve(reading(kIntf, IntfQueueStat(0, 1000, 60, 5000, 60)));
  advanceTo(1002.0);
  EXPECT_EQ(published().intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 0, 60, 3800, 60));
}

TEST_F(IntfQueueCountersSmTest, ReadingsAlreadyWithoutOverheadAreStoredAsRead) {
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 1000, 60, 5000, 60)));
  advanceTo(1002.0);
  EXPECT_EQ(published().intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 1000, 60, 5000, 60));
}

TEST_F(IntfQueueCountersSmTest, AbsoluteReadingBelowTotalStoresLowerTotalAndZeroIncrements) {
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 10000, 100, 400, 4)));
  advanceTo(1002.0);
  serve(reading(kIntf, IntfQueueStat(0, 5000, 50, 400, 4)));
  advanceTo(1004.0);

  EXPECT_EQ(published().intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 5000, 50, 400, 4));
  Interface::LoadInterval intfInterval;
  Interface::LoadInterval globalInterval = global->loadInterval();
  IntfQueueRates expected;
  // The seeded record's time is 0, so the first poll's span runs from 0.
  Interface::QueueCounter::updateIntfQueueMovingAverages(expected, 1002.0, 10000, 100, 400, 4,
                                                         intfInterval, globalInterval);
  Interface::QueueCounter::updateIntfQueueMovingAverages(expected, 2.0, 0, 0, 0, 0, intfInterval,
                                                         globalInterval);
  EXPECT_EQ(published().intfQueueRates(QueueIndex(0)), expected);
  EXPECT_EQ(published().lastUpdateTime(), 1004.0);
}

TEST_F(IntfQueueCountersSmTest, ClearOnReadReadingsAreAddedToTotals) {
  helper->queueCountersClearOnReadIs(true);
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 100, 1, 10, 1), IntfQueueStat(0, 7, 1, 0, 0), 5, 6));
  advanceTo(1002.0);
  serve(reading(kIntf, IntfQueueStat(0, 300, 3, 0, 0), std::nullopt, 1, 2));
  advanceTo(1004.0);
  serve(reading(kIntf, IntfQueueStat(0, 600, 6, 20, 2), std::nullopt, 10, 20));
  advanceTo(1006.0);

  auto record = published();
  EXPECT_EQ(record.intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 1000, 10, 30, 3));
  EXPECT_EQ(record.intfQueueStat(QueueIndex(1)), IntfQueueStat(kMulticast, 7, 1, 0, 0));
  EXPECT_EQ(record.intfAggregate0(), 16u);
  EXPECT_EQ(record.intfAggregate1(), 28u);
  IntfQueueRates expected;
  auto global300 = global->loadInterval();
  Interface::QueueCounter::updateIntfQueueMovingAverages(expected, 1002.0, 100, 1, 10, 1, {},
                                                         global300);
  Interface::QueueCounter::updateIntfQueueMovingAverages(expected, 2.0, 300, 3, 0, 0, {},
                                                         global300);
  Interface::QueueCounter::updateIntfQueueMovingAverages(expected, 2.0, 600, 6, 20, 2, {},
                                                         global300);
  EXPECT_EQ(record.intfQueueRates(QueueIndex(0)), expected);
}

TEST_F(IntfQueueCountersSmTest, ClearOnReadOverheadIsRemovedBeforeAdding) {
  helper->queueCountersClearOnReadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 1000, 10, 100, 10)));
  advanceTo(1004.0);
  EXPECT_EQ(published().intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 1600, 20, 0, 20));
}

TEST_F(IntfQueueCountersSmTest, AbsoluteAggregatesAreReplaced) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(), std::nullopt, 5, 6));
  advanceTo(1002.0);
  serve(reading(kIntf, IntfQueueStat(), std::nullopt, 3, 4));
  advanceTo(1004.0);
  EXPECT_EQ(published().intfAggregate0(), 3u);
  EXPECT_EQ(published().intfAggregate1(), 4u);
}

TEST_F(IntfQueueCountersSmTest, FabricInterfaceGetsTotalsButRatesStayZero) {
  const Orvo::IntfId fabric("Fabric1");
  helper->queueTypes[fabric] = {{0, QueueType::unicast}};
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0, fabric);
  sm->initializedIs(true);
  serve(reading(fabric, IntfQueueStat(0, 1000, 10, 0, 0)));
  advanceTo(1002.0);
  serve(reading(fabric, IntfQueueStat(0, 3000, 30, 50, 1)));
  advanceTo(1004.0);
  auto record = published(fabric);
  EXPECT_EQ(record.intfQueueStat(QueueIndex(0)), IntfQueueStat(kUnicast, 3000, 30, 50, 1));
  EXPECT_EQ(record.intfQueueRates(QueueIndex(0)), IntfQueueRates());
  EXPECT_EQ(record.intfQueueRatesArray().size(), 1u);
}

TEST_F(IntfQueueCountersSmTest, EighteenEntryReadingRaisesRangeErrorAndPublishesNothing) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  IntfQueueCounter r(kIntf);
  for (uint64_t q = 0; q <= QueueIndex::kMax; ++q) {
    r.intfQueueStatIs(QueueIndex(q), IntfQueueStat(0, 5000, 50, 0, 0));
  }
  // An eighteenth entry can only be a count the array cannot hold.
  uint32_t eighteen = 18;
  std::memcpy(static_cast<void*>(&r.intfQueueStatArray()), &eighteen, sizeof eighteen);
  ASSERT_EQ(r.intfQueueStatArray().storedCount(), 18u);
  serve(r);

  EXPECT_EQ(VornTest::messageOf<Zat::RangeException>([&] { sm->updateCounters(); }), kRangeText);
  EXPECT_EQ(published(), seededRecord());
}

TEST_F(IntfQueueCountersSmTest, FirstPollAfterLargerOfMinimumAndIntervalThenEveryInterval) {
  helper->firstPollDelayValue = 5.0;
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1005.0);
  advanceTo(1010.0);
  EXPECT_EQ(VornTest::timesOf(*helper, "intfQueueCountersRead"),
            (std::vector<double>{1005.0, 1007.0, 1009.0}));
  EXPECT_EQ(published().lastUpdateTime(), 1009.0);
}

TEST_F(IntfQueueCountersSmTest, IntervalLongerThanMinimumArmsFirstTickAtInterval) {
  sm = makeSm(3.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1003.0);
}

TEST_F(IntfQueueCountersSmTest, ZeroPollIntervalPollsNothingAndStops) {
  helper->firstPollDelayValue = 1.5;
  sm = makeSm(0.0);
  sm->initializedIs(true);
  advanceTo(1001.5);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("intfQueueCountersRead"), 0u);
}

TEST_F(IntfQueueCountersSmTest, HandlersBeforeInitializedDoNothing) {
  sm = makeSm(2.0);
  sm->updateCounters();
  sm->handleTime();
  advanceTo(1100.0);
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_FALSE(queues->hasCounter(kIntf));
}

TEST_F(IntfQueueCountersSmTest, HelperExceptionPassesOutAndNothingIsPublished) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  helper->failOperation = "intfQueueCountersRead";
  EXPECT_EQ(VornTest::messageOf<VornTest::FakeHelperError>([&] { sm->updateCounters(); }),
            "intfQueueCountersRead failed");
  EXPECT_EQ(published(), seededRecord());
}

TEST_F(IntfQueueCountersSmTest, NotificationsOffStopsTimer) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("intfQueueCountersRead"), 0u);
}

TEST_F(IntfQueueCountersSmTest, RatesUseInterfaceLoadIntervalFromDirectory) {
  configDir->intfConfigMutable(kIntf)->loadIntervalIs(Interface::LoadInterval(30.0));
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 1000, 10, 0, 0)));
  advanceTo(1002.0);
  serve(reading(kIntf, IntfQueueStat(0, 9000, 90, 0, 0)));
  advanceTo(1004.0);
  auto expectedWith = [](Interface::LoadInterval intfInterval) {
    IntfQueueRates r;
    Interface::QueueCounter::updateIntfQueueMovingAverages(r, 1002.0, 1000, 10, 0, 0, intfInterval,
                                                           Interface::LoadInterval(300.0));
    Interface::QueueCounter::updateIntfQueueMovingAverages(r, 2.0, 8000, 80, 0, 0, intfInterval,
                                                           Interface::LoadInterval(300.0));
    return r;
  };
  EXPECT_EQ(published().intfQueueRates(QueueIndex(0)), expectedWith(Interface::LoadInterval(30.0)));
  EXPECT_NE(published().intfQueueRates(QueueIndex(0)), expectedWith(Interface::LoadInterval()));
}

// The poller keeps its interface's configuration entry between polls; every poll
// must still see the entry as the directory has it then.
TEST_F(IntfQueueCountersSmTest, EachPollSeesTheInterfaceConfigurationAsTheDirectoryHasItThen) {
  configDir->intfConfigDel(kIntf);
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  const Interface::LoadInterval global(300.0);
  IntfQueueRates expected;
  const auto poll = [&](double at, uint64_t octets, Interface::LoadInterval intfInterval) {
    serve(reading(kIntf, IntfQueueStat(0, octets, octets / 100, 0, 0)));
    const double before = published().lastUpdateTime();
    const uint64_t previous = published().intfQueueStat(QueueIndex(0)).txOctets();
    advanceTo(at);
    Interface::QueueCounter::updateIntfQueueMovingAverages(
        expected, at - before, static_cast<double>(octets - previous),
        static_cast<double>(octets / 100 - previous / 100), 0, 0, intfInterval, global);
    return published().intfQueueRates(QueueIndex(0));
  };
  // No entry: the global interval.
  EXPECT_EQ(poll(1002.0, 1000, Interface::LoadInterval()), expected);
  // The entry appears with its own interval.
  configDir->intfConfigIs(kIntf)->loadIntervalIs(Interface::LoadInterval(30.0));
  EXPECT_EQ(poll(1004.0, 9000, Interface::LoadInterval(30.0)), expected);
  // The entry is replaced by another object with another interval.
  configDir->intfConfigDel(kIntf);
  configDir->intfConfigIs(kIntf)->loadIntervalIs(Interface::LoadInterval(60.0));
  EXPECT_EQ(poll(1006.0, 20000, Interface::LoadInterval(60.0)), expected);
  // The entry goes: the global interval again.
  configDir->intfConfigDel(kIntf);
  EXPECT_EQ(poll(1008.0, 30000, Interface::LoadInterval()), expected);
}

TEST_F(IntfQueueCountersSmTest, PollsNeverWriteClearTable) {
  helper->queueBytesExcludeOverheadIs(true);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  serve(reading(kIntf, IntfQueueStat(0, 1000, 10, 0, 0)));
  advanceTo(1006.0);
  EXPECT_EQ(clearQueues->intfQueueCounter(kIntf), seededRecord());
  EXPECT_EQ(published().intfQueueStat(QueueIndex(0)).txOctets(), 1000u);
}

TEST_F(IntfQueueCountersSmTest, MissingQueueTableSkipsQueuesAndPollRequiresTable) {
  sm = IntfQueueCountersSm::IntfQueueCountersSmIs(vcsd, kIntf, 2.0, clock(), helper, global,
                                                  configDir, nullptr, nullptr);
  sm->initializedIs(true);
  EXPECT_EQ(helper->calls, Calls{"firstPollDelay"});
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->updateCounters(); }), "allIntfQueueCounters()");
}

TEST_F(IntfQueueCountersSmTest, TracesInitializationAndQueuesWithInterface) {
  VornTest::TraceCapture trace("VornCountersSm", 8);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(trace.lines(),
            (std::vector<std::string>{
                "void Vorn::Counters::IntfQueueCountersSm::handleInitialized() intfId: Ethernet1",
                "void Vorn::Counters::IntfQueueCountersSm::addQueues() intfId: Ethernet1"}));
}

TEST_F(IntfQueueCountersSmTest, AccessorsAndMutators) {
  sm = makeSm(2.0);
  EXPECT_EQ(sm->intfId(), kIntf);
  EXPECT_EQ(sm->pollInterval(), 2.0);
  EXPECT_EQ(sm->clock(), clock());
  EXPECT_EQ(sm->platformHelper(), helper);
  EXPECT_EQ(sm->globalIntfConfig(), global);
  EXPECT_EQ(sm->ethPhyIntfConfigDir(), configDir);
  EXPECT_EQ(sm->allIntfQueueCounters(), queues);
  EXPECT_EQ(sm->allIntfClearQueueCounters(), clearQueues);
  EXPECT_EQ(sm->prevCounters(), nullptr);
  auto prev = sm->prevCountersIs();
  EXPECT_EQ(sm->prevCountersIs(), prev);
  sm->prevCountersDel();
  EXPECT_EQ(sm->prevCounters(), nullptr);

  sm->initializedIs(true);
  EXPECT_EQ(clock()->armedCount(), 1u);
  sm->clockDel();
  EXPECT_EQ(sm->clock(), nullptr);
  EXPECT_EQ(clock()->armedCount(), 0u);
  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*sm)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"vcsd", "initialized", "intfId", "pollInterval",
                                             "clock", "platformHelper", "globalIntfConfig",
                                             "ethPhyIntfConfigDir", "prevCounters",
                                             "allIntfQueueCounters", "allIntfClearQueueCounters"}));
}

}  // namespace
