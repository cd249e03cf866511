// Zat text trace: leveled, per-module text lines, off by default.
//
// Levels run 0..9; a module traces a line at level L when its enabled level is
// >= L. The agent enables modules (the framework also reads the environment
// variable ZAT_TRACE, e.g. "VornCountersSm=8,Brim=3" or "*=6", on first use).
// Lines go to a sink, stderr by default; tests install a capturing sink.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>

namespace Zat::Trace {

using Sink = std::function<void(std::string_view module, int level, const std::string& text)>;

// Enables `module` ("*" for every module) up to `level`; a negative level disables.
void levelIs(std::string_view module, int level);
int level(std::string_view module);
// Disables every module and restores the environment-free default (all off).
void reset();
// Parses "mod=level,mod2=level" into levelIs calls; raises std::invalid_argument on bad text.
void configure(std::string_view settings);
namespace detail {
// True once the environment has been read and no module is enabled: every trace
// site of every handler asks, so that common answer needs no call and no lock.
extern std::atomic<bool> allQuiet;
// Moves on every change of any module's level; never 0, so a site that has not
// looked yet is out of date.
extern std::atomic<std::uint64_t> levelGeneration;
// The module's enabled level (-1 when off), after reading the environment once.
int currentLevel(std::string_view module);
}  // namespace detail

inline bool enabled(std::string_view module, int level) {
  if (detail::allQuiet.load(std::memory_order_relaxed)) [[likely]]
    return false;
  return detail::currentLevel(module) >= level;
}

// What one trace site last learnt of its module's level. With one module traced,
// every site of every other module still asks on every pass; the answer is looked
// up (under the levels' lock) only when some level changed since the site last
// looked. The module must be the same on every pass of the site.
class SiteLevel {
 public:
  bool enabled(std::string_view module, int level) {
    if (detail::allQuiet.load(std::memory_order_relaxed)) [[likely]]
      return false;
    const std::uint64_t generation = detail::levelGeneration.load(std::memory_order_acquire);
    std::uint64_t seen = seen_.load(std::memory_order_relaxed);
    if (seen >> kLevelBits != generation) seen = refresh(module, generation);
    return static_cast<int>(seen & kLevelMask) - 1 >= level;
  }

 private:
  // The generation and the level plus one (levels run -1..9), in one word so that
  // sites shared between threads read both together.
  static constexpr int kLevelBits = 4;
  static constexpr std::uint64_t kLevelMask = (1u << kLevelBits) - 1;
  std::uint64_t refresh(std::string_view module, std::uint64_t generation) {
    const int found = detail::currentLevel(module);
    const std::uint64_t stored = static_cast<std::uint64_t>(found < -1  ? 0
                                                            : found > 9 ? 10
                                                                        : found + 1);
    const std::uint64_t seen = generation << kLevelBits | stored;
    seen_.store(seen, std::memory_order_relaxed);
    return seen;
  }
  std::atomic<std::uint64_t> seen_{0};
};

void sinkIs(Sink sink);
// Restores the stderr sink.
void sinkDel();
void write(std::string_view module, int level, const std::string& text);

}  // namespace Zat::Trace

// Traces `expr` (a stream expression) when `module` is enabled at `lvl`; the
// expression is not evaluated otherwise. `module` is a constant of the site.
#define ZAT_TRACE(module, lvl, expr)                         \
  do {                                                       \
    static ::Zat::Trace::SiteLevel zat_trace_site_;          \
    if (zat_trace_site_.enabled(module, lvl)) [[unlikely]] { \
      std::ostringstream zat_trace_os_;                      \
      zat_trace_os_ << expr;                                 \
      ::Zat::Trace::write(module, lvl, zat_trace_os_.str()); \
    }                                                        \
  } while (0)
