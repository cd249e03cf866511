// Interface::LoadInterval: the span, in seconds, of an interface's moving-average
// rates.
//
// Each interface's configuration may carry its own interval; the global
// interface configuration carries the default for all. An unset interval (0, a
// negative or a non-finite value) means "use the next one": the interface's
// falls back to the global one, the global one to kDefaultSeconds.
#pragma once

#include <limits>
#include <ostream>

namespace Interface {

class LoadInterval {
 public:
  // Used when neither the interface nor the global configuration sets one.
  static constexpr double kDefaultSeconds = 300.0;

  constexpr LoadInterval() = default;
  constexpr explicit LoadInterval(double seconds) : seconds_(seconds) {}

  constexpr double seconds() const { return seconds_; }
  constexpr bool isSet() const {
    return seconds_ > 0.0 && seconds_ < std::numeric_limits<double>::infinity();
  }

  // The seconds to average over: `intf` when set, else `global` when set, else
  // kDefaultSeconds. Always positive and finite.
  static constexpr double effectiveSeconds(LoadInterval intf, LoadInterval global) {
    if (intf.isSet()) return intf.seconds();
    if (global.isSet()) return global.seconds();
    return kDefaultSeconds;
  }

  friend constexpr bool operator==(LoadInterval, LoadInterval) = default;

 private:
  double seconds_ = 0.0;
};

inline std::ostream& operator<<(std::ostream& os, LoadInterval interval) {
  if (!interval.isSet()) return os << "unset";
  return os << interval.seconds() << "s";
}

}  // namespace Interface
