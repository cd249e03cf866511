// Nimlog block timers: how often each handler runs and how long it takes.
//
// NIMLOG_BLOCK_TIMER("name") measures the rest of the enclosing scope and adds the
// duration to the statistics kept under that name (count, total, maximum). The agent
// reads them through blockTimerStats(), which the framework's generic attribute
// interface exposes. A measurement costs two tick reads and a few atomic adds; a
// scope left by an exception is measured too.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nimlog/Clock.h"
#include "nimlog/Ticks.h"

namespace Nimlog {

// Statistics of one timer name, as read at one moment.
struct BlockTimerStats {
  std::string name;
  std::uint64_t count = 0;
  std::uint64_t totalNs = 0;
  std::uint64_t maxNs = 0;

  friend bool operator==(const BlockTimerStats&, const BlockTimerStats&) = default;
};

// The live statistics of one timer name; every site with that name shares it.
// Lives until the process ends.
class BlockTimerCell {
 public:
  explicit BlockTimerCell(std::string name) : name_(std::move(name)) {}
  BlockTimerCell(const BlockTimerCell&) = delete;
  BlockTimerCell& operator=(const BlockTimerCell&) = delete;

  void add(std::uint64_t ns) noexcept {
    count_.fetch_add(1, std::memory_order_relaxed);
    totalNs_.fetch_add(ns, std::memory_order_relaxed);
    std::uint64_t max = maxNs_.load(std::memory_order_relaxed);
    while (ns > max && !maxNs_.compare_exchange_weak(max, ns, std::memory_order_relaxed)) {
    }
  }
  // The three values are read one after the other: a measurement finishing meanwhile
  // may show in some and not yet in others.
  BlockTimerStats stats() const;
  void reset() noexcept;
  const std::string& name() const { return name_; }

 private:
  const std::string name_;
  std::atomic<std::uint64_t> count_{0};
  std::atomic<std::uint64_t> totalNs_{0};
  std::atomic<std::uint64_t> maxNs_{0};
};

// The cell for `name`, created on first use. Takes a lock: call it once per site.
BlockTimerCell& blockTimerCell(const char* name);

// Every timer name used so far, sorted by name (names never used since the last reset
// show a count of 0).
std::vector<BlockTimerStats> blockTimerStats();

// The statistics of one timer name, or nullopt when no site of that name has run yet.
std::optional<BlockTimerStats> blockTimerStatsOf(const std::string& name);

// Sets every timer's count, total and maximum to 0.
void blockTimerStatsReset() noexcept;

// Measures its own lifetime into a cell. Use NIMLOG_BLOCK_TIMER rather than this.
// With no time source installed it reads ticks (see Ticks.h), the cheapest clock
// there is; an installed source is read instead, so tests see their own clock's
// nanoseconds. The clock is chosen when the timer starts and kept to its end.
class BlockTimer {
 public:
  explicit BlockTimer(BlockTimerCell& cell) noexcept
      : cell_(cell),
        source_(detail::timeSource.load(std::memory_order_relaxed)),
        start_(source_ != nullptr ? source_() : ticksNow()) {}
  ~BlockTimer() {
    if (source_ != nullptr) {
      const std::uint64_t end = source_();
      // A settable test clock may be moved back mid-scope; count zero, not years.
      cell_.add(end > start_ ? end - start_ : 0);
      return;
    }
    const std::uint64_t end = ticksNow();
    cell_.add(end > start_ ? ticksToNs(end - start_) : 0);
  }
  BlockTimer(const BlockTimer&) = delete;
  BlockTimer& operator=(const BlockTimer&) = delete;

 private:
  BlockTimerCell& cell_;
  const TimeSource source_;
  const std::uint64_t start_;
};

}  // namespace Nimlog

#define NIMLOG_CONCAT_INNER_(a, b) a##b
#define NIMLOG_CONCAT_(a, b) NIMLOG_CONCAT_INNER_(a, b)

// Measures the rest of the enclosing scope under `name`, a string constant (it is read
// once, when the site first runs). A statement: it declares two local names.
#define NIMLOG_BLOCK_TIMER(name)                                                \
  static ::Nimlog::BlockTimerCell& NIMLOG_CONCAT_(nimlogTimerCell_, __LINE__) = \
      ::Nimlog::blockTimerCell(name);                                           \
  const ::Nimlog::BlockTimer NIMLOG_CONCAT_(nimlogTimer_,                       \
                                            __LINE__)(NIMLOG_CONCAT_(nimlogTimerCell_, __LINE__))
