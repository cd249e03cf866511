#include <gtest/gtest.h>

#include <sstream>

#include "interface/IntfStatistics.h"

namespace Interface {
namespace {

constexpr uint64_t kMax64 = ~uint64_t{0};
constexpr uint64_t kMax63 = Pell::MaybeU63::kValueMask;

// Every field set to a distinct value, so that a field mixed up with another shows.
IntfStatistics numbered(uint64_t base, double time) {
  IntfStatistics s;
  s.inOctetsIs(base + 1);
  s.inUcastPktsIs(base + 2);
  s.inMulticastPktsIs(base + 3);
  s.inBroadcastPktsIs(base + 4);
  s.inDiscardsIs(base + 5);
  s.outOctetsIs(base + 6);
  s.outUcastPktsIs(base + 7);
  s.outMulticastPktsIs(Pell::MaybeU63(base + 8));
  s.outBroadcastPktsIs(base + 9);
  s.outDiscardsIs(base + 10);
  s.inErrorsIs(base + 11);
  s.inUnknownProtosIs(Pell::MaybeU63(base + 12));
  s.outErrorsIs(base + 13);
  s.statsUpdateTimeIs(time);
  return s;
}

TEST(IntfStatistics, DefaultIsZeroWithOptionalCountersPresent) {
  IntfStatistics s;
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_EQ(s.counter(i), std::optional<uint64_t>(0)) << IntfStatistics::counterName(i);
  }
  EXPECT_EQ(s.outMulticastPkts(), Pell::MaybeU63(0));
  EXPECT_EQ(s.inUnknownProtos(), Pell::MaybeU63(0));
  EXPECT_EQ(s.statsUpdateTime(), 0.0);
}

TEST(IntfStatistics, DifferenceSubtractsEveryCounter) {
  IntfStatistics d = numbered(100, 5.0) - numbered(0, 3.0);
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_EQ(d.counter(i), std::optional<uint64_t>(100)) << IntfStatistics::counterName(i);
  }
}

TEST(IntfStatistics, SumAddsEveryCounter) {
  IntfStatistics s = numbered(100, 5.0) + numbered(0, 3.0);
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_EQ(s.counter(i), std::optional<uint64_t>(100 + 2 * (i + 1)))
        << IntfStatistics::counterName(i);
  }
}

TEST(IntfStatistics, DifferenceOfCounterThatWentBackWrapsModulo64Bits) {
  IntfStatistics a, b;
  a.inErrorsIs(0);
  b.inErrorsIs(1);
  a.inOctetsIs(5);
  b.inOctetsIs(7);
  IntfStatistics d = a - b;
  EXPECT_EQ(d.inErrors(), kMax64);
  EXPECT_EQ(d.inOctets(), kMax64 - 1);
}

TEST(IntfStatistics, SumOverflowingWrapsModulo64Bits) {
  IntfStatistics a, b;
  a.outErrorsIs(kMax64);
  b.outErrorsIs(2);
  EXPECT_EQ((a + b).outErrors(), 1u);
}

TEST(IntfStatistics, OptionalDifferenceAndSumKeepTo63Bits) {
  IntfStatistics a, b;
  a.outMulticastPktsIs(Pell::MaybeU63(kMax63));
  b.outMulticastPktsIs(Pell::MaybeU63(3));
  IntfStatistics sum = a + b;
  ASSERT_TRUE(sum.outMulticastPkts().hasValue());
  EXPECT_EQ(sum.outMulticastPkts().value(), 2u);  // (2^63 - 1 + 3) mod 2^63

  a.inUnknownProtosIs(Pell::MaybeU63(0));
  b.inUnknownProtosIs(Pell::MaybeU63(1));
  IntfStatistics diff = a - b;
  ASSERT_TRUE(diff.inUnknownProtos().hasValue());
  EXPECT_EQ(diff.inUnknownProtos().value(), kMax63);
}

TEST(IntfStatistics, OptionalCounterAbsentOnEitherSideGivesAbsent) {
  IntfStatistics present = numbered(10, 1.0);
  IntfStatistics absent = numbered(10, 1.0);
  absent.outMulticastPktsIs(Pell::MaybeU63::absent());
  absent.inUnknownProtosIs(Pell::MaybeU63::absent());

  for (const IntfStatistics& r :
       {present - absent, absent - present, present + absent, absent + present, absent + absent}) {
    EXPECT_FALSE(r.outMulticastPkts().hasValue()) << r;
    EXPECT_FALSE(r.inUnknownProtos().hasValue()) << r;
    EXPECT_EQ(r.counter(7), std::nullopt);
  }
  EXPECT_TRUE((present - present).outMulticastPkts().hasValue());
}

TEST(IntfStatistics, TimestampIsTheLaterOfBothOperandsForBothOperators) {
  IntfStatistics early = numbered(0, 3.0);
  IntfStatistics late = numbered(0, 7.5);
  EXPECT_EQ((early - late).statsUpdateTime(), 7.5);
  EXPECT_EQ((late - early).statsUpdateTime(), 7.5);
  EXPECT_EQ((early + late).statsUpdateTime(), 7.5);
  EXPECT_EQ((late + early).statsUpdateTime(), 7.5);
}

TEST(IntfStatistics, CountersAreNamedInLayoutOrder) {
  EXPECT_STREQ(IntfStatistics::counterName(0), "inOctets");
  EXPECT_STREQ(IntfStatistics::counterName(7), "outMulticastPkts");
  EXPECT_STREQ(IntfStatistics::counterName(10), "inErrors");
  EXPECT_STREQ(IntfStatistics::counterName(11), "inUnknownProtos");
  EXPECT_STREQ(IntfStatistics::counterName(12), "outErrors");
  IntfStatistics s = numbered(0, 0.0);
  for (size_t i = 0; i < IntfStatistics::kCounterCount; ++i) {
    EXPECT_EQ(s.counter(i), std::optional<uint64_t>(i + 1)) << IntfStatistics::counterName(i);
  }
}

TEST(IntfStatistics, PrintsEveryCounterByNameAndAbsentAsDash) {
  IntfStatistics s;
  s.inErrorsIs(42);
  s.outMulticastPktsIs(Pell::MaybeU63::absent());
  s.statsUpdateTimeIs(2.5);
  std::ostringstream os;
  os << s;
  EXPECT_EQ(os.str(),
            "{inOctets: 0, inUcastPkts: 0, inMulticastPkts: 0, inBroadcastPkts: 0, inDiscards: 0, "
            "outOctets: 0, outUcastPkts: 0, outMulticastPkts: -, outBroadcastPkts: 0, "
            "outDiscards: 0, inErrors: 42, inUnknownProtos: 0, outErrors: 0, "
            "statsUpdateTime: 2.5}");
}

TEST(IntfStatistics, EqualityComparesEveryField) {
  EXPECT_EQ(numbered(1, 2.0), numbered(1, 2.0));
  EXPECT_NE(numbered(1, 2.0), numbered(1, 3.0));
  IntfStatistics a = numbered(1, 2.0);
  a.inUnknownProtosIs(Pell::MaybeU63::absent());
  EXPECT_NE(a, numbered(1, 2.0));
}

}  // namespace
}  // namespace Interface
