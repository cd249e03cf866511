#include "interface/VlanIntfCounterBrim.h"

#include <iterator>

#include "pontil/Assert.h"

namespace Interface {

namespace {
constexpr const char* kExtraCounterNames[] = {
#define VORN_NAME(name) #name,
    VORN_VLAN_INTF_EXTRA_COUNTERS(VORN_NAME)
#undef VORN_NAME
};
static_assert(std::size(kExtraCounterNames) == VlanIntfCounterBrim::kExtraCounterCount);
}  // namespace

void VlanIntfCounterBrim::checkLayout() {
  // Readers in other processes decode the record by offset.
  static_assert(offsetof(VlanIntfCounterBrim, intfId_) == 0);
  static_assert(offsetof(VlanIntfCounterBrim, statistics_) == 8);
  static_assert(offsetof(VlanIntfCounterBrim, rates_) == 120);
  static_assert(offsetof(VlanIntfCounterBrim, lastClearTime_) == 168);
  static_assert(offsetof(VlanIntfCounterBrim, extraCounters_) == 184);
}

const char* VlanIntfCounterBrim::extraCounterName(size_t index) {
  vornAssert(index < kExtraCounterCount);
  return kExtraCounterNames[index];
}

uint64_t VlanIntfCounterBrim::extraCounter(size_t index) const {
  vornAssert(index < kExtraCounterCount);
  return extraCounters_[index];
}

void VlanIntfCounterBrim::extraCounterIs(size_t index, uint64_t value) {
  vornAssert(index < kExtraCounterCount);
  extraCounters_[index] = value;
}

std::ostream& operator<<(std::ostream& os, const VlanIntfCounterBrim& record) {
  os << "{intfId: " << record.intfId() << ", statistics: " << record.statistics()
     << ", rates: " << record.rates() << ", lastClearTime: " << record.lastClearTime()
     << ", reserved: " << record.reserved();
  for (size_t i = 0; i < VlanIntfCounterBrim::kExtraCounterCount; ++i) {
    os << ", " << VlanIntfCounterBrim::extraCounterName(i) << ": " << record.extraCounter(i);
  }
  return os << "}";
}

}  // namespace Interface
