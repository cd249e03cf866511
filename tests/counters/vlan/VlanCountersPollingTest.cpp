// Following the bridging configuration, pacing and publishing VLAN counters.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "VlanSmFixture.h"
#include "pontil/Assert.h"

namespace VlanTest {
namespace {

using VornTest::Calls;

class VlanCountersPolling : public VlanSmFixture {};

const Counts kZero{};

TEST_F(VlanCountersPolling, InitializationAddsZeroRecordsAndEnablesEveryConfiguredVlan) {
  config->vlanConfigIs(20);
  config->vlanConfigIs(10);
  config->vlanConfigIs(30, /*countersSuppressed=*/true);
  makeSm();
  EXPECT_EQ(dir->size(), 0u);
  EXPECT_TRUE(helper->calls.empty());

  sm->initializedIs(true);

  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(records(*dir),
            (std::vector<VlanCounter>{record(10, kZero, 0.0), record(20, kZero, 0.0)}));
  EXPECT_EQ(records(*snapshots),
            (std::vector<VlanCounter>{record(10, kZero, 0.0), record(20, kZero, 0.0)}));
  EXPECT_EQ(helper->calls,
            (Calls{"vlanCountersEnable(10)", "vlanCountersEnable(20)", "vlanFirstPollDelay"}));
  EXPECT_EQ(traces(8),
            (Texts{"void Vorn::Counters::VlanCountersSm::handleInitialized()",
                   "void Vorn::Counters::VlanCountersSm::handleVlanConfig()",
                   "void Vorn::Counters::VlanCountersSm::handleVlanConfig(Bridging::VlanId) 10",
                   "Adding VLAN10", "Adding VLAN counter brim collections",
                   "Adding VLAN counter snapshot brim collections",
                   "void Vorn::Counters::VlanCountersSm::handleVlanConfig(Bridging::VlanId) 20",
                   "Adding VLAN20", "Adding VLAN counter brim collections",
                   "Adding VLAN counter snapshot brim collections",
                   "void Vorn::Counters::VlanCountersSm::handleVlanConfig(Bridging::VlanId) 30",
                   " Deleting VLAN30"}));
}

TEST_F(VlanCountersPolling, ConfigurationChangesBeforeInitializationWriteNothing) {
  makeSm();
  config->vlanConfigIs(10);
  config->vlanConfigIs(20);
  config->vlanConfigDel(20);

  EXPECT_EQ(dir->size(), 0u);
  EXPECT_EQ(snapshots->size(), 0u);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(wheel->armedCount(), 0u);
  EXPECT_EQ(traces(7), Texts{});

  sm->initializedIs(true);
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(10, kZero, 0.0)});
  EXPECT_EQ(helper->calls, (Calls{"vlanCountersEnable(10)", "vlanFirstPollDelay"}));
}

TEST_F(VlanCountersPolling, FirstTickWaitsForHelperDelayWhenLongerThanInterval) {
  config->vlanConfigIs(10);
  helper->firstPollDelayValue = 5.0;
  helper->hardware[10] = counts(100);
  startSm();
  EXPECT_EQ(sm->zatClock()->timeMin(), kStart + 5.0);

  advanceTo(1004.999);
  EXPECT_EQ(helper->count("vlanCountersRead"), 0u);
  advanceTo(1005.0);
  EXPECT_EQ(helper->callsStartingWith("vlanCountersRead"), Calls{"vlanCountersRead(10)"});
  EXPECT_EQ(helper->callTimes.back(), 1005.0);
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(100), 1005.0));
  EXPECT_EQ(sm->zatClock()->timeMin(), 1007.0);
}

TEST_F(VlanCountersPolling, FirstTickUsesIntervalWhenLongerThanHelperDelay) {
  config->vlanConfigIs(10);
  helper->firstPollDelayValue = 1.5;
  helper->hardware[10] = counts(100);
  makeSm();
  sm->pollIntervalIs(3.0);
  advanceTo(1000.5);
  sm->initializedIs(true);
  EXPECT_EQ(sm->zatClock()->timeMin(), 1003.5);

  advanceTo(1003.499);
  EXPECT_EQ(helper->count("vlanCountersRead"), 0u);
  advanceTo(1003.5);
  EXPECT_EQ(helper->callsStartingWith("vlanCountersRead"), Calls{"vlanCountersRead(10)"});
  EXPECT_EQ(helper->callTimes.back(), 1003.5);
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(100), 1003.5));
  EXPECT_EQ(sm->zatClock()->timeMin(), 1006.5);
}

