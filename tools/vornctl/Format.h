// How the reader's text tables show numbers and times: counters with thousands
// separators, times as a local date with an age. JSON output keeps the raw
// values; these are for people only.
#pragma once

#include <cstdint>
#include <string>

namespace Ctl {

// 1234567 -> "1,234,567".
std::string groupThousands(uint64_t value);

// A rate or other non-negative amount with `decimals` places and a grouped
// integer part: 1234567.26 -> "1,234,567.3" for one place. Negative values keep
// their sign; NaN and infinities are shown as they are.
std::string groupThousands(double value, int decimals);

// Seconds as a short age: "0s", "42s", "5m07s", "3h05m", "2d04h".
std::string ageText(double seconds);

// A time in seconds since 1970 as "2026-11-22 21:40:05 (3s ago)" in local time,
// measured against `now` (also seconds since 1970). A time in the future reads
// "(in 3s)"; 0 means it never happened and reads "never".
std::string timeText(double when, double now);

// The wall clock, in seconds since 1970.
double wallClockNow();

}  // namespace Ctl
