// Interface::IntfRates: the moving-average rates of one interface, published
// beside its running totals in the interface counter tables, and
// Interface::updateIntfMovingAverages, which the Ethernet port and VLAN
// interface pollers call once per poll to fold the poll's counter difference in.
//
// Rates are bits and packets per second, averaged exponentially over the load
// interval (see MovingAverage.h). Octets count 8 bits; packets are unicast +
// multicast + broadcast (an absent outbound multicast counter counts 0).
#pragma once

#include <cstdint>
#include <ostream>
#include <type_traits>

#include "interface/IntfStatistics.h"
#include "interface/LoadInterval.h"

namespace Interface {

class IntfRates {
 public:
  constexpr IntfRates() = default;
  constexpr IntfRates(double inBitsRate, double inPktsRate, double outBitsRate, double outPktsRate)
      : inBitsRate_(inBitsRate),
        inPktsRate_(inPktsRate),
        outBitsRate_(outBitsRate),
        outPktsRate_(outPktsRate) {}

  constexpr double inBitsRate() const { return inBitsRate_; }
  constexpr void inBitsRateIs(double value) { inBitsRate_ = value; }
  constexpr double inPktsRate() const { return inPktsRate_; }
  constexpr void inPktsRateIs(double value) { inPktsRate_ = value; }
  constexpr double outBitsRate() const { return outBitsRate_; }
  constexpr void outBitsRateIs(double value) { outBitsRate_ = value; }
  constexpr double outPktsRate() const { return outPktsRate_; }
  constexpr void outPktsRateIs(double value) { outPktsRate_ = value; }
  // Seconds; poll time of the last update, the start of the next sample's span.
  constexpr double lastUpdateTime() const { return lastUpdateTime_; }
  constexpr void lastUpdateTimeIs(double value) { lastUpdateTime_ = value; }
  // Samples folded into the average; 0 until the first usable poll.
  constexpr uint64_t sampleCount() const { return sampleCount_; }
  constexpr void sampleCountIs(uint64_t value) { sampleCount_ = value; }

  friend bool operator==(const IntfRates&, const IntfRates&) = default;

 private:
  double inBitsRate_ = 0.0;
  double inPktsRate_ = 0.0;
  double outBitsRate_ = 0.0;
  double outPktsRate_ = 0.0;
  double lastUpdateTime_ = 0.0;
  uint64_t sampleCount_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IntfRates& rates);

// The rates after a poll at time `t` (seconds) whose counter difference since
// the previous poll is `delta`; the interface's interval is used when set, else
// the global one (LoadInterval::effectiveSeconds).
// - The first sample (prev.sampleCount() == 0) is taken as it is: the rates are
//   the delta over the time since prev.lastUpdateTime().
// - A gap of a whole interval or more also replaces the rates by the sample.
// - When t - prev.lastUpdateTime() is zero, negative or not finite the rates are
//   kept; lastUpdateTime becomes t (if finite) so the next sample is measured
//   from the clock's present. A t that is not finite changes nothing.
// - No rate becomes NaN or infinite; a damaged (non-finite) rate in `prev`
//   restarts from the sample.
IntfRates updateIntfMovingAverages(IntfRates prev, const IntfStatistics& delta, double t,
                                   LoadInterval intfInterval, LoadInterval globalInterval);

static_assert(sizeof(IntfRates) == 48);
static_assert(alignof(IntfRates) <= 8);
static_assert(std::is_trivially_copyable_v<IntfRates>);

}  // namespace Interface
