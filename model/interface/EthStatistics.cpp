#include "interface/EthStatistics.h"

#include <iterator>

#include "pontil/Assert.h"

namespace Interface {

namespace {
constexpr const char* kFieldNames[] = {
#define VORN_NAME(name) #name,
    VORN_ETH_STATISTICS_FIELDS(VORN_NAME)
#undef VORN_NAME
};
static_assert(std::size(kFieldNames) == EthStatistics::kFieldCount);
}  // namespace

const char* EthStatistics::fieldName(size_t index) {
  vornAssert(index < kFieldCount);
  return kFieldNames[index];
}

uint64_t EthStatistics::field(size_t index) const {
  vornAssert(index < kFieldCount);
  return fields_[index];
}

void EthStatistics::fieldIs(size_t index, uint64_t value) {
  vornAssert(index < kFieldCount);
  fields_[index] = value;
}

EthStatistics operator-(const EthStatistics& a, const EthStatistics& b) {
  EthStatistics r;
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i)
    r.fields_[i] = a.fields_[i] - b.fields_[i];
  return r;
}

EthStatistics operator+(const EthStatistics& a, const EthStatistics& b) {
  EthStatistics r;
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i)
    r.fields_[i] = a.fields_[i] + b.fields_[i];
  return r;
}

std::ostream& operator<<(std::ostream& os, const EthStatistics& stats) {
  os << "{";
  for (size_t i = 0; i < EthStatistics::kFieldCount; ++i) {
    os << (i ? ", " : "") << EthStatistics::fieldName(i) << ": " << stats.field(i);
  }
  return os << "}";
}

}  // namespace Interface
