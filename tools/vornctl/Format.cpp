#include "tools/vornctl/Format.h"

#include <fmt/core.h>

#include <chrono>
#include <cmath>
#include <ctime>

namespace Ctl {

namespace {
std::string groupDigits(const std::string& digits) {
  std::string out;
  size_t lead = digits.size() % 3;
  if (lead == 0) lead = 3;
  out.reserve(digits.size() + digits.size() / 3);
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i >= lead && (i - lead) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}
}  // namespace

std::string groupThousands(uint64_t value) {
  // Digits from the right straight into place: tables show thousands of these.
  char buf[32];
  char* const end = buf + sizeof buf;
  char* p = end;
  int digits = 0;
  do {
    if (digits > 0 && digits % 3 == 0) *--p = ',';
    *--p = static_cast<char>('0' + value % 10);
    value /= 10;
    ++digits;
  } while (value != 0);
  return std::string(p, end);
}

std::string groupThousands(double value, int decimals) {
  if (!std::isfinite(value)) return fmt::format("{}", value);
  std::string text = fmt::format("{:.{}f}", std::fabs(value), decimals);
  size_t dot = text.find('.');
  std::string whole = dot == std::string::npos ? text : text.substr(0, dot);
  std::string frac = dot == std::string::npos ? "" : text.substr(dot);
  // A value that rounds to zero keeps no sign ("-0.0" would read as a fault).
  bool negative = std::signbit(value) && text.find_first_not_of("0.") != std::string::npos;
  std::string out = negative ? "-" : "";
  out += groupDigits(whole);
  out += frac;
  return out;
}

std::string ageText(double seconds) {
  if (!(seconds >= 0)) seconds = 0;
  auto s = static_cast<uint64_t>(seconds);
  if (s < 60) return fmt::format("{}s", s);
  if (s < 3600) return fmt::format("{}m{:02}s", s / 60, s % 60);
  if (s < 86400) return fmt::format("{}h{:02}m", s / 3600, (s % 3600) / 60);
  return fmt::format("{}d{:02}h", s / 86400, (s % 86400) / 3600);
}

std::string timeText(double when, double now) {
  if (when == 0) return "never";
  if (!std::isfinite(when)) return fmt::format("{}", when);
  std::time_t t = static_cast<std::time_t>(std::floor(when));
  std::tm local{};
  if (!localtime_r(&t, &local)) return fmt::format("{:.1f}", when);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
  double age = now - when;
  // Readings and the reader's clock differ by a fraction of a second either way.
  if (age > -1) return fmt::format("{} ({} ago)", date, ageText(std::max(age, 0.0)));
  return fmt::format("{} (in {})", date, ageText(-age));
}

double wallClockNow() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace Ctl
