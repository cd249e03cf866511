// Interface::VlanIntfCounterBrim: the published counters of one routed VLAN
// interface, one record per interface in the shared-memory table
// "allVlanIntfCounters", written by the VLAN interface poller.
//
// Besides the generic statistics and rates it carries four counters of its own,
// which the poller accumulates like the statistics (total += new - previous).
// They are indexed as well as named, so the poller and the reader loop over them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <type_traits>

#include "interface/IntfRates.h"
#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

// The VLAN interface's own counters, in layout order.
#define VORN_VLAN_INTF_EXTRA_COUNTERS(X) \
  X(routedInOctets)                      \
  X(routedInPkts)                        \
  X(routedOutOctets)                     \
  X(routedOutPkts)

namespace Interface {

class VlanIntfCounterBrim {
 public:
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Interface::VlanIntfCounterBrim";

  enum class ExtraCounter : size_t {
#define VORN_ENUM(name) name,
    VORN_VLAN_INTF_EXTRA_COUNTERS(VORN_ENUM)
#undef VORN_ENUM
  };
  static constexpr size_t kExtraCounterCount = 4;

  constexpr VlanIntfCounterBrim() = default;
  // An all-zero record for `intfId`: what a table look-up of a missing interface yields.
  constexpr explicit VlanIntfCounterBrim(Orvo::IntfId intfId) : intfId_(intfId) {}

  constexpr Key key() const { return intfId_; }

  constexpr Orvo::IntfId intfId() const { return intfId_; }
  constexpr void intfIdIs(Orvo::IntfId value) { intfId_ = value; }
  constexpr const IntfStatistics& statistics() const { return statistics_; }
  constexpr void statisticsIs(const IntfStatistics& value) { statistics_ = value; }
  constexpr const IntfRates& rates() const { return rates_; }
  constexpr void ratesIs(const IntfRates& value) { rates_ = value; }
  // Seconds; when the interface was last cleared, for readers. Pollers never change it.
  constexpr double lastClearTime() const { return lastClearTime_; }
  constexpr void lastClearTimeIs(double value) { lastClearTime_ = value; }
  // Room for one more counter without a change of the record size; kept at 0.
  constexpr uint64_t reserved() const { return reserved_; }
  constexpr void reservedIs(uint64_t value) { reserved_ = value; }

#define VORN_ACCESSORS(name)                                                           \
  constexpr uint64_t name() const { return extraCounters_[slot(ExtraCounter::name)]; } \
  constexpr void name##Is(uint64_t value) { extraCounters_[slot(ExtraCounter::name)] = value; }
  VORN_VLAN_INTF_EXTRA_COUNTERS(VORN_ACCESSORS)
#undef VORN_ACCESSORS

  // Indexed access to the four counters above. Requires: index < kExtraCounterCount.
  static const char* extraCounterName(size_t index);
  uint64_t extraCounter(size_t index) const;
  void extraCounterIs(size_t index, uint64_t value);

  friend bool operator==(const VlanIntfCounterBrim&, const VlanIntfCounterBrim&) = default;

 private:
  static constexpr size_t slot(ExtraCounter c) { return static_cast<size_t>(c); }
  static void checkLayout();

  Orvo::IntfId intfId_;
  IntfStatistics statistics_;
  IntfRates rates_;
  double lastClearTime_ = 0.0;
  uint64_t reserved_ = 0;
  uint64_t extraCounters_[kExtraCounterCount] = {};
};

std::ostream& operator<<(std::ostream& os, const VlanIntfCounterBrim& record);

static_assert(sizeof(VlanIntfCounterBrim) == 8 + sizeof(IntfStatistics) + sizeof(IntfRates) + 16 +
                                                 8 * VlanIntfCounterBrim::kExtraCounterCount);
static_assert(sizeof(VlanIntfCounterBrim) % 8 == 0 && alignof(VlanIntfCounterBrim) <= 8);
static_assert(std::is_trivially_copyable_v<VlanIntfCounterBrim>);

}  // namespace Interface
