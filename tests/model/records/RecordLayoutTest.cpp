// Other processes decode the table records by byte offset, so these tests look
// at the bytes of each record rather than at its accessors.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <type_traits>

#include "bridging/VlanCounter.h"
#include "interface/DropCounter.h"
#include "interface/EthIntfCounterBrim.h"
#include "interface/IntfQueueCounter.h"
#include "interface/VlanIntfCounterBrim.h"

namespace {

const Orvo::IntfId kPort = Orvo::IntfId::fromValue(0x0100000700000000);

template <class R>
uint64_t wordAt(const R& record, size_t offset) {
  uint64_t word;
  std::memcpy(&word, reinterpret_cast<const char*>(&record) + offset, sizeof word);
  return word;
}

template <class R>
double doubleAt(const R& record, size_t offset) {
  double d;
  std::memcpy(&d, reinterpret_cast<const char*>(&record) + offset, sizeof d);
  return d;
}

template <class R>
uint32_t u32At(const R& record, size_t offset) {
  uint32_t v;
  std::memcpy(&v, reinterpret_cast<const char*>(&record) + offset, sizeof v);
  return v;
}

template <class R>
constexpr bool isTableRecord() {
  return std::is_trivially_copyable_v<R> && sizeof(R) % 8 == 0 && alignof(R) <= 8;
}
static_assert(isTableRecord<Interface::EthIntfCounterBrim>());
static_assert(isTableRecord<Interface::VlanIntfCounterBrim>());
static_assert(isTableRecord<Interface::QueueCounter::IntfQueueCounter>());
static_assert(isTableRecord<Brim::Interface::DropCounter>());
static_assert(isTableRecord<Brim::Bridging::VlanCounter>());
static_assert(sizeof(Interface::IntfStatistics) == 112);
static_assert(sizeof(Interface::QueueCounter::IntfQueueStat) == 40);
static_assert(sizeof(Interface::QueueCounter::IntfQueueRates) == 32);
static_assert(sizeof(Brim::Bridging::VlanCounter) == 80);
static_assert(std::is_same_v<Brim::Bridging::VlanCounter::Key, uint16_t>);
static_assert(std::is_same_v<Interface::EthIntfCounterBrim::Key, Orvo::IntfId>);

TEST(RecordLayout, IntfStatisticsFieldsAreEightBytesEachInOrder) {
  Interface::IntfStatistics s;
  s.inOctetsIs(1);
  s.outUcastPktsIs(7);
  s.outMulticastPktsIs(Pell::MaybeU63(8));
  s.inErrorsIs(11);
  s.inUnknownProtosIs(Pell::MaybeU63::absent());
  s.outErrorsIs(13);
  s.statsUpdateTimeIs(1.5);
  EXPECT_EQ(wordAt(s, 0), 1u);
  EXPECT_EQ(wordAt(s, 48), 7u);
  EXPECT_EQ(wordAt(s, 56), Pell::MaybeU63(8).raw());
  EXPECT_EQ(wordAt(s, 80), 11u);
  EXPECT_EQ(wordAt(s, 88), 0u);  // absent
  EXPECT_EQ(wordAt(s, 96), 13u);
  EXPECT_EQ(doubleAt(s, 104), 1.5);
}

TEST(RecordLayout, EthIntfCounterBrimIsKeyThenStatisticsRatesEthStatistics) {
  Interface::EthIntfCounterBrim r(kPort);
  Interface::IntfStatistics s;
  s.inOctetsIs(42);
  r.statisticsIs(s);
  r.ratesIs(Interface::IntfRates(2.5, 0, 0, 0));
  Interface::EthStatistics e;
  e.alignmentErrorsIs(9);
  r.ethStatisticsIs(e);
  r.lastClearTimeIs(4.0);
  EXPECT_EQ(wordAt(r, 0), kPort.value());
  EXPECT_EQ(wordAt(r, 8), 42u);
  EXPECT_EQ(doubleAt(r, 120), 2.5);
  EXPECT_EQ(wordAt(r, 168), 9u);
  EXPECT_EQ(doubleAt(r, 168 + sizeof(Interface::EthStatistics)), 4.0);
  EXPECT_EQ(r.key(), kPort);
  EXPECT_STREQ(Interface::EthIntfCounterBrim::kTypeName, "Interface::EthIntfCounterBrim");
}

TEST(RecordLayout, EmptyRecordForAKeyEqualsDefaultWithThatKey) {
  Interface::EthIntfCounterBrim byKey(kPort);
  Interface::EthIntfCounterBrim byDefault;
  EXPECT_NE(byKey, byDefault);
  byDefault.intfIdIs(kPort);
  EXPECT_EQ(byKey, byDefault);
  Interface::EthStatistics e;
  e.fcsErrorsIs(1);
  byDefault.ethStatisticsIs(e);
  EXPECT_NE(byKey, byDefault);
}

TEST(RecordLayout, VlanIntfCounterBrimKeepsItsFourCountersLast) {
  Interface::VlanIntfCounterBrim r(kPort);
  r.routedInOctetsIs(1);
  r.routedInPktsIs(2);
  r.routedOutOctetsIs(3);
  r.routedOutPktsIs(4);
  EXPECT_EQ(wordAt(r, 0), kPort.value());
  size_t extra = sizeof(r) - 32;
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(wordAt(r, extra + 8 * i), i + 1);
    EXPECT_EQ(r.extraCounter(i), i + 1);
  }
  EXPECT_STREQ(Interface::VlanIntfCounterBrim::extraCounterName(0), "routedInOctets");
  EXPECT_STREQ(Interface::VlanIntfCounterBrim::extraCounterName(3), "routedOutPkts");
  r.extraCounterIs(2, 30);
  EXPECT_EQ(r.routedOutOctets(), 30u);
  EXPECT_EQ(r.key(), kPort);
  EXPECT_STREQ(Interface::VlanIntfCounterBrim::kTypeName, "Interface::VlanIntfCounterBrim");
  EXPECT_EQ(Interface::VlanIntfCounterBrim(kPort), Interface::VlanIntfCounterBrim(kPort));
  EXPECT_NE(r, Interface::VlanIntfCounterBrim(kPort));
}

