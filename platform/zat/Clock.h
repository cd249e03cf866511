// Zat::Clock: timers for state machines.
//
// A poller holds a clock notifiee (its ZatClock reactor) and arms it with
// timeMinIs(<absolute seconds>); when the activity manager's time reaches that
// deadline the notifiee's handleTime() runs. Deadlines that tie fire in the
// order they were armed. Time itself belongs to the activity manager
// (Activity.h): real time in the agent, simulated time in unit tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "zat/Notifiee.h"
#include "zat/String.h"

namespace Zat {

class Clock : public PtrInterface {
 public:
  static constexpr double kNever = std::numeric_limits<double>::infinity();

  class Notifiee : public NotifieeOf<Clock> {
   public:
    Notifiee() = default;
    explicit Notifiee(const Ptr<const Clock>& clock) : NotifieeOf<Clock>(clock) {}
    ~Notifiee() override;

    // The armed deadline in absolute seconds; kNever when not armed.
    double timeMin() const { return timeMin_; }
    // Arms the notifiee to fire once at absolute time `t` (replacing any earlier
    // deadline); kNever disarms. A deadline in the past fires at the next step.
    void timeMinIs(double t);
    // Runs when the clock reaches timeMin(); the notifiee is disarmed first, so
    // the handler may arm it again.
    virtual void handleTime() {}

    void hasNotificationActiveIs(bool value) override;
    void zatDoZombieReactors(bool value) override;
    using NotifieeOf<Clock>::notifierIs;
    void notifierIs(const Ptr<const PtrInterface>& notifier) override;

   private:
    friend class Clock;
    void scheduleUpdate();
    double timeMin_ = kNever;
    uint64_t seq_ = 0;
    size_t heapIndex_ = 0;  // where the clock keeps it while scheduled
    bool scheduled_ = false;
  };

  static Ptr<Clock> ClockIs(const Name& name);
  ~Clock() override;

  const Name& name() const { return name_; }
  // The current time in seconds (the activity manager's).
  double now() const;
  // Earliest armed deadline, kNever when none.
  double nextDeadline() const;
  // Arming sequence of the earliest deadline (for tie-breaking across clocks).
  uint64_t nextSequence() const;
  // Fires the earliest notifiee if its deadline is <= `upTo`; returns whether one fired.
  bool fireNext(double upTo);
  size_t armedCount() const { return schedule_.size(); }

  const char* fwkType() const override { return "Zat::Clock"; }
  void attributesDescribe(Describer& d) const override;

 protected:
  explicit Clock(Name name);

 private:
  // The armed notifiees, as a binary min-heap on (deadline, arming sequence) with
  // the keys copied in, so that ordering them touches no notifiee. Every poller
  // re-arms itself once per tick, mostly at the latest deadline of all, which a
  // heap takes in one comparison and without an allocation. A scheduled
  // notifiee's timeMin_ and seq_ do not change while it is in the heap.
  struct Entry {
    double deadline;
    uint64_t seq;
    Notifiee* notifiee;
  };
  static bool earlier(const Entry& a, const Entry& b) {
    if (a.deadline < b.deadline) return true;
    if (b.deadline < a.deadline) return false;
    return a.seq < b.seq;
  }
  void schedule(Notifiee* n) const;
  void unschedule(Notifiee* n) const;
  void place(size_t i, const Entry& e) const;
  void siftUp(size_t i) const;
  void siftDown(size_t i) const;
  Name name_;
  mutable std::vector<Entry> schedule_;
};

}  // namespace Zat
