// Nimlog block timers: how often each handler runs and how long it takes.
//
// NIMLOG_BLOCK_TIMER("name") measures the rest of the enclosing scope and adds the
// duration to the statistics kept under that name (count, total, maximum). The agent
// reads them through blockTimerStats(), which the framework's generic attribute
// interface exposes. A measurement costs two tick reads and a few adds; a
// scope left by an exception is measured too.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nimlog/Clock.h"
#include "nimlog/Ticks.h"

namespace Nimlog {

namespace detail {
// A number that tells the calling thread from every other live thread; never 0.
// On x86-64 Linux a thread's handle is its thread pointer, read inline here rather
// than through a call into the C library on every measurement.
inline std::uintptr_t threadToken() noexcept {
#if defined(__x86_64__) && defined(__linux__)
  std::uintptr_t self;
  __asm__("mov %%fs:0, %0" : "=r"(self));
  return self;
#else
  return static_cast<std::uintptr_t>(::pthread_self());
#endif
}
}  // namespace detail

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
//
// The first thread to add to a cell owns it and adds with plain stores, which cost
// a fraction of the locked adds that other threads use: a name is nearly always
// timed on one thread (the activity loop), and every poll of every poller runs two
// timers. Readers sum the owner's and the other threads' figures.
class BlockTimerCell {
 public:
  explicit BlockTimerCell(std::string name) : name_(std::move(name)) {}
  BlockTimerCell(const BlockTimerCell&) = delete;
  BlockTimerCell& operator=(const BlockTimerCell&) = delete;

  void add(std::uint64_t ns) noexcept {
    const std::uintptr_t me = detail::threadToken();
    std::uintptr_t owner = owner_.load(std::memory_order_relaxed);
    if (owner == me ||
        (owner == 0 && owner_.compare_exchange_strong(owner, me, std::memory_order_relaxed))) {
      addOwned(ns);
      return;
    }
    shared_.count.fetch_add(1, std::memory_order_relaxed);
    shared_.totalNs.fetch_add(ns, std::memory_order_relaxed);
    raiseMax(shared_.maxNs, ns);
  }
  // The values are read one after the other: a measurement finishing meanwhile may
  // show in some and not yet in others.
  BlockTimerStats stats() const;
  // The owner's figures are cleared by the owner itself at its next measurement (and
  // read as zero until then), so a reset never races with its plain stores.
  void reset() noexcept;
  const std::string& name() const { return name_; }

 private:
  struct Figures {
    std::atomic<std::uint64_t> count{0};
    std::atomic<std::uint64_t> totalNs{0};
    std::atomic<std::uint64_t> maxNs{0};
  };

  static void raiseMax(std::atomic<std::uint64_t>& max, std::uint64_t ns) noexcept {
    std::uint64_t seen = max.load(std::memory_order_relaxed);
    while (ns > seen && !max.compare_exchange_weak(seen, ns, std::memory_order_relaxed)) {
    }
  }

  void addOwned(std::uint64_t ns) noexcept {
    if (ownedResetPending_.load(std::memory_order_acquire)) {
      owned_.count.store(0, std::memory_order_relaxed);
      owned_.totalNs.store(0, std::memory_order_relaxed);
      owned_.maxNs.store(0, std::memory_order_relaxed);
      ownedResetPending_.store(false, std::memory_order_release);
    }
    // Only this thread writes these, so a load and a store add without a lock.
    owned_.count.store(owned_.count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    owned_.totalNs.store(owned_.totalNs.load(std::memory_order_relaxed) + ns,
                         std::memory_order_relaxed);
    if (ns > owned_.maxNs.load(std::memory_order_relaxed)) {
      owned_.maxNs.store(ns, std::memory_order_relaxed);
    }
  }

  const std::string name_;
  std::atomic<std::uintptr_t> owner_{0};  // threadToken() of the owner, 0 for none yet
  std::atomic<bool> ownedResetPending_{false};
  Figures owned_;
  Figures shared_;
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
