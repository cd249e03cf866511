#include "nimlog/Ticks.h"

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <string>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace Nimlog::detail {

namespace {

constexpr const char* kClocksourcePath =
    "/sys/devices/system/clocksource/clocksource0/current_clocksource";
// Long enough that two monotonic reads a few tens of nanoseconds apart give the
// rate to a few parts in a hundred thousand; short enough to go unnoticed once.
constexpr std::uint64_t kCalibrationNs = 1'000'000;

bool cpuHasInvariantTsc() noexcept {
#if defined(__x86_64__)
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  // One compiler's header declares the result signed, the other's unsigned.
  if (static_cast<unsigned>(__get_cpuid_max(0x80000000u, nullptr)) < 0x80000007u) return false;
  if (!__get_cpuid(0x80000007u, &eax, &ebx, &ecx, &edx)) return false;
  return (edx & (1u << 8)) != 0;
#else
  return false;
#endif
}

// The kernel's current clocksource name, or "" when it cannot be read.
std::string kernelClocksource() noexcept {
  const int fd = ::open(kClocksourcePath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  char buf[64];
  const ssize_t n = ::read(fd, buf, sizeof buf);
  ::close(fd);
  if (n <= 0) return {};
  std::string name(buf, static_cast<size_t>(n));
  while (!name.empty() && (name.back() == '\n' || name.back() == ' ')) name.pop_back();
  return name;
}

}  // namespace

bool tscTrusted(bool invariantTsc, std::string_view clocksource) noexcept {
  return invariantTsc && clocksource == "tsc";
}

TickSource probeTickSource() noexcept {
  TickSource source;
#if defined(__x86_64__)
  if (!tscTrusted(cpuHasInvariantTsc(), kernelClocksource())) return source;
  const std::uint64_t ns0 = monotonicNs();
  const std::uint64_t tsc0 = __rdtsc();
  std::uint64_t ns1 = ns0;
  std::uint64_t tsc1 = tsc0;
  while (ns1 - ns0 < kCalibrationNs) {
    ns1 = monotonicNs();
    tsc1 = __rdtsc();
  }
  if (tsc1 <= tsc0) return source;  // a counter that stood still is no clock
  source.tsc = true;
  source.nsPerTick = static_cast<double>(ns1 - ns0) / static_cast<double>(tsc1 - tsc0);
  source.nsPerTickFixed = static_cast<std::uint64_t>(std::ldexp(source.nsPerTick, 32) + 0.5);
#endif
  return source;
}

}  // namespace Nimlog::detail
