// Nimlog's time source: the clock that stamps trace records and measures block timers.
//
// Both read the process's monotonic clock unless a test or a simulator installs its own
// time function, so that traces and timer statistics follow simulated time and unit
// tests never depend on the real clock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Nimlog {

// Returns a monotonic time in nanoseconds. Must be callable from any recording thread.
using TimeSource = std::uint64_t (*)() noexcept;

namespace detail {
extern std::atomic<TimeSource> timeSource;
}

// The monotonic clock (CLOCK_MONOTONIC on Linux), in nanoseconds.
inline std::uint64_t monotonicNs() noexcept {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count());
}

// Now, in nanoseconds, from the installed time source.
inline std::uint64_t nowNs() noexcept {
  const TimeSource source = detail::timeSource.load(std::memory_order_relaxed);
  return source != nullptr ? source() : monotonicNs();
}

// Installs `source` for trace timestamps and block timers; nullptr restores the
// monotonic clock. Timers running across the change measure a mix of both clocks,
// so switch only while nothing is being measured.
void timeSourceIs(TimeSource source) noexcept;

}  // namespace Nimlog