TEST_F(VlanCountersPolling, TicksFollowTheIntervalMeasuredFromEachPoll) {
  config->vlanConfigIs(10);
  helper->firstPollDelayValue = 1.5;
  makeSm();
  sm->pollIntervalIs(3.0);
  sm->initializedIs(true);

  advanceTo(1012.0);
  std::vector<double> readTimes;
  for (size_t i = 0; i < helper->calls.size(); ++i) {
    if (helper->calls[i] == "vlanCountersRead(10)") readTimes.push_back(helper->callTimes[i]);
  }
  EXPECT_EQ(readTimes, (std::vector<double>{1003.0, 1006.0, 1009.0, 1012.0}));
  EXPECT_EQ(sm->zatClock()->timeMin(), 1015.0);
}

TEST_F(VlanCountersPolling, PollAddsCurrentMinusPreviousAndStampsTheWheelTime) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(100);
  startSm();

  advanceTo(1002.0);
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(100), 1002.0));

  helper->hardware[10] = plus(counts(100), counts(7));
  advanceTo(1004.0);
  EXPECT_EQ(dir->vlanCounter(10), record(10, plus(counts(100), counts(7)), 1004.0));

  // Nothing new in hardware: totals stay, the timestamp moves on.
  advanceTo(1006.0);
  EXPECT_EQ(dir->vlanCounter(10), record(10, plus(counts(100), counts(7)), 1006.0));
  // Polling never writes snapshots.
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, kZero, 0.0));
}

TEST_F(VlanCountersPolling, WrappedHardwareCounterStillAddsTheModularDifference) {
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  config->vlanConfigIs(10);
  startSm();
  // The published total of the first counter is about to wrap as well.
  dir->vlanCounterIs(record(10, Counts{kMax - 1, 0, 0, 0, 0, 0, 0, 0}, 0.0));
  Counts before;
  Counts after;
  for (size_t i = 0; i < 8; ++i) {
    before[i] = kMax - i;  // the previous reading, just below the wrap
    after[i] = i + 5;      // the current reading, just after it
  }
  after[7] = kMax;  // one counter that did not wrap, for contrast
  before[7] = kMax - 3;
  helper->lastServed[10] = before;
  helper->hardware[10] = after;

  advanceTo(1002.0);

  // (i + 5) - (max - i) = 2i + 6 modulo 2^64; the first total wraps to 4.
  EXPECT_EQ(dir->vlanCounter(10), record(10, Counts{4, 8, 10, 12, 14, 16, 18, 3}, 1002.0));
}

TEST_F(VlanCountersPolling, VlanAddedWhileItsRecordsExistKeepsItsTotals) {
  config->vlanConfigIs(20);
  startSm();
  // Records that survived from an earlier life of the VLAN.
  dir->vlanCounterIs(record(10, counts(50), 999.0));
  snapshots->vlanCounterSnapshotIs(record(10, counts(20), 998.0));
  helper->clearCalls();
  clearTraces();

  config->vlanConfigIs(10);

  EXPECT_EQ(traces(7), Texts{"Adding VLAN10"});
  EXPECT_EQ(helper->calls, Calls{"vlanCountersEnable(10)"});
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(50), 999.0));
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(20), 998.0));

  helper->hardware[10] = counts(3);
  advanceTo(1002.0);
  EXPECT_EQ(dir->vlanCounter(10), record(10, plus(counts(50), counts(3)), 1002.0));
}

TEST_F(VlanCountersPolling, EveryEventForAPresentVlanEnablesItAgainAndKeepsTotals) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(9);
  startSm();
  advanceTo(1002.0);
  helper->clearCalls();
  clearTraces();

  sm->handleVlanConfig(10);
  sm->genericInvoke("handleVlanConfig", {10});

  EXPECT_EQ(helper->calls, (Calls{"vlanCountersEnable(10)", "vlanCountersEnable(10)"}));
  EXPECT_EQ(traces(7), (Texts{"Adding VLAN10", "Adding VLAN10"}));
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(9), 1002.0));
}

TEST_F(VlanCountersPolling, SuppressedCountersLoseBothRecordsExactlyAsIfDeleted) {
  config->vlanConfigIs(10);
  config->vlanConfigIs(20);
  helper->hardware[10] = counts(10);
  helper->hardware[20] = counts(20);
  startSm();
  advanceTo(1002.0);
  cliReq->clearCountersRequestIs(10, true);
  cliReq->clearCountersRequestIs(20, true);
  helper->clearCalls();
  clearTraces();

  config->vlanConfigIs(10, /*countersSuppressed=*/true);
  const Texts suppressedTraces = traces(7);
  EXPECT_EQ(suppressedTraces, Texts{" Deleting VLAN10"});
  EXPECT_FALSE(dir->hasCounter(10));
  EXPECT_FALSE(snapshots->hasCounter(10));
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(20, counts(20), 1002.0)});

  clearTraces();
  config->vlanConfigDel(20);
  EXPECT_EQ(traces(7), Texts{" Deleting VLAN20"});
  EXPECT_EQ(dir->size(), 0u);
  EXPECT_EQ(snapshots->size(), 0u);
  // The helper is not told about either.
  EXPECT_TRUE(helper->calls.empty());

  // Neither is polled any more.
  advanceTo(1010.0);
  EXPECT_EQ(helper->count("vlanCountersRead"), 0u);

  // Lifting the suppression starts the VLAN again from zero records.
  config->vlanConfigIs(10, false);
  EXPECT_EQ(dir->vlanCounter(10), record(10, kZero, 0.0));
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, kZero, 0.0));
  EXPECT_EQ(helper->calls, Calls{"vlanCountersEnable(10)"});
}

