#include "interface/EthIntfCounterBrim.h"

#include <cstddef>

namespace Interface {

void EthIntfCounterBrim::checkLayout() {
  // Readers in other processes decode the record by offset.
  static_assert(offsetof(EthIntfCounterBrim, intfId_) == 0);
  static_assert(offsetof(EthIntfCounterBrim, statistics_) == 8);
  static_assert(offsetof(EthIntfCounterBrim, rates_) == 120);
  static_assert(offsetof(EthIntfCounterBrim, ethStatistics_) == 168);
  static_assert(offsetof(EthIntfCounterBrim, lastClearTime_) == 168 + sizeof(EthStatistics));
}

std::ostream& operator<<(std::ostream& os, const EthIntfCounterBrim& record) {
  return os << "{intfId: " << record.intfId() << ", statistics: " << record.statistics()
            << ", rates: " << record.rates() << ", ethStatistics: " << record.ethStatistics()
            << ", lastClearTime: " << record.lastClearTime() << ", reserved: " << record.reserved()
            << "}";
}

}  // namespace Interface
