// Interface::QueueCounter: the egress queue counters of one interface, one
// IntfQueueCounter record per interface in the shared-memory tables
// "allIntfQueueCounters" (written by the queue poller) and
// "allIntfClearQueueCounters" (baselines), plus the per-queue moving averages
// that the queue poller folds each poll's increments into.
//
// Queues are indexed by QueueIndex (0..16) into two PodArrays of 17 entries. A
// stored count above 17 can only come from damaged shared memory; every per-queue
// access raises Zat::SizeException for it (see PodArray.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <type_traits>

#include "interface/LoadInterval.h"
#include "interface/MovingAverage.h"
#include "interface/PodArray.h"
#include "interface/QueueIndex.h"
#include "orvo/IntfId.h"

namespace Interface::QueueCounter {

// Totals of one queue. queueType holds the helper's queue kind (a 32-bit enum).
class IntfQueueStat {
 public:
  constexpr IntfQueueStat() = default;
  constexpr IntfQueueStat(uint32_t queueType, uint64_t txOctets, uint64_t txPkts,
                          uint64_t dropOctets, uint64_t dropPkts)
      : queueType_(queueType),
        txOctets_(txOctets),
        txPkts_(txPkts),
        dropOctets_(dropOctets),
        dropPkts_(dropPkts) {}

  constexpr uint32_t queueType() const { return queueType_; }
  constexpr void queueTypeIs(uint32_t value) { queueType_ = value; }
  // A word kept at 0; it pads the counters to 8 bytes.
  constexpr uint32_t spare() const { return spare_; }
  constexpr void spareIs(uint32_t value) { spare_ = value; }
  constexpr uint64_t txOctets() const { return txOctets_; }
  constexpr void txOctetsIs(uint64_t value) { txOctets_ = value; }
  constexpr uint64_t txPkts() const { return txPkts_; }
  constexpr void txPktsIs(uint64_t value) { txPkts_ = value; }
  constexpr uint64_t dropOctets() const { return dropOctets_; }
  constexpr void dropOctetsIs(uint64_t value) { dropOctets_ = value; }
  constexpr uint64_t dropPkts() const { return dropPkts_; }
  constexpr void dropPktsIs(uint64_t value) { dropPkts_ = value; }

  friend bool operator==(const IntfQueueStat&, const IntfQueueStat&) = default;

 private:
  uint32_t queueType_ = 0;
  uint32_t spare_ = 0;
  uint64_t txOctets_ = 0;
  uint64_t txPkts_ = 0;
  uint64_t dropOctets_ = 0;
  uint64_t dropPkts_ = 0;
};

// Moving-average rates of one queue, per second; changed only by
// updateIntfQueueMovingAverages.
class IntfQueueRates {
 public:
  constexpr IntfQueueRates() = default;
  constexpr IntfQueueRates(double txBitsRate, double txPktsRate, double dropBitsRate,
                           double dropPktsRate)
      : txBitsRate_(txBitsRate),
        txPktsRate_(txPktsRate),
        dropBitsRate_(dropBitsRate),
        dropPktsRate_(dropPktsRate) {}

  constexpr double txBitsRate() const { return txBitsRate_; }
  constexpr void txBitsRateIs(double value) { txBitsRate_ = value; }
  constexpr double txPktsRate() const { return txPktsRate_; }
  constexpr void txPktsRateIs(double value) { txPktsRate_ = value; }
  constexpr double dropBitsRate() const { return dropBitsRate_; }
  constexpr void dropBitsRateIs(double value) { dropBitsRate_ = value; }
  constexpr double dropPktsRate() const { return dropPktsRate_; }
  constexpr void dropPktsRateIs(double value) { dropPktsRate_ = value; }

  friend bool operator==(const IntfQueueRates&, const IntfQueueRates&) = default;

 private:
  double txBitsRate_ = 0.0;
  double txPktsRate_ = 0.0;
  double dropBitsRate_ = 0.0;
  double dropPktsRate_ = 0.0;
};

class IntfQueueCounter {
 public:
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Interface::QueueCounter::IntfQueueCounter";
  static constexpr size_t kMaxQueues = QueueIndex::kMax + 1;
  using QueueStatArray = PodArray<IntfQueueStat, kMaxQueues>;
  using QueueRatesArray = PodArray<IntfQueueRates, kMaxQueues>;

  constexpr IntfQueueCounter() = default;
  // A record for `intfId` with zero counters and no queues.
  constexpr explicit IntfQueueCounter(Orvo::IntfId intfId) : intfId_(intfId) {}

  constexpr Key key() const { return intfId_; }

