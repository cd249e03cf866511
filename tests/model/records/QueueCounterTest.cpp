#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

#include "interface/IntfQueueCounter.h"
#include "zat/Exception.h"

namespace Interface::QueueCounter {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
using StatArray = IntfQueueCounter::QueueStatArray;

// Stores `count` as the array's element count, as a damaged shared-memory table would.
template <class Array>
void damageCount(Array& array, uint32_t count) {
  std::memcpy(static_cast<void*>(&array), &count, sizeof count);
}

// The size error's text, built independently of the library's formatter.
std::string expectedSizeMessage(size_t count, const void* address, size_t bytes) {
  char pointer[32];
  std::snprintf(pointer, sizeof pointer, "%p", address);
  std::string text = "PodArray::set expected size <= 17, instead got " + std::to_string(count) +
                     ". Buffer is at address: " + pointer + " with contents: ";
  const auto* p = static_cast<const unsigned char*>(address);
  for (size_t i = 0; i < bytes; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, i ? " %02x" : "%02x", p[i]);
    text += byte;
  }
  return text;
}

template <class F>
std::string sizeErrorOf(F&& f) {
  try {
    f();
  } catch (const Zat::SizeException& e) {
    return e.what();
  }
  return "no Zat::SizeException";
}

TEST(QueueIndex, AcceptsZeroToSixteen) {
  EXPECT_EQ(QueueIndex(0).value(), 0);
  EXPECT_EQ(QueueIndex(16).value(), 16);
  EXPECT_EQ(QueueIndex().value(), 0);
}

TEST(QueueIndex, AboveSixteenRaisesRangeErrorWithExactText) {
  for (uint64_t bad : {uint64_t{17}, uint64_t{255}, uint64_t{256}, ~uint64_t{0}}) {
    try {
      QueueIndex q(bad);
      FAIL() << "no exception for " << bad;
    } catch (const Zat::RangeException& e) {
      EXPECT_STREQ(e.what(),
                   "QueueIndex::value < QueueIndex::min or > QueueIndex::max not allowed");
    }
  }
}

TEST(QueueIndex, FailedChangeKeepsTheOldValue) {
  QueueIndex q(5);
  EXPECT_THROW(q.valueIs(17), Zat::RangeException);
  EXPECT_EQ(q.value(), 5);
  q.valueIs(16);
  EXPECT_EQ(q.value(), 16);
}

TEST(PodArray, SetBeyondCapacityRaisesSizeErrorWithAddressAndDump) {
  StatArray array;
  array.elementIs(0, IntfQueueStat(7, 1, 2, 3, 4));
  std::string message = sizeErrorOf([&] { array.set(18); });
  EXPECT_EQ(message, expectedSizeMessage(18, &array, sizeof array));
  // The dump starts with the stored count (1) and the first element's queue type (7).
  EXPECT_NE(message.find(" with contents: 01 00 00 00 00 00 00 00 07 00 00 00 "), std::string::npos)
      << message;
  EXPECT_EQ(array.size(), 1u);  // unchanged
}

TEST(PodArray, DamagedStoredCountRaisesSizeErrorOnReadAndWrite) {
  StatArray array;
  damageCount(array, 18);
  std::string prefix = "PodArray::set expected size <= 17, instead got 18. Buffer is at address: ";
  std::string onRead = sizeErrorOf([&] { array.element(0); });
  EXPECT_EQ(onRead.rfind(prefix, 0), 0u) << onRead;
  EXPECT_EQ(onRead, expectedSizeMessage(18, &array, sizeof array));
  EXPECT_EQ(sizeErrorOf([&] { array.size(); }), onRead);
  EXPECT_EQ(sizeErrorOf([&] { array.elementIs(0, IntfQueueStat()); }), onRead);
  EXPECT_EQ(sizeErrorOf([&] { array.set(3); }), onRead);
}

TEST(PodArray, GrowingZeroFillsAndShrinkingClearsTheTail) {
  StatArray array;
  array.elementIs(3, IntfQueueStat(1, 10, 20, 30, 40));
  EXPECT_EQ(array.size(), 4u);
  EXPECT_EQ(array.element(0), IntfQueueStat());
  EXPECT_EQ(array.element(3), IntfQueueStat(1, 10, 20, 30, 40));
  EXPECT_EQ(array.element(9), IntfQueueStat());  // beyond the count

  array.set(2);
  EXPECT_EQ(array.size(), 2u);
  EXPECT_EQ(array, [] {
    StatArray fresh;
    fresh.set(2);
    return fresh;
  }());
  array.set(4);
  EXPECT_EQ(array.element(3), IntfQueueStat());  // the old value did not come back
}

TEST(PodArray, PrintsElementsOrTheDamagedCount) {
  IntfQueueCounter::QueueRatesArray rates;
  rates.elementIs(1, IntfQueueRates(1, 2, 3, 4));
  std::ostringstream os;
  os << rates;
  EXPECT_EQ(os.str(),
            "[{txBitsRate: 0, txPktsRate: 0, dropBitsRate: 0, dropPktsRate: 0}, "
            "{txBitsRate: 1, txPktsRate: 2, dropBitsRate: 3, dropPktsRate: 4}]");
  damageCount(rates, 40);
  std::ostringstream damaged;
  damaged << rates;
  EXPECT_EQ(damaged.str(), "[damaged: count 40]");
}