TEST_F(VlanCountersPolling, FullPassRemovesRecordsOfVlansNoLongerConfigured) {
  config->vlanConfigIs(10);
  startSm();
  // Records the configuration does not know, as left by an earlier agent.
  dir->vlanCounterIs(record(77, counts(7), 990.0));
  snapshots->vlanCounterSnapshotIs(record(77, counts(1), 980.0));
  // A snapshot without a counter record is not found by the walk and stays.
  snapshots->vlanCounterSnapshotIs(record(88, counts(8), 980.0));
  clearTraces();

  sm->genericInvoke("handleVlanConfig", {});

  EXPECT_EQ(traces(7), (Texts{"Adding VLAN10", " Deleting VLAN77"}));
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(10, kZero, 0.0)});
  EXPECT_EQ(records(*snapshots),
            (std::vector<VlanCounter>{record(10, kZero, 0.0), record(88, counts(8), 980.0)}));
}

TEST_F(VlanCountersPolling, ZeroIntervalAtInitializationArmsNoTimerAndLaterIntervalDoesNotEither) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(4);
  makeSm();
  sm->pollIntervalIs(0.0);
  sm->initializedIs(true);

  EXPECT_EQ(wheel->armedCount(), 0u);
  EXPECT_EQ(sm->zatClock()->timeMin(), Zat::Clock::kNever);
  // The first-poll delay is not even asked for.
  EXPECT_EQ(helper->calls, Calls{"vlanCountersEnable(10)"});
  EXPECT_EQ(dir->vlanCounter(10), record(10, kZero, 0.0));

  sm->pollIntervalIs(2.0);
  EXPECT_EQ(wheel->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("vlanCountersRead"), 0u);
  EXPECT_EQ(dir->vlanCounter(10), record(10, kZero, 0.0));
}

TEST_F(VlanCountersPolling, ZeroIntervalAtATickStopsPollingForGood) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(4);
  startSm();
  advanceTo(1002.0);
  EXPECT_EQ(sm->zatClock()->timeMin(), 1004.0);

  advanceTo(1003.0);
  sm->pollIntervalIs(0.0);
  advanceTo(1004.0);
  EXPECT_EQ(wheel->armedCount(), 0u);

  sm->pollIntervalIs(2.0);
  helper->hardware[10] = counts(40);
  advanceTo(1100.0);
  EXPECT_EQ(helper->callsStartingWith("vlanCountersRead"), Calls{"vlanCountersRead(10)"});
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(4), 1002.0));
}

TEST_F(VlanCountersPolling, ChangedIntervalAppliesFromTheNextRearm) {
  config->vlanConfigIs(10);
  startSm();
  advanceTo(1003.0);
  sm->pollIntervalIs(5.0);
  advanceTo(1020.0);

  std::vector<double> readTimes;
  for (size_t i = 0; i < helper->calls.size(); ++i) {
    if (helper->calls[i] == "vlanCountersRead(10)") readTimes.push_back(helper->callTimes[i]);
  }
  EXPECT_EQ(readTimes, (std::vector<double>{1002.0, 1004.0, 1009.0, 1014.0, 1019.0}));
}

TEST_F(VlanCountersPolling, EveryPublishedVlanIsReadOncePerTick) {
  for (Bridging::VlanId v : {1, 2, 3, 4094}) {
    config->vlanConfigIs(v);
    helper->hardware[v] = counts(v);
  }
  config->vlanConfigIs(5, true);
  startSm();
  advanceTo(1002.0);

  Calls reads = helper->callsStartingWith("vlanCountersRead");
  std::sort(reads.begin(), reads.end());
  EXPECT_EQ(reads, (Calls{"vlanCountersRead(1)", "vlanCountersRead(2)", "vlanCountersRead(3)",
                          "vlanCountersRead(4094)"}));
  EXPECT_EQ(records(*dir), (std::vector<VlanCounter>{
                               record(1, counts(1), 1002.0), record(2, counts(2), 1002.0),
                               record(3, counts(3), 1002.0), record(4094, counts(4094), 1002.0)}));
}

