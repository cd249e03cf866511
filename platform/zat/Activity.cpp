#include "zat/Activity.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include "nimlog/Ticks.h"

namespace Zat {

namespace {
// How late the real-time loop may fire a timer, in seconds.
constexpr double kTimerSlack = 0.002;
// The longest single wait of the real-time loop, in seconds: only so that the wait
// in milliseconds fits its type when nothing is due, ever.
constexpr double kLongestWait = 3600.0;
// The longest the loop thread extrapolates real time from one clock read. The
// tick rate is known to a few parts in a hundred thousand, so this bounds the
// error to well under a microsecond.
constexpr uint64_t kAnchorSpanNs = 5'000'000;

// Real time is the wall clock at start plus steady elapsed time, so published
// timestamps are meaningful to readers and never go backwards.
struct RealTimeBase {
  std::chrono::steady_clock::time_point steadyStart = std::chrono::steady_clock::now();
  double wallStart =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
};
const RealTimeBase& realTimeBase() {
  static RealTimeBase base;
  return base;
}
}  // namespace

ActivityManager* activityManager() {
  static ActivityManager manager;
  return &manager;
}

double System::currentTime() { return activityManager()->now(); }

Ptr<Clock> ActivityManager::Config::clock() const {
  if (!clock_) clock_ = Clock::ClockIs("activityClock");
  return clock_;
}

double ActivityManager::clockRealNow() const {
  const auto& b = realTimeBase();
  return b.wallStart +
         std::chrono::duration<double>(std::chrono::steady_clock::now() - b.steadyStart).count();
}

void ActivityManager::anchorIs() const {
  anchorTicks_ = Nimlog::ticksNow();
  anchorSeconds_ = std::max(clockRealNow(), lastLoopNow_);
  lastLoopNow_ = anchorSeconds_;
}

double ActivityManager::realNow() const {
  if (anchoredThread_.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    return clockRealNow();
  }
  const uint64_t sinceNs = Nimlog::ticksToNs(Nimlog::ticksNow() - anchorTicks_);
  if (sinceNs > kAnchorSpanNs) {
    anchorIs();
    return anchorSeconds_;
  }
  lastLoopNow_ = std::max(lastLoopNow_, anchorSeconds_ + static_cast<double>(sinceNs) * 1e-9);
  return lastLoopNow_;
}

double ActivityManager::now() const { return simulated_ ? simNow_ : realNow(); }

void ActivityManager::simulatedTimeIs(bool on, double start) {
  simulated_ = on;
  simNow_ = start;
}

void ActivityManager::clockRemove(Clock* c) { std::erase(clocks_, c); }

Clock* ActivityManager::earliestClock(double upTo) const {
  Clock* best = nullptr;
  for (Clock* c : clocks_) {
    double d = c->nextDeadline();
    if (d > upTo) continue;
    if (!best || d < best->nextDeadline() ||
        (d == best->nextDeadline() && c->nextSequence() < best->nextSequence())) {
      best = c;
    }
  }
  return best;
}

double ActivityManager::nextDeadline() const {
  double d = Clock::kNever;
  for (Clock* c : clocks_) d = std::min(d, c->nextDeadline());
  return d;
}

void ActivityManager::advanceTo(double t) {
  if (!simulated_) throw std::logic_error("ActivityManager::advanceTo requires simulated time");
  // Take the earliest due timer afresh on every step: a handler may arm or
  // cancel timers, including ones due before t.
  while (Clock* c = earliestClock(t)) {
    simNow_ = std::max(simNow_, c->nextDeadline());
    c->fireNext(t);
  }
  simNow_ = std::max(simNow_, t);
}

size_t ActivityManager::fireDue() {
  size_t fired = 0;
  double t = now();
  while (Clock* c = earliestClock(t)) {
    c->fireNext(t);
    ++fired;
  }
  return fired;
}

void ActivityManager::fdIs(int fd, std::function<void()> onReadable) {
  fds_[fd] = std::move(onReadable);
}

void ActivityManager::fdDel(int fd) { fds_.erase(fd); }

void ActivityManager::runFor(double seconds) {
  if (simulated_) throw std::logic_error("ActivityManager::runFor requires real time");
  stopRequested_ = false;
  // Only where ticks are the TSC does extrapolating beat reading the clock.
  const bool anchored = Nimlog::ticksAreTsc();
  struct Anchoring {
    ActivityManager& am;
    bool on;
    Anchoring(ActivityManager& m, bool anchored) : am(m), on(anchored) {
      if (!on) return;
      am.anchorIs();
      am.anchoredThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    ~Anchoring() {
      if (on) am.anchoredThread_.store(std::thread::id(), std::memory_order_relaxed);
    }
  } anchoring(*this, anchored);
  double end = now() + seconds;
  while (!stopRequested_ && now() < end) {
    fireDue();
    if (stopRequested_) break;
    double wake = std::min(nextDeadline(), end);
    // Sleep a little past the deadline so that timers due within the slack fire
    // in one wake-up: thousands of pollers then cost a few wake-ups per period
    // instead of one each. Nothing else wakes an idle switch: each wake-up of a
    // virtual CPU costs more than many polls. stop() from a handler or an fd
    // callback is seen at once; a signal handler or another thread that wants the
    // loop to stop makes one of its fds readable.
    double waitS = std::clamp(wake - now() + kTimerSlack, 0.0, kLongestWait);
    std::vector<pollfd> pfds;
    for (const auto& [fd, cb] : fds_) pfds.push_back(pollfd{fd, POLLIN, 0});
    int ms = static_cast<int>(std::ceil(waitS * 1000.0));
    ++waits_;
    int n = ::poll(pfds.data(), pfds.size(), ms);
    // The wait took an unknown time: read the clock once for what follows.
    if (anchored) anchorIs();
    if (n > 0) {
      for (const auto& p : pfds) {
        if (!(p.revents & (POLLIN | POLLHUP | POLLERR))) continue;
        auto it = fds_.find(p.fd);
        if (it != fds_.end()) {
          auto cb = it->second;  // the callback may remove itself
          cb();
        }
      }
    }
  }
}

}  // namespace Zat
