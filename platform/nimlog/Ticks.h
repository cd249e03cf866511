// Nimlog's interval clock: the cheapest counter that measures how long a handler ran.
//
// Block timers run on every handler, several times per poll, so the clock they read
// is a noticeable part of a poll. On x86-64 with an invariant time-stamp counter that
// the kernel itself trusts as its clocksource, a tick is one TSC increment: reading
// it takes a few nanoseconds where the monotonic clock takes about twenty. Anywhere
// else a tick is a nanosecond of the monotonic clock.
//
// Ticks measure durations only: they are never a time of day, never compared across
// processes and never written into a trace record.
#pragma once

#include <cstdint>
#include <string_view>

#include "nimlog/Clock.h"

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace Nimlog {

namespace detail {

// How ticks are read and converted, settled once per process on first use.
struct TickSource {
  bool tsc = false;        // ticks are TSC increments; otherwise monotonic nanoseconds
  double nsPerTick = 1.0;  // measured against the monotonic clock when `tsc`
  // nsPerTick in 32.32 fixed point: every block timer converts a duration, and an
  // integer multiply is a fraction of the conversions to and from a double.
  std::uint64_t nsPerTickFixed = std::uint64_t{1} << 32;
};

// Whether TSC ticks can stand for time: the CPU says its TSC runs at a constant
// rate through every power state (`invariantTsc`) and the kernel chose it as its
// own clocksource (`kernelClocksource`, as the kernel names it), so the kernel has
// checked it against other clocks and found it sane on every CPU.
bool tscTrusted(bool invariantTsc, std::string_view kernelClocksource) noexcept;

// Probes the CPU and the kernel's clocksource and, for the TSC, measures its rate
// against the monotonic clock over about a millisecond.
TickSource probeTickSource() noexcept;

// The process's tick source, probed on first use (thread-safe).
inline const TickSource& tickSource() noexcept {
  static const TickSource source = probeTickSource();
  return source;
}

}  // namespace detail

// Now, in ticks.
inline std::uint64_t ticksNow() noexcept {
#if defined(__x86_64__)
  if (detail::tickSource().tsc) return __rdtsc();
#endif
  return monotonicNs();
}

// A duration in ticks, in nanoseconds.
inline std::uint64_t ticksToNs(std::uint64_t ticks) noexcept {
  const detail::TickSource& source = detail::tickSource();
  if (!source.tsc) return ticks;
  return static_cast<std::uint64_t>(
      (static_cast<unsigned __int128>(ticks) * source.nsPerTickFixed) >> 32);
}

// True when ticks are TSC increments on this machine.
inline bool ticksAreTsc() noexcept { return detail::tickSource().tsc; }

}  // namespace Nimlog
