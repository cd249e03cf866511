#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>

#include "tools/vornctl/Format.h"

namespace {

using Ctl::ageText;
using Ctl::groupThousands;
using Ctl::timeText;

TEST(Format, GroupsCounterDigitsInThrees) {
  EXPECT_EQ(groupThousands(uint64_t{0}), "0");
  EXPECT_EQ(groupThousands(uint64_t{999}), "999");
  EXPECT_EQ(groupThousands(uint64_t{1000}), "1,000");
  EXPECT_EQ(groupThousands(uint64_t{123456}), "123,456");
  EXPECT_EQ(groupThousands(uint64_t{1234567}), "1,234,567");
  EXPECT_EQ(groupThousands(std::numeric_limits<uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(Format, GroupsTheWholePartOfRatesAndKeepsTheDecimals) {
  EXPECT_EQ(groupThousands(0.0, 1), "0.0");
  EXPECT_EQ(groupThousands(999.94, 1), "999.9");
  EXPECT_EQ(groupThousands(999.96, 1), "1,000.0");
  EXPECT_EQ(groupThousands(1234567.26, 1), "1,234,567.3");
  EXPECT_EQ(groupThousands(1234567.0, 0), "1,234,567");
  EXPECT_EQ(groupThousands(-1234.5, 2), "-1,234.50");
  // A tiny negative value that rounds to zero shows no sign.
  EXPECT_EQ(groupThousands(-0.04, 1), "0.0");
  EXPECT_EQ(groupThousands(std::numeric_limits<double>::infinity(), 1), "inf");
}

TEST(Format, AgesUseTheTwoLargestUnits) {
  EXPECT_EQ(ageText(0), "0s");
  EXPECT_EQ(ageText(3.9), "3s");
  EXPECT_EQ(ageText(59), "59s");
  EXPECT_EQ(ageText(60), "1m00s");
  EXPECT_EQ(ageText(307), "5m07s");
  EXPECT_EQ(ageText(3600 * 3 + 5 * 60 + 9), "3h05m");
  EXPECT_EQ(ageText(86400 * 2 + 3600 * 4 + 1), "2d04h");
  EXPECT_EQ(ageText(-5), "0s");
}

class TimeTextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* tz = std::getenv("TZ");
    if (tz) saved_ = tz;
    hadTz_ = tz != nullptr;
    setenv("TZ", "UTC", 1);
    tzset();
  }
  void TearDown() override {
    if (hadTz_) {
      setenv("TZ", saved_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::string saved_;
  bool hadTz_ = false;
};

// 2026-11-22 21:40:05 UTC.
constexpr double kWhen = 1795383605.0;

TEST_F(TimeTextTest, ShowsTheLocalDateAndTheAge) {
  EXPECT_EQ(timeText(kWhen, kWhen + 3.2), "2026-11-22 21:40:05 (3s ago)");
  EXPECT_EQ(timeText(kWhen + 0.7, kWhen + 0.9), "2026-11-22 21:40:05 (0s ago)");
  EXPECT_EQ(timeText(kWhen, kWhen + 7400), "2026-11-22 21:40:05 (2h03m ago)");
}

TEST_F(TimeTextTest, AReadingSlightlyAheadOfTheReaderIsNotInTheFuture) {
  EXPECT_EQ(timeText(kWhen + 0.5, kWhen), "2026-11-22 21:40:05 (0s ago)");
  EXPECT_EQ(timeText(kWhen + 90, kWhen), "2026-11-22 21:41:35 (in 1m30s)");
}

TEST_F(TimeTextTest, ZeroMeansNever) { EXPECT_EQ(timeText(0, kWhen), "never"); }

}  // namespace
