// Interface::EthIntfCounterBrim: the published counters of one Ethernet port,
// one record per port in the shared-memory tables "allIntfCounters" (running
// totals, written by the port poller) and "allIntfClearCounters" (the baselines
// that clearing copies from it; readers show totals minus baseline).
//
// Plain data: trivially copyable, no padding, keyed by the port.
#pragma once

#include <cstdint>
#include <ostream>
#include <type_traits>

#include "interface/EthStatistics.h"
#include "interface/IntfRates.h"
#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Interface {

class EthIntfCounterBrim {
 public:
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Interface::EthIntfCounterBrim";

  constexpr EthIntfCounterBrim() = default;
  // An all-zero record for `intfId`: what a table look-up of a missing port yields.
  constexpr explicit EthIntfCounterBrim(Orvo::IntfId intfId) : intfId_(intfId) {}

  constexpr Key key() const { return intfId_; }

  constexpr Orvo::IntfId intfId() const { return intfId_; }
  constexpr void intfIdIs(Orvo::IntfId value) { intfId_ = value; }
  constexpr const IntfStatistics& statistics() const { return statistics_; }
  constexpr void statisticsIs(const IntfStatistics& value) { statistics_ = value; }
  constexpr const IntfRates& rates() const { return rates_; }
  constexpr void ratesIs(const IntfRates& value) { rates_ = value; }
  constexpr const EthStatistics& ethStatistics() const { return ethStatistics_; }
  constexpr void ethStatisticsIs(const EthStatistics& value) { ethStatistics_ = value; }
  // Seconds; when the port was last cleared, for readers. Pollers never change it.
  constexpr double lastClearTime() const { return lastClearTime_; }
  constexpr void lastClearTimeIs(double value) { lastClearTime_ = value; }
  // Room for one more counter without a change of the record size; kept at 0.
  constexpr uint64_t reserved() const { return reserved_; }
  constexpr void reservedIs(uint64_t value) { reserved_ = value; }

  friend bool operator==(const EthIntfCounterBrim&, const EthIntfCounterBrim&) = default;

 private:
  static void checkLayout();

  Orvo::IntfId intfId_;
  IntfStatistics statistics_;
  IntfRates rates_;
  EthStatistics ethStatistics_;
  double lastClearTime_ = 0.0;
  uint64_t reserved_ = 0;
};

std::ostream& operator<<(std::ostream& os, const EthIntfCounterBrim& record);

static_assert(sizeof(EthIntfCounterBrim) ==
              8 + sizeof(IntfStatistics) + sizeof(IntfRates) + sizeof(EthStatistics) + 16);
static_assert(sizeof(EthIntfCounterBrim) % 8 == 0 && alignof(EthIntfCounterBrim) <= 8);
static_assert(std::is_trivially_copyable_v<EthIntfCounterBrim>);

}  // namespace Interface
