#include "interface/MovingAverage.h"

#include <cmath>

namespace Interface {

std::optional<double> movingAverageWeight(double elapsed, double intervalSeconds) {
  if (!std::isfinite(elapsed) || elapsed <= 0.0) return std::nullopt;
  if (elapsed >= intervalSeconds) return 1.0;
  // -expm1(-x) is 1 - exp(-x) without the cancellation for short elapsed times.
  return -std::expm1(-elapsed / intervalSeconds);
}

}  // namespace Interface
