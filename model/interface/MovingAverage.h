// The exponentially weighted moving average shared by the interface and the
// queue rate updates (updateIntfMovingAverages, updateIntfQueueMovingAverages).
//
// A sample taken `elapsed` seconds after the previous one gets the weight
// 1 - exp(-elapsed / interval), so the average forgets at the same pace whatever
// the poll period. Both functions keep NaN and infinity out of published rates.
#pragma once

#include <cmath>
#include <optional>

namespace Interface {

// The weight of a new sample, or nullopt when `elapsed` cannot be used (zero,
// negative or not finite: a clock that stood still or went back).
// A gap of a whole interval or more gives weight 1: older history is stale.
// Requires: intervalSeconds > 0 and finite (LoadInterval::effectiveSeconds).
std::optional<double> movingAverageWeight(double elapsed, double intervalSeconds);

// `previous` moved towards `sample` by `weight` (1 gives `sample` exactly).
// A non-finite sample leaves `previous` (0 if that is not finite either); a
// non-finite previous average (a damaged record) restarts from the sample.
// Inline: every poll blends four rates per interface and per queue.
inline double blendedRate(double previous, double sample, double weight) {
  if (!std::isfinite(sample)) return std::isfinite(previous) ? previous : 0.0;
  if (!std::isfinite(previous)) return sample;
  double rate = weight * sample + (1.0 - weight) * previous;
  return std::isfinite(rate) ? rate : previous;
}

}  // namespace Interface
