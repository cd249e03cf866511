#include "interface/IntfQueueCounter.h"

#include "interface/MovingAverage.h"

namespace Interface::QueueCounter {

void IntfQueueCounter::checkLayout() {
  // Readers in other processes decode the record by offset.
  static_assert(offsetof(IntfQueueCounter, intfId_) == 0);
  static_assert(offsetof(IntfQueueCounter, intfAggregate0_) == 8);
  static_assert(offsetof(IntfQueueCounter, intfAggregate1_) == 16);
  static_assert(offsetof(IntfQueueCounter, intfQueueStat_) == 24);
  static_assert(offsetof(IntfQueueCounter, intfQueueRates_) == 24 + 8 + 17 * 40);
  static_assert(offsetof(IntfQueueCounter, lastUpdateTime_) == 24 + 8 + 17 * 40 + 8 + 17 * 32);
}

void updateIntfQueueMovingAverages(IntfQueueRates& rates, double elapsed, double txOctets,
                                   double txPkts, double dropOctets, double dropPkts,
                                   LoadInterval intfInterval, LoadInterval globalInterval) {
  updateIntfQueueMovingAverages(
      rates, elapsed,
      movingAverageWeight(elapsed, LoadInterval::effectiveSeconds(intfInterval, globalInterval)),
      txOctets, txPkts, dropOctets, dropPkts);
}

std::ostream& operator<<(std::ostream& os, const IntfQueueStat& stat) {
  return os << "{queueType: " << stat.queueType() << ", spare: " << stat.spare()
            << ", txOctets: " << stat.txOctets() << ", txPkts: " << stat.txPkts()
            << ", dropOctets: " << stat.dropOctets() << ", dropPkts: " << stat.dropPkts() << "}";
}

std::ostream& operator<<(std::ostream& os, const IntfQueueRates& rates) {
  return os << "{txBitsRate: " << rates.txBitsRate() << ", txPktsRate: " << rates.txPktsRate()
            << ", dropBitsRate: " << rates.dropBitsRate()
            << ", dropPktsRate: " << rates.dropPktsRate() << "}";
}

std::ostream& operator<<(std::ostream& os, const IntfQueueCounter& record) {
  return os << "{intfId: " << record.intfId() << ", intfAggregate0: " << record.intfAggregate0()
            << ", intfAggregate1: " << record.intfAggregate1()
            << ", intfQueueStat: " << record.intfQueueStatArray()
            << ", intfQueueRates: " << record.intfQueueRatesArray()
            << ", lastUpdateTime: " << record.lastUpdateTime() << "}";
}

}  // namespace Interface::QueueCounter
