#include "bridging/VlanCounter.h"

#include <iterator>

#include "pontil/Assert.h"

namespace Brim::Bridging {

namespace {
constexpr const char* kCounterNames[] = {
#define VORN_NAME(name) #name,
    VORN_VLAN_COUNTERS(VORN_NAME)
#undef VORN_NAME
};
static_assert(std::size(kCounterNames) == VlanCounter::kCounterCount);
}  // namespace

void VlanCounter::checkLayout() {
  // Readers in other processes decode the record by offset.
  static_assert(offsetof(VlanCounter, vlanId_) == 0);
  static_assert(offsetof(VlanCounter, counters_) == 8);
  static_assert(offsetof(VlanCounter, timestamp_) == 72);
}

const char* VlanCounter::counterName(size_t index) {
  vornAssert(index < kCounterCount);
  return kCounterNames[index];
}

uint64_t VlanCounter::counter(size_t index) const {
  vornAssert(index < kCounterCount);
  return counters_[index];
}

void VlanCounter::counterIs(size_t index, uint64_t value) {
  vornAssert(index < kCounterCount);
  counters_[index] = value;
}

std::ostream& operator<<(std::ostream& os, const VlanCounter& record) {
  os << "{vlanId: " << record.vlanId();
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    os << ", " << VlanCounter::counterName(i) << ": " << record.counter(i);
  }
  return os << ", timestamp: " << record.timestamp() << "}";
}

}  // namespace Brim::Bridging