TEST_F(VlanCountersPolling, DeletedVlanIsNoLongerPolled) {
  config->vlanConfigIs(10);
  config->vlanConfigIs(20);
  startSm();
  advanceTo(1001.0);
  config->vlanConfigDel(20);
  advanceTo(1002.0);
  EXPECT_EQ(helper->callsStartingWith("vlanCountersRead"), Calls{"vlanCountersRead(10)"});
}

TEST_F(VlanCountersPolling, UpdateCountersBeforeInitializationDoesNothing) {
  makeSm();
  dir->vlanCounterIs(record(10, counts(5), 900.0));
  helper->hardware[10] = counts(1);

  sm->updateCounters();
  sm->genericInvoke("updateCounters", {});

  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(5), 900.0));
}

TEST_F(VlanCountersPolling, HelperFailurePassesOutOfThePollAndPublishesNothing) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(5);
  startSm();
  helper->failOperation = "vlanCountersRead";

  EXPECT_THROW(sm->updateCounters(), VornTest::FakeHelperError);
  EXPECT_EQ(dir->vlanCounter(10), record(10, kZero, 0.0));

  // The machine carries on once the helper recovers.
  helper->failOperation.clear();
  helper->lastServed.clear();
  sm->updateCounters();
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(5), 1000.0));
}

TEST_F(VlanCountersPolling, VlanEventWithoutBridgingConfigIsAProgramFault) {
  dir->vlanCounterIs(record(77, counts(7), 990.0));
  sm = VlanCountersSm::VlanCountersSmIs(nullptr, cliReq, dir, snapshots, wheel, helper);
  EXPECT_EQ(sm->zatBridgingConfig(), nullptr);

  // The full pass finds no configuration and stops before sweeping.
  sm->initializedIs(true);
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(77, counts(7), 990.0)});

  try {
    sm->handleVlanConfig(10);
    FAIL() << "expected an assertion";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "bridgingConfig_");
  }
}

TEST_F(VlanCountersPolling, EveryVlanOfAPollGetsFreshZeroFilledReadingsOfItsOwn) {
  config->vlanConfigIs(10);
  config->vlanConfigIs(20);
  helper->hardware[10] = counts(100);
  helper->hardware[20] = counts(200);
  startSm();
  std::vector<std::string> seen;
  const auto describe = [](const VornTypes::VlanCounters& c) {
    bool zero = true;
    for (size_t i = 0; i < VornTypes::VlanCounters::kCounterCount; ++i)
      zero = zero && c.counter(i) == 0;
    return std::to_string(c.vlanId()) + (zero ? " zero" : " not zero");
  };
  helper->onVlanCountersRead = [&](Bridging::VlanId, const Zat::Ptr<VornTypes::VlanCounters>& now,
                                   const Zat::Ptr<VornTypes::VlanCounters>& before) {
    seen.push_back(describe(*now) + ", " + describe(*before));
  };
  sm->updateCounters();
  sm->updateCounters();
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<std::string>{"10 zero, 10 zero", "10 zero, 10 zero",
                                            "20 zero, 20 zero", "20 zero, 20 zero"}));
  EXPECT_EQ(dir->vlanCounter(10).counter(0), counts(100)[0]);
  EXPECT_EQ(dir->vlanCounter(20).counter(0), counts(200)[0]);
}

TEST_F(VlanCountersPolling, ReadingsTheHelperKeepsAreNeverHandedOutAgain) {
  config->vlanConfigIs(10);
  config->vlanConfigIs(20);
  helper->hardware[10] = counts(100);
  helper->hardware[20] = counts(200);
  startSm();
  std::vector<Zat::Ptr<VornTypes::VlanCounters>> kept;
  helper->onVlanCountersRead = [&](Bridging::VlanId, const Zat::Ptr<VornTypes::VlanCounters>& now,
                                   const Zat::Ptr<VornTypes::VlanCounters>& before) {
    kept.push_back(now);
    kept.push_back(before);
  };
  sm->updateCounters();
  ASSERT_EQ(kept.size(), 4u);
  std::vector<const VornTypes::VlanCounters*> distinct;
  for (const auto& k : kept) distinct.push_back(k.ptr());
  std::sort(distinct.begin(), distinct.end());
  EXPECT_EQ(std::unique(distinct.begin(), distinct.end()), distinct.end());
  // Each kept reading still holds what the helper served for its VLAN.
  for (size_t i = 0; i < kept.size(); i += 2) {
    const Bridging::VlanId v = kept[i]->vlanId();
    EXPECT_EQ(kept[i]->counter(0), counts(v == 10 ? 100 : 200)[0]);
    EXPECT_EQ(kept[i + 1]->vlanId(), v);
  }
}

}  // namespace
}  // namespace VlanTest