TEST(IntfQueueCounter, SettingAQueueGrowsTheCountAndReadingBeyondGivesZero) {
  IntfQueueCounter record(Orvo::IntfId::fromValue(0x0100000100000000));
  EXPECT_EQ(record.intfQueueStatArray().size(), 0u);
  record.intfQueueStatIs(QueueIndex(2), IntfQueueStat(3, 100, 10, 5, 1));
  record.intfQueueRatesIs(QueueIndex(16), IntfQueueRates(8, 1, 0, 0));
  EXPECT_EQ(record.intfQueueStatArray().size(), 3u);
  EXPECT_EQ(record.intfQueueRatesArray().size(), 17u);
  EXPECT_EQ(record.intfQueueStat(QueueIndex(2)), IntfQueueStat(3, 100, 10, 5, 1));
  EXPECT_EQ(record.intfQueueStat(QueueIndex(1)), IntfQueueStat());
  EXPECT_EQ(record.intfQueueStat(QueueIndex(16)), IntfQueueStat());
  EXPECT_EQ(record.intfQueueRates(QueueIndex(16)), IntfQueueRates(8, 1, 0, 0));
  EXPECT_EQ(record.intfQueueRates(QueueIndex(0)), IntfQueueRates());
}

TEST(IntfQueueCounter, DamagedCountInARecordRaisesSizeError) {
  IntfQueueCounter record;
  damageCount(record.intfQueueRatesArray(), 18);
  EXPECT_THROW(record.intfQueueRates(QueueIndex(0)), Zat::SizeException);
  EXPECT_THROW(record.intfQueueRatesIs(QueueIndex(0), IntfQueueRates()), Zat::SizeException);
  EXPECT_NO_THROW(record.intfQueueStat(QueueIndex(0)));
  std::ostringstream os;
  os << record;  // still printable for the corruption report
  EXPECT_NE(os.str().find("intfQueueRates: [damaged: count 18]"), std::string::npos) << os.str();
}

TEST(IntfQueueCounter, KeyAndTypeName) {
  auto id = Orvo::IntfId::fromValue(0x0100000300000000);
  IntfQueueCounter record(id);
  EXPECT_EQ(record.key(), id);
  EXPECT_EQ(record.intfId(), id);
  EXPECT_STREQ(IntfQueueCounter::kTypeName, "Interface::QueueCounter::IntfQueueCounter");
  IntfQueueCounter other;
  other.intfIdIs(id);
  EXPECT_EQ(record, other);
  other.intfAggregate1Is(1);
  EXPECT_NE(record, other);
}

TEST(IntfQueueMovingAverages, GapOfAWholeIntervalGivesThisPollsRates) {
  IntfQueueRates r(1e9, 1e9, 1e9, 1e9);
  updateIntfQueueMovingAverages(r, 30.0, 3000, 30, 600, 6, LoadInterval(30), LoadInterval(300));
  EXPECT_DOUBLE_EQ(r.txBitsRate(), 800.0);
  EXPECT_DOUBLE_EQ(r.txPktsRate(), 1.0);
  EXPECT_DOUBLE_EQ(r.dropBitsRate(), 160.0);
  EXPECT_DOUBLE_EQ(r.dropPktsRate(), 0.2);
}

TEST(IntfQueueMovingAverages, InterfaceIntervalPreferredOverGlobal) {
  IntfQueueRates withIntf, withGlobal;
  updateIntfQueueMovingAverages(withIntf, 10.0, 1000, 0, 0, 0, LoadInterval(20), LoadInterval(5));
  updateIntfQueueMovingAverages(withGlobal, 10.0, 1000, 0, 0, 0, LoadInterval(), LoadInterval(5));
  EXPECT_NEAR(withIntf.txBitsRate(), (1.0 - std::exp(-0.5)) * 800.0, 1e-9);
  EXPECT_DOUBLE_EQ(withGlobal.txBitsRate(), 800.0);
}

TEST(IntfQueueMovingAverages, SteadyTrafficConverges) {
  IntfQueueRates r;
  for (int i = 0; i < 1000; ++i) {
    updateIntfQueueMovingAverages(r, 2.0, 2000, 20, 200, 2, LoadInterval(), LoadInterval(60));
  }
  EXPECT_NEAR(r.txBitsRate(), 8000.0, 1e-6);
  EXPECT_NEAR(r.txPktsRate(), 10.0, 1e-9);
  EXPECT_NEAR(r.dropBitsRate(), 800.0, 1e-7);
  EXPECT_NEAR(r.dropPktsRate(), 1.0, 1e-9);
}

TEST(IntfQueueMovingAverages, UnusableElapsedKeepsRatesAndNeverPublishesNaN) {
  const IntfQueueRates before(10, 20, 30, 40);
  for (double elapsed : {0.0, -1.0, kNaN, kInf, -kInf}) {
    IntfQueueRates r = before;
    updateIntfQueueMovingAverages(r, elapsed, 1000, 10, 10, 1, LoadInterval(), LoadInterval());
    EXPECT_EQ(r, before) << elapsed;
  }
  IntfQueueRates r = before;
  updateIntfQueueMovingAverages(r, 1e-310, 1e300, kNaN, kInf, 1, LoadInterval(), LoadInterval());
  EXPECT_TRUE(std::isfinite(r.txBitsRate()));
  EXPECT_EQ(r.txPktsRate(), 20.0);
  EXPECT_EQ(r.dropBitsRate(), 30.0);
  EXPECT_TRUE(std::isfinite(r.dropPktsRate()));
}

}  // namespace
}  // namespace Interface::QueueCounter
