#include "interface/IntfStatistics.h"

#include <algorithm>
#include <iterator>

#include "pontil/Assert.h"

namespace Interface {

namespace {

constexpr uint64_t difference(uint64_t a, uint64_t b) { return a - b; }
constexpr uint64_t sum(uint64_t a, uint64_t b) { return a + b; }

// MaybeU63's constructor drops the bits above 63, which keeps the result to 63 bits.
constexpr Pell::MaybeU63 difference(Pell::MaybeU63 a, Pell::MaybeU63 b) {
  if (!a.hasValue() || !b.hasValue()) return Pell::MaybeU63::absent();
  return Pell::MaybeU63(a.value() - b.value());
}
constexpr Pell::MaybeU63 sum(Pell::MaybeU63 a, Pell::MaybeU63 b) {
  if (!a.hasValue() || !b.hasValue()) return Pell::MaybeU63::absent();
  return Pell::MaybeU63(a.value() + b.value());
}

constexpr std::optional<uint64_t> asOptional(uint64_t v) { return v; }
constexpr std::optional<uint64_t> asOptional(Pell::MaybeU63 v) { return v.optional(); }

constexpr const char* kCounterNames[] = {
#define VORN_NAME(type, name) #name,
    VORN_INTF_STATISTICS_COUNTERS(VORN_NAME)
#undef VORN_NAME
};
static_assert(std::size(kCounterNames) == IntfStatistics::kCounterCount);

}  // namespace

void IntfStatistics::checkLayout() {
  // Readers in other processes decode the record by offset.
  static_assert(offsetof(IntfStatistics, inOctets_) == 0);
  static_assert(offsetof(IntfStatistics, outMulticastPkts_) == 56);
  static_assert(offsetof(IntfStatistics, inErrors_) == 80);
  static_assert(offsetof(IntfStatistics, inUnknownProtos_) == 88);
  static_assert(offsetof(IntfStatistics, outErrors_) == 96);
  static_assert(offsetof(IntfStatistics, statsUpdateTime_) == 104);
}

const char* IntfStatistics::counterName(size_t index) {
  vornAssert(index < kCounterCount);
  return kCounterNames[index];
}

std::optional<uint64_t> IntfStatistics::counter(size_t index) const {
  vornAssert(index < kCounterCount);
  size_t i = 0;
#define VORN_CASE(type, name) \
  if (index == i++) return asOptional(name##_);
  VORN_INTF_STATISTICS_COUNTERS(VORN_CASE)
#undef VORN_CASE
  return std::nullopt;
}

IntfStatistics operator-(const IntfStatistics& a, const IntfStatistics& b) {
  IntfStatistics r;
#define VORN_DIFFERENCE(type, name) r.name##_ = difference(a.name##_, b.name##_);
  VORN_INTF_STATISTICS_COUNTERS(VORN_DIFFERENCE)
#undef VORN_DIFFERENCE
  r.statsUpdateTime_ = std::max(a.statsUpdateTime_, b.statsUpdateTime_);
  return r;
}

IntfStatistics operator+(const IntfStatistics& a, const IntfStatistics& b) {
  IntfStatistics r;
#define VORN_SUM(type, name) r.name##_ = sum(a.name##_, b.name##_);
  VORN_INTF_STATISTICS_COUNTERS(VORN_SUM)
#undef VORN_SUM
  r.statsUpdateTime_ = std::max(a.statsUpdateTime_, b.statsUpdateTime_);
  return r;
}

std::ostream& operator<<(std::ostream& os, const IntfStatistics& stats) {
  os << "{";
#define VORN_PRINT(type, name) os << #name ": " << stats.name() << ", ";
  VORN_INTF_STATISTICS_COUNTERS(VORN_PRINT)
#undef VORN_PRINT
  return os << "statsUpdateTime: " << stats.statsUpdateTime() << "}";
}

}  // namespace Interface
