// One Ethernet interface through its whole life on the simulated clock:
// announced, polled, cleared, polled again, withdrawn.
#include <gtest/gtest.h>

#include "counters/root/RootTestSupport.h"

namespace {

using Orvo::IntfId;
using RootTest::Calls;
using VornTest::FakeCountersHelper;

const IntfId kEth1("Ethernet1");

class RootEndToEnd : public VornTest::RootFixture {
 protected:
  // Totals minus baseline of every generic counter, as a reader shows them.
  std::vector<uint64_t> shown() const {
    const auto totals = in.allIntfCounters->counter(kEth1).statistics();
    const auto baseline = in.allIntfClearCounters->counter(kEth1).statistics();
    std::vector<uint64_t> out;
    for (size_t i = 0; i < Interface::IntfStatistics::kCounterCount; ++i) {
      out.push_back(totals.counter(i).value_or(0) - baseline.counter(i).value_or(0));
    }
    return out;
  }
  static std::vector<uint64_t> countersOf(const Interface::IntfStatistics& stats) {
    std::vector<uint64_t> out;
    for (size_t i = 0; i < Interface::IntfStatistics::kCounterCount; ++i) {
      out.push_back(stats.counter(i).value_or(0));
    }
    return out;
  }
  std::vector<double> readTimes() const {
    std::vector<double> out;
    for (size_t i = 0; i < helper().calls.size(); ++i) {
      if (helper().calls[i] == "intfCountersRead(Ethernet1)") out.push_back(helper().callTimes[i]);
    }
    return out;
  }
  const FakeCountersHelper& helper() const { return *in.platformHelper; }
  FakeCountersHelper& helper() { return *in.platformHelper; }
};

TEST_F(RootEndToEnd, AnInterfaceIsServedPolledClearedAndWithdrawn) {
  rootIs();
  root->counterPollPeriodIs(5.0);
  root->initializedIs(true);
  ethObjectsIs(kEth1);
  helper().portReadings[kEth1] = FakeCountersHelper::consistentReading(1000, 10, 2, 1);
  helper().aclDropCounts[kEth1] = 3;

  // The agent announces the interface.
  in.vcsd->intfIs(kEth1, true);
  ASSERT_NE(root->portCountersSm(kEth1), nullptr);
  ASSERT_NE(root->intfQueueCountersSm(kEth1), nullptr);
  ASSERT_NE(root->intfAclDropCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->portCountersSm(kEth1)->counterPollPeriod(), 5.0);
  EXPECT_EQ(set.writerConfig->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(set.aclDropConfig->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), Interface::EthIntfCounterBrim(kEth1));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), Interface::EthIntfCounterBrim(kEth1));
  EXPECT_TRUE(in.allIntfQueueCounters->hasCounter(kEth1));
  // The ACL drop poller polls as it is made.
  EXPECT_EQ(in.intfAclDropCountersDir->counter(kEth1), Brim::Interface::DropCounter(kEth1, 3));

  // Three polls, each at max(first-poll delay, period) and then every period.
  advanceTo(kStart + 5.0);
  helper().portReadings[kEth1] = FakeCountersHelper::consistentReading(2500, 25, 4, 1);
  advanceTo(kStart + 10.0);
  const auto third = FakeCountersHelper::consistentReading(4000, 40, 5, 3);
  helper().portReadings[kEth1] = third;
  advanceTo(kStart + 15.0);
  EXPECT_EQ(readTimes(), (std::vector<double>{1005.0, 1010.0, 1015.0}));
  auto published = in.allIntfCounters->counter(kEth1);
  EXPECT_EQ(countersOf(published.statistics()), countersOf(third.intfStats));
  EXPECT_EQ(published.ethStatistics().fcsErrors(), 5u);
  EXPECT_EQ(published.ethStatistics().lateCollisions(), 3u);
  EXPECT_EQ(shown(), countersOf(third.intfStats));

  // A clear request: the display reads zero.
  in.cliConfig->clearCountersRequestIs("Ethernet1");
  EXPECT_EQ(shown(), std::vector<uint64_t>(Interface::IntfStatistics::kCounterCount, 0));
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), published);

  // Traffic after the clear shows as totals minus baseline.
  helper().portReadings[kEth1] = FakeCountersHelper::consistentReading(4700, 47, 6, 3);
  advanceTo(kStart + 20.0);
  auto afterClear = shown();
  EXPECT_EQ(afterClear[0], 700u);  // inOctets
  EXPECT_EQ(afterClear[1], 7u);    // inUcastPkts
  EXPECT_EQ(afterClear[5], 350u);  // outOctets
  EXPECT_EQ(afterClear[6], 3u);    // outUcastPkts: 23 - 20
  EXPECT_EQ(afterClear[10], 1u);   // inErrors
  EXPECT_EQ(afterClear[12], 0u);   // outErrors

  // The interface leaves the set: pollers go, rows and writer status stay.
  auto port = root->portCountersSm(kEth1);
  helper().clearCalls();
  in.vcsd->intfDel(kEth1);
  EXPECT_EQ(helper().calls, Calls{"intfCountersCleanup(Ethernet1)"});
  EXPECT_EQ(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->intfQueueCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->intfAclDropCountersSm(kEth1), nullptr);
  EXPECT_TRUE(port->zombie());
  EXPECT_FALSE(set.writerConfig->contains(kEth1));
  EXPECT_EQ(set.aclDropConfig->intf(kEth1), std::optional<bool>(false));
  EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(kEth1), std::optional<bool>(true));
  const auto kept = in.allIntfCounters->counter(kEth1);
  EXPECT_EQ(shown()[0], 700u);
  // No poll comes any more.
  advanceTo(kStart + 60.0);
  EXPECT_EQ(helper().count("intfCountersRead"), 0u);
  EXPECT_EQ(helper().count("aclDropCountRead"), 0u);
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), kept);

  // Its status goes too: the rows and the writer-status entry are removed;
  // the ACL drop row stays.
  in.ethPhyIntfStatusDir->intfStatusDel(kEth1);
  EXPECT_FALSE(in.allIntfCounters->hasCounter(kEth1));
  EXPECT_FALSE(in.allIntfClearCounters->hasCounter(kEth1));
  EXPECT_FALSE(set.ethIntfCounterWriterStatus->contains(kEth1));
  EXPECT_TRUE(in.intfAclDropCountersDir->hasCounter(kEth1));
}

}  // namespace
