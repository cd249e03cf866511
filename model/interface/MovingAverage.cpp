#include "interface/MovingAverage.h"

#include <cmath>

namespace Interface {

std::optional<double> movingAverageWeight(double elapsed, double intervalSeconds) {
  if (!std::isfinite(elapsed) || elapsed <= 0.0) return std::nullopt;
  if (elapsed >= intervalSeconds) return 1.0;
  // -expm1(-x) is 1 - exp(-x) without the cancellation for short elapsed times.
  return -std::expm1(-elapsed / intervalSeconds);
}

double blendedRate(double previous, double sample, double weight) {
  if (!std::isfinite(sample)) return std::isfinite(previous) ? previous : 0.0;
  if (!std::isfinite(previous)) return sample;
  double rate = weight * sample + (1.0 - weight) * previous;
  return std::isfinite(rate) ? rate : previous;
}

}  // namespace Interface
