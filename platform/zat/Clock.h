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
#include <deque>
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
    // Where the clock keeps it while scheduled: the heap's index, or the lane's
    // position counted from the lane's first entry ever.
    size_t heapIndex_ = 0;
    uint64_t lanePosition_ = 0;
    bool inLane_ = false;
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
  size_t armedCount() const { return schedule_.size() + laneArmed_; }

  const char* fwkType() const override { return "Zat::Clock"; }
  void attributesDescribe(Describer& d) const override;

 protected:
  explicit Clock(Name name);

 private:
  // The armed notifiees, ordered by (deadline, arming sequence), in two parts:
  //  - the lane, a queue of deadlines armed in order: every poller re-arms itself
  //    at now + period after its tick, the latest deadline of all, so nearly
  //    every arming appends to the lane and every tick pops its front, both
  //    without an allocation, a comparison chain or a move;
  //  - the heap, a min-heap (four children per node) for the deadlines armed
  //    out of order.
  // The earliest of the two fronts is the next to fire. Keys are copied into the
  // entries so that comparing them touches no notifiee. A scheduled notifiee's
  // timeMin_ and seq_ do not change while it is scheduled. A lane entry removed
  // before its turn keeps its key and loses its notifiee; such holes are passed
  // over when they reach the front.
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
  // The earliest entry; requires armedCount() > 0.
  const Entry& front() const;
  void dropLaneHoles() const;
  static constexpr size_t kArity = 4;
  // Inline: every step of a sift calls it.
  void place(size_t i, const Entry& e) const {
    schedule_[i] = e;
    e.notifiee->heapIndex_ = i;
  }
  void siftUp(size_t i) const;
  void siftDown(size_t i) const;
  Name name_;
  mutable std::vector<Entry> schedule_;  // the heap
  mutable std::deque<Entry> lane_;       // front is never a hole
  mutable uint64_t laneBase_ = 0;        // entries ever popped from the lane's front
  mutable size_t laneArmed_ = 0;         // lane entries that are not holes
};

}  // namespace Zat
