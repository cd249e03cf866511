#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "interface/EthStatistics.h"

namespace Interface {
namespace {

constexpr uint64_t kMax64 = ~uint64_t{0};

EthStatistics numbered(uint64_t base) {
  EthStatistics s;
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i) s.fieldIs(i, base + i);
  return s;
}

TEST(EthStatistics, NamedAccessorsAndIndexedFieldsAreTheSameStorage) {
  EthStatistics s = numbered(1000);
  EXPECT_EQ(s.alignmentErrors(), 1000u);
  EXPECT_EQ(s.fcsErrors(), 1001u);
  EXPECT_EQ(s.carrierSenseErrors(), 1010u);
  EXPECT_EQ(s.outFrames1523ToMax(), 1000u + EthStatistics::kFieldCount - 1);
  s.lateCollisionsIs(7);
  EXPECT_EQ(s.field(static_cast<size_t>(EthStatistics::Field::lateCollisions)), 7u);
  EXPECT_STREQ(EthStatistics::fieldName(static_cast<size_t>(EthStatistics::Field::lateCollisions)),
               "lateCollisions");
}

TEST(EthStatistics, FieldNamesAreDistinctAndStartWithTheReceiveErrors) {
  std::set<std::string> names;
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i) names.insert(EthStatistics::fieldName(i));
  EXPECT_EQ(names.size(), EthStatistics::kFieldCount);
  EXPECT_STREQ(EthStatistics::fieldName(0), "alignmentErrors");
  EXPECT_STREQ(EthStatistics::fieldName(4), "internalMacReceiveErrors");
  EXPECT_STREQ(EthStatistics::fieldName(6), "sqeTestErrors");
}

TEST(EthStatistics, DifferenceAndSumWorkFieldByField) {
  EthStatistics d = numbered(500) - numbered(100);
  EthStatistics s = numbered(500) + numbered(100);
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i) {
    EXPECT_EQ(d.field(i), 400u) << EthStatistics::fieldName(i);
    EXPECT_EQ(s.field(i), 600u + 2 * i) << EthStatistics::fieldName(i);
  }
}

TEST(EthStatistics, DifferenceAndSumWrapModulo64Bits) {
  EthStatistics zero, one, max;
  one.fcsErrorsIs(1);
  max.fcsErrorsIs(kMax64);
  EXPECT_EQ((zero - one).fcsErrors(), kMax64);
  EXPECT_EQ((max + one).fcsErrors(), 0u);
  EXPECT_EQ((max + one + one).fcsErrors(), 1u);
}

TEST(EthStatistics, TotalPlusDifferenceOfReadingsTracksTheReadings) {
  EthStatistics total = numbered(7);
  EthStatistics prev = numbered(kMax64 - 3);  // about to wrap
  EthStatistics next = numbered(5);
  EthStatistics published = total + (next - prev);
  EXPECT_EQ(published.alignmentErrors(), 7u + 5u - (kMax64 - 3));
  EXPECT_EQ(published - total, next - prev);
}

TEST(EthStatistics, PrintsEveryFieldByName) {
  EthStatistics s;
  s.symbolErrorsIs(3);
  std::ostringstream os;
  os << s;
  EXPECT_EQ(os.str().rfind("{alignmentErrors: 0, fcsErrors: 0, ", 0), 0u) << os.str();
  EXPECT_NE(os.str().find(", symbolErrors: 3, "), std::string::npos) << os.str();
  EXPECT_NE(os.str().find(", outFrames1523ToMax: 0}"), std::string::npos) << os.str();
}

}  // namespace
}  // namespace Interface
