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
  return schedule_.empty() ? kNever : std::get<0>(*schedule_.begin());
}

uint64_t Clock::nextSequence() const {
  return schedule_.empty() ? UINT64_MAX : std::get<1>(*schedule_.begin());
}

bool Clock::fireNext(double upTo) {
  if (schedule_.empty()) return false;
  auto [deadline, seq, n] = *schedule_.begin();
  if (deadline > upTo) return false;
  schedule_.erase(schedule_.begin());
  n->scheduled_ = false;
  n->timeMin_ = kNever;
  Ptr<Notifiee> hold(n);
  n->handleTime();
  return true;
}

void Clock::schedule(Notifiee* n) const { schedule_.emplace(n->timeMin_, n->seq_, n); }

void Clock::unschedule(Notifiee* n) const { schedule_.erase(Entry(n->timeMin_, n->seq_, n)); }

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
