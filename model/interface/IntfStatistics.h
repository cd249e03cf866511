// Interface::IntfStatistics: the generic counters of one interface.
//
// Used three ways: as a raw hardware reading (the platform helper fills one per
// poll), as the difference of two readings, and as the running totals published
// in the interface counter tables. Pollers build totals as
// `totals + (reading - previousReading)`, so both operators below are modular
// and never detect wraps or resets: a counter that went back gives a huge delta.
//
// The layout (fourteen 8-byte fields, in this order) is read by other processes
// through shared memory; change it only together with the table's layout version.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <type_traits>

#include "pell/MaybeU63.h"

// The counters in layout order: X(type, name). The update time follows them.
#define VORN_INTF_STATISTICS_COUNTERS(X) \
  X(uint64_t, inOctets)                  \
  X(uint64_t, inUcastPkts)               \
  X(uint64_t, inMulticastPkts)           \
  X(uint64_t, inBroadcastPkts)           \
  X(uint64_t, inDiscards)                \
  X(uint64_t, outOctets)                 \
  X(uint64_t, outUcastPkts)              \
  X(Pell::MaybeU63, outMulticastPkts)    \
  X(uint64_t, outBroadcastPkts)          \
  X(uint64_t, outDiscards)               \
  X(uint64_t, inErrors)                  \
  X(Pell::MaybeU63, inUnknownProtos)     \
  X(uint64_t, outErrors)

namespace Interface {

namespace detail {
// The zero a counter starts from: 0, or a present 0 for an optional counter.
template <class T>
constexpr T zeroCounter() {
  if constexpr (std::is_same_v<T, Pell::MaybeU63>) {
    return Pell::MaybeU63(0);
  } else {
    return T{};
  }
}
}  // namespace detail

class IntfStatistics {
 public:
  // Thirteen counters plus the update time.
  static constexpr size_t kCounterCount = 13;

  // All counters zero. The optional counters hold a present zero, not "absent":
  // a total or a previous reading that started absent would keep every later
  // sum absent, and the counter would never be published.
  constexpr IntfStatistics() = default;

#define VORN_ACCESSORS(type, name)                \
  constexpr type name() const { return name##_; } \
  constexpr void name##Is(type value) { name##_ = value; }
  VORN_INTF_STATISTICS_COUNTERS(VORN_ACCESSORS)
#undef VORN_ACCESSORS

  // Seconds; time of the reading, or of the latest reading that went into a sum.
  constexpr double statsUpdateTime() const { return statsUpdateTime_; }
  constexpr void statsUpdateTimeIs(double value) { statsUpdateTime_ = value; }

  // Indexed access for tools that print every counter by name.
  // Requires: index < kCounterCount.
  static const char* counterName(size_t index);
  // The counter's value; nullopt for an absent optional counter.
  // Requires: index < kCounterCount.
  std::optional<uint64_t> counter(size_t index) const;

  friend bool operator==(const IntfStatistics&, const IntfStatistics&) = default;

 private:
  friend IntfStatistics operator-(const IntfStatistics& a, const IntfStatistics& b);
  friend IntfStatistics operator+(const IntfStatistics& a, const IntfStatistics& b);
  static void checkLayout();

#define VORN_MEMBER(type, name) type name##_ = detail::zeroCounter<type>();
  VORN_INTF_STATISTICS_COUNTERS(VORN_MEMBER)
#undef VORN_MEMBER
  double statsUpdateTime_ = 0.0;
};

// Counter by counter a - b: unsigned counters modulo 2^64; optional counters
// hold the difference kept to 63 bits when both are present, else absent.
// The update time is the later of the two, so a delta carries its reading's time.
IntfStatistics operator-(const IntfStatistics& a, const IntfStatistics& b);
// Counter by counter a + b, with the same rules as the difference (the update
// time is again the later of the two).
IntfStatistics operator+(const IntfStatistics& a, const IntfStatistics& b);

std::ostream& operator<<(std::ostream& os, const IntfStatistics& stats);

static_assert(sizeof(IntfStatistics) == 112);
static_assert(alignof(IntfStatistics) <= 8);
static_assert(std::is_trivially_copyable_v<IntfStatistics>);
static_assert(std::is_standard_layout_v<IntfStatistics>);

}  // namespace Interface
