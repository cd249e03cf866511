// Brim::Bridging::VlanCounter: the running totals of one bridging VLAN, one
// record per VLAN in the shared-memory tables "vlanCounterDir" (written by the
// VLAN counter poller) and "vlanCounterSnapshotDir" (copies taken on clear).
//
// The eight counters are in the order of the VLAN helper's reading
// (VornTypes::VlanCounters); the poller walks them by index, so keep both
// orders the same. The key is padded to 8 bytes so the counters are 8-aligned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <type_traits>

#include "bridging/VlanId.h"

// The counters in layout order.
#define VORN_VLAN_COUNTERS(X) \
  X(inOctets)                 \
  X(inUcastPkts)              \
  X(inMcastPkts)              \
  X(inBcastPkts)              \
  X(outOctets)                \
  X(outUcastPkts)             \
  X(outMcastPkts)             \
  X(outBcastPkts)

namespace Brim::Bridging {

class VlanCounter {
 public:
  using Key = ::Bridging::VlanId;
  static constexpr const char* kTypeName = "Brim::Bridging::VlanCounter";

  enum class Counter : size_t {
#define VORN_ENUM(name) name,
    VORN_VLAN_COUNTERS(VORN_ENUM)
#undef VORN_ENUM
  };
  static constexpr size_t kCounterCount = 8;

  constexpr VlanCounter() = default;
  // A record for `vlanId` with zero counters and timestamp.
  constexpr explicit VlanCounter(::Bridging::VlanId vlanId) : vlanId_(vlanId) {}

  constexpr Key key() const { return vlanId_; }

  constexpr ::Bridging::VlanId vlanId() const { return vlanId_; }
  constexpr void vlanIdIs(::Bridging::VlanId value) { vlanId_ = value; }

#define VORN_ACCESSORS(name)                                                 \
  constexpr uint64_t name() const { return counters_[slot(Counter::name)]; } \
  constexpr void name##Is(uint64_t value) { counters_[slot(Counter::name)] = value; }
  VORN_VLAN_COUNTERS(VORN_ACCESSORS)
#undef VORN_ACCESSORS

  // Indexed access to the eight counters. Requires: index < kCounterCount.
  static const char* counterName(size_t index);
  uint64_t counter(size_t index) const;
  void counterIs(size_t index, uint64_t value);
  // The eight counters in order, unchecked, for loops that visit all of them
  // (the VLAN poll adds to every counter of every VLAN).
  constexpr uint64_t* counterData() { return counters_; }
  constexpr const uint64_t* counterData() const { return counters_; }

  // Seconds, timer-wheel time of the poll (or snapshot) that last wrote the record.
  constexpr double timestamp() const { return timestamp_; }
  constexpr void timestampIs(double value) { timestamp_ = value; }

  friend bool operator==(const VlanCounter&, const VlanCounter&) = default;

 private:
  static constexpr size_t slot(Counter c) { return static_cast<size_t>(c); }
  static void checkLayout();

  ::Bridging::VlanId vlanId_ = 0;
  uint16_t pad16_ = 0;
  uint32_t pad32_ = 0;
  uint64_t counters_[kCounterCount] = {};
  double timestamp_ = 0.0;
};

std::ostream& operator<<(std::ostream& os, const VlanCounter& record);

static_assert(sizeof(VlanCounter) == 80 && alignof(VlanCounter) <= 8);
static_assert(std::is_trivially_copyable_v<VlanCounter>);

}  // namespace Brim::Bridging
