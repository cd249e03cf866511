// Clear requests: snapshots of a VLAN's totals, taken without touching the totals.
#include <gtest/gtest.h>

#include "VlanSmFixture.h"
#include "pontil/Assert.h"

namespace VlanTest {
namespace {

using VornTest::Calls;

const Counts kZero{};

class VlanCountersSnapshot : public VlanSmFixture {
 protected:
  // VLAN 10 configured and polled once at 1002 with counts(100).
  void startPolled() {
    config->vlanConfigIs(10);
    helper->hardware[10] = counts(100);
    startSm();
    advanceTo(1002.0);
    ASSERT_EQ(dir->vlanCounter(10), record(10, counts(100), 1002.0));
    helper->clearCalls();
    clearTraces();
  }
};

TEST_F(VlanCountersSnapshot, ClearCopiesCurrentTotalsWithTheTimeOfTheClear) {
  startPolled();
  advanceTo(1003.25);

  cliReq->clearCountersRequestIs(10, true);

  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(100), 1003.25));
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(100), 1002.0));
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(traces(8),
            (Texts{"void Vorn::Counters::VlanCountersSm::handleClearCountersRequest("
                   "Bridging::VlanId) 10",
                   "handleClearCountersRequest() VLAN10",
                   "void Vorn::Counters::VlanCountersSm::doTakeSnapshot(Bridging::VlanId) 10"}));
}

TEST_F(VlanCountersSnapshot, ClearingTwiceGivesEqualCountersWithALaterTimestamp) {
  startPolled();
  const VlanCounter totals = dir->vlanCounter(10);

  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);
  const VlanCounter first = snapshots->vlanCounterSnapshot(10);
  advanceTo(1003.5);
  // The request stays present; changing its value asks again.
  cliReq->clearCountersRequestToggle(10);
  const VlanCounter second = snapshots->vlanCounterSnapshot(10);

  EXPECT_EQ(first, record(10, counts(100), 1003.0));
  EXPECT_EQ(second, record(10, counts(100), 1003.5));
  EXPECT_EQ(dir->vlanCounter(10), totals);
  EXPECT_EQ(traces(7),
            (Texts{"handleClearCountersRequest() VLAN10", "handleClearCountersRequest() VLAN10"}));
}

TEST_F(VlanCountersSnapshot, RemovingARequestOnlyTracesThatItWasDeleted) {
  startPolled();
  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);
  clearTraces();
  advanceTo(1003.5);

  cliReq->clearCountersRequestDel(10);

  EXPECT_EQ(traces(8), (Texts{"void Vorn::Counters::VlanCountersSm::handleClearCountersRequest("
                              "Bridging::VlanId) 10",
                              "handleClearCountersRequest() VLAN10", "VLAN10 deleted"}));
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(100), 1003.0));
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(100), 1002.0));
  EXPECT_TRUE(helper->calls.empty());
}

TEST_F(VlanCountersSnapshot, ClearingAVlanWithoutCounterRecordStoresAnAllZeroSnapshot) {
  startPolled();
  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);
  ASSERT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(100), 1003.0));
  dir->vlanCounterDel(10);

  advanceTo(1005.0);
  cliReq->clearCountersRequestToggle(10);

  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, kZero, 1005.0));
  EXPECT_FALSE(dir->hasCounter(10));
}

TEST_F(VlanCountersSnapshot, PollingNeverWritesSnapshots) {
  startPolled();
  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);

  helper->hardware[10] = plus(counts(100), counts(1));
  advanceTo(1006.0);

  EXPECT_EQ(dir->vlanCounter(10), record(10, plus(counts(100), counts(1)), 1006.0));
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(100), 1003.0));
}

TEST_F(VlanCountersSnapshot, RequestBeforeInitializationFailsTheInitializedAssertion) {
  config->vlanConfigIs(10);
  makeSm();
  try {
    cliReq->clearCountersRequestIs(10, true);
    FAIL() << "expected an assertion";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "initialized()");
  }
  EXPECT_EQ(snapshots->size(), 0u);
}

TEST_F(VlanCountersSnapshot, WithdrawnRequestBeforeInitializationOnlyTraces) {
  // Present before the machine exists, so no one has served it.
  cliReq->clearCountersRequestIs(10, true);
  makeSm();

  cliReq->clearCountersRequestDel(10);

  EXPECT_EQ(traces(7), (Texts{"handleClearCountersRequest() VLAN10", "VLAN10 deleted"}));
}

TEST_F(VlanCountersSnapshot, SnapshotOfAVlanWithoutSnapshotRecordIsFatal) {
  startPolled();
  snapshots->vlanCounterSnapshotDel(10);
  try {
    cliReq->clearCountersRequestIs(10, true);
    FAIL() << "expected an assertion";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "BrimMap::directWrite() in no man's land");
  }
  EXPECT_FALSE(snapshots->hasCounter(10));
}

TEST_F(VlanCountersSnapshot, SnapshotCanBeTakenThroughTheGenericInterface) {
  startPolled();
  advanceTo(1002.5);
  sm->genericInvoke("doTakeSnapshot", {uint64_t{10}});
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(100), 1002.5));
}

}  // namespace
}  // namespace VlanTest
