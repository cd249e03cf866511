// The Linux counters helper on served readings (no kernel changes needed): a
// device missing from the tick's dump is answered with its last reading, a
// device replaced under the same id continues the readings, and queue
// readings are increments that survive a qdisc reset.
#include <gtest/gtest.h>

#include "agent/platforms/linux/LinuxHelpers.h"
#include "support/Fixtures.h"

namespace {

using namespace Linux;

class LinuxHelperTest : public VornTest::SimulatedTimeTest {
 protected:
  void SetUp() override {
    SimulatedTimeTest::SetUp();
    helper = LinuxCountersHelper::LinuxCountersHelperIs(&stats,
                                                        [this](Orvo::IntfId) { return ifIndex; });
  }
  void serve(int idx, uint64_t rxPackets, uint64_t rxErrors = 0) {
    rtnl_link_stats64 k{};
    k.rx_packets = rxPackets;
    k.rx_bytes = rxPackets * 100;
    k.rx_errors = rxErrors;
    k.rx_crc_errors = rxErrors;
    stats.snapshotIs({{idx, k}}, {}, now());
  }
  Interface::IntfStatistics poll() {
    auto c = VornTypes::IntfCounters::IntfCountersIs();
    helper->intfCountersRead(id, c, VornTypes::IntfCounters::IntfCountersIs());
    EXPECT_EQ(c->intfStats().inErrors(),
              c->ethStats().fcsErrors() + c->ethStats().internalMacReceiveErrors() +
                  c->ethStats().alignmentErrors() + c->ethStats().frameTooLongs() +
                  c->ethStats().frameTooShorts());
    return c->intfStats();
  }
  KernelStats stats;
  int ifIndex = 5;
  Orvo::IntfId id{"Ethernet1"};
  Zat::Ptr<LinuxCountersHelper> helper;
};

TEST_F(LinuxHelperTest, DeviceMissingFromTheDumpIsAnsweredWithItsLastReading) {
  serve(5, 100, 3);
  EXPECT_EQ(poll().inUcastPkts(), 100u);
  advanceBy(1.0);
  serve(6, 999);  // ifindex 5 vanished between the dump and the poll
  auto s = poll();
  EXPECT_EQ(s.inUcastPkts(), 100u);
  EXPECT_EQ(s.inErrors(), 3u);
  EXPECT_EQ(helper->staleReads(), 1u);
  ifIndex = 0;  // withdrawn, and polled once more before the poller goes
  EXPECT_EQ(poll().inUcastPkts(), 100u);
}

TEST_F(LinuxHelperTest, ReplacedDeviceContinuesTheReadings) {
  serve(5, 100, 2);
  EXPECT_EQ(poll().inUcastPkts(), 100u);
  advanceBy(1.0);
  ifIndex = 9;  // deleted and created again under the same name
  serve(9, 7, 1);
  auto s = poll();
  EXPECT_EQ(s.inUcastPkts(), 107u);
  EXPECT_EQ(s.inOctets(), 10700u);
  EXPECT_EQ(s.inErrors(), 3u);
  advanceBy(1.0);
  serve(9, 10, 1);
  EXPECT_EQ(poll().inUcastPkts(), 110u);
}

TEST_F(LinuxHelperTest, QueueReadingsAreIncrementsAcrossAQdiscReset) {
  auto scratch = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  using Interface::QueueCounter::QueueIndex;
  stats.snapshotIs({}, {{5, {QueueStat{1000, 10, true, 0}, QueueStat{500, 5, true, 1}}}}, now());
  auto r = helper->intfQueueCountersRead(id, scratch);
  ASSERT_EQ(r.intfQueueStatArray().size(), 2u);
  EXPECT_EQ(r.intfQueueStat(QueueIndex(0)).txPkts(), 10u);
  EXPECT_EQ(r.intfQueueStat(QueueIndex(1)).dropPkts(), 1u);
  advanceBy(1.0);
  stats.snapshotIs({}, {{5, {QueueStat{1500, 15, true, 0}, QueueStat{100, 1, true, 0}}}}, now());
  r = helper->intfQueueCountersRead(id, scratch);
  EXPECT_EQ(r.intfQueueStat(QueueIndex(0)).txPkts(), 5u);
  EXPECT_EQ(r.intfQueueStat(QueueIndex(0)).txOctets(), 500u);
  EXPECT_EQ(r.intfQueueStat(QueueIndex(1)).txPkts(), 1u);  // reset: counted 1 since
  advanceBy(1.0);
  stats.snapshotIs({}, {}, now());  // the mq root went: nothing to add
  EXPECT_EQ(helper->intfQueueCountersRead(id, scratch).intfQueueStatArray().size(), 0u);
  EXPECT_TRUE(helper->queueCountersClearOnRead());
  EXPECT_TRUE(helper->queueBytesExcludeOverhead());
  EXPECT_FALSE(helper->aclDropCountersSupported());
}

TEST_F(LinuxHelperTest, QueueReadingsFollowAChangingQueueCountAndANewDevice) {
  auto scratch = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  using Interface::QueueCounter::QueueIndex;
  auto txOf = [&](const Interface::QueueCounter::IntfQueueCounter& r, uint8_t q) {
    return std::make_pair(r.intfQueueStat(QueueIndex(q)).txOctets(),
                          r.intfQueueStat(QueueIndex(q)).txPkts());
  };
  using Pair = std::pair<uint64_t, uint64_t>;
  stats.snapshotIs(
      {},
      {{5, {QueueStat{100, 1, true, 0}, QueueStat{200, 2, true, 0}, QueueStat{300, 3, true, 0}}}},
      now());
  auto r = helper->intfQueueCountersRead(id, scratch);
  ASSERT_EQ(r.intfQueueStatArray().size(), 3u);
  EXPECT_EQ(txOf(r, 2), (Pair{300, 3}));
  // The root now has two queues: the third one's last values are forgotten.
  advanceBy(1.0);
  stats.snapshotIs({}, {{5, {QueueStat{150, 2, true, 0}, QueueStat{260, 4, true, 0}}}}, now());
  r = helper->intfQueueCountersRead(id, scratch);
  ASSERT_EQ(r.intfQueueStatArray().size(), 2u);
  EXPECT_EQ(txOf(r, 0), (Pair{50, 1}));
  EXPECT_EQ(txOf(r, 1), (Pair{60, 2}));
  // A third queue again counts from zero, not from what the old one had.
  advanceBy(1.0);
  stats.snapshotIs(
      {},
      {{5, {QueueStat{170, 3, true, 0}, QueueStat{280, 5, true, 0}, QueueStat{340, 6, true, 0}}}},
      now());
  r = helper->intfQueueCountersRead(id, scratch);
  EXPECT_EQ(txOf(r, 0), (Pair{20, 1}));
  EXPECT_EQ(txOf(r, 2), (Pair{340, 6}));
  // Another device behind the same id starts every queue from zero.
  advanceBy(1.0);
  ifIndex = 9;
  stats.snapshotIs({}, {{9, {QueueStat{500, 10, true, 0}}}}, now());
  r = helper->intfQueueCountersRead(id, scratch);
  ASSERT_EQ(r.intfQueueStatArray().size(), 1u);
  EXPECT_EQ(txOf(r, 0), (Pair{500, 10}));
}

}  // namespace
