// Zat text trace: leveled, per-module text lines, off by default.
//
// Levels run 0..9; a module traces a line at level L when its enabled level is
// >= L. The agent enables modules (the framework also reads the environment
// variable ZAT_TRACE, e.g. "VornCountersSm=8,Brim=3" or "*=6", on first use).
// Lines go to a sink, stderr by default; tests install a capturing sink.
#pragma once

#include <atomic>
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
bool enabledSlow(std::string_view module, int level);
}  // namespace detail
inline bool enabled(std::string_view module, int level) {
  if (detail::allQuiet.load(std::memory_order_relaxed)) [[likely]] return false;
  return detail::enabledSlow(module, level);
}
void sinkIs(Sink sink);
// Restores the stderr sink.
void sinkDel();
void write(std::string_view module, int level, const std::string& text);

}  // namespace Zat::Trace

// Traces `expr` (a stream expression) when `module` is enabled at `lvl`; the
// expression is not evaluated otherwise.
#define ZAT_TRACE(module, lvl, expr)                         \
  do {                                                       \
    if (::Zat::Trace::enabled(module, lvl)) [[unlikely]] {   \
      std::ostringstream zat_trace_os_;                      \
      zat_trace_os_ << expr;                                 \
      ::Zat::Trace::write(module, lvl, zat_trace_os_.str()); \
    }                                                        \
  } while (0)
