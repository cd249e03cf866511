#include "interface/IntfRates.h"

#include <cmath>

#include "interface/MovingAverage.h"

namespace Interface {

namespace {

// Summed as doubles: a modular delta from a counter reset can be near 2^64 and
// must not wrap again when added to the others.
double inPkts(const IntfStatistics& d) {
  return static_cast<double>(d.inUcastPkts()) + static_cast<double>(d.inMulticastPkts()) +
         static_cast<double>(d.inBroadcastPkts());
}

double outPkts(const IntfStatistics& d) {
  double multicast =
      d.outMulticastPkts().hasValue() ? static_cast<double>(d.outMulticastPkts().value()) : 0.0;
  return static_cast<double>(d.outUcastPkts()) + multicast +
         static_cast<double>(d.outBroadcastPkts());
}

}  // namespace

IntfRates updateIntfMovingAverages(IntfRates prev, const IntfStatistics& delta, double t,
                                   LoadInterval intfInterval, LoadInterval globalInterval) {
  if (!std::isfinite(t)) return prev;
  IntfRates next = prev;
  next.lastUpdateTimeIs(t);
  // A record never updated has no start time: its first delta covers everything
  // counted since the hardware started, so it only starts the clock.
  if (prev.lastUpdateTime() == 0.0) return next;
  double elapsed = t - prev.lastUpdateTime();
  auto weight =
      movingAverageWeight(elapsed, LoadInterval::effectiveSeconds(intfInterval, globalInterval));
  if (!weight) return next;
  double w = prev.sampleCount() == 0 ? 1.0 : *weight;

  next.inBitsRateIs(blendedRate(prev.inBitsRate(), 8.0 * delta.inOctets() / elapsed, w));
  next.inPktsRateIs(blendedRate(prev.inPktsRate(), inPkts(delta) / elapsed, w));
  next.outBitsRateIs(blendedRate(prev.outBitsRate(), 8.0 * delta.outOctets() / elapsed, w));
  next.outPktsRateIs(blendedRate(prev.outPktsRate(), outPkts(delta) / elapsed, w));
  next.sampleCountIs(prev.sampleCount() + 1);
  return next;
}

std::ostream& operator<<(std::ostream& os, const IntfRates& rates) {
  return os << "{inBitsRate: " << rates.inBitsRate() << ", inPktsRate: " << rates.inPktsRate()
            << ", outBitsRate: " << rates.outBitsRate() << ", outPktsRate: " << rates.outPktsRate()
            << ", lastUpdateTime: " << rates.lastUpdateTime()
            << ", sampleCount: " << rates.sampleCount() << "}";
}

}  // namespace Interface