TEST(RecordLayout, IntfQueueCounterArraysCarryTheirCountsInline) {
  using namespace Interface::QueueCounter;
  IntfQueueCounter r(kPort);
  r.intfAggregate0Is(5);
  r.intfAggregate1Is(6);
  r.intfQueueStatIs(QueueIndex(1), IntfQueueStat(2, 10, 11, 12, 13));
  r.intfQueueRatesIs(QueueIndex(0), IntfQueueRates(1.5, 0, 0, 0));
  r.lastUpdateTimeIs(9.0);
  const size_t stats = 24, rates = stats + 8 + 17 * 40, last = rates + 8 + 17 * 32;
  EXPECT_EQ(wordAt(r, 0), kPort.value());
  EXPECT_EQ(wordAt(r, 8), 5u);
  EXPECT_EQ(wordAt(r, 16), 6u);
  EXPECT_EQ(u32At(r, stats), 2u);                  // count
  EXPECT_EQ(u32At(r, stats + 8 + 40), 2u);         // queue 1's type
  EXPECT_EQ(u32At(r, stats + 8 + 44), 0u);         // its spare word
  EXPECT_EQ(wordAt(r, stats + 8 + 40 + 8), 10u);   // its txOctets
  EXPECT_EQ(wordAt(r, stats + 8 + 40 + 32), 13u);  // its dropPkts
  EXPECT_EQ(u32At(r, rates), 1u);
  EXPECT_EQ(doubleAt(r, rates + 8), 1.5);
  EXPECT_EQ(doubleAt(r, last), 9.0);
  EXPECT_EQ(sizeof(r), last + 8);
}

TEST(RecordLayout, DropCounterIsKeyThenCount) {
  Brim::Interface::DropCounter r(kPort, 77);
  EXPECT_EQ(wordAt(r, 0), kPort.value());
  EXPECT_EQ(wordAt(r, 8), 77u);
  EXPECT_EQ(r.key(), kPort);
  EXPECT_STREQ(Brim::Interface::DropCounter::kTypeName, "Brim::Interface::DropCounter");
  r.dropCountIs(3);
  EXPECT_EQ(r, Brim::Interface::DropCounter(kPort, 3));
  EXPECT_NE(r, Brim::Interface::DropCounter(kPort));
  std::ostringstream os;
  os << Brim::Interface::DropCounter(Orvo::IntfId(), 3);
  EXPECT_EQ(os.str(), "{intfId: , dropCount: 3}");
}

TEST(RecordLayout, VlanCounterKeyIsPaddedToEightBytesThenCountersThenTimestamp) {
  Brim::Bridging::VlanCounter r(0x0abc);
  for (size_t i = 0; i < Brim::Bridging::VlanCounter::kCounterCount; ++i) r.counterIs(i, 100 + i);
  r.timestampIs(12.25);
  EXPECT_EQ(wordAt(r, 0), 0x0abcu);  // VLAN id, then zero padding
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(wordAt(r, 8 + 8 * i), 100 + i);
  EXPECT_EQ(doubleAt(r, 72), 12.25);
  EXPECT_EQ(r.inOctets(), 100u);
  EXPECT_EQ(r.outBcastPkts(), 107u);
  EXPECT_STREQ(Brim::Bridging::VlanCounter::counterName(0), "inOctets");
  EXPECT_STREQ(Brim::Bridging::VlanCounter::counterName(7), "outBcastPkts");
  EXPECT_EQ(r.key(), 0x0abc);
  EXPECT_STREQ(Brim::Bridging::VlanCounter::kTypeName, "Brim::Bridging::VlanCounter");
}

TEST(RecordLayout, VlanCounterEqualityTellsMissingFromPresent) {
  Brim::Bridging::VlanCounter missing;
  Brim::Bridging::VlanCounter zero(10);
  EXPECT_NE(missing, zero);
  EXPECT_EQ(zero, Brim::Bridging::VlanCounter(10));
  Brim::Bridging::VlanCounter polled(10);
  polled.timestampIs(1.0);
  EXPECT_NE(polled, zero);
  std::ostringstream os;
  os << zero;
  EXPECT_EQ(os.str(),
            "{vlanId: 10, inOctets: 0, inUcastPkts: 0, inMcastPkts: 0, inBcastPkts: 0, "
            "outOctets: 0, outUcastPkts: 0, outMcastPkts: 0, outBcastPkts: 0, timestamp: 0}");
}

}  // namespace