  constexpr Orvo::IntfId intfId() const { return intfId_; }
  constexpr void intfIdIs(Orvo::IntfId value) { intfId_ = value; }
  constexpr uint64_t intfAggregate0() const { return intfAggregate0_; }
  constexpr void intfAggregate0Is(uint64_t value) { intfAggregate0_ = value; }
  constexpr uint64_t intfAggregate1() const { return intfAggregate1_; }
  constexpr void intfAggregate1Is(uint64_t value) { intfAggregate1_ = value; }

  // Queue q's totals; zero for a queue beyond the count. Setting a queue beyond
  // the count grows it to q + 1 (queues skipped are zero). Both raise
  // Zat::SizeException for a stored count above kMaxQueues.
  IntfQueueStat intfQueueStat(QueueIndex q) const { return intfQueueStat_.element(q.value()); }
  void intfQueueStatIs(QueueIndex q, const IntfQueueStat& value) {
    intfQueueStat_.elementIs(q.value(), value);
  }
  // Queue q's rates, with the same rules as intfQueueStat.
  IntfQueueRates intfQueueRates(QueueIndex q) const { return intfQueueRates_.element(q.value()); }
  void intfQueueRatesIs(QueueIndex q, const IntfQueueRates& value) {
    intfQueueRates_.elementIs(q.value(), value);
  }
  // The whole arrays, for their counts (size()) and for tools.
  const QueueStatArray& intfQueueStatArray() const { return intfQueueStat_; }
  QueueStatArray& intfQueueStatArray() { return intfQueueStat_; }
  const QueueRatesArray& intfQueueRatesArray() const { return intfQueueRates_; }
  QueueRatesArray& intfQueueRatesArray() { return intfQueueRates_; }

  // Seconds; time of the poll that produced the record.
  constexpr double lastUpdateTime() const { return lastUpdateTime_; }
  constexpr void lastUpdateTimeIs(double value) { lastUpdateTime_ = value; }

  friend bool operator==(const IntfQueueCounter&, const IntfQueueCounter&) = default;

 private:
  static void checkLayout();

  Orvo::IntfId intfId_;
  uint64_t intfAggregate0_ = 0;
  uint64_t intfAggregate1_ = 0;
  QueueStatArray intfQueueStat_;
  QueueRatesArray intfQueueRates_;
  double lastUpdateTime_ = 0.0;
};

// Folds one poll's increments of a queue into its rates: `elapsed` seconds since
// the previous poll, octets (counted as 8 bits each) and packets sent and
// dropped. Averaged over the interface's interval when set, else the global one.
// An elapsed time that is zero, negative or not finite leaves the rates as they
// are; a gap of a whole interval or more replaces them by this poll's rates.
// No rate becomes NaN or infinite.
void updateIntfQueueMovingAverages(IntfQueueRates& rates, double elapsed, double txOctets,
                                   double txPkts, double dropOctets, double dropPkts,
                                   LoadInterval intfInterval, LoadInterval globalInterval);

// As above, with the poll's weight already worked out by
// movingAverageWeight(elapsed, LoadInterval::effectiveSeconds(intf, global)):
// every queue of an interface shares the poll's elapsed time and intervals, so
// the queue poller works the exponential out once per poll, not once per queue.
// A nullopt weight leaves the rates as they are.
inline void updateIntfQueueMovingAverages(IntfQueueRates& rates, double elapsed,
                                          std::optional<double> weight, double txOctets,
                                          double txPkts, double dropOctets, double dropPkts) {
  if (!weight) return;
  rates.txBitsRateIs(blendedRate(rates.txBitsRate(), 8.0 * txOctets / elapsed, *weight));
  rates.txPktsRateIs(blendedRate(rates.txPktsRate(), txPkts / elapsed, *weight));
  rates.dropBitsRateIs(blendedRate(rates.dropBitsRate(), 8.0 * dropOctets / elapsed, *weight));
  rates.dropPktsRateIs(blendedRate(rates.dropPktsRate(), dropPkts / elapsed, *weight));
}

std::ostream& operator<<(std::ostream& os, const IntfQueueStat& stat);
std::ostream& operator<<(std::ostream& os, const IntfQueueRates& rates);
std::ostream& operator<<(std::ostream& os, const IntfQueueCounter& record);

static_assert(sizeof(IntfQueueStat) == 40);
static_assert(sizeof(IntfQueueRates) == 32);
static_assert(sizeof(IntfQueueCounter::QueueStatArray) == 8 + 17 * 40);
static_assert(sizeof(IntfQueueCounter::QueueRatesArray) == 8 + 17 * 32);
static_assert(sizeof(IntfQueueCounter) == 24 + (8 + 17 * 40) + (8 + 17 * 32) + 8);
static_assert(alignof(IntfQueueCounter) <= 8);
static_assert(std::is_trivially_copyable_v<IntfQueueCounter>);

}  // namespace Interface::QueueCounter
