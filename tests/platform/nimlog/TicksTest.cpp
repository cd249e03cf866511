// Ticks: the interval clock of block timers, and when the TSC may serve as one.
#include <gtest/gtest.h>
#include <time.h>

#include <cstdint>

#include "nimlog/BlockTimer.h"
#include "nimlog/Ticks.h"

namespace {

using Nimlog::detail::tscTrusted;

void sleepMs(long ms) {
  timespec ts{0, ms * 1'000'000L};
  while (nanosleep(&ts, &ts) != 0) {
  }
}

TEST(TicksTest, TscIsTrustedOnlyWhenInvariantAndTheKernelsClocksource) {
  EXPECT_TRUE(tscTrusted(true, "tsc"));
  EXPECT_FALSE(tscTrusted(false, "tsc"));
  EXPECT_FALSE(tscTrusted(true, "kvm-clock"));
  EXPECT_FALSE(tscTrusted(true, "hpet"));
  EXPECT_FALSE(tscTrusted(true, ""));
  EXPECT_FALSE(tscTrusted(true, "tsc-early"));
}

TEST(TicksTest, TicksConvertToTheMonotonicClocksNanoseconds) {
  // The ticks interval lies inside the outer monotonic interval and outside the
  // inner one; a conversion off by more than a few percent falls out of the band.
  const std::uint64_t outerStart = Nimlog::monotonicNs();
  const std::uint64_t ticksStart = Nimlog::ticksNow();
  const std::uint64_t innerStart = Nimlog::monotonicNs();
  sleepMs(50);
  const std::uint64_t innerEnd = Nimlog::monotonicNs();
  const std::uint64_t ticksEnd = Nimlog::ticksNow();
  const std::uint64_t outerEnd = Nimlog::monotonicNs();
  const double measured = static_cast<double>(Nimlog::ticksToNs(ticksEnd - ticksStart));
  EXPECT_GE(measured, 0.97 * static_cast<double>(innerEnd - innerStart));
  EXPECT_LE(measured, 1.03 * static_cast<double>(outerEnd - outerStart));
}

TEST(TicksTest, TickRateIsATscRateOrExactlyOneNanosecond) {
  if (Nimlog::ticksAreTsc()) {
    EXPECT_GT(Nimlog::detail::tickSource().nsPerTick, 0.0);
    EXPECT_LT(Nimlog::detail::tickSource().nsPerTick, 10.0);  // a TSC runs above 100 MHz
  } else {
    EXPECT_EQ(Nimlog::ticksToNs(12345), 12345u);
    EXPECT_EQ(Nimlog::detail::tickSource().nsPerTick, 1.0);
  }
}

TEST(TicksTest, BlockTimerWithoutATimeSourceMeasuresRealTime) {
  Nimlog::blockTimerStatsReset();
  const std::uint64_t start = Nimlog::monotonicNs();
  {
    NIMLOG_BLOCK_TIMER("ticksTest.sleep");
    sleepMs(20);
  }
  const std::uint64_t elapsed = Nimlog::monotonicNs() - start;
  const auto stats = Nimlog::blockTimerStatsOf("ticksTest.sleep");
  ASSERT_TRUE(stats.has_value());
  EXPECT_EQ(stats->count, 1u);
  EXPECT_GE(static_cast<double>(stats->totalNs), 0.97 * 20'000'000.0);
  EXPECT_LE(static_cast<double>(stats->totalNs), 1.03 * static_cast<double>(elapsed));
  EXPECT_EQ(stats->maxNs, stats->totalNs);
}

}  // namespace
