#include "zat/Clock.h"

#include <algorithm>

#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Zat {

Ptr<Clock> Clock::ClockIs(const Name& name) { return Ptr<Clock>(new Clock(name)); }

Clock::Clock(Name name) : name_(std::move(name)) { activityManager()->clockAdd(this); }

Clock::~Clock() {
  // Notifiees hold references to their clock, so none can still be scheduled.
  activityManager()->clockRemove(this);
}

double Clock::now() const { return activityManager()->now(); }

const Clock::Entry& Clock::front() const {
  if (lane_.empty()) return schedule_.front();
  if (schedule_.empty()) return lane_.front();
  return earlier(schedule_.front(), lane_.front()) ? schedule_.front() : lane_.front();
}

double Clock::nextDeadline() const { return armedCount() == 0 ? kNever : front().deadline; }

uint64_t Clock::nextSequence() const { return armedCount() == 0 ? UINT64_MAX : front().seq; }

bool Clock::fireNext(double upTo) {
  if (armedCount() == 0) return false;
  const Entry& next = front();
  if (next.deadline > upTo) return false;
  Notifiee* n = next.notifiee;
  unschedule(n);
  n->scheduled_ = false;
  n->timeMin_ = kNever;
  Ptr<Notifiee> hold(n);
  n->handleTime();
  return true;
}

void Clock::dropLaneHoles() const {
  while (!lane_.empty() && lane_.front().notifiee == nullptr) {
    lane_.pop_front();
    ++laneBase_;
  }
}

// Four children per node: half the depth of a binary heap, so a tick's pop moves
// half as many entries (each move also tells its notifiee where it went), and the
// four keys compared per level sit side by side.
void Clock::siftUp(size_t i) const {
  const Entry e = schedule_[i];
  while (i > 0) {
    const size_t parent = (i - 1) / kArity;
    if (!earlier(e, schedule_[parent])) break;
    place(i, schedule_[parent]);
    i = parent;
  }
  place(i, e);
}

void Clock::siftDown(size_t i) const {
  const Entry e = schedule_[i];
  const size_t n = schedule_.size();
  while (true) {
    const size_t first = kArity * i + 1;
    if (first >= n) break;
    size_t child = first;
    const size_t end = std::min(first + kArity, n);
    for (size_t c = first + 1; c < end; ++c) {
      if (earlier(schedule_[c], schedule_[child])) child = c;
    }
    if (!earlier(schedule_[child], e)) break;
    place(i, schedule_[child]);
    i = child;
  }
  place(i, e);
}

void Clock::schedule(Notifiee* n) const {
  const Entry e{n->timeMin_, n->seq_, n};
  if (lane_.empty() || !earlier(e, lane_.back())) {
    n->inLane_ = true;
    n->lanePosition_ = laneBase_ + lane_.size();
    lane_.push_back(e);
    ++laneArmed_;
    return;
  }
  n->inLane_ = false;
  schedule_.push_back(e);
  siftUp(schedule_.size() - 1);
}

void Clock::unschedule(Notifiee* n) const {
  if (n->inLane_) {
    if (n->lanePosition_ < laneBase_) return;
    const uint64_t i = n->lanePosition_ - laneBase_;
    if (i >= lane_.size() || lane_[i].notifiee != n) return;
    lane_[i].notifiee = nullptr;
    --laneArmed_;
    dropLaneHoles();
    // Without armed entries the lane only holds holes; emptied, it takes any
    // deadline again.
    if (laneArmed_ == 0) {
      laneBase_ += lane_.size();
      lane_.clear();
    }
    return;
  }
  const size_t i = n->heapIndex_;
  if (i >= schedule_.size() || schedule_[i].notifiee != n) return;
  const Entry last = schedule_.back();
  schedule_.pop_back();
  if (i == schedule_.size()) return;
  // The last entry fills the hole, then moves whichever way its key says.
  place(i, last);
  siftUp(i);
  siftDown(last.notifiee->heapIndex_);
}

void Clock::attributesDescribe(Describer& d) const {
  d.attribute("name", toText(name_));
  d.attribute("now", toText(now()));
  d.attribute("armed", toText(armedCount()));
}

// --- Clock::Notifiee ---

Clock::Notifiee::~Notifiee() {
  if (scheduled_ && notifier()) notifier()->unschedule(this);
}

void Clock::Notifiee::timeMinIs(double t) {
  if (scheduled_) {
    notifier()->unschedule(this);
    scheduled_ = false;
  }
  timeMin_ = t;
  seq_ = activityManager()->nextArmSequence();
  scheduleUpdate();
}

void Clock::Notifiee::scheduleUpdate() {
  bool want = notifier() && hasNotificationActive() && !zombie() && timeMin_ != kNever;
  if (want == scheduled_) return;
  if (want) {
    notifier()->schedule(this);
  } else {
    notifier()->unschedule(this);
  }
  scheduled_ = want;
}

void Clock::Notifiee::hasNotificationActiveIs(bool value) {
  NotifieeOf<Clock>::hasNotificationActiveIs(value);
  scheduleUpdate();
}

void Clock::Notifiee::zatDoZombieReactors(bool value) {
  NotifieeOf<Clock>::zatDoZombieReactors(value);
  scheduleUpdate();
}

void Clock::Notifiee::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (scheduled_) {
    this->notifier()->unschedule(this);
    scheduled_ = false;
  }
  NotifieeOf<Clock>::notifierIs(notifier);
  scheduleUpdate();
}

}  // namespace Zat
