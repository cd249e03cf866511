// Poll pacing shared by the interface counter pollers.
//
// Every poller arms its first tick at now + firstTickDelay(helper's first-poll
// delay, poll period) and later ticks at now + period, now being read after the
// poll. The helper's delay is a lower bound for the first tick only, so a period
// shorter than what the platform can serve still starts no sooner than that.
#pragma once

namespace Vorn::Counters {

// The larger of `firstPollDelay` and `period`. When they compare equal, or when
// either is not a number, the period wins: a helper that answers NaN must not
// keep a poller from ticking at its configured pace.
constexpr double firstTickDelay(double firstPollDelay, double period) {
  return firstPollDelay > period ? firstPollDelay : period;
}

}  // namespace Vorn::Counters
