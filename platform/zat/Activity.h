// Zat activity manager: the agent's single activity thread and its time.
//
// The manager owns the notion of "now" (Zat::System::currentTime()) and fires
// clock notifiees whose deadlines are due. Two drivers:
//  - real time: run()/runFor() sleep until the next deadline (or a watched file
//    descriptor becomes readable) and fire what is due;
//  - simulated time, for tests: advanceTo()/advanceBy() move time exactly, firing
//    due notifiees in deadline order (ties in arming order), each at its own
//    deadline, and finally set now to the target.
// The component never reads the wall clock itself; it asks this manager.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include "zat/Clock.h"

namespace Zat {

class ActivityManager {
 public:
  class Config {
   public:
    // The framework clock handed to pollers.
    Ptr<Clock> clock() const;

   private:
    friend class ActivityManager;
    mutable Ptr<Clock> clock_;
  };

  Config* config() { return &config_; }

  // Current time in seconds.
  double now() const;

  // Switches to simulated time starting at `start` seconds (tests), or back to real time.
  void simulatedTimeIs(bool on, double start = 1000.0);
  bool simulatedTime() const { return simulated_; }
  // Requires: simulated time. Fires every deadline <= t in order, then sets now = t.
  void advanceTo(double t);
  void advanceBy(double dt) { advanceTo(now() + dt); }

  // Real-time loop. Runs until stop() or until `seconds` have passed.
  void runFor(double seconds);
  void run() { runFor(Clock::kNever); }
  // Ends runFor() once the handler or fd callback that calls it returns. The loop
  // does not wake to look: from a signal handler or another thread, also make one of
  // the loop's fds readable.
  void stop() { stopRequested_ = true; }
  // How many times the real-time loop has gone to sleep: once per wake-up.
  uint64_t waits() const { return waits_; }
  // Calls `onReadable` from the loop whenever `fd` is readable.
  void fdIs(int fd, std::function<void()> onReadable);
  void fdDel(int fd);

  // Fires every notifiee due at the current time; returns how many fired.
  size_t fireDue();
  double nextDeadline() const;

  // Clock registry, maintained by Clock's constructor and destructor.
  void clockAdd(Clock* c) { clocks_.push_back(c); }
  void clockRemove(Clock* c);
  uint64_t nextArmSequence() { return ++armSequence_; }

 private:
  Clock* earliestClock(double upTo) const;
  double realNow() const;
  // Real time from the monotonic clock itself, on any thread.
  double clockRealNow() const;
  // Ties the loop thread's tick extrapolation to a fresh clock read.
  void anchorIs() const;
  // Clocks register here; config_ (which owns the framework clock) is declared
  // after the registry so that it is destroyed first.
  std::vector<Clock*> clocks_;
  Config config_;
  std::map<int, std::function<void()>> fds_;
  bool simulated_ = false;
  double simNow_ = 0.0;
  bool stopRequested_ = false;
  uint64_t armSequence_ = 0;
  uint64_t waits_ = 0;
  // While the real-time loop runs on a machine whose ticks are the TSC, its own
  // thread reads real time as the last clock read (the anchor) plus the ticks
  // since: a handful of nanoseconds where a clock read costs tens, several times
  // per poll. The loop re-anchors after each wait and every few milliseconds, and
  // never lets time go back. Other threads read the clock as before.
  std::atomic<std::thread::id> anchoredThread_{};
  mutable uint64_t anchorTicks_ = 0;
  mutable double anchorSeconds_ = 0.0;
  mutable double lastLoopNow_ = 0.0;
};

ActivityManager* activityManager();

namespace System {
// The activity manager's current time, in seconds.
double currentTime();
}  // namespace System

}  // namespace Zat
