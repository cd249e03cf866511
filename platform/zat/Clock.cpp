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

double Clock::nextDeadline() const {
  return schedule_.empty() ? kNever : schedule_.front().deadline;
}

uint64_t Clock::nextSequence() const {
  return schedule_.empty() ? UINT64_MAX : schedule_.front().seq;
}

bool Clock::fireNext(double upTo) {
  if (schedule_.empty()) return false;
  Notifiee* n = schedule_.front().notifiee;
  if (schedule_.front().deadline > upTo) return false;
  unschedule(n);
  n->scheduled_ = false;
  n->timeMin_ = kNever;
  Ptr<Notifiee> hold(n);
  n->handleTime();
  return true;
}

void Clock::place(size_t i, const Entry& e) const {
  schedule_[i] = e;
  e.notifiee->heapIndex_ = i;
}

void Clock::siftUp(size_t i) const {
  const Entry e = schedule_[i];
  while (i > 0) {
    const size_t parent = (i - 1) / 2;
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
    size_t child = 2 * i + 1;
    if (child >= n) break;
    if (child + 1 < n && earlier(schedule_[child + 1], schedule_[child])) ++child;
    if (!earlier(schedule_[child], e)) break;
    place(i, schedule_[child]);
    i = child;
  }
  place(i, e);
}

void Clock::schedule(Notifiee* n) const {
  schedule_.push_back(Entry{n->timeMin_, n->seq_, n});
  siftUp(schedule_.size() - 1);
}

void Clock::unschedule(Notifiee* n) const {
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
  d.attribute("armed", toText(schedule_.size()));
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
