#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "interface/IntfRates.h"

namespace Interface {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The difference of one poll: `octets` in and out, `pkts` unicast packets in and out.
IntfStatistics delta(uint64_t octets, uint64_t pkts) {
  IntfStatistics d;
  d.inOctetsIs(octets);
  d.inUcastPktsIs(pkts);
  d.outOctetsIs(octets);
  d.outUcastPktsIs(pkts);
  return d;
}

void expectAllFinite(const IntfRates& r) {
  EXPECT_TRUE(std::isfinite(r.inBitsRate())) << r;
  EXPECT_TRUE(std::isfinite(r.inPktsRate())) << r;
  EXPECT_TRUE(std::isfinite(r.outBitsRate())) << r;
  EXPECT_TRUE(std::isfinite(r.outPktsRate())) << r;
}

TEST(LoadInterval, InterfaceIntervalIsPreferredThenGlobalThenDefault) {
  EXPECT_EQ(LoadInterval::effectiveSeconds(LoadInterval(30), LoadInterval(60)), 30.0);
  EXPECT_EQ(LoadInterval::effectiveSeconds(LoadInterval(), LoadInterval(60)), 60.0);
  EXPECT_EQ(LoadInterval::effectiveSeconds(LoadInterval(0), LoadInterval(0)), 300.0);
  EXPECT_EQ(LoadInterval::effectiveSeconds(LoadInterval(-5), LoadInterval(kNaN)), 300.0);
  EXPECT_EQ(LoadInterval::effectiveSeconds(LoadInterval(kInf), LoadInterval(45)), 45.0);
  EXPECT_FALSE(LoadInterval().isSet());
  EXPECT_TRUE(LoadInterval(5).isSet());
}

TEST(IntfRates, FirstPollOnlyStartsTheClock) {
  // A new record's first delta is everything counted since the hardware started.
  IntfRates r = updateIntfMovingAverages(IntfRates(), delta(123456789, 1000), 5.0, LoadInterval(),
                                         LoadInterval());
  IntfRates expected;
  expected.lastUpdateTimeIs(5.0);
  EXPECT_EQ(r, expected);
}

TEST(IntfRates, SecondPollGivesTheInstantaneousRate) {
  IntfStatistics d = delta(1000, 10);
  d.inMulticastPktsIs(4);
  d.inBroadcastPktsIs(6);
  d.outMulticastPktsIs(Pell::MaybeU63(2));
  d.outBroadcastPktsIs(8);
  IntfRates started;
  started.lastUpdateTimeIs(5.0);
  IntfRates r = updateIntfMovingAverages(started, d, 15.0, LoadInterval(), LoadInterval(300));
  EXPECT_DOUBLE_EQ(r.inBitsRate(), 800.0);  // 1000 octets * 8 / 10 s
  EXPECT_DOUBLE_EQ(r.inPktsRate(), 2.0);    // (10 + 4 + 6) / 10 s
  EXPECT_DOUBLE_EQ(r.outBitsRate(), 800.0);
  EXPECT_DOUBLE_EQ(r.outPktsRate(), 2.0);  // (10 + 2 + 8) / 10 s
  EXPECT_EQ(r.lastUpdateTime(), 15.0);
  EXPECT_EQ(r.sampleCount(), 1u);
}

TEST(IntfRates, AbsentOutboundMulticastCountsAsNoPackets) {
  IntfStatistics d = delta(0, 10);
  d.outMulticastPktsIs(Pell::MaybeU63::absent());
  IntfRates started;
  started.lastUpdateTimeIs(1.0);
  IntfRates r = updateIntfMovingAverages(started, d, 6.0, LoadInterval(), LoadInterval());
  EXPECT_DOUBLE_EQ(r.outPktsRate(), 2.0);
}

TEST(IntfRates, SteadyTrafficConvergesToTheTrueRate) {
  // Starts from a wrong average and polls 1000 bytes/s, 10 pkts/s every 2 s.
  IntfRates r(1e6, 1e4, 0.0, 0.0);
  r.lastUpdateTimeIs(100.0);
  r.sampleCountIs(5);
  double t = 100.0;
  for (int i = 0; i < 600; ++i) {
    t += 2.0;
    r = updateIntfMovingAverages(r, delta(2000, 20), t, LoadInterval(30), LoadInterval(300));
  }
  EXPECT_NEAR(r.inBitsRate(), 8000.0, 1e-3);
  EXPECT_NEAR(r.inPktsRate(), 10.0, 1e-6);
  EXPECT_NEAR(r.outBitsRate(), 8000.0, 1e-3);
  EXPECT_NEAR(r.outPktsRate(), 10.0, 1e-6);
  EXPECT_EQ(r.sampleCount(), 605u);
}

TEST(IntfRates, LaterSampleIsWeightedByElapsedOverInterval) {
  IntfRates prev(800.0, 0.0, 0.0, 0.0);
  prev.lastUpdateTimeIs(10.0);
  prev.sampleCountIs(1);
  // 10 s at 1600 bit/s against 800 bit/s, interval 20 s.
  IntfRates r =
      updateIntfMovingAverages(prev, delta(2000, 0), 20.0, LoadInterval(20), LoadInterval());
  double w = 1.0 - std::exp(-10.0 / 20.0);
  EXPECT_NEAR(r.inBitsRate(), w * 1600.0 + (1.0 - w) * 800.0, 1e-9);
}

TEST(IntfRates, InterfaceIntervalIsUsedWhenSetElseGlobal) {
  IntfRates prev(0.0, 0.0, 0.0, 0.0);
  prev.lastUpdateTimeIs(10.0);
  prev.sampleCountIs(1);
  IntfStatistics d = delta(1000, 0);  // 800 bit/s over 10 s
  IntfRates shortIntf =
      updateIntfMovingAverages(prev, d, 20.0, LoadInterval(10), LoadInterval(1000));
  IntfRates global = updateIntfMovingAverages(prev, d, 20.0, LoadInterval(), LoadInterval(1000));
  EXPECT_DOUBLE_EQ(shortIntf.inBitsRate(), 800.0);  // a whole interval elapsed
  EXPECT_NEAR(global.inBitsRate(), (1.0 - std::exp(-10.0 / 1000.0)) * 800.0, 1e-9);
}

TEST(IntfRates, GapOfAWholeIntervalReplacesTheRatesBySample) {
  IntfRates prev(1e6, 1e3, 1e6, 1e3);
  prev.lastUpdateTimeIs(10.0);
  prev.sampleCountIs(9);
  IntfRates r =
      updateIntfMovingAverages(prev, delta(3000, 30), 310.0, LoadInterval(), LoadInterval(300));
  EXPECT_DOUBLE_EQ(r.inBitsRate(), 80.0);  // 3000 * 8 / 300 s
  EXPECT_DOUBLE_EQ(r.inPktsRate(), 0.1);
  EXPECT_EQ(r.lastUpdateTime(), 310.0);
}

TEST(IntfRates, ZeroOrNegativeElapsedKeepsTheRatesAndNeverDividesByZero) {
  IntfRates prev(100.0, 1.0, 200.0, 2.0);
  prev.lastUpdateTimeIs(50.0);
  prev.sampleCountIs(3);

  IntfRates same =
      updateIntfMovingAverages(prev, delta(1000, 10), 50.0, LoadInterval(), LoadInterval());
  EXPECT_EQ(same, prev);

  IntfRates back =
      updateIntfMovingAverages(prev, delta(1000, 10), 40.0, LoadInterval(), LoadInterval());
  expectAllFinite(back);
  EXPECT_EQ(back.inBitsRate(), 100.0);
  EXPECT_EQ(back.outPktsRate(), 2.0);
  EXPECT_EQ(back.sampleCount(), 3u);
  EXPECT_EQ(back.lastUpdateTime(), 40.0);  // the next span starts at the clock's present
}

TEST(IntfRates, PollAtTimeZeroCannotStartTheClock) {
  IntfRates r =
      updateIntfMovingAverages(IntfRates(), delta(1000, 10), 0.0, LoadInterval(), LoadInterval());
  EXPECT_EQ(r, IntfRates());
  r = updateIntfMovingAverages(r, delta(1000, 10), 2.0, LoadInterval(), LoadInterval());
  EXPECT_EQ(r.sampleCount(), 0u);
  EXPECT_EQ(r.lastUpdateTime(), 2.0);
  r = updateIntfMovingAverages(r, delta(1000, 10), 4.0, LoadInterval(), LoadInterval());
  EXPECT_DOUBLE_EQ(r.inBitsRate(), 4000.0);
  EXPECT_EQ(r.sampleCount(), 1u);
}

TEST(IntfRates, NonFiniteTimesNeverReachTheRates) {
  IntfRates prev(100.0, 1.0, 200.0, 2.0);
  prev.lastUpdateTimeIs(50.0);
  prev.sampleCountIs(3);
  EXPECT_EQ(updateIntfMovingAverages(prev, delta(1, 1), kNaN, LoadInterval(), LoadInterval()),
            prev);
  EXPECT_EQ(updateIntfMovingAverages(prev, delta(1, 1), kInf, LoadInterval(), LoadInterval()),
            prev);

  IntfRates damaged = prev;
  damaged.lastUpdateTimeIs(kNaN);
  IntfRates r =
      updateIntfMovingAverages(damaged, delta(1, 1), 60.0, LoadInterval(), LoadInterval());
  expectAllFinite(r);
  EXPECT_EQ(r.lastUpdateTime(), 60.0);
}

TEST(IntfRates, HugeDeltaOverTinyElapsedStaysFinite) {
  IntfRates prev(100.0, 1.0, 200.0, 2.0);
  prev.lastUpdateTimeIs(1.0);
  prev.sampleCountIs(3);
  IntfStatistics d = delta(~uint64_t{0}, ~uint64_t{0});
  IntfRates r = updateIntfMovingAverages(prev, d, 1.0 + 1e-300, LoadInterval(), LoadInterval());
  expectAllFinite(r);
}

TEST(IntfRates, DamagedRateRestartsFromTheSample) {
  IntfRates prev(kNaN, kInf, 0.0, 0.0);
  prev.lastUpdateTimeIs(10.0);
  prev.sampleCountIs(3);
  IntfRates r =
      updateIntfMovingAverages(prev, delta(1000, 10), 20.0, LoadInterval(), LoadInterval());
  EXPECT_DOUBLE_EQ(r.inBitsRate(), 800.0);
  EXPECT_DOUBLE_EQ(r.inPktsRate(), 1.0);
}

}  // namespace
}  // namespace Interface
